#!/usr/bin/python3
"""Cuts a kernel symbol list down to what one recording needs.

    perf script -i RECORDING -F ip | cut_kallsyms.py /proc/kallsyms > kallsyms.txt

Reads the addresses of the samples and call chains from standard input, the list from the file, and
prints, in the list's own format and ascending by address: _text (the start of the kernel), each
function that an address falls into together with the symbol after it (which gives its size), and
_etext (the end of its code). One symbol an address: the last one listed, and _text at its own.
"""

import bisect
import re
import sys

FIRST = "_text"
LAST = "_etext"
LINE = re.compile(r"([0-9a-f]+) ([TtWw]) (\S+)$")  # modules have a fourth column


def read_symbols(lines):
    """Text symbols as {address: (type, name)}, one an address."""
    symbols = {}
    for line in lines:
        match = LINE.match(line.rstrip("\n"))
        if match:
            address = int(match.group(1), 16)
            if symbols.get(address, ("", ""))[1] != FIRST:
                symbols[address] = (match.group(2), match.group(3))
    return symbols


def cut_symbols(symbols, sampled):
    """The part of `symbols` between _text and _etext that names the `sampled` addresses."""
    by_name = {name: address for address, (_, name) in symbols.items()}
    first, last = by_name[FIRST], by_name[LAST]
    ascending = sorted(address for address in symbols if first <= address <= last)
    kept = {first, last}
    for address in sampled:
        at = bisect.bisect_right(ascending, address)
        kept.update(ascending[max(at - 1, 0) : at + 1])
    return {address: symbols[address] for address in sorted(kept)}


def main(arguments):
    if len(arguments) != 1 or arguments[0].startswith("-"):
        print(__doc__)
        return 1
    with open(arguments[0], encoding="ascii") as file:
        symbols = read_symbols(file)
    sampled = {int(word, 16) for line in sys.stdin for word in line.split()}
    for address, (kind, name) in cut_symbols(symbols, sampled).items():
        print(f"{address:016x} {kind} {name}")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
