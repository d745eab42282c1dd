"""Reads a document without holding its samples as objects: they are most of it."""

from __future__ import annotations

import json
import mmap
import re
from array import array
from collections.abc import Iterator
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

from .perf_script import LOW_BITS, LOW_MASK

BLOCK = 1 << 22
SAMPLES = re.compile(rb'"samples"\s*:\s*\{')
DATA = re.compile(rb'"data"\s*:\s*\[')
# Between two rows of samples: the end of a back trace, of its row, the next row.
BETWEEN_ROWS = re.compile(rb"\]\s*\]\s*,\s*(?=\[)")
FRACTION = re.compile(rb"\.(\d+)")

UNKNOWN_CPU = 4294967295


class DocumentError(Exception):
    """The file is not a document."""


@dataclass
class DocumentPlace:
    """What a document calls an address: no function where it knows the library alone."""

    function: str | None
    library: str


@dataclass
class DocumentSamples:
    """Rows in the document's order, one array for each column. `chain` is an index."""

    time: array[int] = field(default_factory=lambda: array("q"))  # nanoseconds since the document's zero
    ip: array[int] = field(default_factory=lambda: array("Q"))
    pid: array[int] = field(default_factory=lambda: array("q"))
    tid: array[int] = field(default_factory=lambda: array("q"))
    cpu: array[int] = field(default_factory=lambda: array("q"))
    place: array[int] = field(default_factory=lambda: array("Q"))  # mapkey
    chain: array[int] = field(default_factory=lambda: array("L"))
    # Entries as they stand there: a mapkey, shifted, and an address's lowest bits.
    chains: list[tuple[int, ...]] = field(default_factory=list)
    begins_with_ip: bool = False  # the chains' first entry is the sample's own address

    def __len__(self) -> int:
        return len(self.ip)

    def restore_threads(self, renumbered: list[dict[str, int]]) -> None:
        """Gives threads the tids that they were recorded with: `renumbered` of quality.json."""
        recorded = {thread["as"]: thread["tid"] for thread in renumbered}
        for index, tid in enumerate(self.tid):
            if tid in recorded:
                self.tid[index] = recorded[tid]


def readable(name: str) -> str:
    """A function's name without what the document puts into it: blanks behind short names, wide signs."""
    return name.rstrip(" ").replace("＄", "$")


class Document:
    """The tables of a document, and its samples on demand."""

    def __init__(self, path: Path) -> None:
        self.path = path
        with path.open("rb") as file:
            try:
                self.bytes = mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ)
            except ValueError as error:
                raise DocumentError(f"{path} is empty") from error
        samples = SAMPLES.search(self.bytes)
        rows = samples and DATA.search(self.bytes, samples.end())
        if not samples or not rows:
            raise DocumentError(f"{path} has no table of samples")
        # No row has a brace in it.
        self.rows_begin, self.rows_end = rows.end(), self.bytes.find(b"}", rows.end())
        if self.rows_end < 0:
            raise DocumentError(f"{path} ends within its samples")
        rest = (self.bytes[: rows.end()] + b"]" + self.bytes[self.rows_end :]).decode("utf-8", "surrogateescape")
        try:
            tables = json.loads(rest, strict=False)
            self.libraries = {row[0]: row[2] for row in tables["libraries"]["data"]}
            self.functions = {row[0]: row for row in tables["functions"]["data"]}
            self.pids = {row[0]: row[1] for row in tables["processes"]["data"]}
        except (ValueError, KeyError, IndexError, TypeError) as error:
            raise DocumentError(f"{path} is not a document: {error!r}") from error

    def place(self, key: int) -> DocumentPlace:
        """What a mapkey refers to."""
        row = self.functions.get(key)
        if row is None:
            return DocumentPlace(None, self.libraries.get(key, ""))
        library = self.libraries.get(row[4][0], "") if row[4] else ""
        name = readable(row[1])
        return DocumentPlace(None if name == "[unknown]" else name, library)

    def digits(self) -> int:
        """How many fraction digits times have at most, by the first of them."""
        return max((len(found) for found in FRACTION.findall(self._rows_part(1 << 20))), default=0)

    def samples(self) -> DocumentSamples:
        samples = DocumentSamples()
        chains: dict[tuple[int, ...], int] = {(): 0}
        beginnings = 0
        for rows in self._blocks():
            for _, ip, place, time, cpu, pidkey, tid, trace in rows:
                samples.time.append(round(time * 1e9))
                samples.ip.append(ip)
                samples.pid.append(self.pids.get(pidkey, pidkey))
                samples.tid.append(tid)
                samples.cpu.append(-1 if cpu == UNKNOWN_CPU else cpu)
                samples.place.append(place)
                chain = tuple([key << LOW_BITS | (address & LOW_MASK) for address, key in trace])
                samples.chain.append(chains.setdefault(chain, len(chains)))
                if trace:
                    beginnings += 1 if trace[0][0] == ip else -1
        samples.chains = list(chains)
        samples.begins_with_ip = beginnings > 0
        return samples

    def _rows_part(self, size: int) -> bytes:
        return self.bytes[self.rows_begin : min(self.rows_end, self.rows_begin + size)]

    def _blocks(self) -> Iterator[list[Any]]:
        """The rows, some at a time."""
        begin = self.rows_begin
        waiting = b""
        while begin < self.rows_end:
            end = min(self.rows_end, begin + BLOCK)
            waiting += self.bytes[begin:end]
            begin = end
            if begin == self.rows_end:
                whole, waiting = waiting.rstrip().removesuffix(b"]"), b""
            else:
                last = None
                for last in BETWEEN_ROWS.finditer(waiting, max(0, len(waiting) - (1 << 16))):
                    pass
                if last is None:
                    continue
                whole, waiting = waiting[: last.end()].rstrip().removesuffix(b","), waiting[last.end() :]
            try:
                yield json.loads(b"[" + whole + b"]")
            except ValueError as error:
                raise DocumentError(f"{self.path} has samples that are no rows: {error}") from error
