#!/usr/bin/env python3
"""Measures the start of the host: medians of its stages, and the whole process beside an idle one.

usage: measure_start.py RUNS LABEL HOST [PREFIX]

HOST is the program; with PREFIX it is run under Wine in that prefix. Each run is of a fresh user
and ends once its window is shown.
"""

import json
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

STAGES = ("process_start", "mutex", "win32_create", "engine_create", "plugins_registered",
          "core_channel_ready", "first_raster_callback", "show_window")
WINE_RUN = pathlib.Path(__file__).with_name("wine-run")


SCRIPT = b'{"wait":{"window":"shown"}}\n'


def timed(command, environment):
    begun = time.perf_counter()
    subprocess.run(command, env=environment, input=SCRIPT, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL, check=True, timeout=120)
    return (time.perf_counter() - begun) * 1000


def stages_of(folder):
    log = next(pathlib.Path(folder).rglob("startup.log"))
    events = [json.loads(line) for line in log.read_text(encoding="utf-8").splitlines()]
    return {event["stage"]: event["ms"] for event in reversed(events)}


def one_start(host, prefix):
    with tempfile.TemporaryDirectory(prefix="korvane-start-") as home:
        environment = dict(os.environ)
        script = pathlib.Path(home, "script")
        script.write_bytes(SCRIPT)
        if prefix is None:
            for name, folder in (("HOME", ""), ("APPDATA", "roaming"), ("XDG_CONFIG_HOME", "config"),
                                 ("XDG_DATA_HOME", "data"), ("XDG_RUNTIME_DIR", "run")):
                pathlib.Path(home, folder).mkdir(mode=0o700, exist_ok=True)
                environment[name] = str(pathlib.Path(home, folder))
            return timed([host], environment), stages_of(home)
        environment["WINEPREFIX"] = prefix
        environment["KORVANE_CONSOLE_IN"] = f"Z:{script}"
        for log in pathlib.Path(prefix).rglob("startup.log*"):
            log.unlink()
        return timed([WINE_RUN, host], environment), stages_of(prefix)


def main():
    runs, label, host = int(sys.argv[1]), sys.argv[2], sys.argv[3]
    prefix = sys.argv[4] if len(sys.argv) > 4 else None
    one_start(host, prefix)  # the first one fills the caches
    walls, stages = zip(*(one_start(host, prefix) for _ in range(runs)))
    print(f"{label}: {statistics.median(walls):.0f} ms from start to end, {runs} runs")
    if prefix is None and shutil.which("true"):
        idle = [timed(["true"], os.environ) for _ in range(runs)]
        print(f"  a program that does nothing: {statistics.median(idle):.1f} ms")
    for stage in STAGES:
        print(f"  {statistics.median(run[stage] for run in stages):5.0f} ms  {stage}")


if __name__ == "__main__":
    main()
