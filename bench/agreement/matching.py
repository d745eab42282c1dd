"""Which row of a document is which sample of perf."""

from __future__ import annotations

import statistics
from array import array
from collections import defaultdict
from dataclasses import dataclass

from .document import DocumentSamples
from .perf_script import LOW_MASK, PerfSamples

NOBODY = -1
# Perf's pid and tid of a task that is gone are -1; documents have them without a sign.
UNSIGNED = 0xFFFF_FFFF
ENOUGH_PAIRS = 10_000


@dataclass
class Matches:
    """For each of perf's samples its row, or NOBODY; and how many of them are at another address."""

    row: array[int]
    moved: set[int]  # of perf's samples
    rows_left: int  # rows that are no sample of perf
    start: int  # perf's time of the document's zero


def match_samples(perf: PerfSamples, document: DocumentSamples, digits: int, start: int | None = None) -> Matches:
    """Matches by time, process, thread, processor and address; then, without the address but for its
    place in a page, what the converter was given at another address."""
    has_time = "time" in perf.fields
    tolerance = 10 ** (9 - min(digits, 9)) + 1 if has_time else 1 << 62
    if start is None:
        start = _start(perf, document) if has_time else 0
    matches = Matches(array("q", [NOBODY]) * len(perf), set(), 0, start)
    free = bytearray(b"\1") * len(document)
    for is_moved in (False, True):
        _match(perf, document, matches, free, tolerance, is_moved)
    matches.rows_left = sum(free)
    return matches


def _key(samples: PerfSamples | DocumentSamples, index: int, is_moved: bool) -> tuple[int, int, int]:
    ip = samples.ip[index] & LOW_MASK if is_moved else samples.ip[index]
    return (samples.tid[index] & UNSIGNED, samples.cpu[index], ip)


def _start(perf: PerfSamples, document: DocumentSamples) -> int:
    """From samples that are the only ones of their thread at their address."""

    def unique(samples: PerfSamples | DocumentSamples) -> dict[tuple[int, int, int], int]:
        found: dict[tuple[int, int, int], int] = {}
        for index in range(len(samples)):
            key = _key(samples, index, False)
            found[key] = NOBODY if key in found else index
        return {key: index for key, index in found.items() if index != NOBODY}

    theirs = unique(perf)
    ours = unique(document)
    differences = [perf.time[theirs[key]] - document.time[index] for key, index in ours.items() if key in theirs]
    if not differences:
        return min(perf.time, default=0)
    return statistics.median_low(differences[:ENOUGH_PAIRS])


def _match(perf: PerfSamples, document: DocumentSamples, matches: Matches, free: bytearray, tolerance: int,
           is_moved: bool) -> None:
    rows: defaultdict[tuple[int, int, int], list[int]] = defaultdict(list)
    for index in range(len(document)):
        if free[index]:
            rows[_key(document, index, is_moved)].append(index)
    wanted: defaultdict[tuple[int, int, int], list[int]] = defaultdict(list)
    for index in range(len(perf)):
        if matches.row[index] == NOBODY:
            key = _key(perf, index, is_moved)
            if key in rows:
                wanted[key].append(index)
    for key, samples in wanted.items():
        candidates = rows[key]
        candidates.sort(key=lambda row: document.time[row])
        samples.sort(key=lambda sample: perf.time[sample])
        next_row = 0
        for sample in samples:
            time = perf.time[sample] - matches.start
            while next_row < len(candidates) and document.time[candidates[next_row]] < time - tolerance:
                next_row += 1
            if next_row == len(candidates):
                break
            row = candidates[next_row]
            if document.time[row] <= time + tolerance and (document.pid[row] ^ perf.pid[sample]) & UNSIGNED == 0:
                matches.row[sample] = row
                free[row] = 0
                next_row += 1
                if is_moved:
                    matches.moved.add(sample)
