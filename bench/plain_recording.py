"""Reads plain recordings: native byte order, records that stand one behind the other.

What `tracemill-prepare` writes is one, and what ships in examples/demo. Layouts:
include/uapi/linux/perf_event.h and tools/perf/util/header.h of the Linux kernel.
"""

import struct
from pathlib import Path

RECORD_HEADER = struct.Struct("<IHH")  # perf_event_header: type, misc, size of the whole record
SECTION = struct.Struct("<QQ")  # perf_file_section: offset, size
MMAP, SAMPLE = 1, 9
IP, TID, TIME, CALLCHAIN, CPU, PERIOD, IDENTIFIER = 0x1, 0x2, 0x4, 0x20, 0x80, 0x100, 0x10000
FILE_HEADER_SIZE = 104  # a pipe's has 16 bytes
ATTRIBUTE_SAMPLE_TYPE = 24
# MMAP2, what is followed by bytes that are no record, and what has records packed inside it.
NOT_PLAIN = {10, 66, 71, 81, 83}


class RecordingError(Exception):
    """The file is no plain recording; the text says why."""


class PlainRecording:
    def __init__(self, path):
        self.path = Path(path)
        content = self.path.read_bytes()
        if content[:8] != b"PERFILE2" or len(content) < FILE_HEADER_SIZE or content[8] != FILE_HEADER_SIZE:
            raise RecordingError(f"{path} is no recording of this byte order in a file")
        entry = int.from_bytes(content[16:24], "little")
        attributes, size = SECTION.unpack_from(content, 24)
        self.sample_types = [
            struct.unpack_from("<Q", content, at + ATTRIBUTE_SAMPLE_TYPE)[0]
            for at in range(attributes, attributes + size, entry)
        ]
        begin, size = SECTION.unpack_from(content, 40)
        if begin + size > len(content):
            raise RecordingError(f"the records of {path} reach past its end")
        self._data = memoryview(content)[begin : begin + size]

    def records(self):
        """(type, the record without its header) of each, in the order of the file."""
        at = 0
        while at < len(self._data):
            if len(self._data) - at < RECORD_HEADER.size:
                raise RecordingError(f"the last record of {self.path} is cut off")
            kind, _, size = RECORD_HEADER.unpack_from(self._data, at)
            if kind in NOT_PLAIN:
                raise RecordingError(f"{self.path} has records of type {kind}: run tracemill-prepare on it")
            if size < RECORD_HEADER.size or size > len(self._data) - at:
                raise RecordingError(f"{self.path} has a record of {size} bytes where they do not fit")
            yield kind, self._data[at + RECORD_HEADER.size : at + size]
            at += size

    def sample_times(self):
        """In nanoseconds, in the order of the file."""
        sample_type = self.sample_types[0]
        if sample_type & (IP | TID | TIME) != IP | TID | TIME:
            raise RecordingError(f"the samples of {self.path} have no address, thread or time")
        place = 16 + (8 if sample_type & IDENTIFIER else 0)
        return [struct.unpack_from("<Q", body, place)[0] for kind, body in self.records() if kind == SAMPLE]

    def maps(self):
        """(pid, start, length, file offset, name) of each."""
        found = []
        for kind, body in self.records():
            if kind == MMAP:
                pid, _, start, length, offset = struct.unpack_from("<IIQQQ", body)
                found.append((pid, start, length, offset, bytes(body[32:]).split(b"\0")[0].decode()))
        return found
