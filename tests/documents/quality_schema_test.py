"""Checks share/tracemill-quality.schema.json: what tracemill-prepare writes is valid by it, and changes of that are not.

    quality_schema_test.py TRACEMILL_PREPARE
"""

import copy
import json
import os
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

try:
    import jsonschema
except ModuleNotFoundError:
    sys.exit("quality_schema_test: the validator is missing. On Debian: apt install python3-jsonschema")

ROOT = Path(__file__).resolve().parents[2]
SCHEMA = ROOT / "share" / "tracemill-quality.schema.json"
DEMO = ROOT / "examples" / "demo"
PAGE = ROOT / "docs" / "no-functions.md"
SOURCE = ROOT / "prepare" / "Quality.cpp"
CHAIN_SOURCE = ROOT / "prepare" / "ChainEnds.cpp"
# Objects whose members are all required; of arrays the first item is changed.
OBJECTS = ([], ["recording"], ["samples"], ["names"], ["names", "samples"], ["names", "callers"],
           ["names", "samples", "user"], ["nameless", 0])


def at(document, path):
    for step in path:
        document = document[step]
    return document


class QualityTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        schema = json.loads(SCHEMA.read_text(encoding="utf-8"))
        jsonschema.Draft202012Validator.check_schema(schema)
        cls.checker = jsonschema.Draft202012Validator(schema)
        cls.folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.folder.cleanup)
        cls.whole = cls.prepare(DEMO / "demo.perf.data")

    @classmethod
    def prepare(cls, recording, *options):
        output = Path(cls.folder.name, "prepared")
        # Of no file on this machine but those of the demo.
        files = ["--sysroot", DEMO / "sysroot", "--kallsyms", DEMO / "sysroot" / "kallsyms.txt", "--no-cache"]
        environment = {"HOME": cls.folder.name, "TZ": "UTC", "PATH": os.environ["PATH"]}
        subprocess.run([cls.program, "-q", *files, *options, "-o", output, recording], check=True, env=environment,
                       timeout=100)
        return json.loads((output / "quality.json").read_text(encoding="utf-8"))

    def test_that_of_the_demo_is_valid_and_counts_its_samples(self):
        self.checker.validate(self.whole)
        self.assertEqual(2383, self.whole["samples"]["all"])  # as perf script counts them
        self.assertEqual("2026-11-21 03:28:45.183992088 +0000", self.whole["recording"]["wallClockOfFirstSample"])
        modes = self.whole["names"]["samples"]
        self.assertEqual(2383, modes["user"]["all"] + modes["kernel"]["all"])
        self.assertTrue(self.whole["nameless"])

    def test_that_of_a_cut_recording_is_valid_and_tells_of_the_damage(self):
        cut = Path(self.folder.name, "cut.perf.data")
        content = (DEMO / "demo.perf.data").read_bytes()
        cut.write_bytes(content[: len(content) // 2])
        document = self.prepare(cut)
        self.checker.validate(document)
        self.assertTrue(document["damage"])

    def test_that_of_an_empty_recording_is_valid(self):
        empty = Path(self.folder.name, "empty.perf.data")
        content = bytearray((DEMO / "demo.perf.data").read_bytes())
        content = content[: int.from_bytes(content[40:48], "little")]  # up to the records
        content[48:56] = bytes(8)
        content[72:104] = bytes(32)  # no features
        empty.write_bytes(content)
        document = self.prepare(empty)
        self.checker.validate(document)
        self.assertEqual(0, document["samples"]["all"])
        self.assertIsNone(document["recording"]["wallClockNanoseconds"])

    def test_every_member_is_described_and_required(self):
        for path in OBJECTS:
            for member in at(self.whole, path):
                broken = copy.deepcopy(self.whole)
                del at(broken, path)[member]
                self.assertFalse(self.checker.is_valid(broken), [*path, member])
                broken = copy.deepcopy(self.whole)
                at(broken, path)[member] = {"no": "such"}
                self.assertFalse(self.checker.is_valid(broken), [*path, member])

    def test_counts_are_whole_numbers(self):
        for wrong in (-1, 1.5, "1", None, 1 << 64):
            broken = copy.deepcopy(self.whole)
            broken["samples"]["all"] = wrong
            self.assertFalse(self.checker.is_valid(broken), wrong)

    def test_another_version_is_refused(self):
        self.assertFalse(self.checker.is_valid({**self.whole, "version": 2}))


class SourceTest(unittest.TestCase):
    def test_the_ends_of_chains_are_those_that_are_counted(self):
        source = SOURCE.read_text(encoding="utf-8")
        counted = re.search(r"ENDS\[\] = \{(.*?)\};", source, re.DOTALL).group(1)
        schema = json.loads(SCHEMA.read_text(encoding="utf-8"))["properties"]["stackDumps"]
        self.assertEqual(re.findall(r'"(\w+)"', counted), list(schema["properties"]))
        self.assertEqual(schema["required"], list(schema["properties"]))

    def test_the_page_explains_each_that_is_given(self):
        source = SOURCE.read_text(encoding="utf-8") + CHAIN_SOURCE.read_text(encoding="utf-8")
        given = set(re.findall(r'(?:return |Reason(?: [A-Z]+)?|push_back\(\s*)\{"([a-z-]+)",', source))
        self.assertGreaterEqual(len(given), 9)
        explained = re.findall(r"^\| `([a-z-]+)` \|", PAGE.read_text(encoding="utf-8"), re.MULTILINE)
        self.assertEqual(set(explained), given)


def main(arguments):
    if len(arguments) != 1:
        print(__doc__)
        return 1
    QualityTest.program = Path(arguments[0]).resolve()
    return 0 if unittest.main(argv=["quality_schema_test"], exit=False).result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
