#!/usr/bin/env python3
"""Writes a document as the converter lays it out, of samples of chance.

    make_document.py [--samples N] [--seed N] [--slower FUNCTION] [--hostile] [--indented] FILE

Times are out of order as perf writes them, chains are recursive, have markers in them, and begin with
the sampled address or not; CPUs, threads and functions are missing here and there. With --slower, one
function of ten has twice the samples. With --hostile, names and times are what nobody expects.
"""

import argparse
import json
import random

KERNEL = 18446744071578845184
MARKER_KERNEL, MARKER_USER = 2**64 - 128, 2**64 - 512
NONE = 2**32 - 1
HOSTILE_NAMES = [
    "</script><script>window.hacked = 1</script>",
    "<img src=x onerror='window.hacked = 1'>",
    '"quoted" and \'quoted\' & \\ back',
    "right \u202e to left \u2066 marks \u200f",
    "zero \u200b width",
    "long" * 262144,
    "semicolon; colon: and\ttab",
    "",
    "--> <!-- comment",
    "${name} {{script}} $& $1",
]


def columns(*names):
    return {name: name for name in names}


def make(options):
    chance = random.Random(options.seed)
    hostile = options.hostile
    libraries = [
        [10, 0, "kernel", KERNEL, 2**24],
        [11, 100, "/usr/bin/app", 0x400000, 2**20],
        [12, 100, "/usr/lib/libwork.so.1", 0x7F0000000000, 2**20],
        [13, 200, "/usr/lib/libwork.so.1", 0x7F1000000000, 2**20],
        [14, 200, "{app-7f120000}", 0x7F120000, 65536],
        [15, 200, "{app-7f130000}", 0x7F130000, 65536],
        [16, 200, "/tmp/perf-200.map", 0x7F2000000000, 2**20],
        [17, 100, "/opt/stripped/libbare.so", 0x7F3000000000, 2**20],
    ]
    functions = []
    for number in range(40):
        library = chance.choice([10, 11, 11, 12, 16])
        name = f"ns{number % 3}::function_{number}(int, std::vector<char> const&)"
        if hostile and number < len(HOSTILE_NAMES):
            name = HOSTILE_NAMES[number]
        functions.append([100 + number, name, 4096 + 64 * number, 64, [library, library]])
    files = [[1, "/src/first.cpp", [[100, 0], [101, 0], [102, 0]]], [2, "/src/second.cpp", [[110, 0], [111, 0]]]]
    processes = [
        [100, 100, 100, "app"],
        [101, 100, 101, "worker"],
        [102, 100, 102, ""],
        [200, 200, 200, "other" if not hostile else "<b>bold</b> \u202e"],
        [NONE, NONE, NONE, ""],
    ]
    if hostile:
        libraries[2][2] = libraries[3][2] = "/usr/lib/</script><script>window.hacked=2</script>.so"
        files[0][1] = "/src/<script>window.hacked=3</script>.cpp"
    keys = [row[0] for row in functions] + [13, 14, 15, 17]

    def address(key):
        return 0x400000 + key * 64 + chance.randrange(64)

    chains = [
        [chance.choice(keys) for _ in range(chance.randrange(0, 6))]
        for _ in range(max(4, options.samples // 40))
    ]
    samples, time = [], 1000.0
    for number in range(options.samples):
        time += chance.expovariate(options.samples / 8.0)
        shown = time - chance.random() * 0.01
        leaf = chance.choice(keys)
        if options.slower is not None and chance.random() < 0.2:
            leaf = 100 + options.slower
        callers = [[address(key), key] for key in chance.choice(chains)]
        if chance.random() < 0.3:
            callers.insert(min(1, len(callers)), [MARKER_USER, 10])
        ip = address(leaf)
        trace = [[ip, leaf], *callers] if chance.random() < 0.7 else callers
        thread = chance.choice([100, 100, 101, 102, 200, 200, NONE if chance.random() < 0.1 else 200])
        cpu = NONE if chance.random() < 0.05 else chance.choice([0, 1, 3])
        samples.append([number + 1, ip, leaf, round(shown, 6), cpu, thread, thread, trace])
    return {
        "samples": {
            "descriptions": columns("key", "ip", "mapkey", "time", "cpu", "pidkey", "tid", "bt.ip", "bt.mapkey"),
            "data": samples,
        },
        "libraries": {"descriptions": columns("key"), "data": libraries},
        "functions": {"descriptions": columns("key"), "data": functions},
        "processes": {"descriptions": columns("key"), "data": processes},
        "files": {"descriptions": columns("key"), "data": files},
    }


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--samples", type=int, default=2000)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--slower", type=int)
    parser.add_argument("--hostile", action="store_true")
    parser.add_argument("--indented", action="store_true")
    parser.add_argument("file")
    options = parser.parse_args()
    document = make(options)
    if options.hostile:
        for place, time in ((3, float("nan")), (5, float("inf")), (7, float("-inf"))):
            document["samples"]["data"][place][3] = time
    layout = {"indent": 2} if options.indented else {"separators": (",", ":")}
    text = json.dumps(document, ensure_ascii=False, **layout)
    text = text.replace("NaN", "nan").replace("-Infinity", "-inf").replace("Infinity", "inf")
    content = text.encode()
    if options.hostile:  # bytes that are no UTF-8, and a control character as it is
        content = content.replace(b"semicolon;", b"semi\xff\xfe\x01colon;")
    with open(options.file, "wb") as file:
        file.write(content)


if __name__ == "__main__":
    main()
