"""Runs each script of examples/plots on the demo's document and looks at what it makes.

    plots_test.py TRACEMILL
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

    import collapse_stacks
    import top_functions
except ModuleNotFoundError as error:
    sys.exit(f"plots_test: {error}. On Debian: apt install python3-pandas python3-matplotlib")

TOOLS = {"jq": "jq", "sqlite3": "sqlite3", "gnuplot": "gnuplot-nox"}

# Samples of the most sampled functions, as `perf report --no-children -n -s sym` counts them.
MOST_SAMPLED = {
    "waves::stepRow": 578,
    "waves::dotProduct": 577,
    "ripples::mixHash": 378,
    "waves::blurColumns": 301,
    "waves::blurRows": 256,
    "ripples::drawGradient": 59,
}
GREY = (0xB0, 0xB0, 0xB0)
BLUE, ORANGE, GREEN, PURPLE = (
    (0x3B, 0x6E, 0xA5),
    (0xE0, 0xA0, 0x30),
    (0x5A, 0x9E, 0x6F),
    (0x7D, 0x6B, 0xB0),
)


def document(samples, processes=((7, 7, 7, "app"),)):
    """A small document: function 5 is "f(int)", 6 "a;b", library 1 is /lib/x.so."""
    return {
        "samples": {"data": samples},
        "libraries": {"data": [[1, 7, "/lib/x.so", 0, 9], [2, 7, "{app-interrupt}", 0, 9]]},
        "functions": {"data": [[5, "f(int)", 0, 9, []], [6, "a;b", 9, 9, []]]},
        "processes": {"data": [list(row) for row in processes]},
    }


def colors(picture):
    """Color to number of pixels."""
    with Image.open(picture) as image:
        counts = image.convert("RGB").getcolors(maxcolors=1 << 24)
    return {color: count for count, color in counts}


def size(picture):
    with Image.open(picture) as image:
        return image.size


class PlotsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        # Names with blanks and quotes must not confuse the scripts.
        cls.output = cls.folder / "it's a folder"
        cls.output.mkdir()
        environment = dict(
            os.environ, TRACEMILL_DEMO="examples/demo", TRACEMILL_DEMO_OUTPUT=str(cls.folder)
        )
        command = [cls.tracemill, "-c", "examples/demo/demo.conf"]
        subprocess.run(command, check=True, cwd=ROOT, env=environment)
        cls.demo = cls.output / "demo.json"
        (cls.folder / "demo.json").rename(cls.demo)

    def run_script(self, name, *arguments, status=0):
        interpreter = [sys.executable, "-B"] if name.endswith(".py") else []
        command = [*interpreter, PLOTS / name, *map(str, arguments)]
        # Nothing but the system's tools, and no screen.
        environment = {
            "PATH": "/usr/bin:/bin:/usr/local/bin",
            "LC_ALL": "C.UTF-8",
            "HOME": str(self.folder),
        }
        done = subprocess.run(
            command, capture_output=True, text=True, env=environment, cwd=self.output, check=False
        )
        self.assertEqual(done.returncode, status, done.stderr)
        return done.stdout + done.stderr

    def test_top_functions_draws_bars_in_the_colors_of_the_threads(self):
        picture = self.output / "top.png"
        self.assertEqual(self.run_script("top_functions.py", self.demo, picture), "")
        seen = colors(picture)
        # courier, painter, pond and solver, whose bars are as long as their samples are many.
        for color in (BLUE, ORANGE, GREEN, PURPLE):
            self.assertGreater(seen.get(color, 0), 5000)
        self.assertLess(picture.stat().st_size, 100_000)

    def test_top_functions_counts_as_perf_does(self):
        counts = top_functions.count_samples(json.loads(self.demo.read_text()))
        self.assertEqual(counts.to_numpy().sum(), 2383)
        self.assertEqual(counts.sum(axis=1).nlargest(6).to_dict(), MOST_SAMPLED)
        self.assertEqual(counts.loc["waves::stepRow", "pond"], 578)

    def test_top_functions_names_maps_where_no_function_is_known(self):
        counts = top_functions.count_samples(
            document([[1, 1 << 63, 1, 0, 0, 7, 7, []], [2, 1, 5, 0, 0, 7, 7, []]])
        )
        self.assertEqual(counts["app"].to_dict(), {"[x.so]": 1, "f": 1})

    def test_samples_per_cpu_draws_a_part_for_each_cpu(self):
        picture = self.output / "cpu.png"
        self.assertEqual(self.run_script("samples_per_cpu.sh", self.demo, picture), "")
        self.assertEqual(size(picture), (860, 80 + 2 * 170))
        seen = colors(picture)
        for color in (BLUE, ORANGE, GREEN, PURPLE):
            self.assertGreater(seen.get(color, 0), 20_000)
        self.assertLess(picture.stat().st_size, 100_000)

    def test_samples_per_cpu_of_other_widths(self):
        picture = self.output / "cpu.png"
        for width in ("5", "200"):
            self.assertEqual(self.run_script("samples_per_cpu.sh", self.demo, picture, width), "")
            self.assertGreater(colors(picture).get(GREEN, 0), 20_000)

    def test_threads_beyond_the_busiest_five_are_drawn_together(self):
        tids = [tid for tid in range(1, 8) for _ in range(9 - tid)]
        rows = [[i, 9, 5, 0.01 * i, 0, tid, tid, []] for i, tid in enumerate(tids, 1)]
        small = document(rows, [(tid, 1, tid, f"thread {tid}") for tid in range(1, 8)])
        counts = top_functions.count_samples(small)
        self.assertEqual(
            counts.loc["f"].to_dict(),
            {**{f"thread {tid}": 9 - tid for tid in range(1, 6)}, "others": 5},
        )
        path = self.output / "threads.json"
        path.write_text(json.dumps(small))
        for name in ("top_functions.py", "samples_per_cpu.sh"):
            self.assertEqual(self.run_script(name, path, "threads.png"), "")
            seen = colors(self.output / "threads.png")
            for color in (BLUE, PURPLE, GREY):
                self.assertGreater(seen.get(color, 0), 500, name)

    def test_window_functions_takes_its_start_and_not_its_end(self):
        rows = [
            [1, 9, 5, 1, 0, 7, 7, []],
            [2, 9, 5, 1.5, 0, 7, 7, []],
            [3, 9, 1, 1.75, 0, 7, 7, []],
        ]
        path = self.output / "small.json"
        path.write_text(json.dumps(document([*rows, [4, 9, 6, 2, 0, 7, 7, []]])))
        table = [
            line.split() for line in self.run_script("window_functions.sh", path, 1, 2).splitlines()
        ]
        self.assertEqual(table[0], ["samples", "percent", "function"])
        self.assertEqual(table[2:], [["2", "66.7", "f(int)"], ["1", "33.3", "/lib/x.so"]])

    def test_window_functions_of_the_whole_demo(self):
        lines = self.run_script("window_functions.sh", self.demo, 0, 10).splitlines()[2:]
        counts = {
            line.split(None, 2)[2].split("(")[0].strip(): int(line.split()[0]) for line in lines
        }
        self.assertEqual(sum(counts.values()), 2383)
        self.assertLessEqual(MOST_SAMPLED.items(), counts.items())

    def test_collapse_stacks_counts_every_sample_once(self):
        lines = self.run_script("collapse_stacks.py", self.demo).splitlines()
        stacks = dict(line.rsplit(" ", 1) for line in lines)
        self.assertEqual(len(stacks), len(lines))
        self.assertEqual(sum(map(int, stacks.values())), 2383)
        innermost = {}
        for stack, count in stacks.items():
            name = stack.rsplit(";", 1)[1].split("(")[0]
            innermost[name] = innermost.get(name, 0) + int(count)
        self.assertLessEqual(MOST_SAMPLED.items(), innermost.items())

    def test_collapse_stacks_skips_markers_and_names_the_sampled_place_once(self):
        user = (1 << 64) - 512
        trace = [[90, 5], [user, 2], [91, 6]]
        rows = [[1, 90, 5, 0, 0, 7, 7, trace], [2, 80, 1, 0, 0, 8, 8, trace]]
        stacks = collapse_stacks.collapse(document(rows, ((7, 7, 7, "app"), (8, 7, 8, ""))))
        self.assertEqual(stacks, {"app;a:b;f(int)": 1, "tid 8;a:b;f(int);[x.so]": 1})

    def test_without_arguments_they_say_how_to_use_them(self):
        for name in (
            "top_functions.py",
            "samples_per_cpu.sh",
            "window_functions.sh",
            "collapse_stacks.py",
        ):
            self.assertIn(f"{name} DOCUMENT", self.run_script(name, status=1))

    def test_pictures_of_no_samples_are_refused(self):
        path = self.output / "empty.json"
        path.write_text(json.dumps(document([])))
        for name in ("top_functions.py", "samples_per_cpu.sh"):
            self.assertIn(
                "the document has no samples", self.run_script(name, path, "picture.png", status=1)
            )
        self.assertFalse((self.output / "picture.png").exists())

    def test_the_committed_pictures_are_of_this_kind(self):
        for name, expected in (("top-functions", (860, 474)), ("samples-per-cpu", (860, 420))):
            self.assertEqual(size(ROOT / "docs" / "pictures" / f"{name}.png"), expected)


def main(arguments):
    if len(arguments) != 1:
        print(__doc__)
        return 1
    missing = [package for tool, package in TOOLS.items() if shutil.which(tool) is None]
    if missing:
        return f"plots_test: tools are missing. On Debian: apt install {' '.join(missing)}"
    PlotsTest.tracemill = Path(arguments[0]).resolve()
    return 0 if unittest.main(argv=["plots_test"], exit=False).result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
