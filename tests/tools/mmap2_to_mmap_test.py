"""Tests of examples/mmap2_to_mmap.py on records and files laid out by hand."""

import contextlib
import io
import struct
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "examples"))

import mmap2_to_mmap as rewriter  # noqa: E402

NAME = b"/opt/lib.so\0\0\0\0\0"  # padded to 8 bytes
SAMPLE_ID = struct.pack("<IIQII", 10, 11, 5_000_000, 1, 0)  # tid, time, cpu
SAMPLE_TYPE = 0x1A7  # IP TID TIME CALLCHAIN CPU PERIOD


def record(record_type, misc, body):
    return struct.pack("<IHH", record_type, misc, 8 + len(body)) + body


def mmap2(misc=2, inode=struct.pack("<IIQQ", 8, 1, 4711, 3), prot=5, tail=NAME + SAMPLE_ID):
    place = struct.pack("<IIQQQ", 10, 11, 0x7F00_0000_0000, 0x3000, 0x1000)
    return record(10, misc, place + inode + struct.pack("<II", prot, 2) + tail)


def mmap(misc=2, tail=NAME + SAMPLE_ID):
    return record(1, misc, struct.pack("<IIQQQ", 10, 11, 0x7F00_0000_0000, 0x3000, 0x1000) + tail)


def perf_file(records, sample_types=(SAMPLE_TYPE,), features=()):
    """A file of attributes, records and feature sections, one feature bit for each of the latter."""
    attr_size = 128 + 16
    attrs = b""
    for sample_type in sample_types:
        attr = struct.pack("<IIQQQ", 1, 128, 0, 997, sample_type)
        attrs += attr.ljust(128, b"\0") + struct.pack("<QQ", 0, 0)
    data = b"".join(records)
    data_offset = 104 + len(attrs)
    header = b"PERFILE2" + struct.pack("<QQ", 104, attr_size)
    header += struct.pack("<QQ", 104, len(attrs)) + struct.pack("<QQ", data_offset, len(data))
    header += struct.pack("<QQ", 0, 0)
    header += ((1 << len(features)) - 1 << 2).to_bytes(32, "little")
    at = data_offset + len(data) + 16 * len(features)
    table = b""
    for feature in features:
        table += struct.pack("<QQ", at, len(feature))
        at += len(feature)
    return header + attrs + data + table + b"".join(features)


class RewriteRecordTest(unittest.TestCase):
    def test_mmap2_becomes_mmap_with_the_same_facts(self):
        rewritten = rewriter.rewrite_record(mmap2())
        self.assertEqual(rewritten, mmap())
        self.assertEqual(len(rewritten), len(mmap2()) - 32)

    def test_the_name_and_the_sample_id_behind_it_stay_whole(self):
        self.assertTrue(rewriter.rewrite_record(mmap2()).endswith(NAME + SAMPLE_ID))

    def test_a_build_id_in_place_of_the_inode_is_dropped_with_its_mark(self):
        build_id = bytes([20, 0, 0, 0]) + b"\xab" * 20
        rewritten = rewriter.rewrite_record(mmap2(misc=2 | 1 << 14, inode=build_id))
        self.assertEqual(rewritten, mmap(misc=2))

    def test_a_map_that_is_not_executable_is_marked_as_data(self):
        self.assertEqual(rewriter.rewrite_record(mmap2(prot=3)), mmap(misc=2 | 1 << 13))

    def test_a_data_map_keeps_its_mark(self):
        rewritten = rewriter.rewrite_record(mmap2(misc=2 | 1 << 13, prot=1))
        self.assertEqual(rewritten, mmap(misc=2 | 1 << 13))

    def test_an_empty_name_is_kept(self):
        self.assertEqual(rewriter.rewrite_record(mmap2(tail=b"\0" * 8)), mmap(tail=b"\0" * 8))

    def test_the_smallest_mmap2_has_no_name(self):
        self.assertEqual(rewriter.rewrite_record(mmap2(tail=b"")), mmap(tail=b""))

    def test_a_shorter_mmap2_is_an_error(self):
        with self.assertRaises(rewriter.PerfFileError):
            rewriter.rewrite_record(record(10, 2, b"\0" * 63))

    def test_other_records_stay_as_they_are(self):
        for record_type in (1, 2, 3, 4, 7, 9, 17, 68, 82):
            other = record(record_type, 1 << 14, bytes(range(96)))
            self.assertEqual(rewriter.rewrite_record(other), other)


class RewriteDataTest(unittest.TestCase):
    def test_records_keep_their_order(self):
        sample = record(9, 2, b"\1" * 40)
        comm = record(3, 0, b"\2" * 24)
        data = rewriter.rewrite_data(comm + mmap2() + sample + mmap2(prot=1) + sample)
        self.assertEqual(data, comm + mmap() + sample + mmap(misc=2 | 1 << 13) + sample)

    def test_damaged_sizes_are_errors(self):
        for data in (b"\0" * 7, struct.pack("<IHH", 9, 0, 7), struct.pack("<IHH", 9, 0, 16)):
            with self.assertRaises(rewriter.PerfFileError):
                rewriter.rewrite_data(data)

    def test_compressed_and_trace_records_are_refused(self):
        for record_type in (71, 81, 83):
            with self.assertRaises(rewriter.PerfFileError):
                rewriter.rewrite_data(record(record_type, 0, b"\0" * 8))


class RewriteFileTest(unittest.TestCase):
    def test_the_data_section_shrinks_and_the_features_move_up(self):
        sample = record(9, 2, b"\1" * 40)
        features = (b"first feature", b"second")
        rewritten = rewriter.rewrite_file(perf_file([mmap2(), mmap2(), sample], features=features))
        self.assertEqual(rewritten, perf_file([mmap(), mmap(), sample], features=features))

    def test_a_second_rewriting_changes_nothing(self):
        once = rewriter.rewrite_file(perf_file([mmap2()], features=(b"x",)))
        self.assertEqual(rewriter.rewrite_file(once), once)

    def test_what_is_no_finished_file_is_an_error(self):
        good = perf_file([mmap2()], features=(b"x",))
        pipe = b"PERFILE2" + struct.pack("<Q", 16) + b"\0" * 100
        unfinished = good[:48] + b"\0" * 8 + good[56:]
        for content in (b"", b"PERF", b"x" * 200, good[:90], good[:-8], pipe, unfinished, good[::-1]):
            with self.assertRaises(rewriter.PerfFileError):
                rewriter.rewrite_file(content)

    def test_records_cut_off_between_two_of_them_are_an_error(self):
        content = perf_file([mmap2(), mmap2()])
        with self.assertRaisesRegex(rewriter.PerfFileError, "past the end"):
            rewriter.rewrite_file(content[: -len(mmap2())])

    def test_sections_behind_the_records_that_would_have_to_move_are_an_error(self):
        content = perf_file([mmap2()])
        with self.assertRaisesRegex(rewriter.PerfFileError, "usual order"):
            rewriter.rewrite_file(content[:56] + struct.pack("<QQ", len(content), 72) + content[72:])

    def test_a_big_endian_file_is_an_error(self):
        with self.assertRaisesRegex(rewriter.PerfFileError, "big-endian"):
            rewriter.rewrite_file(b"2ELIFREP" + b"\0" * 200)

    def test_a_cut_feature_table_is_an_error(self):
        content = perf_file([mmap2()], features=(b"",))
        with self.assertRaises(rewriter.PerfFileError):
            rewriter.rewrite_file(content[:-1])


class SampleTypeTest(unittest.TestCase):
    def test_sample_types_are_read_attribute_by_attribute(self):
        content = perf_file([mmap2()], sample_types=(0x7, 0x1A7))
        header = rewriter.read_header(content)
        self.assertEqual(rewriter.read_sample_types(content, header), [0x7, 0x1A7])

    def test_decoded_layouts_give_no_warning(self):
        for sample_type in (0x7, 0x1A7, 0x7FF, 0x10007):
            self.assertEqual(rewriter.sample_type_warnings([sample_type, sample_type]), [])

    def test_different_layouts_and_fields_not_decoded_give_one_each(self):
        self.assertEqual(len(rewriter.sample_type_warnings([0x7, 0x1A7])), 1)
        self.assertIn("0x800", rewriter.sample_type_warnings([0x807])[0])


class CommandTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def run_command(self, *arguments):
        errors = io.StringIO()
        with contextlib.redirect_stderr(errors):
            status = rewriter.main([str(argument) for argument in arguments])
        return status, errors.getvalue()

    def test_the_input_may_be_the_output(self):
        path = self.folder / "perf.data"
        path.write_bytes(perf_file([mmap2()]))
        self.assertEqual(self.run_command(path, path), (0, ""))
        self.assertEqual(path.read_bytes(), perf_file([mmap()]))
        self.assertEqual(list(self.folder.iterdir()), [path])

    def test_a_damaged_input_leaves_no_output_and_says_why(self):
        path = self.folder / "perf.data"
        path.write_bytes(b"nothing of the kind")
        status, errors = self.run_command(path, self.folder / "out")
        self.assertEqual(status, 1)
        self.assertEqual(errors, f"Cannot rewrite {path}: it is not a perf.data file.\n")
        self.assertFalse((self.folder / "out").exists())

    def test_a_missing_input_is_one_line(self):
        status, errors = self.run_command(self.folder / "none", self.folder / "out")
        self.assertEqual((status, errors.count("\n")), (1, 1))


if __name__ == "__main__":
    unittest.main()
