"""How far a document and perf agree: on samples, and on the entries of their call chains."""

from __future__ import annotations

import re
from collections import Counter
from collections.abc import Callable, Iterator
from dataclasses import dataclass, field
from enum import Enum, auto

from .document import Document, DocumentPlace, DocumentSamples
from .matching import NOBODY, Matches
from .perf_script import LOW_BITS, LOW_MASK, UNKNOWN, PerfSamples, demangled

SIDES = ("user", "kernel")
KERNEL = "kernel"
ANONYMOUS = "anonymous memory"
MODULE_FILE = re.compile(r".*/([^/]+)\.ko(\.(gz|xz|zst))?")
KERNEL_NAMES = re.compile(r"\[kernel[.\]].*|\[guest\.kernel\.kallsyms.*|.*/vmlinu[xz][^/]*")
ANONYMOUS_NAMES = re.compile(r"/tmp/perf-\d+\.map|//anon|\[anon(:.*)?\]|anon|/dev/zero|/anon_hugepage|/SYSV.*|\[heap\]")
# Names in brackets that are no modules of the kernel.
USERS_OWN = ("[vdso]", "[stack]", "[heap]", "[uprobes]", "[vectors]", "[sigpage]", UNKNOWN)
UNALIGNED_NAMES = re.compile(r".*/jitted-[^/]+\.so|bpf_.*")
MADE_UP_NAMES = re.compile(r"\{.*\}")
INTERRUPTS = re.compile(r"\{.*-interrupt\}")
LOOK_AHEAD = 4


class Naming(Enum):
    """How the document names what perf names, or not."""

    SAME = auto()
    WRONG = auto()
    MISSING = auto()
    NAMED = auto()  # perf has no name
    NEITHER = auto()


@dataclass
class Tally:
    """Counts of samples, or of entries of call chains."""

    total: int = 0
    present: int = 0
    placed: int = 0  # present, and perf knows the library
    same_library: int = 0
    named: int = 0  # present, and perf knows the function
    same_function: int = 0
    wrong_function: int = 0
    no_function: int = 0
    unnamed: int = 0  # present, and perf does not know the function
    named_now: int = 0

    def add(self, other: Tally) -> None:
        for name, value in vars(other).items():
            setattr(self, name, getattr(self, name) + value)


@dataclass(frozen=True)
class Difference:
    what: str
    perf_library: str
    perf_function: str
    library: str
    function: str


@dataclass
class Agreement:
    samples: dict[str, Tally] = field(default_factory=lambda: {side: Tally() for side in SIDES})
    entries: dict[str, Tally] = field(default_factory=lambda: {side: Tally() for side in SIDES})
    without_address: int = 0
    moved: int = 0
    rows_left: int = 0
    entries_left: int = 0  # entries of the document that perf does not have
    differences: Counter[Difference] = field(default_factory=Counter)


def library_name(name: str) -> str:
    """One name for what perf and documents call differently."""
    name = name.removesuffix(" (deleted)")
    if name == KERNEL or KERNEL_NAMES.fullmatch(name):
        return KERNEL
    module = MODULE_FILE.fullmatch(name)
    if module:
        return f"[{module[1].replace('-', '_')}]"
    if name in ("[vdso32]", "[vdsox32]"):
        return "[vdso]"
    return ANONYMOUS if ANONYMOUS_NAMES.fullmatch(name) else name


class Comparison:
    """Compares places, each pair of them once."""

    def __init__(self, perf: PerfSamples, document: Document) -> None:
        self.document = document
        self.places = perf.places
        names = [place.function for place in perf.places]
        self.readable_names = demangled(names)
        self.libraries = [library_name(place.library) for place in perf.places]
        self.document_places: dict[int, DocumentPlace] = {}
        self.interrupts: dict[int, bool] = {}
        self.namings: dict[tuple[int, int], tuple[bool | None, Naming]] = {}

    def document_place(self, key: int) -> DocumentPlace:
        place = self.document_places.get(key)
        if place is None:
            place = self.document.place(key)
            place = DocumentPlace(place.function, library_name(place.library))
            self.document_places[key] = place
        return place

    def is_interrupt(self, key: int) -> bool:
        """Whether a mapkey is that of a mark in a chain, which is no address."""
        known = self.interrupts.get(key)
        if known is None:
            known = self.interrupts[key] = INTERRUPTS.fullmatch(self.document_place(key).library) is not None
        return known

    def is_unaligned(self, place: int) -> bool:
        """Whether perf's address of an entry tells nothing: the library need not begin with a page."""
        return UNALIGNED_NAMES.fullmatch(self.libraries[place]) is not None

    def is_same(self, mine: int, other: int) -> bool:
        """Whether an entry of perf and one of the document may be the same: by their addresses if those tell."""
        if self.is_unaligned(mine >> LOW_BITS):
            return self.naming(mine >> LOW_BITS, other >> LOW_BITS)[0] is True
        return is_near(mine, other)

    def is_kernel(self, place: int, ip: int = 0) -> bool:
        library = self.libraries[place]
        if library == "[vsyscall]":
            return False
        if ip >> 63 == 1 or library == KERNEL or library.startswith("bpf_"):
            return True
        return library.startswith("[") and library not in USERS_OWN

    def naming(self, place: int, key: int) -> tuple[bool | None, Naming]:
        """Whether the library is the same (nothing: perf knows none), and the function."""
        known = self.namings.get((place, key))
        if known is None:
            known = self.namings[place, key] = self._naming(place, self.document_place(key))
        return known

    def _naming(self, place: int, ours: DocumentPlace) -> tuple[bool | None, Naming]:
        theirs = self.places[place]
        library = self.libraries[place]
        same = None if library == UNKNOWN else library == ours.library
        if theirs.function == UNKNOWN:
            return same, Naming.NEITHER if ours.function is None else Naming.NAMED
        if ours.function is None:
            return same, Naming.MISSING
        return same, Naming.SAME if ours.function in self.readable_names[place] else Naming.WRONG

    def count(self, tally: Tally, differences: Counter[Difference], place: int, key: int, times: int,
              what: str) -> None:
        """Adds what a place, present in the document, comes to."""
        same, naming = self.naming(place, key)
        tally.present += times
        if same is not None:
            tally.placed += times
            tally.same_library += times if same else 0
        if naming in (Naming.NAMED, Naming.NEITHER):
            tally.unnamed += times
            tally.named_now += times if naming is Naming.NAMED else 0
        else:
            tally.named += times
            tally.same_function += times if naming is Naming.SAME else 0
            tally.wrong_function += times if naming is Naming.WRONG else 0
            tally.no_function += times if naming is Naming.MISSING else 0
        if same is False:
            differences[self._difference(f"{what}: other library", place, key)] += times
        elif naming is Naming.WRONG:
            differences[self._difference(f"{what}: wrong function", place, key)] += times
        elif naming is Naming.MISSING:
            differences[self._difference(f"{what}: no function", place, key)] += times

    def _difference(self, what: str, place: int, key: int) -> Difference:
        ours = self.document_place(key)
        return Difference(what, self.libraries[place], self.readable_names[place][0], ours.library,
                          ours.function or UNKNOWN)

    def lost(self, place: int, what: str) -> Difference:
        return Difference(f"{what}: missing", self.libraries[place], self.readable_names[place][0], "", "")


def is_near(mine: int, other: int) -> bool:
    """Whether entries are at the same place in a page: unwinders may show the call or the address behind it."""
    return (mine - other + 1) & LOW_MASK <= 2


def aligned(theirs: tuple[int, ...], ours: tuple[int, ...],
            same: Callable[[int, int], bool] = is_near) -> Iterator[tuple[int | None, int | None]]:
    """Pairs of entries that are the same, in order; entries without a partner alone."""
    i = j = 0
    while i < len(theirs) and j < len(ours):
        if same(theirs[i], ours[j]):
            yield theirs[i], ours[j]
            i, j = i + 1, j + 1
            continue
        for step in range(1, LOOK_AHEAD + 1):
            if i + step < len(theirs) and same(theirs[i + step], ours[j]):
                yield from ((entry, None) for entry in theirs[i : i + step])
                i += step
                break
            if j + step < len(ours) and same(theirs[i], ours[j + step]):
                yield from ((None, entry) for entry in ours[j : j + step])
                j += step
                break
        else:
            yield theirs[i], None
            yield None, ours[j]
            i, j = i + 1, j + 1
    yield from ((entry, None) for entry in theirs[i:])
    yield from ((None, entry) for entry in ours[j:])


def compare(perf: PerfSamples, document: Document, rows: DocumentSamples, matches: Matches,
            most_entries: int | None = None) -> Agreement:
    """`most_entries`: how many entries of a chain the document shows at most; nothing: the most that it has."""
    agreement = Agreement(moved=len(matches.moved), rows_left=matches.rows_left)
    comparison = Comparison(perf, document)
    places: Counter[tuple[bool, int, int]] = Counter()
    chains: Counter[tuple[int, int, int]] = Counter()
    for sample, row in enumerate(matches.row):
        ip, place = perf.ip[sample], perf.place[sample]
        if ip == 0:
            agreement.without_address += 1
            continue
        is_kernel = comparison.is_kernel(place, ip)
        agreement.samples[SIDES[is_kernel]].total += 1
        if row == NOBODY:
            agreement.differences[comparison.lost(place, "sample")] += 1
            continue
        places[is_kernel, place, rows.place[row]] += 1
        if perf.chain:
            own = place << LOW_BITS | (ip & LOW_MASK)
            chains[own, perf.chain[sample], rows.chain[row]] += 1
    for (is_kernel, place, key), times in places.items():
        comparison.count(agreement.samples[SIDES[is_kernel]], agreement.differences, place, key, times, "sample")
    most = max((len(chain) for chain in rows.chains), default=0) if most_entries is None else most_entries
    entries: Counter[tuple[int | None, int | None]] = Counter()
    for (own, theirs, ours), times in chains.items():
        for pair in _chain_pairs(comparison, perf.chains[theirs], own, rows.chains[ours], rows.begins_with_ip, most):
            entries[pair] += times
    for (entry, shown_key), times in entries.items():
        _count_entry(comparison, agreement, entry, shown_key, times)
    return agreement


def _chain_pairs(comparison: Comparison, theirs: tuple[int, ...], own: int, ours: tuple[int, ...], begins_with_ip: bool,
                 most: int) -> list[tuple[int | None, int | None]]:
    """What perf's entries are called (a place), and what the document's are (a mapkey)."""
    is_cut = len(ours) >= most
    is_own = theirs and (theirs[0] == own or
                         (comparison.is_unaligned(own >> LOW_BITS) and theirs[0] >> LOW_BITS == own >> LOW_BITS))
    if is_own:
        theirs = theirs[1:]
    if begins_with_ip and ours and (ours[0] ^ own) & LOW_MASK == 0:
        ours = ours[1:]
    ours = tuple([entry for entry in ours if not comparison.is_interrupt(entry >> LOW_BITS)])
    if len(theirs) == len(ours) and not any([(mine ^ other) & LOW_MASK and not comparison.is_unaligned(mine >> LOW_BITS)
                                             for mine, other in zip(theirs, ours)]):
        return [(mine >> LOW_BITS, other >> LOW_BITS) for mine, other in zip(theirs, ours)]
    pairs = list(aligned(theirs, ours, comparison.is_same))
    if is_cut:
        # What perf has behind the last entry that the document had room for.
        while pairs and pairs[-1][1] is None:
            pairs.pop()
    return [(None if mine is None else mine >> LOW_BITS, None if other is None else other >> LOW_BITS)
            for mine, other in pairs]


def _count_entry(comparison: Comparison, agreement: Agreement, place: int | None, key: int | None, times: int) -> None:
    is_made_up = key is not None and MADE_UP_NAMES.fullmatch(comparison.document_place(key).library) is not None
    if place is None:
        agreement.entries_left += 0 if is_made_up else times
        return
    if comparison.libraries[place] == UNKNOWN and (key is None or is_made_up):
        return  # no address of code, and known for none
    tally = agreement.entries[SIDES[comparison.is_kernel(place)]]
    tally.total += times
    if key is None:
        agreement.differences[comparison.lost(place, "entry")] += times
    else:
        comparison.count(tally, agreement.differences, place, key, times, "entry")
