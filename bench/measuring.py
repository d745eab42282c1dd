"""What measures programs against each other: pairs of commands in turn, medians, a table with verdicts.

Absolute times are worth nothing on shared machines. So each figure is one side of a pair against the other, run in
turn.
"""

import contextlib
import datetime
import json
import os
import platform
import shlex
import shutil
import statistics
import subprocess
import sys
from collections.abc import Callable
from pathlib import Path
from typing import NamedTuple

FREQUENCY = 20_000  # samples a second of each CPU


class Trouble(Exception):
    """Something could not be measured; the text says why."""


class Command(NamedTuple):
    words: list
    output: Path  # removed before each run; a file or a folder


class Line(NamedTuple):
    """A line of the table. The smaller the figure, the better."""

    row: int
    what: str
    figure: float
    must: float
    aim: float
    style: Callable
    details: str

    def verdict(self):
        if self.figure <= self.aim:
            return "aim"
        return "must" if self.figure <= self.must else "MISSED"


def share(figure):
    return f"1/{1 / figure:.3g}"


def factor(figure):
    return f"{figure:.2f} times"


def megabytes(figure):
    return f"{figure / 1e6:.1f} MB"


def percent(figure):
    return f"{figure * 100:+.1f} %"


def say(text):
    print(f"{Path(sys.argv[0]).name}: {text}", file=sys.stderr, flush=True)


def run(words, **options):
    """Runs a command to its end, quietly unless it fails."""
    done = subprocess.run(words, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False, **options)
    if done.returncode != 0:
        raise Trouble(f"{shlex.join(map(str, words))} failed:\n{done.stdout}{done.stderr}")


def require(*tools):
    for tool in tools:
        if shutil.which(tool) is None:
            raise Trouble(f"{tool} is not installed. On Debian: scripts/install-packages bench")


def record_compile_load(path, folders, includes, seconds):
    """`perf record` of all CPUs while they compile every source in the folders over and over."""
    require("perf", "c++")
    compiler = f"c++ -std=c++20 -O2 -I {shlex.quote(str(includes))} -S -o -"
    compile_all = (
        f"while :; do find {shlex.join(map(str, folders))} -name '*.cpp' | "
        f"xargs -P {os.cpu_count()} -n 1 {compiler} > {os.devnull}; done"
    )
    say(f"recording a compile load for {seconds:.0f} seconds")
    record = f"perf record -F {FREQUENCY} -e cpu-clock -g -a -k mono --no-bpf-event -N -o".split()
    load = ["timeout", str(seconds), "sh", "-c", compile_all]
    # timeout's status, which perf passes on, says that the time is over.
    done = subprocess.run([*record, path, "--", *load], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE, text=True, check=False)
    if not Path(path).exists():
        raise Trouble(f"perf recorded nothing:\n{done.stderr}")


class Measuring:
    """A folder of made inputs, and the measuring of commands."""

    def __init__(self, folder, rounds):
        self.folder = Path(folder)
        self.rounds = rounds

    def made(self, name, make):
        """The path of a made file; `make` is given the path to write to."""
        path = self.folder / name
        if not path.exists():
            say(f"making {name}")
            unfinished = self.folder / f"{name}.unfinished"
            make(unfinished)
            unfinished.rename(path)
        return path

    def medians(self, *commands, rounds=None):
        """The median times of the commands in seconds, run in turn. A first round warms up."""
        require("hyperfine")
        rounds = rounds or self.rounds
        figures = self.folder / "figures.json"
        words = ["hyperfine", "--shell=none", "--style=none", "--runs=1", "--export-json", figures]
        # Of all of them: the kernel would still be writing the output of one to disk while the next one runs.
        words += ["--prepare", shlex.join(["rm", "-rf", "--", *sorted({str(command.output) for command in commands})])]
        words += [shlex.join(map(str, command.words)) for command in commands]
        times = []
        for _ in range(1 + rounds):
            run(words)
            results = json.loads(figures.read_text(encoding="utf-8"))["results"]
            times.append([result["times"][0] for result in results])
        for command in commands:
            remove(command.output)
        return [statistics.median(column) for column in zip(*times[1:])]

    def peak_memory(self, command):
        """The largest resident set of a run, in bytes: the median of the rounds."""
        require("/usr/bin/time")
        figure = self.folder / "memory"
        peaks = []
        for _ in range(self.rounds):
            remove(command.output)
            run(["/usr/bin/time", "-f", "%M", "-o", figure, *command.words])
            peaks.append(int(figure.read_text(encoding="ascii")) * 1024)
            remove(command.output)
        return statistics.median(peaks)


def remove(path):
    if path.is_dir():
        shutil.rmtree(path)
    else:
        path.unlink(missing_ok=True)


def compare_pair(bench, row, what, must, aim, style, yardstick, ours):
    time, yardstick_time = bench.medians(ours, yardstick)
    details = f"{time:.3f} s against {yardstick_time:.3f} s"
    return Line(row, what, time / yardstick_time, must, aim, style, details)


def processor():
    """The model of the CPU as the kernel names it."""
    with contextlib.suppress(OSError):
        for line in Path("/proc/cpuinfo").read_text(encoding="utf-8").splitlines():
            if line.startswith("model name"):
                return line.split(":", 1)[1].strip()
    return platform.machine()


def print_table(lines, rounds, *facts):
    facts = [str(datetime.date.today()), processor(), f"{os.cpu_count()} cores", *facts, f"medians of {rounds} rounds"]
    print(", ".join(facts), end="\n\n")
    print("| | What | Must | Aim | Measured | Reached | |\n|---|---|---|---|---|---|---|")
    for line in lines:
        figures = " | ".join(line.style(figure) for figure in (line.must, line.aim, line.figure))
        print(f"| {line.row} | {line.what} | {figures} | {line.verdict()} | {line.details} |")
