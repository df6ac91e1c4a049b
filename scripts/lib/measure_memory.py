#!/usr/bin/env python3
"""Measures what the host holds on to, with a configuration of 200 KB.

usage: measure_memory.py TIMED_HOST RESULT CONNECTS [WINE_PREFIX]

Writes into RESULT, as JSON, the bytes that the host's `new` has given out at rest: before the first
connect, after one connect and stop, and after so many; the stand-ins' aren't among them.
"""

import json
import pathlib
import sys

import timed_host


def heap_of(host):
    host.take()
    host.call("isRunning")
    return host.take()[-1]["heap"]


def main():
    program, result, connects = sys.argv[1], pathlib.Path(sys.argv[2]), int(sys.argv[3])
    prefix = sys.argv[4] if len(sys.argv) > 4 else None
    preference = {"config": timed_host.configuration(200_000), "autoConfigureProxy": False}

    def session(host):
        if host.call("loadVPNPreference", preference).get("success") is not True:
            raise RuntimeError("no connect")
        connected = heap_of(host)
        host.call("stopVPN")
        return connected

    with timed_host.fresh_user(prefix) as (home, environment):
        host = timed_host.TimedHost(program, home, environment, prefix)
        heap = {"before": heap_of(host)}
        heap["connected"] = session(host)
        heap["after_one"] = heap_of(host)
        for number in range(1, connects):
            connected = session(host)
            if number in (9, 99):
                heap[f"after_{number + 1}"] = heap_of(host)
        heap["connected_last"] = connected
        heap["after_all"] = heap_of(host)
        host.finish()
    heap["growth"] = heap["after_all"] - heap["after_100"]
    result.write_text(json.dumps(heap) + "\n")
    print("memory at rest:", ", ".join(f"{name} {bytes:,}" for name, bytes in heap.items()))


if __name__ == "__main__":
    main()
