#!/usr/bin/env python3
"""Makes a recording longer: what the kernel told is repeated, each time later by the recording's length.

    lengthen.py RECORDING LONGER BYTES

What perf itself made at the start stays as it is, once. Everything else, its round marks included, is
written over and over until LONGER has at least so many bytes, with times shifted and the same
processes, threads and maps, which then come again. Files that `perf record` writes on this machine
(magic PERFILE2, neither pipe nor compressed, times on every record).
"""

import struct
import sys
from pathlib import Path

FILE_HEADER = 104
SECTION = struct.Struct("<QQ")
RECORD_HEADER = struct.Struct("<IHH")
TIME = struct.Struct("<Q")
SAMPLE, FIRST_USER_TYPE, FINISHED_ROUND = 9, 64, 68
# What follows a record that is no part of it.
REFUSED = {66: "trace data", 71: "hardware trace data", 81: "compressed records", 83: "compressed records"}
IP, TID, TIME_BIT, ID, CPU, STREAM_ID, IDENTIFIER = 1, 2, 4, 0x40, 0x80, 0x200, 0x10000
SAMPLE_ID_ALL = 1 << 18
GAP = 1_000_000  # nanoseconds between two rounds


class LengthenError(Exception):
    """The recording is not one that can be made longer."""


class Recording:
    """The parts of a file, and where the times in it are."""

    def __init__(self, content: bytes) -> None:
        if content[:8] != b"PERFILE2" or struct.unpack_from("<Q", content, 8)[0] != FILE_HEADER:
            raise LengthenError("no file that `perf record` writes on this machine")
        self.content = content
        attributes, size = SECTION.unpack_from(content, 24)
        entry = struct.unpack_from("<Q", content, 16)[0]
        layouts = set()
        for at in range(attributes, attributes + size, entry):
            sample_type = struct.unpack_from("<Q", content, at + 24)[0]
            flags = struct.unpack_from("<Q", content, at + 40)[0]
            if not (sample_type & TIME_BIT and flags & SAMPLE_ID_ALL):
                raise LengthenError("records without times")
            before = sum(8 for bit in (IDENTIFIER, IP, TID) if sample_type & bit)
            behind = sum(8 for bit in (ID, STREAM_ID, CPU, IDENTIFIER) if sample_type & bit)
            layouts.add((RECORD_HEADER.size + before, behind + TIME.size))
        self.sample_time, self.trailer_time = min(layouts, default=(0, 0))
        if len(layouts) != 1:
            raise LengthenError("events whose samples have their times at different places")
        self.data_begin: int
        self.data_size: int
        self.data_begin, self.data_size = SECTION.unpack_from(content, 40)
        if attributes > self.data_begin:
            raise LengthenError("attributes behind the records")
        self.start = bytearray()
        self.rounds = bytearray()
        self.places: list[int] = []  # of times in the rounds
        self.first = self.last = 0
        self.samples: int = 0
        self._read()

    def _read(self) -> None:
        begin, end = self.data_begin, self.data_begin + self.data_size
        times = []
        while begin < end:
            kind, _, size = RECORD_HEADER.unpack_from(self.content, begin)
            if kind in REFUSED:
                raise LengthenError(REFUSED[kind])
            if size < RECORD_HEADER.size or begin + size > end:
                raise LengthenError("a broken record")
            place = begin + self.sample_time if kind == SAMPLE else begin + size - self.trailer_time
            time = TIME.unpack_from(self.content, place)[0] if kind < FIRST_USER_TYPE else 0
            if time:
                self.places.append(len(self.rounds) + place - begin)
                times.append(time)
            self.samples += kind == SAMPLE
            (self.rounds if time or kind == FINISHED_ROUND else self.start).extend(self.content[begin : begin + size])
            begin += size
        if not times:
            raise LengthenError("no records with times")
        self.first, self.last = min(times), max(times)

    def lengthened(self, path: Path, size: int) -> int:
        """Writes a file of at least `size` bytes and returns how many samples it has."""
        features = self._features()
        extra = len(self.start) + self.data_begin + len(features)
        count = max(1, -(-(size - extra) // len(self.rounds)))
        data_size = len(self.start) + count * len(self.rounds)
        header = bytearray(self.content[: self.data_begin])
        SECTION.pack_into(header, 40, self.data_begin, data_size)
        times = [TIME.unpack_from(self.rounds, place)[0] for place in self.places]
        rounds = bytearray(self.rounds)
        with path.open("wb") as file:
            file.write(header + self.start)
            for turn in range(count):
                shift = turn * (self.last - self.first + GAP)
                if turn:
                    for place, time in zip(self.places, times, strict=True):
                        TIME.pack_into(rounds, place, time + shift)
                file.write(rounds)
            file.write(self._features(data_size - self.data_size))
        return self.samples * count

    def _features(self, shift: int = 0) -> bytes:
        """The sections behind the records, moved by this many bytes."""
        begin = self.data_begin + self.data_size
        count = sum(byte.bit_count() for byte in self.content[72:FILE_HEADER])
        moved = bytearray(self.content[begin:])
        for at in range(0, count * SECTION.size, SECTION.size):
            offset, size = SECTION.unpack_from(moved, at)
            SECTION.pack_into(moved, at, offset + shift, size)
        return bytes(moved)


def lengthen(source: Path, target: Path, size: int) -> int:
    return Recording(source.read_bytes()).lengthened(target, size)


def main(arguments: list[str]) -> int:
    if len(arguments) != 3 or not arguments[2].isdigit():
        print("usage: lengthen.py RECORDING LONGER BYTES", file=sys.stderr)
        return 2
    try:
        samples = lengthen(Path(arguments[0]), Path(arguments[1]), int(arguments[2]))
    except (LengthenError, OSError, struct.error) as error:
        print(f"lengthen.py: {arguments[0]}: {error}", file=sys.stderr)
        return 2
    print(f"{samples:,} samples")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
