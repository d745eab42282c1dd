"""Tests of the built program as a whole, short enough for every way to build it.

    program_test.py COMMAND PROGRAM STRIP KIND

COMMAND starts the program, PROGRAM is its file, STRIP the tool for such files, KIND "static" or "shared".
"""

import json
import os
import struct
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
DEMO = ROOT / "examples" / "demo"
INTERPRETER_SEGMENT = 3  # PT_INTERP of elf.h: who loads the shared libraries
LARGEST_STATIC = 3_000_000  # bytes, stripped; boards have little room

COMMAND, PROGRAM, STRIP, KIND = sys.argv[1:5]
del sys.argv[1:5]


def run(arguments, folder, **variables):
    return subprocess.run([COMMAND, *arguments], cwd=folder, env={**os.environ, "TZ": "UTC", **variables},
                          stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60, check=False)


def segment_types(program):
    """The types of the program headers, for 32 and 64 bits, little endian."""
    elf = Path(program).read_bytes()
    if elf[4] == 2:
        (offset,), (size, count) = struct.unpack_from("<Q", elf, 32), struct.unpack_from("<HH", elf, 54)
    else:
        (offset,), (size, count) = struct.unpack_from("<I", elf, 28), struct.unpack_from("<HH", elf, 42)
    return [struct.unpack_from("<I", elf, offset + i * size)[0] for i in range(count)]


class ProgramTest(unittest.TestCase):
    def setUp(self):
        self.temporary = tempfile.TemporaryDirectory()
        self.addCleanup(self.temporary.cleanup)
        self.folder = Path(self.temporary.name)

    def test_it_shows_its_help(self):
        result = run(["-h"], self.folder)
        self.assertEqual((result.returncode, result.stderr), (1, ""))  # kept, see docs/decisions.md
        self.assertIn("\n USAGE tracemill [options]\n", result.stdout)

    def test_it_converts_the_demo(self):
        (self.folder / "demo").symlink_to(DEMO)  # a name without blanks, wherever the project lies
        result = run(["-c", "demo/demo.conf"], self.folder, TRACEMILL_DEMO="demo", TRACEMILL_DEMO_OUTPUT="output")
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))
        document = json.loads((self.folder / "output" / "demo.json").read_text())
        self.assertEqual(len(document["samples"]["data"]), 2383)  # as its README says
        self.assertIn("mixHash", json.dumps(document["functions"]["data"]))

    @unittest.skipUnless(KIND == "static", "built with shared libraries")
    def test_it_needs_no_shared_library(self):
        self.assertNotIn(INTERPRETER_SEGMENT, segment_types(PROGRAM))

    @unittest.skipUnless(KIND == "static", "built with shared libraries")
    def test_stripped_it_is_small(self):
        stripped = self.folder / "stripped"
        subprocess.run([STRIP, "-o", stripped, PROGRAM], check=True)
        size = stripped.stat().st_size
        print(f"{size} bytes", file=sys.stderr)
        self.assertLess(size, LARGEST_STATIC)


if __name__ == "__main__":
    unittest.main()
