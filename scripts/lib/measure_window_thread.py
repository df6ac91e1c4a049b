#!/usr/bin/env python3
"""Measures how long the window thread is held by each method and message, and prints the longest.

usage: measure_window_thread.py TIMED_HOST RESULT [PREFIX]

With PREFIX the host is run under Wine. The archive is full: 10 MB, of a session that died in the
midst. Writes into RESULT, as JSON, the longest handling of each group in milliseconds.
"""

import json
import pathlib
import statistics
import sys

import timed_host

ARCHIVE_BYTES = 9_900_000
REPETITIONS = 5
LOG_LINES = ("INFO[0012] router: updated default interface eth0, index 3\n"
             "DEBUG[0012] dns: exchanged A record in 43 ms, 2 answers, no error\n"
             "INFO[0013] outbound/selector[proxy]: selected node 17 of 48 after 81 ms\n"
             "ERROR[0016] connection: dial tcp: i/o timeout at service.go:120\n"
             "INFO[0017] experimental/clash: restful api listening, 12:30:05, 7 clients\n")
PREFERENCE = {"config": timed_host.configuration(200_000), "autoConfigureProxy": False}

# What is told to wait on the window thread: for a start or a stop under way, for the task scheduler.
WAITING = {"setWindowsDiagnosticsEnabled": {"enabled": True}, "getAutoSelectorInfo": {},
           "getWindowsRuntimeDiagnostics": {}, "isElevatedAutostartEnabled": None}
# What is told to read and write the evidence there.
EVIDENCE = {"getPendingIncidents": None, "checkForCrashLogs": None,
            "recordShutdownIntent": {"reason": "unknown"},
            "clearShutdownIntent": {"reason": "unknown"}, "getLibboxLogPath": None,
            "getWindowsDiagnosticsEnabled": None, "getWindowsDiagnosticsFailure": None}
OTHERS = {"isRunning": None, "getStatus": None, "getCoreVersion": None, "refreshVPNStatus": None,
          "checkAdminPrivileges": None, "performUrlTest": {"nodeConfig": "", "testUrl": ""},
          "stopVPN": None, "loadVPNPreference": PREFERENCE, "doConnectVpn": None,
          "clearSystemProxy": None, "noSuchMethod": None}
# What says decisions: while diagnostics are on, it waits for evidence that is being written.
BESIDE_EVIDENCE = {"doConnectVpn": None, "stopVPN": None}
POWER_BROADCAST = 0x0218


def in_prefix(path, prefix):
    return pathlib.Path(path) if prefix is None else pathlib.Path(
        prefix, "drive_c", *path.split("\\")[1:])


def die_in_a_session(host, prefix):
    host.call("setWindowsDiagnosticsEnabled", {"enabled": True})
    host.call("importPendingIncidents")
    if host.call("loadVPNPreference", PREFERENCE).get("success") is not True:
        raise RuntimeError("no connect")
    log = in_prefix(host.call("getLibboxLogPath")["success"], prefix)
    with open(log, "a", encoding="ascii") as file:
        file.write(LOG_LINES * (ARCHIVE_BYTES // len(LOG_LINES)))
    host.send({"abort": True})
    host.finish()


def longest(host):
    return max((line["message_us"] for line in host.take() if "message_us" in line), default=0) / 1e3


def held_by(host, methods, times=REPETITIONS):
    """By method, the median of the longest handling of each call."""
    held = {}
    for method, arguments in methods.items():
        all_held = []
        for _ in range(times):
            host.take()
            host.call(method, arguments)
            all_held.append(longest(host))
        held[method] = statistics.median(all_held)
    return held


def measure(program, prefix):
    groups = {}
    with timed_host.fresh_user(prefix) as (home, environment):
        def start():
            return timed_host.TimedHost(program, home, environment, prefix)

        host = start()
        host.call("setWindowsDiagnosticsEnabled", {"enabled": False})
        groups["others"] = held_by(host, OTHERS)
        host.take()
        host.send({"window": {"message": POWER_BROADCAST, "wparam": 4}})
        host.call("isRunning")
        groups["others"]["a power message"] = longest(host)
        host.finish()

        die_in_a_session(start(), prefix)
        host = start()
        groups["evidence"] = held_by(host, {"importPendingIncidents": None}, 1)
        groups["evidence"] |= held_by(host, EVIDENCE)
        listed = host.call("getPendingIncidents")["success"]["incidents"]
        biggest = max(listed, key=lambda row: row["totalBytes"]["$int64"])
        if biggest["totalBytes"]["$int64"] < ARCHIVE_BYTES:
            raise RuntimeError("the archive isn't full")
        groups["evidence"] |= held_by(
            host, {"acknowledgeIncident": {"incidentId": biggest["id"], "reimportCount": 0}}, 1)
        groups["beside evidence"] = held_by(host, BESIDE_EVIDENCE)
        groups["waiting"] = held_by(host, WAITING)
        host.finish()
    return groups


def main():
    program, result = sys.argv[1], pathlib.Path(sys.argv[2])
    groups = measure(program, sys.argv[3] if len(sys.argv) > 3 else None)
    for name, held in groups.items():
        rows = sorted(held.items(), key=lambda row: -row[1])
        print(f"  {name}: " + ", ".join(f"{method} {ms:.2f}" for method, ms in rows) + " ms")
    result.write_text(json.dumps(
        {**{name.replace(" ", "_"): max(held.values()) for name, held in groups.items()},
         "listing": groups["evidence"]["getPendingIncidents"]}) + "\n")


if __name__ == "__main__":
    main()
