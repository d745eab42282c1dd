"""Tests of bench/plain_recording.py on files laid out by hand."""

import struct
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "bench"))

from plain_recording import PlainRecording, RecordingError  # noqa: E402

SAMPLE_TYPE = 0xA7  # IP TID TIME CALLCHAIN CPU
IDENTIFIER = 0x10000


def record(kind, body):
    return struct.pack("<IHH", kind, 0, 8 + len(body)) + body


def sample(time, before=b""):
    return record(9, before + struct.pack("<QIIQIIQ", 0x1000, 7, 8, time, 1, 0, 0))


MAP = record(1, struct.pack("<IIQQQ", 7, 8, 0x1000, 0x2000, 0x3000) + b"/bin/app".ljust(16, b"\0"))


def perf_file(*records, sample_type=SAMPLE_TYPE, size=None):
    data = b"".join(records)
    attribute = struct.pack("<IIQQQ", 0, 96, 0, 4000, sample_type).ljust(96, b"\0") + struct.pack("<QQ", 0, 0)
    begin = 104 + len(attribute)
    header = b"PERFILE2" + struct.pack("<QQQQQQQQ", 104, len(attribute), 104, len(attribute), begin,
                                       len(data) if size is None else size, 0, 0)
    return header.ljust(104, b"\0") + attribute + data


class PlainRecordingTest(unittest.TestCase):
    def recording(self, content):
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder, "perf.data")
            path.write_bytes(content)
            return PlainRecording(path)

    def refuses(self, content, words):
        with self.assertRaisesRegex(RecordingError, words):
            list(self.recording(content).records())

    def test_times_stand_in_the_order_of_the_file(self):
        recording = self.recording(perf_file(sample(5), MAP, sample(3)))
        self.assertEqual([5, 3], recording.sample_times())
        self.assertEqual([SAMPLE_TYPE], recording.sample_types)

    def test_an_identifier_stands_before_the_time(self):
        content = perf_file(sample(5, bytes(8)), sample_type=SAMPLE_TYPE | IDENTIFIER)
        self.assertEqual([5], self.recording(content).sample_times())

    def test_maps_have_their_name_without_padding(self):
        self.assertEqual([(7, 0x1000, 0x2000, 0x3000, "/bin/app")], self.recording(perf_file(MAP)).maps())

    def test_samples_without_times_are_refused(self):
        with self.assertRaisesRegex(RecordingError, "no address, thread or time"):
            self.recording(perf_file(sample_type=0x3)).sample_times()

    def test_what_has_to_be_prepared_is_refused(self):
        for kind in (10, 66, 71, 81, 83):
            self.refuses(perf_file(record(kind, bytes(64))), f"type {kind}: run tracemill-prepare")

    def test_what_nobody_needs_is_passed_over(self):
        self.assertEqual([5], self.recording(perf_file(record(68, b""), record(69, bytes(16)), sample(5))).sample_times())

    def test_other_files_are_refused(self):
        self.refuses(b"2ELIFREP" + bytes(200), "byte order")
        self.refuses(b"PERFILE2" + struct.pack("<Q", 16), "in a file")

    def test_broken_files_are_refused(self):
        self.refuses(perf_file(MAP, size=len(MAP) + 1), "past its end")
        self.refuses(perf_file(MAP, b"\0" * 4), "cut off")
        self.refuses(perf_file(struct.pack("<IHH", 9, 0, 4)), "4 bytes")
        self.refuses(perf_file(struct.pack("<IHH", 9, 0, 24)), "24 bytes")


if __name__ == "__main__":
    unittest.main()
