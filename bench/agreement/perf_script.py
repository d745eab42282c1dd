"""What `perf script` says of a recording: each sample, its place and its callers.

perf prints the addresses of callers as file offsets (6.1) or as they are (6.12), so only the lowest
12 bits of them are kept: these are the same in both. The addresses of samples are the run-time ones.
"""

from __future__ import annotations

import re
import shutil
import subprocess
from array import array
from collections.abc import Iterator
from dataclasses import dataclass, field
from pathlib import Path

LOW_BITS = 12
LOW_MASK = (1 << LOW_BITS) - 1
UNKNOWN = "[unknown]"

# Where the library begins in "symbol (library)": a symbol may hold parentheses and blanks, too.
LIBRARY = re.compile(r" \((?=/|\[|bpf_prog_|anon_inode|inlined\))")
CANNOT_PRINT = re.compile(r"Cannot print '(\w+)' field")
# Fields that a recording may lack, in the order in which they are printed.
OPTIONAL_FIELDS = ("cpu", "time")


class PerfError(Exception):
    """perf cannot be had, or prints nothing of use."""


@dataclass
class Place:
    """A function and its library as perf prints them; the name is the linker's."""

    function: str
    library: str


@dataclass
class PerfSamples:
    """Samples in perf's order, one array for each column. `place` and `chain` are indices."""

    time: array[int] = field(default_factory=lambda: array("q"))  # nanoseconds
    ip: array[int] = field(default_factory=lambda: array("Q"))
    pid: array[int] = field(default_factory=lambda: array("q"))
    tid: array[int] = field(default_factory=lambda: array("q"))
    cpu: array[int] = field(default_factory=lambda: array("q"))
    place: array[int] = field(default_factory=lambda: array("L"))
    chain: array[int] = field(default_factory=lambda: array("L"))
    places: list[Place] = field(default_factory=list)
    # Entries, the innermost first: an index into `places`, shifted, and an address's lowest bits.
    chains: list[tuple[int, ...]] = field(default_factory=list)
    fields: frozenset[str] = frozenset()  # of OPTIONAL_FIELDS, those that the recording has

    def __len__(self) -> int:
        return len(self.ip)


class _Places:
    """Gives every pair of function and library a number."""

    def __init__(self) -> None:
        self.places: list[Place] = []
        self.numbers: dict[str, int] = {}

    def number(self, text: str) -> int:
        """Of a "symbol (library)"."""
        number = self.numbers.get(text)
        if number is None:
            number = self.numbers[text] = len(self.places)
            self.places.append(split_place(text))
        return number


def split_place(text: str) -> Place:
    """The parts of "symbol (library)"."""
    text = text.strip()
    begins = [match.start() for match in LIBRARY.finditer(text)]
    begin = begins[-1] if begins else text.rfind(" (")
    if begin < 0 or not text.endswith(")"):
        return Place(text or UNKNOWN, UNKNOWN)
    return Place(text[:begin], text[begin + 2 : -1])


def first_event(recording: Path, perf: str = "perf") -> str:
    """The first event that is no dummy, by its name in the output of `perf script`."""
    done = subprocess.run([perf, "evlist", "-f", "-i", str(recording)], check=False, capture_output=True, text=True)
    names = [line.strip() for line in done.stdout.splitlines() if line.strip() and not line.startswith("#")]
    for name in names:
        if not name.startswith("dummy"):
            return name
    raise PerfError(f"perf finds no event in {recording}: {done.stderr.strip()}")


def _lines(command: list[str]) -> Iterator[str]:
    """The lines that a command prints. What it says beside them is raised if it printed nothing."""
    with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          encoding="utf-8", errors="surrogateescape") as process:
        assert process.stdout is not None and process.stderr is not None
        # perf complains before its first line, if it does.
        printed = False
        for line in process.stdout:
            printed = True
            yield line
        complaint = process.stderr.read()
        if not printed:
            raise PerfError(complaint.strip() or "perf script prints no samples")


def _sample_pattern(fields: frozenset[str]) -> re.Pattern[str]:
    cpu = r"\s+\[(?P<cpu>\d+)\]" if "cpu" in fields else ""
    time = r"\s+(?P<seconds>\d+)\.(?P<fraction>\d{9}):" if "time" in fields else ""
    who = r"\s*.*?\s(?P<pid>-?\d+)/(?P<tid>-?\d+)"
    return re.compile(who + cpu + time + r"\s+(?P<event>\S+):\s+(?P<ip>[0-9a-f]+) (?P<place>.*)")


class PerfScript:
    """Runs perf on a recording. `event` is the one whose samples count; none: those of all."""

    def __init__(self, recording: Path, event: str | None, perf: str = "perf") -> None:
        if shutil.which(perf) is None:
            raise PerfError(f"{perf} is not installed")
        self.recording = recording
        self.event = event
        self.perf = perf

    def read(self, with_chains: bool = True) -> PerfSamples:
        fields = frozenset(OPTIONAL_FIELDS)
        while True:
            try:
                return self._read(fields, with_chains)
            except PerfError as error:
                lacking = set(CANNOT_PRINT.findall(str(error))) & fields
                if not lacking:
                    raise
                fields -= lacking

    def _command(self, fields: str, *options: str) -> list[str]:
        return [self.perf, "script", "-f", "--ns", "--no-demangle", "--no-inline", "-i", str(self.recording), "-F",
                fields, *options]

    def _read(self, fields: frozenset[str], with_chains: bool) -> PerfSamples:
        samples = PerfSamples(fields=fields)
        places = _Places()
        pattern = _sample_pattern(fields)
        wanted: list[bool] = []  # for each sample that perf prints
        columns = ",".join(["comm", "pid", "tid", *sorted(fields), "event", "ip", "sym", "dso"])
        for line in _lines(self._command(columns, "-G")):
            match = pattern.match(line)
            if match is None:
                if line.strip():
                    raise PerfError(f"this line of perf script is not understood: {line.strip()}")
                continue
            is_wanted = self.event is None or match["event"] == self.event
            wanted.append(is_wanted)
            if not is_wanted:
                continue
            samples.time.append(int(match["seconds"]) * 10**9 + int(match["fraction"]) if "time" in fields else 0)
            samples.cpu.append(int(match["cpu"]) if "cpu" in fields else -1)
            samples.pid.append(int(match["pid"]))
            samples.tid.append(int(match["tid"]))
            samples.ip.append(int(match["ip"], 16))
            samples.place.append(places.number(match["place"]))
        if with_chains:
            self._read_chains(samples, places, wanted)
        samples.places = places.places
        return samples

    def _read_chains(self, samples: PerfSamples, places: _Places, wanted: list[bool]) -> None:
        chains: dict[tuple[int, ...], int] = {(): 0}
        entries: dict[str, int] = {}  # of whole lines
        count = -1  # of the samples so far, less one
        chain: list[int] = []

        def keep() -> None:
            if count >= 0 and wanted[count]:
                samples.chain.append(chains.setdefault(tuple(chain), len(chains)))

        for line in _lines(self._command("tid,ip,sym,dso")):
            if line[0] == "\t":
                entry = entries.get(line)
                if entry is None:
                    address, _, text = line.strip().partition(" ")
                    entry = entries[line] = places.number(text) << LOW_BITS | (int(address, 16) & LOW_MASK)
                chain.append(entry)
            elif not line.isspace():
                keep()
                chain.clear()
                count += 1
                if count == len(wanted):
                    break
        keep()
        if count + 1 != len(wanted):
            raise PerfError(f"perf script prints {len(wanted)} samples, and {count + 1} with their chains")
        samples.chains = list(chains)


def demangled(names: list[str]) -> list[tuple[str, ...]]:
    """Each name as it can be read: as c++filt prints it, and with the short names of the standard
    library's types, as other programs do, and without parameters, as perf script prints it. Without
    c++filt it is the name."""
    ways = [_filtered(names, "--no-verbose"), _filtered(names), _filtered(names, "--no-params"),
            _filtered(names, "--no-params", "--no-verbose")]
    return [tuple(dict.fromkeys((*readable, name))) for *readable, name in zip(*ways, names, strict=True)]


def _filtered(names: list[str], *options: str) -> list[str]:
    if shutil.which("c++filt") is None:
        return names
    text = "".join(name + "\n" for name in names)
    done = subprocess.run(["c++filt", *options], input=text, check=False, capture_output=True, encoding="utf-8",
                          errors="surrogateescape")
    lines = done.stdout.split("\n")[:-1]
    return lines if len(lines) == len(names) else names
