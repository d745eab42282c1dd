#!/usr/bin/python3
"""Draws the functions that most samples fell into, as bars divided by thread.

    top_functions.py DOCUMENT PICTURE [COUNT]

PICTURE ends in .png, .svg or .pdf; COUNT is the number of bars (default 12). On Debian:
apt install python3-pandas python3-matplotlib
"""

import json
import re
import sys

import matplotlib
import pandas

matplotlib.use("Agg")  # no screen needed
from matplotlib import pyplot  # noqa: E402

COLORS = ["#3b6ea5", "#e0a030", "#5a9e6f", "#b5524c", "#7d6bb0"]
OTHERS = "#b0b0b0"  # threads beyond the busiest


def read_table(document, name, columns):
    """The first columns of a table by name. Nested ones ("bt", "maps", "symbols") come last."""
    rows = [row[: len(columns)] for row in document[name]["data"]]
    return pandas.DataFrame(rows, columns=columns)


def short_name(name):
    """A function without template arguments and parameters, a mapped file without its folder."""
    if name.startswith("/"):
        return f"[{name.rsplit('/', 1)[1]}]"
    while (shorter := re.sub(r"<[^<>]*>", "", name)) != name:
        name = shorter
    return name.split("(")[0]


def count_samples(document):
    """Samples by place (function, or mapped file where no function is known) and thread name."""
    samples = read_table(
        document, "samples", ["key", "ip", "mapkey", "time", "cpu", "pidkey", "tid"]
    )
    # One "mapkey" refers to either table: their keys never collide.
    tables = [
        read_table(document, table, ["key", "a", "b"]) for table in ("functions", "libraries")
    ]
    names = pandas.concat([tables[0].set_index("key")["a"], tables[1].set_index("key")["b"]])
    threads = read_table(document, "processes", ["key", "pid", "tid", "name"]).set_index("key")[
        "name"
    ]
    place = samples["mapkey"].map(names).map(short_name)
    thread = samples["pidkey"].map(threads)
    busiest = thread.value_counts().index[: len(COLORS)]
    return pandas.crosstab(place, thread.where(thread.isin(busiest), "others"))


def draw(counts, total, picture):
    rows = max(len(counts), 6)  # room for the legend beside few bars
    figure, axes = pyplot.subplots(figsize=(8.6, 0.9 + 0.32 * rows), dpi=100)
    shares = counts / total * 100
    left = 0
    threads = sorted(set(shares.columns) - {"others"})
    colors = dict(zip(threads, COLORS), others=OTHERS)
    for thread in [name for name in colors if name in shares.columns]:
        color = colors[thread]
        label = thread if shares[thread].any() else None  # no legend for a thread that has no bar
        axes.barh(shares.index, shares[thread], left=left, color=color, label=label, height=0.7)
        left += shares[thread]
    for place, share in shares.sum(axis=1).items():
        axes.annotate(
            f"{share:.1f} %",
            (share, place),
            (5, 0),
            textcoords="offset points",
            va="center",
            fontsize=9,
        )
    axes.set_ylim(rows - 0.5, -0.5)
    axes.margins(x=0.1)
    axes.set_title(f"Where {total} samples fell", loc="left", fontsize=12)
    axes.xaxis.set_visible(False)
    axes.tick_params(axis="y", length=0, labelsize=10)
    for side in ("top", "right", "bottom"):
        axes.spines[side].set_visible(False)
    axes.spines["left"].set_color("#888888")
    axes.legend(title="thread", loc="lower right", frameon=False)
    figure.tight_layout()
    figure.savefig(picture)


def main(arguments):
    if len(arguments) not in (2, 3):
        print(__doc__)
        return 1
    with open(arguments[0], encoding="utf-8", errors="replace") as file:
        counts = count_samples(json.load(file))
    if counts.empty:
        print("top_functions: the document has no samples", file=sys.stderr)
        return 1
    total = counts.to_numpy().sum()
    most = counts.sum(axis=1).nlargest(int(arguments[2]) if len(arguments) == 3 else 12).index
    draw(counts.loc[most], total, arguments[1])
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
