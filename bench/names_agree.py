#!/usr/bin/env python3
"""Compares the names of symbol lists with those of perf on the same recordings.

    names_agree.py [--lister build/release/bin/list_files] [--show N] [--option=--no-cache] perf.data...

Every entry of every user call chain, and every sampled address, is looked up twice: `perf script` has
done it once, the list of its file (made by the program list_files of tests/listing) does it again.
Prints for each recording the shares of same names, other names, names that only one side has, and the
commonest differences with --show. Record with `-k mono` where code is made at run time.
"""

import argparse
import bisect
import collections
import os
import re
import subprocess
import tempfile
from pathlib import Path

MMAP = re.compile(
    r"PERF_RECORD_MMAP2? (-?\d+)/\d+: \[0x([0-9a-f]+)\(0x([0-9a-f]+)\) @ (0x[0-9a-f]+|0)\s?[^\]]*\]: \S+ (.*)$"
)
ENTRY = re.compile(r"^\s+([0-9a-f]+) (.*) \(([^()]*(?: \(deleted\))?)\)$")
UNKNOWN = "[unknown]"


class SymbolList:
    """A list as ListText.h describes it; looked up by address."""

    def __init__(self, path):
        self.starts, self.names = [], []
        with open(path, encoding="utf-8", errors="surrogateescape") as lines:
            for line in lines:
                self.starts.append(int(line[:16], 16))
                name = line[19:].rstrip("\n").split("\t")[0].rstrip(" ")
                self.names.append(name.replace("\uff04", "$"))

    def find(self, address):
        at = bisect.bisect_right(self.starts, address) - 1
        return self.names[at] if at >= 0 else UNKNOWN


def segments_of(path):
    """PT_LOAD as (executable, offset, address, size in the file), by readelf."""
    text = subprocess.run(
        ["readelf", "-lW", path], capture_output=True, text=True, check=False
    ).stdout
    found = []
    for line in text.splitlines():
        words = line.split()
        if words and words[0] == "LOAD":
            found.append(("E" in "".join(words[6:-1]), int(words[1], 16), int(words[2], 16), int(words[4], 16)))
    return found


def address_of(segments, offset):
    best = None
    for executable, start, address, size in segments:
        page = start & ~4095
        if page <= offset < (start + size + 4095) & ~4095:
            key = (executable, start <= offset < start + size)
            if best is None or key > best[0]:
                best = (key, offset - start + address)
    return best[1] if best else None


def parse(recording):
    """Entries as perf prints them: (address, name, library, whether it is of a chain: then the address
    is an offset in the file); the build ids of libraries and where they are mapped."""
    ids = {}
    text = subprocess.run(
        ["perf", "buildid-list", "-i", recording], capture_output=True, text=True, check=True
    ).stdout
    for line in text.splitlines():
        build_id, _, name = line.partition(" ")
        ids[name] = build_id
    output = subprocess.Popen(
        ["perf", "script", "-i", recording, "-F", "pid,ip,sym,dso", "--no-inline", "--show-mmap-events"],
        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, errors="surrogateescape",
    )
    maps = collections.defaultdict(list)
    entries = collections.Counter()
    kernel = None
    for line in output.stdout:
        if "PERF_RECORD_MMAP" in line:
            match = MMAP.search(line)
            if match and match.group(5).startswith("[kernel.kallsyms]"):
                start, size = int(match.group(2), 16), int(match.group(3), 16)
                reference = match.group(5).removeprefix("[kernel.kallsyms]")
                kernel = f"--kernel={start:x},{start + size:x},{reference},{int(match.group(4), 16):x},"
                kernel += ids.get("[kernel.kallsyms]", "")
            if match and match.group(1) != "-1":
                maps[match.group(5)].append((int(match.group(2), 16), int(match.group(3), 16), int(match.group(4), 16)))
            continue
        match = ENTRY.match(line)
        if match:
            entries[(int(match.group(1), 16), match.group(2), match.group(3), True)] += 1
            continue
        words = line.split()
        if len(words) > 1 and words[0].isdigit():
            match = ENTRY.match(" " + " ".join(words[1:]))
            if match:
                entries[(int(match.group(1), 16), match.group(2), match.group(3), False)] += 1
    output.wait()
    return entries, ids, maps, kernel


class Lists:
    """The lists of all files of a recording."""

    def __init__(self, names, ids, lister, options, work):
        arguments = [f"{name}={ids[name]}" if name in ids else name for name in names]
        text = subprocess.run(
            [lister, work, *options, *arguments], capture_output=True, text=True, check=True
        ).stdout
        self.lists, self.segments, self.reasons = {}, {}, {}
        for name, line in zip([*names, KERNEL], text.splitlines()):
            outcome, path, file, origin, _ = line.split("\t")
            self.reasons[name] = (outcome, origin)
            if path:
                self.lists[name] = SymbolList(path)
            self.segments[name] = segments_of(file) if file and name.startswith(("/usr", "/", "[vdso")) and not name.startswith("/tmp/perf-") else []

    def find(self, name, address, is_offset, maps):
        symbols = self.lists.get(name)
        if symbols is None:
            return UNKNOWN
        if name == KERNEL or name.startswith("/tmp/perf-"):
            return symbols.find(address)
        for start, size, offset in [] if is_offset else maps.get(name, []):
            if start <= address < start + size:
                address = address - start + (0 if name == "[vdso]" else offset)
                break
        address = address_of(self.segments[name], address)
        return UNKNOWN if address is None else symbols.find(address)


KERNEL = "[kernel.kallsyms]"


def is_compared(entry):
    return not entry[2].startswith("[unknown") and entry[2] != "inlined"


def compare(recording, options):
    entries, ids, maps, kernel = parse(recording)
    user = {entry: count for entry, count in entries.items() if is_compared(entry)}
    names = sorted({entry[2] for entry in user if not entry[2].startswith(("[stack", "[heap", "//anon", "anon", "[kernel", "bpf_"))})
    work = tempfile.mkdtemp(prefix="names-agree-")
    lists = Lists(names, ids, options.lister, options.option + ([kernel] if kernel else []), work)
    kinds = collections.Counter()
    differences = collections.Counter()
    for (address, name, library, is_offset), count in user.items():
        name = name.split("+0x")[0] if name != UNKNOWN else name
        own = lists.find(library, address, is_offset, maps)
        if name == own:
            kind = "unknown" if name == UNKNOWN else "same"
        elif name == UNKNOWN:
            kind = "only listed"
        elif own == UNKNOWN:
            kind = "only perf"
        else:
            kind = "other"
        kinds[kind] += count
        if kind in ("other", "only perf", "only listed"):
            differences[(kind, name, own, library, hex(address))] += count
    subprocess.run(["rm", "-rf", work], check=True)
    return kinds, differences, lists


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--lister", default="build/release/bin/list_files")
    parser.add_argument("--show", type=int, default=0, help="print that many differences of each recording")
    parser.add_argument("--option", action="append", default=[], help="passed on to the lister")
    parser.add_argument("recordings", nargs="+", type=Path)
    options = parser.parse_args()
    print(f"{'recording':28} {'entries':>9} {'same':>9} {'other':>9} {'only perf':>10} {'both none':>10} {'only listed':>11}")
    for recording in options.recordings:
        kinds, differences, lists = compare(os.fspath(recording), options)
        named = kinds["same"] + kinds["other"] + kinds["only perf"]
        share = lambda kind: f"{100 * kinds[kind] / max(named, 1):8.3f}%"
        print(f"{recording.name:28} {sum(kinds.values()):9} {share('same')} {share('other')} {share('only perf'):>10} {kinds['unknown']:10} {kinds['only listed']:11}")
        for (kind, name, own, library, address), count in differences.most_common(options.show):
            print(f"    {count:6} {kind}: perf {name} | list {own} | {library} {address} {lists.reasons.get(library)}")


if __name__ == "__main__":
    main()
