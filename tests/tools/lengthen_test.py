"""Tests of bench/lengthen.py and of what bench/prepare says, on a recording that is written here."""

import struct
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

BENCH = Path(__file__).resolve().parents[2] / "bench"
sys.path.insert(0, str(BENCH))

from lengthen import GAP, LengthenError, Recording, lengthen  # noqa: E402

# IP, TID, TIME, CPU: a sample's time stands at 24, that of a trailer 16 before the end.
SAMPLE_TYPE = 0x87
SAMPLE_ID_ALL = 1 << 18


def record(kind: int, body: bytes) -> bytes:
    return struct.pack("<IHH", kind, 0, 8 + len(body)) + body


def sample(time: int) -> bytes:
    return record(9, struct.pack("<QIIQII", 0x1000, 1, 1, time, 0, 0))


def comm(time: int) -> bytes:
    return record(3, struct.pack("<II8sIIQII", 1, 1, b"app", 1, 1, time, 0, 0))


ROUND = record(68, b"")
START = comm(0)
FEATURE = b"feature!"


def recording(records: bytes, flags: int = SAMPLE_ID_ALL, attributes: int = 1) -> bytes:
    attribute = struct.pack("<IIQQQQQ", 1, 64, 0, 1, SAMPLE_TYPE, 0, flags).ljust(64, b"\0") + bytes(16)
    begin = 104 + len(attribute) * attributes
    header = struct.pack("<8s10Q", b"PERFILE2", 104, 80, 104, 80 * attributes, begin, len(records), 0, 0, 1 << 3, 0)
    end = begin + len(records)
    table = struct.pack("<2Q", end + 16, len(FEATURE))
    return header.ljust(104, b"\0") + attribute * attributes + records + table + FEATURE


class LengthenTest(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.source, self.target = Path(folder.name) / "source", Path(folder.name) / "target"

    def lengthened(self, records: bytes, size: int) -> tuple[int, bytes]:
        self.source.write_bytes(recording(records))
        return lengthen(self.source, self.target, size), self.target.read_bytes()

    def test_the_kernels_records_come_again_later_and_perfs_own_once(self) -> None:
        count, content = self.lengthened(START + sample(1000) + comm(1500) + ROUND + sample(2000) + ROUND, 450)
        later = 1000 + GAP
        expected = START + sample(1000) + comm(1500) + ROUND + sample(2000) + ROUND
        expected += sample(1000 + later) + comm(1500 + later) + ROUND + sample(2000 + later) + ROUND
        self.assertEqual(recording(expected), content)
        self.assertEqual(4, count)

    def test_a_size_that_there_is_already_changes_nothing(self) -> None:
        _, content = self.lengthened(START + sample(1000), 0)
        self.assertEqual(self.source.read_bytes(), content)

    def test_the_size_is_reached(self) -> None:
        for size in (1000, 1001, 5000):
            _, content = self.lengthened(START + sample(1000) + sample(1001), size)
            self.assertLessEqual(size, len(content))
            self.assertLess(len(content), size + 2 * len(sample(0)))

    def test_what_cannot_be_made_longer_is_refused(self) -> None:
        for content, reason in (
            (b"PERFILE2" + struct.pack("<Q", 16), "no file"),
            (recording(sample(1), flags=0), "without times"),
            (recording(START), "no records with times"),
            (recording(record(81, b"zstd")), "compressed"),
            (recording(struct.pack("<IHH", 9, 0, 4)), "broken"),
        ):
            with self.subTest(reason), self.assertRaisesRegex(LengthenError, reason):
                Recording(content)

    def test_the_command_says_what_it_made_and_what_was_wrong(self) -> None:
        self.source.write_bytes(recording(sample(1)))
        words = [sys.executable, "-B", str(BENCH / "lengthen.py"), str(self.source), str(self.target)]
        done = subprocess.run([*words, "9"], check=True, capture_output=True, text=True)
        self.assertEqual("1 samples\n", done.stdout)
        self.assertEqual(2, subprocess.run(words, check=False, capture_output=True).returncode)


class PrepareTest(unittest.TestCase):
    def run_prepare(self, *words: str) -> subprocess.CompletedProcess[str]:
        command = [sys.executable, "-B", str(BENCH / "prepare"), *words]
        return subprocess.run(command, check=False, capture_output=True, text=True)

    def test_help_names_every_option(self) -> None:
        text = self.run_prepare("--help").stdout
        for option in ("ROW", "--prepare", "--program", "--options", "--recording", "--keep", "--rounds"):
            self.assertIn(option, text)

    def test_a_program_that_does_not_exist_is_named(self) -> None:
        done = self.run_prepare("--prepare", "/no-such-program")
        self.assertEqual(2, done.returncode)
        self.assertIn("/no-such-program does not exist", done.stderr)


if __name__ == "__main__":
    unittest.main()
