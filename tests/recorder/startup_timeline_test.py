"""The timeline of a startup log, as scripts/lib/startup_timeline prints it."""

import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "lib" / "startup_timeline"


def line(ms, stage, run="{A}", pid=1, **fields):
    return json.dumps({"ms": ms, "pid": pid, "run_id": run, "stage": stage, **fields}) + "\n"


def timeline(text, *arguments):
    with tempfile.TemporaryDirectory() as folder:
        log = pathlib.Path(folder) / "startup.log"
        log.write_bytes(text if isinstance(text, bytes) else text.encode())
        return subprocess.run(
            [sys.executable, SCRIPT, *arguments, log], capture_output=True, text=True, check=False
        )


class StartupTimeline(unittest.TestCase):
    def test_rows_have_times_stages_and_fields_and_the_slow_ones_are_marked(self):
        shown = timeline(
            line(0, "process_start", gpu_adapter="engine_not_created", ms_to_first_raster=None)
            + line(2, "mutex", already_exists=False)
            + line(300, "engine_create")
            + line(340, "first_raster_callback", gpu_adapter="A", ms_to_first_raster=340)
            + line(341, "WM_DPICHANGED", last_display_event={"dpi_x": 96, "event": "e", "ms": 341})
        )
        self.assertEqual(
            [row.split() for row in shown.stdout.splitlines() if row],
            [
                ["run", "{A}", "pid", "1"],
                ["ms", "+ms", "stage"],
                ["0", "0", "process_start"],
                ["2", "2", "mutex", "already_exists=false"],
                ["300", "298", "engine_create", "<--", "slow"],
                ["340", "40", "first_raster_callback", "ms_to_first_raster=340"],
                ["341", "1", "WM_DPICHANGED", "dpi_x=96"],
            ],
        )
        self.assertEqual((shown.returncode, shown.stderr), (0, ""))

    def test_mixed_runs_are_told_apart_and_put_in_order(self):
        mixed = (
            line(0, "process_start", run="{A}", pid=1)
            + line(0, "process_start", run="{B}", pid=2)
            + line(9, "show_window", run="{A}", pid=1)
            + line(5, "mutex", run="{A}", pid=1)
        )
        stages = [row.split()[-1] for row in timeline(mixed).stdout.splitlines() if row]
        self.assertEqual(
            stages, ["1", "stage", "process_start", "mutex", "show_window", "2", "stage", "process_start"]
        )
        self.assertNotIn("{A}", timeline(mixed, "--last", "1").stdout)
        self.assertNotIn("{B}", timeline(mixed, "--run", "{A}").stdout)

    def test_broken_lines_are_counted_and_lose_nothing_else(self):
        good = line(0, "process_start")
        shown = timeline(b"\xff{\n[1]\n{}\n3\n" + good.encode() + b'{"ms":0,"pi')
        self.assertIn("process_start", shown.stdout)
        self.assertIn("5 broken lines", shown.stderr)
        self.assertEqual(shown.returncode, 0)
        self.assertEqual(timeline("").returncode, 1)

    def test_a_missing_file_is_told(self):
        shown = subprocess.run([sys.executable, SCRIPT, "absent"], capture_output=True, text=True)
        self.assertEqual(shown.returncode, 1)
        self.assertIn("absent", shown.stderr)
        self.assertNotIn("Traceback", shown.stderr)


if __name__ == "__main__":
    unittest.main()
