#!/usr/bin/python3
"""Counts the samples of a tracemill document by function.

    summarize.py DOCUMENT

Prints how many rows its tables have and the five functions that most samples fell into. A short
example of how the tables refer to each other: a sample's "mapkey" is the "key" of a row of
"functions", or of "libraries" where no function is known.
"""

import collections
import json
import sys


def read_table(document, name):
    """The rows of a table as dictionaries by column name."""
    columns = list(document[name]["descriptions"])
    return [dict(zip(columns, row)) for row in document[name]["data"]]


def short_name(function):
    """A function's name without its parameters."""
    return function.split("(")[0]


def count_tables(document):
    return ", ".join(f"{len(table['data'])} {name}" for name, table in document.items())


def hottest_functions(document, count):
    """[(name, share of all samples), ...], the most sampled first."""
    names = {row["key"]: row["name"] for row in read_table(document, "functions")}
    hits = collections.Counter(row["mapkey"] for row in read_table(document, "samples"))
    total = sum(hits.values())
    known = [(names[key], hit / total) for key, hit in hits.most_common() if key in names]
    return known[:count]


def main(arguments):
    if len(arguments) != 1 or arguments[0].startswith("-"):
        print(__doc__)
        return 1
    with open(arguments[0], encoding="utf-8", errors="replace") as file:
        document = json.load(file)
    hottest = [f"{short_name(name)} {share:.1%}" for name, share in hottest_functions(document, 5)]
    print(f"It holds {count_tables(document)}; each table says what its columns are.")
    print(f"Look first at where most samples fell: {', '.join(hottest) or 'no function is known'}.")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
