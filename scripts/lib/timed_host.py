"""Drives timed_host, the host with a clock at its system calls, through its console.

Each host is that of a fresh user; with a Wine prefix it is the Windows program.
"""

import contextlib
import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import time

WINE_RUN = pathlib.Path(__file__).with_name("wine-run")


@contextlib.contextmanager
def fresh_user(prefix=None):
    """The folder and the environment of a user who has never started the host."""
    with tempfile.TemporaryDirectory(prefix="korvane-bench-") as home:
        environment = dict(os.environ)
        if prefix is not None:
            environment["WINEPREFIX"] = str(prefix)
            for log in pathlib.Path(prefix).rglob("startup.log*"):
                log.unlink()
            for folder in pathlib.Path(prefix).glob("drive_c/users/*/AppData/Roaming/Korvane"):
                shutil.rmtree(folder)
        else:
            for name, folder in (("HOME", ""), ("APPDATA", "roaming"), ("XDG_CONFIG_HOME", "config"),
                                 ("XDG_DATA_HOME", "data"), ("XDG_RUNTIME_DIR", "run")):
                pathlib.Path(home, folder).mkdir(mode=0o700, exist_ok=True)
                environment[name] = str(pathlib.Path(home, folder))
        environment["KORVANE_TIMES"] = ("Z:" if prefix else "") + str(pathlib.Path(home, "times"))
        yield pathlib.Path(home), environment


def command_of(program, prefix=None):
    return [str(program)] if prefix is None else [str(WINE_RUN), str(program)]


class TimedHost:
    """One run; its `lines` are what it wrote into KORVANE_TIMES and nobody has taken yet."""

    def __init__(self, program, home, environment, prefix=None):
        self._times = home / "times"
        self._taken = 0
        self._calls = 0
        self._process = subprocess.Popen(
            command_of(program, prefix), env=environment, stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self._await(lambda line: line.get("window") == "shown")

    def send(self, line):
        self._process.stdin.write(json.dumps(line) + "\n")
        self._process.stdin.flush()

    def call(self, method, arguments=None):
        """Calls a method and waits until the window thread has gone on; gives its answer."""
        answer = self._call(method, arguments)
        before = self._size()
        self._call("isRunning", None)
        # A handling is written down at its end, which is behind its replies.
        while self._size() == before:
            time.sleep(0.0005)
        return answer

    def take(self):
        """The lines since the last time."""
        lines = self._times.read_text().splitlines() if self._times.exists() else []
        taken, self._taken = lines[self._taken:], len(lines)
        return [json.loads(line) for line in taken]

    def finish(self):
        with contextlib.suppress(BrokenPipeError):
            self._process.stdin.close()
        self._process.stdout.read()
        self._process.wait(timeout=120)

    def _size(self):
        return self._times.stat().st_size

    def _call(self, method, arguments):
        self._calls += 1
        self.send({"call": method, "args": arguments, "id": self._calls})
        return self._await(lambda line: line.get("reply") == self._calls)

    def _await(self, wanted):
        for text in self._process.stdout:
            line = json.loads(text) if text.startswith("{") else {}
            if wanted(line):
                return line
        raise RuntimeError("the host ended too early")


def configuration(bytes_wanted):
    """A configuration that the engine's stand-in takes, about that long."""
    rules = [{"domain_suffix": [f"host{number}.example.org"], "outbound": "direct"}
             for number in range(bytes_wanted // 68)]
    return json.dumps({
        "log": {}, "inbounds": [{"type": "mixed", "tag": "mixed-in", "listen": "127.0.0.1"}],
        "outbounds": [{"type": "direct", "tag": "direct"}], "route": {"rules": rules}})
