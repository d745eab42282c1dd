#!/usr/bin/python3
"""Compares the samples of a tracemill document with what `perf script` prints for the recording.

    compare_with_perf_script.py TRACEMILL RECORDING

Compared are time, pid, tid, cpu and program counter of every sample, and its call chain as far as
the document shows it: without the first entry, and 16 entries at most. Exits with status 77 where
perf is not installed.

The first sample in the recording must be its earliest, as its time is the document's zero.
"""

import json
import re
import shutil
import struct
import subprocess
import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "bench"))

from plain_recording import PERIOD, SAMPLE, PlainRecording  # noqa: E402

SKIPPED = 77
MOST_ENTRIES = 16
CONTEXT_MARKERS = 0xFFFF_FFFF_FFFF_F000  # PERF_CONTEXT_* values start here
ALL_DIGITS = 9  # nanoseconds

HEAD = re.compile(r"\s*(\d+)/(\d+)\s+\[(\d+)\]\s+(\d+)\.(\d{9}):\s*([0-9a-f]*)\s*$")
ENTRY = re.compile(r"\s+([0-9a-f]+)\s*$")


def read_maps(recording):
    """(start, end, file offset) of each MMAP record."""
    maps = PlainRecording(recording).maps()
    return [(start, start + length, offset) for _, start, length, offset, _ in maps]


def run_perf(recording, options):
    """[(time in ns, pid, tid, cpu, [addresses])] in the order in which perf prints samples: by time."""
    command = ["perf", "script", "-f", "-i", str(recording), "--ns", "-F", "pid,tid,cpu,time,ip"]
    output = subprocess.run(command + options, check=True, capture_output=True, text=True).stdout
    samples = []
    for line in output.splitlines():
        head = HEAD.match(line)
        entry = ENTRY.match(line)
        if head:
            pid, tid, cpu, seconds, fraction, address = head.groups()
            chain = [int(address, 16)] if address else []
            samples.append((int(seconds + fraction), int(pid), int(tid), int(cpu), chain))
        elif entry:
            samples[-1][4].append(int(entry.group(1), 16))
        elif line.strip():
            raise ValueError(f"perf script printed a line that is no sample: {line!r}")
    return samples


def convert(tracemill, recording):
    with tempfile.TemporaryDirectory() as folder:
        Path(folder, "compare.conf").write_text(
            json.dumps(
                {
                    "timePrecision": ALL_DIGITS,
                    "onTargetMode": False,
                    "symbolFileSeachPath": "nowhere",
                    "kernelSymbolFile": "nowhere",
                    "log": {"adapter": {"type": "file", "baseName": "log"}},
                }
            ),
            encoding="ascii",
        )
        command = [tracemill, "-c", "compare.conf", "-i", str(recording), "-o", "document.json"]
        subprocess.run(command, check=True, cwd=folder)
        text = Path(folder, "document.json").read_text(encoding="utf-8", errors="replace")
        return json.loads(text, parse_float=str, parse_int=str)


def nanoseconds(seconds):
    """Of a time as the document writes it, exactly."""
    whole, _, fraction = seconds.partition(".")
    return int(whole + fraction.ljust(ALL_DIGITS, "0"))


def read_document(document):
    """[(time in ns, pid, tid, cpu, address, [chain])] in the order of the document, which is that of the file."""
    pids = {int(row[0]): int(row[1]) for row in document["processes"]["data"]}
    samples = []
    for row in document["samples"]["data"]:
        _, address, _, time, cpu, pidkey, tid, chain = row
        entries = [int(entry[0]) for entry in chain]
        pid = pids[int(pidkey)]
        samples.append((nanoseconds(time), pid, int(tid), int(cpu), int(address), entries))
    return samples


def prints_as(address, printed, maps):
    """Whether perf prints `address` so: newer versions print the place in the mapped file.

    The map may be that of another process: children inherit those of their parents.
    """
    return printed == address or any(
        start <= address < end and printed == address - start + offset
        for start, end, offset in maps
    )


def dropped_entries(recording):
    """How many of a printed chain are not in the document: it drops the first entry, and perf the markers.

    The kernel writes a marker first. Recordings that were prepared have none.
    """
    plain = PlainRecording(recording)
    chain = 40 if plain.sample_types[0] & PERIOD else 32
    firsts = [struct.unpack_from("<QQ", body, chain) for kind, body in plain.records() if kind == SAMPLE]
    return 0 if any(count > 0 and first >= CONTEXT_MARKERS for count, first in firsts) else 1


def chain_agrees(sample, printed, maps):
    """`printed` is the part of the chain that a document holds, without markers."""
    entries = sample[5]
    shown = [entry for entry in entries if entry < CONTEXT_MARKERS]
    if len(entries) < MOST_ENTRIES and len(shown) != len(printed):
        return False
    return len(shown) <= len(printed) and all(
        prints_as(address, number, maps) for address, number in zip(shown, printed)
    )


def compare(ours, places, chains, maps, dropped):
    """The first difference in words, or None."""
    if not ours or not len(ours) == len(places) == len(chains):
        return f"{len(ours)} samples in the document, {len(places)} in perf"
    if min(sample[0] for sample in ours) != ours[0][0]:
        return "the first sample is not the earliest"
    begin = min(place[0] for place in places)
    # perf sorts by time; samples of one moment are told apart by their threads.
    ours = sorted(ours, key=lambda sample: sample[:4])
    places = sorted(places, key=lambda place: place[:4])
    chains = sorted(chains, key=lambda chain: chain[:4])
    for sample, place, chain in zip(ours, places, chains):
        expected = (place[0] - begin, *place[1:4], place[4][0])
        if sample[:5] != expected or place[:4] != chain[:4]:
            return f"the document has {sample}, perf {expected}"
        if not chain_agrees(sample, chain[4][dropped:], maps):
            return f"the document has {sample}, perf the chain {chain[4]}"
    return None


def main(arguments):
    if len(arguments) != 2:
        print(__doc__)
        return 1
    if shutil.which("perf") is None:
        print("perf is not installed: nothing compared")
        return SKIPPED
    recording = Path(arguments[1]).resolve()
    tracemill = str(Path(arguments[0]).resolve())
    ours = read_document(convert(tracemill, recording))
    places = run_perf(recording, ["-G"])
    chains = run_perf(recording, ["--no-inline"])
    difference = compare(ours, places, chains, read_maps(recording), dropped_entries(recording))
    if difference:
        print(f"compare_with_perf_script: {difference}")
        return 1
    entries = sum(len(sample[5]) for sample in ours)
    print(f"{len(ours)} samples with {entries} back trace entries agree")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
