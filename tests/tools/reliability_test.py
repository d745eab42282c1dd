"""Every promise of docs/reliability.md names the tests that show it: they must exist."""

import re
import sys
import unittest
from fnmatch import fnmatchcase
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
DOCUMENT = ROOT / "docs" / "reliability.md"

TEST = re.compile(r"^TEST(?:_[FP])?\((\w+),\s*(\w+)\)", re.MULTILINE)
NAME = re.compile(r"`(\w+Test\.(?:\w+|\*)|(?:fuzz|tools)\.[\w.]+)`")
FUZZ_TARGET = re.compile(r"^\s*fuzz_target\((\w+)", re.MULTILINE)
CTEST = re.compile(r"add_test\(NAME ([\w.]+)")
PYTHON_TEST = re.compile(r"^ *tracemill_python_test\(\s*([\w.]+)", re.MULTILINE)


def test_names():
    names = set()
    for source in (ROOT / "tests").rglob("*.cpp"):
        names.update(f"{suite}.{test}" for suite, test in TEST.findall(source.read_text(encoding="utf-8", errors="replace")))
    for listing in (ROOT / "tests").rglob("CMakeLists.txt"):
        text = listing.read_text(encoding="utf-8")
        names.update(f"fuzz.replay.{target}" for target in FUZZ_TARGET.findall(text))
        names.update(PYTHON_TEST.findall(text))
        names.update(CTEST.findall(text))
    return names


class ReliabilityTest(unittest.TestCase):
    def setUp(self):
        self.text = DOCUMENT.read_text(encoding="utf-8")

    def test_every_test_that_is_named_exists(self):
        names = test_names()
        named = NAME.findall(self.text)
        self.assertGreater(len(named), 30)
        missing = [name for name in named if not any(fnmatchcase(known, name) for known in names)]
        self.assertEqual(missing, [])

    def test_every_promise_names_a_test(self):
        rows = [line for line in self.text.splitlines() if line.startswith("| ") and not line.startswith("| Promise")]
        self.assertGreater(len(rows), 15)
        self.assertEqual([row for row in rows if not NAME.search(row.split("|")[2])], [])


if __name__ == "__main__":
    sys.exit(unittest.main())
