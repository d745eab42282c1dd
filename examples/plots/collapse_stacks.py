#!/usr/bin/python3
"""Prints the back traces of a document as collapsed stacks, which flame graph viewers read.

    collapse_stacks.py DOCUMENT > stacks.txt

One line a stack: the thread and its functions from the outermost to the sampled one, separated by
semicolons, then a blank and the number of samples. A mapped file stands in square brackets where no
function is known.
"""

import collections
import json
import sys

# The kernel marks where user space or itself begins in a call chain by "addresses" from here on
# (PERF_CONTEXT_*). They are no places.
MARKERS = 0xFFFF_FFFF_FFFF_F000


def frame(name):
    """A name that keeps the line's format, a mapped file without its folder."""
    if name.startswith("/"):
        name = f"[{name.rsplit('/', 1)[1]}]"
    return name.replace(";", ":").replace("\n", " ")


def collapse(document):
    """Stack to number of samples."""
    # One "mapkey" refers to either table: their keys never collide.
    names = {row[0]: row[2] for row in document["libraries"]["data"]}
    names.update((row[0], row[1]) for row in document["functions"]["data"])
    threads = {row[0]: row[3] or f"tid {row[0]}" for row in document["processes"]["data"]}
    stacks = collections.Counter()
    for _, ip, mapkey, _, _, pidkey, _, trace in document["samples"]["data"]:
        places = [(address, key) for address, key in trace if address < MARKERS]
        # Current kernels begin the trace with the sampled address, older ones with its caller.
        if not places or places[0][0] != ip:
            places.insert(0, (ip, mapkey))
        frames = [names[key] for _, key in reversed(places)]
        stacks[";".join(frame(name) for name in [threads[pidkey], *frames])] += 1
    return stacks


def main(arguments):
    if len(arguments) != 1:
        print(__doc__)
        return 1
    with open(arguments[0], encoding="utf-8", errors="replace") as file:
        document = json.load(file)
    for stack, samples in sorted(collapse(document).items()):
        print(stack, samples)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
