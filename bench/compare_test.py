"""Tests of what bench/compare measures with: the yardstick, the made inputs, the verdicts.

    compare_test.py TRACEMILL FLOOR
"""

import importlib.machinery
import importlib.util
import json
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

HERE = Path(__file__).resolve().parent
DEMO = HERE.parent / "examples" / "demo" / "demo.perf.data"
TRACEMILL, FLOOR = sys.argv[1:3]
del sys.argv[1:3]

loader = importlib.machinery.SourceFileLoader("compare", str(HERE / "compare"))
compare = importlib.util.module_from_spec(importlib.util.spec_from_loader("compare", loader))
loader.exec_module(compare)
inputs = compare.inputs


class MeasuringTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def convert(self, recording, *options, **keys):
        """The document of a recording, converted without any symbols but those that `keys` name."""
        configuration = self.folder / "tracemill.conf"
        keys = {"kernelSymbolFile": "/no-such-file", "freezeSymbolCache": True, **keys}
        configuration.write_text(json.dumps(keys), encoding="utf-8")
        output = self.folder / "profile.json"
        subprocess.run([TRACEMILL, "-c", configuration, "-i", recording, "-o", output, *options], cwd=self.folder,
                       check=True, capture_output=True, timeout=60)
        return json.loads(output.read_text(encoding="utf-8"))

    def floor_rows(self, recording):
        output = self.folder / "floor.json"
        subprocess.run([FLOOR, recording, output], check=True, timeout=60)
        return json.loads(output.read_text(encoding="utf-8"))

    def test_help_names_every_option(self):
        text = subprocess.run([HERE / "compare", "--help"], check=True, capture_output=True, text=True).stdout
        for option in ("ROW", "--program", "--prepare", "--recording", "--keep", "--rounds"):
            self.assertIn(option, text)

    def test_floor_prints_the_documents_rows_but_for_keys_and_start(self):
        times = compare.sample_times(DEMO)
        document = self.convert(DEMO, "-s", compare.seconds_text(times[0]))["samples"]["data"]
        rows = self.floor_rows(DEMO)
        self.assertEqual(len(times), len(rows))
        start = document[0][3]
        for row, theirs in zip(document, rows, strict=True):
            self.assertEqual(row[:2] + row[4:7], theirs[:2] + theirs[4:7])
            self.assertEqual([place for place, _ in row[7]], [place for place, _ in theirs[7]])
            self.assertAlmostEqual(row[3] - start, theirs[3], delta=0.000_002)

    def test_floor_refuses_what_is_no_recording(self):
        words = [FLOOR, __file__, self.folder / "floor.json"]
        self.assertEqual(1, subprocess.run(words, check=False, capture_output=True).returncode)

    def test_made_samples_have_rows_and_callers(self):
        recording = self.folder / "made"
        inputs.write_recording(recording, inputs.samples_records(1000))
        rows = self.convert(recording)["samples"]["data"]
        self.assertEqual(1000, len(rows))
        self.assertEqual({5}, {len(row[7]) for row in rows})
        self.assertEqual(rows, [row[:2] + mine[2:3] + row[3:7] + mine[7:] for row, mine in
                                zip(self.floor_rows(recording), rows, strict=True)])

    def test_made_maps_are_those_that_samples_are_in(self):
        for order in ("ascending", "descending", "random"):
            recording = self.folder / "made"
            inputs.write_recording(recording, inputs.maps_records(3, 16, order))
            document = self.convert(recording)
            used = {row[2] for row in document["samples"]["data"]}
            maps = document["libraries"]["data"]
            self.assertEqual(used, {row[0] for row in maps})
            self.assertEqual([f"/no-such-folder/lib{i}.so" for i in range(16)], [row[2] for row in maps])

    def test_made_pages_have_a_map_each(self):
        recording = self.folder / "made"
        inputs.write_recording(recording, inputs.pages_records(40, "random"))
        document = self.convert(recording)
        self.assertEqual(40, len(document["samples"]["data"]))
        starts = [row[3] for row in document["libraries"]["data"]]
        self.assertEqual([inputs.FIRST_PAGE + i * inputs.PAGE_SIZE for i in range(40)], starts)

    def test_made_lists_are_read(self):
        recording, symbols = self.folder / "made", self.folder / "list"
        inputs.write_recording(recording, inputs.samples_records(0))
        for write, share in ((inputs.write_kernel_list, 0.75), (inputs.write_program_list, 1)):
            write(symbols, 2000)
            log = {"adapter": {"type": "file", "baseName": str(self.folder / "log")}}
            self.convert(recording, kernelSymbolFile=str(symbols), log=log)
            line = next(line for line in (self.folder / "log").read_text().splitlines() if "kernel symbols" in line)
            self.assertIn(f"size:{2000 * share:.0f} ", line)

    def test_verdicts_count_the_limit_in(self):
        def verdict(figure):
            return compare.Line(1, "", figure, 1 / 8, 1 / 12, compare.share, "").verdict()

        self.assertEqual("aim", verdict(1 / 12))
        self.assertEqual("must", verdict(1 / 11))
        self.assertEqual("must", verdict(1 / 8))
        self.assertEqual("MISSED", verdict(1 / 7))

    def test_figures_read_like_the_limits(self):
        self.assertEqual("1/8", compare.share(1 / 8))
        self.assertEqual("1/13.4", compare.share(1 / 13.42))
        self.assertEqual("1.50 times", compare.factor(1.5))
        self.assertEqual("16.0 MB", compare.megabytes(16e6))
        self.assertEqual("+5.0 %", compare.percent(0.05))


if __name__ == "__main__":
    unittest.main()
