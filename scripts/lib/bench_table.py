"""Makes the one table of scripts/bench from what the benchmark programs and callgrind wrote.

usage: bench_table.py FOLDER

FOLDER holds bench_*.json of Google Benchmark, each with repetitions, of which the median counts,
instructions.json with instructions per byte by name, program.json with the size of korvane.exe
and the number of libraries that it imports, and what the measure_*.py wrote. A row is read in its
columns: what we take, what the peer takes, what can't be undercut, ours against the peer, and
whether the target is met.
"""

import json
import pathlib
import sys

# What, the names of ours, peer and limit, the target in words, and its check on the row's times.
# A name that wasn't measured leaves its cell empty and its row "not measured".
ROWS = [
    ("Redaction, 1 MiB mixed log, beside PCRE2-JIT", "redact_mixed/ours", "redact_mixed/pcre2",
     "redact_mixed/scan", "peer/ours >= 7", lambda ours, peer, limit: peer / ours >= 7),
    ("... beside RE2", "redact_mixed/ours", "redact_mixed/re2", "redact_mixed/scan", "-", None),
    ("... beside std::regex", "redact_mixed/ours", "redact_mixed/std_regex", "redact_mixed/scan",
     "peer/ours >= 100", lambda ours, peer, limit: peer / ours >= 100),
    ("Redaction, 1 MiB clean log, beside PCRE2-JIT", "redact_clean/ours", "redact_clean/pcre2",
     "redact_clean/scan", "-", None),
    ("Breadcrumb line of 127 bytes", "redact_breadcrumb/ours", "redact_breadcrumb/pcre2",
     "redact_breadcrumb/scan", "peer/ours >= 1.56/0.35",
     lambda ours, peer, limit: peer / ours >= 1.56 / 0.35),
    ("One token of 64 MiB", "redact_token/ours/67108864", "redact_token/re2/67108864",
     "redact_token/ours/16777216", "ours/limit (a quarter of it) <= 5",
     lambda ours, peer, limit: ours / limit <= 5),
    ("Check of a clean 8 MB log", "migrate_clean/ours", None, "migrate_clean/read",
     "ours/limit <= 25", lambda ours, peer, limit: ours / limit <= 25),
    ("Listing of a full archive", "list_archive/ours", None, "list_archive/read",
     "ours/limit <= 30", lambda ours, peer, limit: ours / limit <= 30),
    ("Evidence, four durable steps of a session, beside SQLite", "evidence_write/ours",
     "evidence_write/sqlite", None, "-", None),
    *[(f"JSON document, {size // 1000} KB, beside {name}", f"json/ours/{size}",
       f"json/{peer}/{size}", None, f"peer/ours >= {factor}",
       lambda ours, peer, limit, factor=factor: peer / ours >= factor)
      for size in (200_000, 5_000_000)
      for name, peer, factor in (("nlohmann", "nlohmann", 2.5), ("RapidJSON", "rapidjson", 1))],
    *[(f"Codec, {what} 26 keys by 3 rows, beside {name}", f"{what}_rows/ours",
       f"{what}_rows/{peer}", None, "peer/ours > 1", lambda ours, peer, limit: peer / ours > 1)
      for what in ("encode", "decode") for name, peer in (("msgpack", "msgpack"), ("CBOR", "cbor"))],
    ("Codec, encode a text of 200 KB", "encode_text/ours", "encode_text/msgpack",
     "encode_text/copy", "ours/limit <= 1.3", lambda ours, peer, limit: ours / limit <= 1.3),
    ("Codec, decode a text of 200 KB", "decode_text/ours", None, "decode_text/copy",
     "ours/limit <= 1.3", lambda ours, peer, limit: ours / limit <= 1.3),
    ("Method call with a small answer", "method_call/ours", None, "method_call/codec",
     "ours/limit <= 2", lambda ours, peer, limit: ours / limit <= 2),
    ("One line of startup.log", "startup_line/ours", "startup_line/spdlog", "startup_line/write",
     "ours/limit <= 3.3, peer/ours >= 1",
     lambda ours, peer, limit: ours / limit <= 3.3 and peer / ours >= 1),
    ("Loopback GET of 200 bytes", "loopback_get/ours", "loopback_get/libcurl",
     "loopback_get/sockets", "ours/limit <= 1.1", lambda ours, peer, limit: ours / limit <= 1.1),
    *[(f"Configuration scan, {size // 1000} KB, beside {name}", f"config_scan/ours/{size}",
       f"config_scan/{peer}/{size}", f"config_scan/memmem/{size}", "ours/limit <= 3",
       lambda ours, peer, limit: ours / limit <= 3)
      for size in (200_000, 5_000_000) for name, peer in (("RE2", "re2"), ("std::regex", "std_regex"))],
    *[(f"Start to the message loop, {where}{what}", f"start_{name}/{ours}", None,
       f"start_{name}/idle", "ours/limit <= 1.15", lambda ours, peer, limit: ours / limit <= 1.15)
      for name, where in (("native", "native"), ("wine", "under Wine"))
      for what, ours in (("", "until_loop"), (", less the files", "less_files"))],
]

# What, where it is counted, the counter, the target in words, and the most that meets it.
COUNTS = [
    ("One token of 64 MiB, stack, bytes", "stack", "token", 64 << 10),
    ("Redaction of a mixed log, instructions per byte", "instructions", "redact_mixed", 30),
    ("Redaction of a clean log, instructions per byte", "instructions", "redact_clean", 20),
    ("Breadcrumb line, allocations", "redact_breadcrumb/ours", "allocations", 1),
    ("Check of a clean 8 MB log, most heap, bytes", "migrate_clean/ours", "peak_bytes", 1 << 20),
    ("Evidence of a connect and a stop, flushes", "evidence_session/ours/iterations:1", "flushes",
     4),
    ("JSON document of 200 KB, heap per byte", "json/ours/200000", "heap_per_byte", 9.5),
    ("JSON document of 5 MB, heap per byte", "json/ours/5000000", "heap_per_byte", 9.5),
    ("Loopback GET, most heap, bytes", "loopback_get/ours", "peak_bytes", 2048),
    *[(f"Host's heap{what}, {where}, bytes", f"memory_{name}", key, most)
      # Among it is what the decorator with the clock notes of the objects that it saw.
      for name, where, most_growth in (("native", "native", 0), ("wine", "under Wine", 4096))
      for what, key, most in ((" at rest after a connect, 200 KB", "after_one", 2_000_000),
                              (", more after a thousand connects than after a hundred", "growth",
                               most_growth))],
    *[(f"Window thread, {what}, {where}, ms", f"window_{name}", key, most)
      for name, where in (("native", "native"), ("wine", "under Wine"))
      for what, key, most in (("longest handling", "others", 16),
                              ("listing of a full archive", "listing", None))],
    ("korvane.exe, stripped, bytes", "program", "bytes", 2_500_000),
    # Fourteen of the system, the interface's library and its eight plug-ins.
    ("korvane.exe, imported libraries", "program", "libraries", 23),
]


def read_runs(folder):
    """The runs by name, each the median of its repetitions, with its time in nanoseconds."""
    runs = {}
    for path in sorted(folder.glob("bench_*.json")):
        text = path.read_text()
        for run in json.loads(text)["benchmarks"] if text else []:
            if run.get("aggregate_name") != "median":
                continue
            scale = {"ns": 1, "us": 1e3, "ms": 1e6}[run["time_unit"]]
            # Where another thread answers, the waiting counts as well.
            name, waited, _ = run["run_name"].partition("/real_time")
            time = run["real_time"] if waited else run["cpu_time"]
            runs[name] = {**run, "ns": time * scale}
    return runs


def time_text(run):
    if run is None:
        return ""
    for unit, scale in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if run["ns"] >= scale:
            return f"{run['ns'] / scale:.3g} {unit}"
    return f"{run['ns']:.3g} ns"


def ratio_text(ours, other):
    return f"{other['ns'] / ours['ns']:.2f}" if ours and other else ""


def verdict(met):
    return "met" if met else "NOT MET"


def time_row(runs, what, names, target, check):
    ours, peer, limit = (runs.get(name) for name in names)
    measured = all(runs.get(name) for name in names if name)
    word = "" if check is None else "not measured"
    if measured and check is not None:
        word = verdict(check(*(run and run["ns"] for run in (ours, peer, limit))))
    inverse = f"{ours['ns'] / limit['ns']:.2f}" if ours and limit else ""
    return [what, time_text(ours), time_text(peer), time_text(limit), ratio_text(ours, peer),
            inverse, target, word]


def count_row(counts, what, group, counter, most):
    value = counts.get(group, {}).get(counter)
    shown = "" if value is None else f"{value:,}" if isinstance(value, int) else f"{value:.4g}"
    word = "not measured" if value is None else verdict(most is None or value <= most)
    if most is None:
        return [what, shown, "", "", "", "", "-", "" if value is not None else word]
    return [what, shown, "", "", "", "", f"<= {most}", word]


def main():
    folder = pathlib.Path(sys.argv[1])
    runs = read_runs(folder)
    counts = dict(runs)
    for group in ("instructions", "program", "stack", "memory_native", "memory_wine",
                  "window_native", "window_wine"):
        path = folder / f"{group}.json"
        if path.exists():
            counts[group] = json.loads(path.read_text())
    for path in folder.glob("start_*.json"):
        for name, ms in json.loads(path.read_text()).items():
            runs[f"{path.stem}/{name}"] = {"ns": ms * 1e6}
    table = [["What", "Ours", "Peer", "Limit", "Peer/ours", "Ours/limit", "Target", "Met"]]
    table.append(["---"] * len(table[0]))
    table += [time_row(runs, row[0], row[1:4], *row[4:]) for row in ROWS]
    table += [count_row(counts, *row) for row in COUNTS]
    for row in table:
        print("| " + " | ".join(row) + " |")


if __name__ == "__main__":
    main()
