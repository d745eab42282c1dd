#!/usr/bin/python3
"""Checks that no include of the project runs upwards through its layers.

    check_layers.py ROOT

Every include is written from the root of the project, so the compiler finds them all and stops none;
this check does. Prints one line for each include that is not allowed and ends with status 1 if there
is any. Tests and benchmarks may include everything; nothing may include them.
"""

import argparse
import re
import sys
from pathlib import Path
from typing import NamedTuple

# Lowest first: what belongs to a layer (the longest prefix of a path decides) and what it may include
# besides itself.
LAYER_OF_PREFIX = {
    "kestrel/json/": "kestrel_json",
    "kestrel/": "kestrel",
    "app/PerfSettings.": "tracemill_settings",
    "perfevents/": "perfevents",
    "model/": "model",
    "symbols/": "symbols",
    "output/": "output",
    "app/": "app",
    "recordings/": "recordings",
    "prepare/": "prepare",
    "listing/": "listing",
    "report/": "report",
    "unwinding/": "unwinding",
}
LIBRARY = {"kestrel_json", "kestrel"}
ALLOWED = {
    "kestrel_json": set(),
    "kestrel": {"kestrel_json"},
    "tracemill_settings": LIBRARY,
    "perfevents": LIBRARY,
    "model": LIBRARY | {"tracemill_settings", "perfevents"},
    "symbols": LIBRARY | {"tracemill_settings", "perfevents", "model"},
    "output": LIBRARY | {"tracemill_settings", "perfevents", "model", "symbols"},
    "listing": LIBRARY,
    "app": LIBRARY | {"tracemill_settings", "perfevents", "model", "symbols", "output"},
    "recordings": LIBRARY,
    "prepare": LIBRARY | {"recordings", "listing", "unwinding"},
    "report": LIBRARY,  # runs the others as programs
    "unwinding": set(),
}

SUFFIXES = {".h", ".hpp", ".cpp", ".cc"}
INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]')


class Include(NamedTuple):
    line: int
    path: str
    quoted: bool


def layer_of(path):
    """The layer of a path from the root of the project, or None."""
    prefixes = [prefix for prefix in LAYER_OF_PREFIX if path.startswith(prefix)]
    return LAYER_OF_PREFIX[max(prefixes, key=len)] if prefixes else None


def find_includes(text):
    includes = []
    for number, line in enumerate(text.splitlines(), start=1):
        match = INCLUDE.match(line)
        if match:
            includes.append(Include(number, match.group(2), match.group(1) == '"'))
    return includes


def find_violation(layer, include):
    """Why a file of `layer` may not have this include, or None."""
    target = layer_of(include.path)
    if target is None:
        if include.quoted:
            return f'"{include.path}" is no path from the root into a layer'
        return None
    if target == layer or target in ALLOWED[layer]:
        return None
    return f'"{include.path}" belongs to {target}, which {layer} may not include'


def check_tree(root):
    """Returns the number of files looked at and a line for each violation, in path order."""
    count = 0
    violations = []
    folders = sorted({prefix.split("/")[0] for prefix in LAYER_OF_PREFIX})
    for path in sorted(path for folder in folders for path in (root / folder).rglob("*")):
        if path.suffix not in SUFFIXES or not path.is_file():
            continue
        count += 1
        name = path.relative_to(root).as_posix()
        for include in find_includes(path.read_text(encoding="utf-8", errors="replace")):
            reason = find_violation(layer_of(name), include)
            if reason:
                violations.append(f"{name}:{include.line}: {reason}.")
    return count, violations


def main(arguments):
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("root", type=Path, help="the root of the project")
    options = parser.parse_args(arguments)
    count, violations = check_tree(options.root)
    if count == 0:
        print(f"No sources found under {options.root}.", file=sys.stderr)
        return 1
    for violation in violations:
        print(violation, file=sys.stderr)
    print(f"{count} files, {len(violations)} includes that run upwards or elsewhere.")
    return 1 if violations else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
