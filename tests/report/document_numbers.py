#!/usr/bin/env python3
"""The numbers that a page should show, computed from a document in the plainest way.

    document_numbers.py DOCUMENT [FILTERS]

FILTERS is a JSON object with any of: time ([from, to] in seconds since the first sample), pids, tids,
cpus, libraries (lists), mode ("user" or "kernel"), functions (list of names that have to be in the
chain), search (a text). Prints a JSON object.
"""

import json
import os
import re
import sys
from collections import Counter, defaultdict
from decimal import Decimal

FIRST_MARKER = 2**64 - 4095
NO_CPU = NO_TID = 2**32 - 1


def read_document(path):
    with open(path, encoding="utf-8", errors="replace") as file:
        return json.loads(file.read(), strict=False, parse_float=Decimal)


def library_title(name):
    """Maps made up for addresses that no map covers are one for each process: {app-7f120000}."""
    return re.sub(r"^\{(?!stack:)(.*)-[0-9a-fA-F]+\}$", r"{\1}", name)


def is_kernel(pidkey, name, start):
    return not name.startswith("{") and (pidkey == 0 or start >= 2**63 or name == "kernel")


class Document:
    def __init__(self, path):
        tables = {name: table["data"] for name, table in read_document(path).items()}
        self.libraries = {row[0]: (library_title(row[2]), is_kernel(row[1], row[2], row[3])) for row in tables["libraries"]}
        self.functions = {row[0]: (row[1], row[4]) for row in tables["functions"]}
        self.processes = {row[0]: row[1:] for row in tables["processes"]}
        self.process_names = {pid: name for pid, tid, name in self.processes.values() if pid == tid}
        self.files = {key: row[1] for row in tables["files"] for key, _ in row[2]}
        self.rows = sorted(tables["samples"], key=lambda row: row[3])
        self.first = self.rows[0][3] if self.rows else 0
        self.frames = {}

    def frame(self, mapkey):
        """Function, library, whether that is the kernel, source file."""
        if mapkey not in self.frames:
            if mapkey in self.functions:
                name, maps = self.functions[mapkey]
                library, kernel = self.libraries.get(maps[0] if maps else None, ("{unknown}", False))
            else:
                library, kernel = self.libraries.get(mapkey, ("{unknown}", False))
                name = library if library[0] in "[{" else f"[{os.path.basename(library) or library}]"
            self.frames[mapkey] = (name, library, kernel, self.files.get(mapkey, ""))
        return self.frames[mapkey]

    def chain(self, row):
        """Frames of a sample, the innermost first."""
        ip, mapkey, trace = row[1], row[2], [pair for pair in row[7] if pair[0] < FIRST_MARKER]
        if trace and trace[0][0] == ip:
            trace = trace[1:]
        return [self.frame(mapkey), *(self.frame(caller) for _, caller in trace)]

    def thread(self, row):
        pid, tid, name = self.processes.get(row[5], (NO_TID, row[5], ""))
        return pid, tid, name, self.process_names.get(pid, name)


def as_text(number):
    return "unknown" if number == NO_TID else str(number)


def passes(document, row, chain, filters):
    pid, tid, _, _ = document.thread(row)
    time = float(row[3] - document.first)
    inner = chain[0]
    checks = {
        "time": lambda ends: ends[0] <= time < ends[1],
        "pids": lambda pids: as_text(pid) in pids,
        "tids": lambda tids: as_text(tid) in tids,
        "cpus": lambda cpus: as_text(row[4]) in cpus,
        "libraries": lambda libraries: inner[1] in libraries,
        "mode": lambda mode: (mode == "kernel") == inner[2],
        "functions": lambda names: all(any(frame[0] == name for frame in chain) for name in names),
    }
    return all(check(filters[key]) for key, check in checks.items() if filters.get(key))


def numbers(document, filters):
    own, total = Counter(), Counter()
    libraries, files = defaultdict(lambda: [0, 0]), defaultdict(lambda: [0, 0])
    threads, cpus, folded, paths = Counter(), Counter(), Counter(), Counter()
    callers, callees = defaultdict(Counter), defaultdict(Counter)
    found = count = 0
    for row in document.rows:
        chain = document.chain(row)
        if not passes(document, row, chain, filters):
            continue
        count += 1
        keys = [(frame[0], frame[1]) for frame in chain]
        own[keys[0]] += 1
        for key in set(keys):
            total[key] += 1
        for table, part in ((libraries, 1), (files, 3)):
            table[chain[0][part]][0] += 1
            for name in {frame[part] for frame in chain}:
                table[name][1] += 1
        pid, tid, name, process = document.thread(row)
        threads[f"{as_text(pid)}/{as_text(tid)}/{name}/{process}"] += 1
        cpus[as_text(row[4])] += 1
        names = [frame[0] for frame in reversed(chain)]
        clean = [name.replace(";", ":") for name in (process or "(no name)", *names)]
        folded[";".join(clean)] += 1
        for depth in range(1, len(names) + 1):
            paths["\n".join(names[:depth])] += 1
        outer_first = keys[::-1]
        for key in set(keys):
            place = outer_first.index(key)
            callers["!".join(key)][outer_first[place - 1][0] if place > 0 else ""] += 1
            callees["!".join(key)][outer_first[place + 1][0] if place + 1 < len(keys) else ""] += 1
        search = filters.get("search", "").lower()
        found += bool(search) and any(search in name.lower() for name in names)
    return {
        "count": count,
        "functions": {"!".join(key): [own[key], total[key]] for key in total},
        "libraries": libraries,
        "files": files,
        "threads": threads,
        "cpus": cpus,
        "folded": folded,
        "paths": paths,
        "callers": callers,
        "callees": callees,
        "found": found,
    }


if __name__ == "__main__":
    wanted = json.loads(sys.argv[2]) if len(sys.argv) > 2 else {}
    json.dump(numbers(Document(sys.argv[1]), wanted), sys.stdout)
