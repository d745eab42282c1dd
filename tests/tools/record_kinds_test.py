"""Tests of bench/record_kinds: its list, its messages, and one kind, where perf may record."""

import importlib.machinery
import importlib.util
import json
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

PROGRAM = Path(__file__).resolve().parents[2] / "bench" / "record_kinds"

loader = importlib.machinery.SourceFileLoader("record_kinds", str(PROGRAM))
spec = importlib.util.spec_from_loader("record_kinds", loader)
assert spec is not None
record_kinds = importlib.util.module_from_spec(spec)
sys.modules["record_kinds"] = record_kinds
loader.exec_module(record_kinds)


def run(*words: object) -> subprocess.CompletedProcess[str]:
    command = [sys.executable, "-B", str(PROGRAM), *map(str, words)]
    return subprocess.run(command, check=False, capture_output=True, text=True)


def may_record() -> bool:
    """Whether there is a perf here that may look at a program's clock."""
    if shutil.which("perf") is None or shutil.which("g++") is None:
        return False
    with tempfile.TemporaryDirectory() as folder:
        words = ["perf", "record", "-q", "-N", "-e", "cpu-clock", "-o", f"{folder}/perf.data", "--", "true"]
        return subprocess.run(words, check=False, capture_output=True).returncode == 0


class RecordKindsTest(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def test_the_list_has_every_kind_and_records_none(self) -> None:
        done = run("--list")
        self.assertEqual(0, done.returncode)
        self.assertEqual(list(record_kinds.KINDS), [line.split()[0] for line in done.stdout.splitlines()])

    def test_wrong_words_are_named(self) -> None:
        done = run("no-such-kind", self.folder)
        self.assertEqual(2, done.returncode)
        self.assertIn("there is no kind no-such-kind", done.stderr)
        self.assertEqual([], list(self.folder.iterdir()))
        self.assertIn("say where to write", run().stderr)

    def test_a_kind_that_fails_leaves_its_reason_and_no_folder(self) -> None:
        machine = record_kinds.Machine(self.folder, long=False)
        record_kinds.KINDS["broken"] = record_kinds.Kind("broken", lambda _: record_kinds.tool("no-such-tool"))
        self.addCleanup(record_kinds.KINDS.pop, "broken")
        self.assertEqual("no-such-tool is not installed", record_kinds.record_one(machine, "broken"))
        self.assertFalse((self.folder / "broken").exists())

    @unittest.skipUnless(may_record(), "perf cannot record here")
    def test_a_kind_has_its_recording_and_its_command(self) -> None:
        done = run("user-only", self.folder)
        self.assertEqual(0, done.returncode, done.stderr)
        self.assertEqual(b"PERFILE2", (self.folder / "user-only" / "perf.data").read_bytes()[:8])
        self.assertIn("perf record", (self.folder / "user-only" / "command").read_text(encoding="utf-8"))
        kinds = json.loads((self.folder / "kinds.json").read_text(encoding="utf-8"))
        self.assertEqual(["user-only"], list(kinds))
        self.assertNotIn("missing", kinds["user-only"])


if __name__ == "__main__":
    unittest.main()
