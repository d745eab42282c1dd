#!/usr/bin/python3
"""Draws the functions that most samples fell into, as bars divided by thread.

    top_functions.py SAMPLES PICTURE [COUNT]

SAMPLES is what `tracemill-report -f jsonl` writes, "-" is standard input; PICTURE ends in .png, .svg or
.pdf; COUNT is the number of bars (default 12). On Debian: apt install python3-pandas python3-matplotlib
"""

import json
import re
import sys
from collections import Counter

import matplotlib
import pandas

matplotlib.use("Agg")  # no screen needed
from matplotlib import pyplot  # noqa: E402

BUSIEST = 5  # threads with a colour of their own


def short_name(name):
    """A function without template arguments and parameters."""
    while (shorter := re.sub(r"<[^<>]*>", "", name)) != name:
        name = shorter
    return name.split("(")[0] or name


def count_samples(lines):
    """Samples by function and thread, read line by line: memory is that of the result."""
    counts = Counter()
    for line in lines:
        sample = json.loads(line)
        counts[short_name(sample["function"]), sample["thread"] or "(no name)"] += 1
    if not counts:
        return pandas.DataFrame()
    table = pandas.Series(counts, dtype=float).unstack(fill_value=0)
    busiest = table.sum().nlargest(BUSIEST).index
    others = table.drop(columns=busiest).sum(axis=1)
    return table[busiest].assign(others=others) if others.any() else table[busiest]


def main(arguments):
    if len(arguments) not in (2, 3):
        print(__doc__)
        return 1
    with open(0 if arguments[0] == "-" else arguments[0], encoding="utf-8") as lines:
        counts = count_samples(lines)
    if counts.empty:
        print("top_functions: there are no samples", file=sys.stderr)
        return 1
    total = int(counts.to_numpy().sum())
    most = counts.sum(axis=1).nlargest(int(arguments[2]) if len(arguments) == 3 else 12).index
    axes = (counts.loc[most[::-1]] / total * 100).plot.barh(stacked=True, figsize=(9, 4.5), width=0.75)
    axes.set(title=f"Where {total} samples fell", xlabel="percent", ylabel="")
    axes.legend(title="thread", frameon=False)
    pyplot.tight_layout()
    pyplot.savefig(arguments[1])
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
