#!/usr/bin/env python3
"""Measures the start of the host up to its message loop, beside a program that does nothing.

usage: measure_start.py RUNS FOLDER IDLE RESULT [PREFIX]

FOLDER holds the host (korvane and timed_host); with PREFIX both programs and IDLE are run under
Wine in that prefix. The runs of the programs alternate, each host with a fresh user. Writes into
RESULT, as JSON, medians in milliseconds: from the launch to the message loop, the same less the
median of the time in the files' operations, and the idle program from its launch to its end. Prints
the stages as startup.log has them, and what the time until the loop went into.
"""

import json
import pathlib
import statistics
import subprocess
import sys
import time

import timed_host

STAGES = ("process_start", "mutex", "win32_create", "engine_create", "plugins_registered",
          "core_channel_ready", "first_raster_callback", "show_window")
SCRIPT = '{"wait":{"window":"shown"}}\n'


def timed(command, environment):
    """When it began, and the milliseconds to its end."""
    at, begun = time.time(), time.perf_counter()
    subprocess.run(command, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL, check=True, timeout=120)
    return at, (time.perf_counter() - begun) * 1000


def start_of(program, prefix):
    """One start: the folder's startup.log by stage, the host's own times, the wall times."""
    with timed_host.fresh_user(prefix) as (home, environment):
        script = home / "script"
        script.write_text(SCRIPT)
        environment["KORVANE_CONSOLE_IN"] = ("Z:" if prefix else "") + str(script)
        at, wall = timed(timed_host.command_of(program, prefix), environment)
        log = next(pathlib.Path(prefix or home).rglob("startup.log")).read_text(encoding="utf-8")
        events = [json.loads(line) for line in log.splitlines()]
        times = home / "times"
        loop = json.loads(times.read_text().splitlines()[0]) if times.exists() else {}
        until_loop = loop.pop("loop_at_us", 0) / 1e3 - at * 1e3
        return {"stages": {event["stage"]: event["ms"] for event in reversed(events)},
                "wall": wall, "until_loop": until_loop,
                "subjects": {name: us / 1e3 for name, us in loop.items()}}


def main():
    runs, folder, idle, result = (int(sys.argv[1]), pathlib.Path(sys.argv[2]).resolve(),
                                  pathlib.Path(sys.argv[3]).resolve(), pathlib.Path(sys.argv[4]))
    prefix = sys.argv[5] if len(sys.argv) > 5 else None
    ending = ".exe" if prefix else ""
    hosts, timed_hosts, idles = [], [], []
    for run in range(runs + 1):
        round_of = (start_of(folder / f"korvane{ending}", prefix),
                    start_of(folder / f"timed_host{ending}", prefix))
        with timed_host.fresh_user(prefix) as (_, environment):
            idle_ms = timed(timed_host.command_of(idle, prefix), environment)[1]
        if run > 0:  # the first one fills the caches
            hosts.append(round_of[0])
            timed_hosts.append(round_of[1])
            idles.append(idle_ms)

    def subject(run, name):
        return run["subjects"].get(name, 0)

    median = statistics.median
    figures = {
        "until_loop": median(run["until_loop"] for run in timed_hosts),
        "idle": median(idles), "whole": median(run["wall"] for run in hosts)}
    figures["less_files"] = figures["until_loop"] - median(
        subject(run, "Files") for run in timed_hosts)
    result.write_text(json.dumps(figures) + "\n")
    print(", ".join(f"{name} {ms:.1f}" for name, ms in figures.items()), f"ms, {runs} runs")
    print("  startup.log:", ", ".join(
        f"{stage} {median(run['stages'][stage] for run in hosts):.0f}" for stage in STAGES), "ms")
    names = sorted({name for run in timed_hosts for name in run["subjects"]})
    parts = {name.replace("main_us", "all of main"): median(subject(run, name)
                                                            for run in timed_hosts)
             for name in names}
    print("  until the loop:", ", ".join(
        f"{name} {ms:.2f}" for name, ms in sorted(parts.items(), key=lambda part: -part[1])), "ms")


if __name__ == "__main__":
    main()
