#!/usr/bin/python3
"""Rewrites the MMAP2 records of a perf.data file as MMAP records.

Current perf versions write every memory map as a PERF_RECORD_MMAP2 (type 10). Readers that know
only PERF_RECORD_MMAP (type 1), tracemill among them, would see no maps at all. Both records carry
the same facts for them: pid, tid, address, length, file offset and file name. What only MMAP2 has
(the inode or the build id, protection and flags) is dropped, except that a map without execute
permission keeps its mark as a data map.

    perf record -o raw.perf.data COMMAND
    mmap2_to_mmap.py raw.perf.data perf.data

Everything else in the file stays as it was recorded, so that perf report and perf script read the
result as before; the feature sections behind the records move up by what the records lost.

Layouts: include/uapi/linux/perf_event.h (records, attributes) and tools/perf/util/header.h and
Documentation/perf.data-file-format.txt (the file around them) of the Linux kernel. Little-endian
files only. The file is held in memory whole.
"""

import argparse
import os
import struct
import sys
from typing import NamedTuple

MAGIC = b"PERFILE2"
SECTION = struct.Struct("<QQ")  # perf_file_section: offset, size
RECORD_HEADER = struct.Struct("<IHH")  # perf_event_header: type, misc, size of the whole record
FILE_HEADER_SIZE = 104  # a pipe's header has only 16 bytes

RECORD_MMAP = 1
RECORD_MMAP2 = 10
# Records whose contents we cannot see into, or that are followed by bytes outside of any record.
REFUSED_RECORDS = {
    71: "hardware trace data; record an event without it",
    81: "compressed records; record without -z",
    83: "compressed records; record without -z",
}

# MMAP2 and MMAP agree up to here: header, pid, tid, addr, len, pgoff ...
MMAP_FILENAME = 40
# ... then MMAP2 has maj, min, ino and ino_generation (or 24 bytes of build id), prot and flags.
MMAP2_PROT = 64
MMAP2_FILENAME = 72
PROT_EXEC = 4
MISC_MMAP_DATA = 1 << 13
MISC_MMAP_BUILD_ID = 1 << 14

ATTR_SAMPLE_TYPE = 24
# IP TID TIME ADDR READ CALLCHAIN ID CPU PERIOD STREAM_ID RAW IDENTIFIER
DECODED_SAMPLE_BITS = 0x107FF


class PerfFileError(Exception):
    """The file is not one that can be rewritten; the text says why."""


class Section(NamedTuple):
    offset: int
    size: int

    @property
    def end(self):
        return self.offset + self.size


class FileHeader(NamedTuple):
    attr_size: int
    attrs: Section
    data: Section
    event_types: Section
    feature_count: int


def read_section(content, offset):
    return Section(*SECTION.unpack_from(content, offset))


def read_header(content):
    """Checks the file header and returns what the rewriting needs of it."""
    if content[:8] == MAGIC[::-1]:
        raise PerfFileError("it is a big-endian file")
    if len(content) < 16 or content[:8] != MAGIC:
        raise PerfFileError("it is not a perf.data file")
    if int.from_bytes(content[8:16], "little") != FILE_HEADER_SIZE or len(content) < FILE_HEADER_SIZE:
        raise PerfFileError("its header has an unknown size (written to a pipe?)")
    header = FileHeader(
        attr_size=int.from_bytes(content[16:24], "little"),
        attrs=read_section(content, 24),
        data=read_section(content, 40),
        event_types=read_section(content, 56),
        feature_count=int.from_bytes(content[72:104], "little").bit_count(),
    )
    if header.data.size == 0:
        raise PerfFileError("it holds no records (was perf record interrupted?)")
    if header.data.end > len(content):
        raise PerfFileError("its records reach past the end of the file")
    return header


def read_sample_types(content, header):
    """The sample_type of each attribute of the file, in order."""
    if header.attr_size < 80 or header.attrs.end > len(content):
        raise PerfFileError("its attributes are damaged")
    starts = range(header.attrs.offset, header.attrs.end - header.attr_size + 1, header.attr_size)
    return [struct.unpack_from("<Q", content, at + ATTR_SAMPLE_TYPE)[0] for at in starts]


def sample_type_warnings(sample_types):
    """What a reader that decodes all samples by the first attribute would stumble over."""
    warnings = []
    if len(set(sample_types)) > 1:
        warnings.append("the events have samples of different layouts; record one event at a time")
    ignored = sample_types[0] & ~DECODED_SAMPLE_BITS if sample_types else 0
    if ignored:
        warnings.append(f"the samples have fields that are not decoded (bits 0x{ignored:x})")
    return warnings


def rewrite_record(record):
    """Returns an MMAP2 record as MMAP, any other as it is. What follows the name (its padding and
    the sample_id block) moves along with it; both records are multiples of 8 bytes."""
    record_type, misc, size = RECORD_HEADER.unpack_from(record)
    if record_type != RECORD_MMAP2:
        return record
    if size < MMAP2_FILENAME:
        raise PerfFileError(f"it has an MMAP2 record of only {size} bytes")
    (prot,) = struct.unpack_from("<I", record, MMAP2_PROT)
    misc &= ~MISC_MMAP_BUILD_ID
    if not prot & PROT_EXEC:
        misc |= MISC_MMAP_DATA
    new_size = size - (MMAP2_FILENAME - MMAP_FILENAME)
    return (
        RECORD_HEADER.pack(RECORD_MMAP, misc, new_size)
        + record[RECORD_HEADER.size : MMAP_FILENAME]
        + record[MMAP2_FILENAME:]
    )


def split_records(data):
    """Yields the records of a data section one by one."""
    at = 0
    while at < len(data):
        if len(data) - at < RECORD_HEADER.size:
            raise PerfFileError("its last record is cut off")
        record_type, _, size = RECORD_HEADER.unpack_from(data, at)
        if record_type in REFUSED_RECORDS:
            raise PerfFileError(f"it has {REFUSED_RECORDS[record_type]}")
        if size < RECORD_HEADER.size or size > len(data) - at:
            raise PerfFileError(f"it has a record of impossible size ({size} bytes)")
        yield data[at : at + size]
        at += size


def rewrite_data(data):
    return b"".join(rewrite_record(record) for record in split_records(data))


def move_feature_table(table, distance):
    """The table of feature sections with every section's offset `distance` bytes lower."""
    return b"".join(
        SECTION.pack(offset - distance, size) for offset, size in SECTION.iter_unpack(table)
    )


def rewrite_file(content):
    """The bytes of the rewritten file."""
    header = read_header(content)
    for section in (header.attrs, header.event_types):
        if section.size > 0 and section.end > header.data.offset:
            raise PerfFileError("its sections do not stand in the usual order")
    data = rewrite_data(content[header.data.offset : header.data.end])
    distance = header.data.size - len(data)
    table_end = header.data.end + header.feature_count * SECTION.size
    if table_end > len(content):
        raise PerfFileError("its feature sections are cut off")
    return (
        content[:40]
        + SECTION.pack(header.data.offset, len(data))
        + content[56 : header.data.offset]
        + data
        + move_feature_table(content[header.data.end : table_end], distance)
        + content[table_end:]
    )


def main(arguments):
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("input", help="the file that perf record wrote")
    parser.add_argument("output", help="the file to write; may be the input itself")
    options = parser.parse_args(arguments)
    try:
        with open(options.input, "rb") as file:
            content = file.read()
        rewritten = rewrite_file(content)
        warnings = sample_type_warnings(read_sample_types(content, read_header(content)))
        temporary = options.output + ".tmp"
        with open(temporary, "wb") as file:
            file.write(rewritten)
        os.replace(temporary, options.output)
    except PerfFileError as error:
        print(f"Cannot rewrite {options.input}: {error}.", file=sys.stderr)
        return 1
    except OSError as error:
        print(f"Cannot rewrite {options.input}: {error}", file=sys.stderr)
        return 1
    for warning in warnings:
        print(f"Warning: {options.input}: {warning}.", file=sys.stderr)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
