"""Runs the commands of every document as they stand, and checks what else can be checked of a text.

    documents_test.py TRACEMILL [TRACEMILL_PREPARE] [TRACEMILL_REPORT]

A fenced block's info word says what becomes of it:

    sh          runs: all blocks of a document in order, in one shell and one fresh folder, which
                holds examples/, share/ and what scripts/demo makes, with tracemill and tracemill-prepare on the
                search path; a document that needs a program which was not built is left out
    output      what the `sh` block before it prints, but for blanks at the ends of lines
    sh board    not run: needs a machine to record on, or changes this one
    sh build    not run: builds or tests the project, as scripts/test does; its scripts and presets
                must be there
    any other   is no command: text, json, cpp, ...
"""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from typing import NamedTuple

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "bench"))

from plain_recording import PlainRecording  # noqa: E402

MANUALS = ROOT / "share"
DEMO = ROOT / "examples" / "demo"
FENCE = re.compile(r"^( *)```(.*)$")  # indented in a list
KNOWN_INFO = {"sh", "sh board", "sh build", "output", "text", "json", "mermaid", "cpp", "cmake"}
# What the blocks that run take besides coreutils, and the packages that have it.
TOOLS = {"jq": "jq", "gnuplot": "gnuplot-nox", "nm": "binutils"}
COMPANIONS = ("tracemill-prepare", "tracemill-report")
SEPARATOR = "\x01"
# A class of two words or more, perhaps with a member: `SampleRow`, `RowQueue::add()`.
CLASS = re.compile(r"(?:[A-Z][a-z0-9]+){2,}[A-Z]?(?:::\w+)*(?:\(\))?")
SOURCES = {".h", ".cpp", ".py", ".js", ".ts"}


class Block(NamedTuple):
    info: str
    line: int
    text: str


def documents():
    """Every document of the project in Markdown, by its name from the root."""
    folders = [ROOT, ROOT / "docs", *(ROOT / "examples").glob("**/")]
    return {
        str(path.relative_to(ROOT)): path
        for folder in folders
        for path in sorted(folder.glob("*.md"))
    }


def words_of_the_sources():
    """What is written in the code of the project; comments count, too."""
    words = set()
    for folder in ROOT.iterdir():
        if folder.name.startswith(".") or folder.name in ("build", "docs", "demo-output"):
            continue
        for path in folder.rglob("*"):
            if path.suffix in SOURCES and "node_modules" not in path.parts:
                words.update(re.findall(r"\w+", path.read_text(encoding="utf-8", errors="replace")))
    return words


def read_blocks(text):
    blocks, info, indent, start, lines = [], None, 0, 0, []
    for number, line in enumerate(text.splitlines(), 1):
        fence = FENCE.match(line)
        if fence and info is None:
            indent, info = len(fence.group(1)), fence.group(2).strip()
            start, lines = number, []
        elif fence:
            blocks.append(Block(info, start, "\n".join(lines) + "\n"))
            info = None
        else:
            lines.append(line[indent:])
    if info is not None:
        raise ValueError(f"the block of line {start} has no end")
    return blocks


def read_manual_blocks(program):
    """The literal displays of a manual's EXAMPLES as blocks that run."""
    source = (MANUALS / f"{program}.1").read_text(encoding="utf-8")
    examples = re.search(r"^\.Sh EXAMPLES\n(.*?)^\.Sh ", source, re.MULTILINE | re.DOTALL).group(1)
    displays = re.findall(r"^\.Bd -literal[^\n]*\n(.*?)^\.Ed$", examples, re.MULTILINE | re.DOTALL)
    return [Block("sh", 0, text.replace("\\e", "\\")) for text in displays]


def read_recorded_times():
    """The time stamps of the demo's samples in nanoseconds, in the order of the file."""
    return PlainRecording(DEMO / "demo.perf.data").sample_times()


def without_trailing_blanks(text):
    return re.sub(r"[ \t]+$", "", text, flags=re.MULTILINE)


def without_blocks(text):
    return re.sub(r"^ *```.*?^ *```$", "", text, flags=re.MULTILINE | re.DOTALL)


class Session:
    """A fresh folder in which the commands of one document run."""

    def __init__(self, programs):
        self.folder = Path(tempfile.mkdtemp())
        self.place = self.folder / "place"
        for name in ("examples", "share"):
            shutil.copytree(
                ROOT / name, self.place / name, ignore=shutil.ignore_patterns("__pycache__")
            )
        (self.folder / "bin").mkdir()
        for program in programs:
            (self.folder / "bin" / program.name).symlink_to(program)
        self._make_demo_output()

    def _make_demo_output(self):
        """What scripts/demo does once the program is built."""
        (self.place / "demo-output").mkdir()
        folders = {"TRACEMILL_DEMO": "examples/demo", "TRACEMILL_DEMO_OUTPUT": "demo-output"}
        command = [self.folder / "bin" / "tracemill", "-c", "examples/demo/demo.conf"]
        subprocess.run(command, cwd=self.place, env=dict(os.environ, **folders), check=True)

    def close(self):
        shutil.rmtree(self.folder)

    def run(self, blocks):
        """What each of the blocks printed. Fails with the block that failed."""
        script = "set -euo pipefail\n" + "".join(f"{b.text}printf '{SEPARATOR}'\n" for b in blocks)
        environment = {
            # Debian's Python before others: its packages are used.
            "PATH": f"{self.folder}/bin:/usr/bin:/bin:/usr/local/bin",
            "HOME": str(self.place),
            "LC_ALL": "C.UTF-8",
            "TZ": "UTC",
            "PYTHONDONTWRITEBYTECODE": "1",
        }
        done = subprocess.run(
            ["bash", "-c", script],
            cwd=self.place,
            env=environment,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            text=True,
            timeout=250,
            check=False,
        )
        printed = done.stdout.split(SEPARATOR)
        if done.returncode != 0:
            failed = blocks[len(printed) - 1]
            raise AssertionError(
                f"the block of line {failed.line} ended with status {done.returncode}:\n"
                f"{failed.text}\nIt printed:\n{printed[-1]}{done.stderr}"
            )
        return printed[:-1]


class CommandsTest(unittest.TestCase):
    maxDiff = None

    def session(self):
        session = Session(self.programs)
        self.addCleanup(session.close)
        return session

    def lacks_program(self, commands):
        built = {program.name for program in self.programs}
        text = "".join(command.text for command in commands)
        return any(name in text and name not in built for name in COMPANIONS)

    def test_every_document_does_what_it_shows(self):
        total = 0
        for name, path in documents().items():
            blocks = read_blocks(path.read_text(encoding="utf-8"))
            commands = [block for block in blocks if block.info == "sh"]
            if not commands or self.lacks_program(commands):
                continue
            total += len(commands)
            with self.subTest(name):
                printed = dict(zip(commands, self.session().run(commands)))
                for before, block in zip(blocks, blocks[1:]):
                    if block.info == "output":
                        self.assertEqual(
                            without_trailing_blanks(printed[before]),
                            block.text,
                            f"line {block.line}",
                        )
        self.assertGreater(total, 5)

    def test_the_manuals_examples_run(self):
        session = self.session()
        place = session.place
        shutil.copytree(DEMO / "sysroot", place / "sysroot")
        shutil.copy(DEMO / "sysroot" / "kallsyms.txt", place)
        shutil.copy(DEMO / "demo.perf.data", place / "perf.data")
        (place / "tracemill.conf").write_text("{}")
        blocks = read_manual_blocks("tracemill")
        self.assertEqual(len(blocks), 5)
        session.run(blocks)
        samples = self._read_samples(place / "profile.json")
        self.assertEqual(len(samples), 2383)
        # The window that the manual works out.
        times = [time - 1_934_500_000_000 for time in read_recorded_times()]
        expected = [time / 1e9 for time in times if 0 <= time < 250_000_000]
        self.assertGreater(len(expected), 400)
        window = self._read_samples(place / "window.json")
        self.assertEqual(len(window), len(expected))
        for row, time in zip(window, expected):
            self.assertAlmostEqual(row[3], time, delta=1e-6)
        self.assertEqual(
            (place / "all.json").read_bytes(), 2 * (place / "profile.json").read_bytes()
        )
        piped = subprocess.run(
            ["gzip", "-dc", place / "profile.json.gz"], capture_output=True, check=True
        )
        self.assertEqual(piped.stdout, (place / "profile.json").read_bytes())
        elsewhere = json.loads((place / "elsewhere.json").read_text())
        names = [row[1] for row in elsewhere["functions"]["data"]]
        self.assertIn("ripples::carryMessages(ripples::Deadline)", names)
        self.assertIn("vfs_write", names)

    def test_the_examples_of_the_manual_of_prepare_run(self):
        blocks = read_manual_blocks("tracemill-prepare")
        if self.lacks_program(blocks):
            self.skipTest("it was not built")
        session = self.session()
        place = session.place
        shutil.copytree(DEMO / "sysroot", place / "sysroot")
        shutil.copy(DEMO / "sysroot" / "kallsyms.txt", place)
        shutil.copy(DEMO / "demo.perf.data", place / "perf.data")
        self.assertEqual(len(blocks), 5)
        printed = session.run(blocks)
        self.assertEqual(len(self._read_samples(place / "profile.json")), 2383)
        # 3 h 28 min 45.5 s are 12525.5 s.
        self.assertIn(" -s 12525.500000000 -d 0.500000000\n", printed[2])
        for folder in ("elsewhere.prepared", "board.tar.zst.prepared", "piped.prepared"):
            self.assertEqual(json.loads((place / folder / "quality.json").read_text())["samples"]["all"], 2383)

    def _read_samples(self, path):
        return json.loads(path.read_text())["samples"]["data"]


class TextsTest(unittest.TestCase):
    def test_every_block_says_what_it_is(self):
        for name, path in documents().items():
            blocks = read_blocks(path.read_text(encoding="utf-8"))
            for before, block in zip([Block("", 0, ""), *blocks], blocks):
                where = f"{name}, line {block.line}"
                self.assertIn(block.info, KNOWN_INFO, where)
                if block.info == "output":
                    self.assertEqual(before.info, "sh", where)

    def test_no_command_hides_in_an_indented_block(self):
        for name, path in documents().items():
            text = without_blocks(path.read_text(encoding="utf-8"))
            for paragraph in re.split(r"\n\s*\n", text):
                self.assertFalse(
                    paragraph.startswith("    "), f"{name}: fence this block:\n{paragraph}"
                )

    def test_what_builds_the_project_is_there(self):
        presets = json.loads((ROOT / "CMakePresets.json").read_text())
        known = {p["name"] for kind in presets.values() if isinstance(kind, list) for p in kind}
        for name, path in documents().items():
            for block in read_blocks(path.read_text(encoding="utf-8")):
                where = f"{name}, line {block.line}"
                if block.info == "sh build":
                    for preset in re.findall(r"--preset (\S+)", block.text):
                        self.assertIn(preset, known, where)
                if block.info.startswith("sh "):
                    for script in re.findall(
                        r"^((?:scripts|\.ci|tests|bench|examples)/\S+)", block.text, re.MULTILINE
                    ):
                        self.assertTrue(os.access(ROOT / script, os.X_OK), f"{where}: {script}")

    def test_links_lead_somewhere(self):
        for name, path in documents().items():
            text = without_blocks(path.read_text(encoding="utf-8"))
            for target in re.findall(r"\]\(([^)#\s]+)(?:#[^)]*)?\)", text):
                if not target.startswith("http"):
                    self.assertTrue((path.parent / target).exists(), f"{name}: {target}")

    def test_classes_that_are_named_are_there(self):
        known = words_of_the_sources()
        total = 0
        for name, path in documents().items():
            text = without_blocks(path.read_text(encoding="utf-8"))
            for code in re.findall(r"`([^`\n]+)`", text):
                if CLASS.fullmatch(code):
                    total += 1
                    for word in re.findall(r"\w+", code):
                        self.assertTrue(word in known, f"{name}: {code}")
        self.assertGreater(total, 30)

    def test_pictures_are_small(self):
        pictures = list((ROOT / "docs" / "pictures").iterdir())
        self.assertGreaterEqual(len(pictures), 2)
        for picture in pictures:
            self.assertLess(picture.stat().st_size, 100_000, picture)


def main(arguments):
    if len(arguments) not in (1, 2, 3):
        print(__doc__)
        return 1
    CommandsTest.programs = [Path(argument).resolve() for argument in arguments]
    missing = [package for tool, package in TOOLS.items() if shutil.which(tool) is None]
    if missing:
        return f"documents_test: tools are missing. On Debian: apt install {' '.join(missing)}"
    return 0 if unittest.main(argv=["documents_test"], exit=False).result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
