#!/usr/bin/env python3
"""Writes a document of many samples with chains: make_document.py SAMPLES FILE

60 threads in 15 processes on 16 CPUs, 3000 functions in 40 libraries, one different chain for each 20
samples, grown from each other as the branches of a program are; a minute long.
"""

import json
import random
import sys

BASE, FUNCTIONS, LIBRARIES, THREADS, CPUS = 100, 3000, 40, 60, 16
KEYS = range(BASE + 1000, BASE + 1000 + FUNCTIONS)


def make_chains(chance, count):
    chains = []
    for _ in range(count):
        start = [chance.randrange(FUNCTIONS)]
        if chains and chance.random() < 0.9:
            parent = chance.choice(chains)
            start = parent[: chance.randrange(1, len(parent) + 1)]
        calls = [int(FUNCTIONS * chance.random() ** 3) for _ in range(chance.randrange(1, 8))]
        chains.append((start + calls)[:40])
    return chains


def main(count, path):
    chance = random.Random(7)
    stacks = []
    for chain in make_chains(chance, max(1000, count // 20)):
        pairs = [(0x400000 + frame * 64 + chance.randrange(64), KEYS[frame]) for frame in reversed(chain)]
        stacks.append((*pairs[0], ",".join(f"[{address},{key}]" for address, key in pairs)))
    tables = {
        "libraries": [
            [BASE + i, 1000 if i else 0, f"/usr/lib/lib{i}.so" if i else "kernel", 2**63 * (i == 0) + 4096 * i, 4096]
            for i in range(LIBRARIES)
        ],
        "functions": [
            [key, f"ns{i % 17}::function_{i}(int, std::vector<char> const&)", 64 * i, 64, [BASE + i % LIBRARIES]]
            for i, key in enumerate(KEYS)
        ],
        "processes": [[1000 + i, 1000 + i // 4 * 4, 1000 + i, f"thread{i}"] for i in range(THREADS)],
        "files": [[i + 1, f"/src/file{i}.cpp", [[KEYS[i], 0]]] for i in range(200)],
    }
    with open(path, "w", encoding="utf-8") as out:
        out.write('{"samples":{"descriptions":{},"data":[')
        time = 0.0
        for number in range(count):
            time += chance.expovariate(count / 60)
            thread = int(THREADS * chance.random() ** 2)
            ip, key, trace = stacks[int(len(stacks) * chance.random() ** 2)]
            row = f"[{number + 1},{ip},{key},{time:.6f},{(thread + number) % CPUS},{1000 + thread},{1000 + thread},[{trace}]]"
            out.write(("," if number else "") + row)
        out.write("]}")
        for name, rows in tables.items():
            out.write(f',"{name}":{json.dumps({"descriptions": {}, "data": rows})}')
        out.write("}")


if __name__ == "__main__":
    main(int(sys.argv[1]), sys.argv[2])
