"""Makes the changes of mutation_sites one at a time and runs the tests that might notice.

usage: mutate.py [--count N] [--seed S] [--room ROOM], from the root of the tree; see scripts/mutate

The tests of the changed room come first, then those of the rooms that are built on it, and the first
red test ends a change's run. A run that takes several times as long as the unchanged one has noticed
too. What doesn't compile isn't counted.
"""

import argparse
import collections
import hashlib
import json
import os
import pathlib
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import time

import mutation_sites

ROOT = pathlib.Path.cwd()
TREE = ROOT / "build/mutate/tree"
BUILD = TREE / "build/mutate"
MEMORY = 8 << 30  # a loop that allocates for ever ends itself
RED = re.compile(r"^\t\s*\d+ - (\S+)", re.MULTILINE)


def rooms():
    """Each room with tests of portable code, lowest first, to the rooms that it is built on."""
    uses = {}
    floors = re.search(r"foreach\(room resources platform (.*)\)", read("CMakeLists.txt"))
    for name in floors.group(1).split():
        below = re.search(r"DEPENDS ([\w ]*)", read(f"src/{name}/CMakeLists.txt"))
        uses[name] = set(below.group(1).split())
    return uses


def read(path):
    return (ROOT / path).read_text()


def limits():
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def run(seconds, *command, limited=False):
    """The exit code and the output; None for a command that didn't end in time."""
    child = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                             errors="replace", start_new_session=True,
                             preexec_fn=limits if limited else None)
    try:
        output, _ = child.communicate(timeout=seconds)
        return child.returncode, output
    except subprocess.TimeoutExpired:
        os.killpg(child.pid, signal.SIGKILL)
        child.communicate()
        return None, ""


def copy_tree():
    """Brings the copy up to date; files that are the same keep their times, and so their objects."""
    names = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                           check=True, capture_output=True, text=True).stdout.split("\0")
    names = sorted(name for name in names if name and (ROOT / name).is_file())
    for old in [path for path in TREE.rglob("*") if path.is_file() or path.is_symlink()]:
        place = old.relative_to(TREE)
        if place.parts[0] != "build" and str(place) not in names:
            old.unlink()
    digest = hashlib.sha256()
    for name in names:
        source, target = ROOT / name, TREE / name
        content = source.read_bytes()
        if name.startswith(("src/", "tests/", "scripts/lib/mut")):
            digest.update(name.encode() + b"\0" + content)
        if not target.is_file() or target.read_bytes() != content:
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_bytes(content)
            shutil.copymode(source, target)
    return digest.hexdigest()[:12]


def build(*targets):
    return run(1200, "cmake", "--build", str(BUILD), "--target", *targets)


def tests_of(room, seconds):
    return run(seconds, "ctest", "--test-dir", str(BUILD / "tests" / room), "-j2", "--stop-on-failure",
               "--no-tests=error", limited=True)


def must(what, result):
    if result[0] != 0:
        sys.exit(f"{result[1][-4000:]}\nscripts/mutate: the unchanged tree fails: {what}")


def try_change(site, order, seconds):
    """("did not compile" | "survived" | "too slow" | "noticed", by what)"""
    path = TREE / site.path
    whole = path.read_text()
    path.write_text(whole[:site.begin] + site.replacement + whole[site.end:])
    try:
        if build(f"korvane_{order[0]}")[0] != 0:
            return "did not compile", ""
        for room in order:
            code, output = build(f"test_{room}")
            if code != 0:
                return "did not compile", ""
            code, output = tests_of(room, seconds[room])
            if code is None:
                return "too slow", f"test_{room}"
            if code != 0:
                red = RED.search(output)
                return "noticed", red.group(1) if red else f"test_{room}"
        return "survived", ""
    finally:
        path.write_text(whole)


def told(site):
    before, after = (" ".join(text.split()) for text in (site.before, site.replacement))
    return f"{site.path}:{site.line}: {site.kind}: {before} -> {after}"


def table(results):
    rows = collections.defaultdict(collections.Counter)
    for path, outcome in results:
        for name in (path.split("/")[1], "total"):
            rows[name][outcome] += 1
    print(f"\n{'room':22}{'changes':>8}{'noticed':>9}{'too slow':>10}{'survived':>10}{'per cent':>10}")
    for name in [*(name for name in rows if name != "total"), "total"]:
        row = rows[name]
        noticed = row["noticed"] + row["too slow"]
        counted = noticed + row["survived"]
        print(f"{name:22}{counted:8}{row['noticed']:9}{row['too slow']:10}{row['survived']:10}"
              f"{100 * noticed / max(counted, 1):10.1f}")


def main():
    parser = argparse.ArgumentParser(prog="scripts/mutate")
    parser.add_argument("--count", type=int, default=200)
    parser.add_argument("--seed", type=int, default=1)
    uses = rooms()
    parser.add_argument("--room", choices=uses)
    wanted = parser.parse_args()

    os.environ["CCACHE_BASEDIR"] = str(TREE)
    digest = copy_tree()
    must("configuring", run(600, "cmake", "-S", str(TREE), "--preset", "mutate"))
    above = {room: [room, *(other for other in uses if room in uses[other])] for room in uses}
    needed = sorted({other for room in above if wanted.room in (None, room) for other in above[room]})
    print(f"building {', '.join(needed)}", flush=True)
    must("building", build(*(f"test_{room}" for room in needed)))
    seconds = {}
    for room in needed:
        began = time.monotonic()
        must(f"test_{room}", tests_of(room, 600))
        seconds[room] = 20 + 4 * (time.monotonic() - began)

    changes = [site for room in uses if wanted.room in (None, room)
               for path in sorted((TREE / "src" / room).glob("*.cpp"))
               for site in mutation_sites.sites(str(path.relative_to(TREE)), path.read_text())]
    random.Random(wanted.seed).shuffle(changes)
    kept = ROOT / f"build/mutate/{digest}-{wanted.seed}-{wanted.room or 'all'}.jsonl"
    known = {}
    if kept.exists():
        known = {line["key"]: line for line in map(json.loads, kept.read_text().splitlines())}

    results, survivors = [], []
    for site in changes:
        if len(results) == wanted.count:
            break
        line = known.get(site.key())
        if line is None:
            began = time.monotonic()
            outcome, what = try_change(site, above[site.path.split("/")[1]], seconds)
            line = {"key": site.key(), "outcome": outcome, "by": what}
            with kept.open("a") as file:
                file.write(json.dumps(line) + "\n")
            print(f"{len(results) + 1:4} {time.monotonic() - began:5.1f} s  {told(site)}: {outcome} {what}",
                  flush=True)
        if line["outcome"] != "did not compile":
            results.append((site.path, line["outcome"]))
        if line["outcome"] == "survived":
            survivors.append(site)
    table(results)
    print("\nSurvived:" if survivors else "\nNone survived.")
    for site in survivors:
        print(told(site))


main()
