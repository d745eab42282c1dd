"""Runs each script of examples/plots on the demo's samples and looks at what it makes.

    plots_test.py TRACEMILL REPORT
"""

import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
PLOTS = ROOT / "examples" / "plots"
sys.dont_write_bytecode = True
sys.path.insert(0, str(PLOTS))

try:
    from PIL import Image  # comes with matplotlib

    import top_functions
except ModuleNotFoundError as error:
    sys.exit(f"plots_test: {error}. On Debian: apt install python3-pandas python3-matplotlib")

TOOLS = {"jq": "jq", "gnuplot": "gnuplot-nox"}

# Samples of the most sampled functions, as `perf report --no-children -n -s sym` counts them.
MOST_SAMPLED = {
    "waves::stepRow": 578,
    "waves::dotProduct": 577,
    "ripples::mixHash": 378,
    "waves::blurColumns": 301,
    "waves::blurRows": 256,
    "ripples::drawGradient": 59,
}


def line(function="f(int)", thread="app", time=0.5, cpu=0):
    return json.dumps({"time": time, "cpu": cpu, "thread": thread, "function": function})


class PlotsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        folders = {"TRACEMILL_DEMO": "examples/demo", "TRACEMILL_DEMO_OUTPUT": str(cls.folder)}
        command = [cls.tracemill, "-c", "examples/demo/demo.conf"]
        subprocess.run(command, cwd=ROOT, env=dict(os.environ, **folders), check=True)
        cls.demo = cls.folder / "demo.jsonl"
        document = cls.folder / "demo.json"
        subprocess.run([cls.report, "-q", "-f", "jsonl", "-o", cls.demo, document], check=True)

    def run_script(self, name, *arguments, status=0, text=None):
        done = subprocess.run(
            [PLOTS / name, *map(str, arguments)],
            capture_output=True, text=True, check=False, cwd=self.folder, input=text,
            env=dict(os.environ, LC_ALL="C.UTF-8", PATH="/usr/bin:/bin"),
        )
        self.assertEqual(done.returncode, status, done.stderr)
        return done.stderr

    def assert_picture(self, path):
        with Image.open(path) as image:
            self.assertGreater(image.width, 500)
            self.assertGreater(len(image.convert("RGB").getcolors(1 << 24)), 5)

    def test_top_functions_draws(self):
        picture = self.folder / "functions.png"
        self.assertEqual(self.run_script("top_functions.py", self.demo, picture), "")
        self.assert_picture(picture)

    def test_top_functions_counts_as_perf_does(self):
        with open(self.demo, encoding="utf-8") as lines:
            counts = top_functions.count_samples(lines)
        most = counts.sum(axis=1).nlargest(len(MOST_SAMPLED))
        self.assertEqual(most.to_dict(), MOST_SAMPLED)

    def test_threads_without_a_name_and_beyond_the_busiest_have_a_place(self):
        lines = [line(thread="")] * 9 + [line(thread=f"t{i}") for i in range(8) for _ in range(8 - i)]
        counts = top_functions.count_samples(lines)
        self.assertEqual(counts["(no name)"].sum(), 9)
        self.assertEqual(counts["others"].sum(), 4 + 3 + 2 + 1)

    def test_samples_per_cpu_draws(self):
        picture = self.folder / "cpus.png"
        self.assertEqual(self.run_script("samples_per_cpu.sh", self.demo, picture), "")
        self.assert_picture(picture)

    def test_samples_per_cpu_takes_what_was_not_recorded(self):
        text = "".join(f"{row}\n" for row in (line(cpu=None), line(cpu=None, thread=""), line(cpu=3)))
        picture = self.folder / "none.png"
        self.assertEqual(self.run_script("samples_per_cpu.sh", "-", picture, text=text), "")
        self.assert_picture(picture)

    def test_no_samples_are_said(self):
        for name in ("top_functions.py", "samples_per_cpu.sh"):
            error = self.run_script(name, "-", self.folder / "empty.png", status=1, text="")
            self.assertIn("there are no samples", error)

    def test_usage(self):
        for name in ("top_functions.py", "samples_per_cpu.sh"):
            self.run_script(name, status=1)


def main(arguments):
    if len(arguments) != 2:
        print(__doc__)
        return 1
    PlotsTest.tracemill, PlotsTest.report = map(os.path.abspath, arguments)
    missing = [package for tool, package in TOOLS.items() if shutil.which(tool) is None]
    if missing:
        return f"plots_test: tools are missing. On Debian: apt install {' '.join(missing)}"
    return 0 if unittest.main(argv=["plots_test"], exit=False).result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
