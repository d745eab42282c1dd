"""Made inputs of bench/compare: recordings of any number of samples or maps, and symbol lists.

Everything is drawn from random numbers with a fixed seed: the same call writes the same bytes.

Layouts: include/uapi/linux/perf_event.h (records, attributes) and tools/perf/util/header.h (the file
around them) of the Linux kernel; symbol lists as /proc/kallsyms and `nm -nCgl --format=bsd` print them.
"""

import random
import struct

FILE_HEADER = struct.Struct("<8sQQQQQQQQ32x")  # magic, sizes, sections: attributes, records, event types
RECORD_HEADER = struct.Struct("<IHH")  # perf_event_header: type, misc, size of the whole record
MMAP = struct.Struct("<IIQQQ")  # pid, tid, address, length, file offset; the name follows
COMM = struct.Struct("<II")  # pid, tid; the name follows
SAMPLE = struct.Struct("<QIIQIIQQ")  # ip, pid, tid, time, cpu, reserved, period, length of the chain
RECORD_MMAP, RECORD_COMM, RECORD_SAMPLE = 1, 3, 9
SAMPLE_TYPE = 0x1A7  # IP TID TIME CALLCHAIN CPU PERIOD, what perf record -a -g -e cpu-clock writes
CONTEXT_USER = 0xFFFF_FFFF_FFFF_FE00  # the marker at the front of a call chain
ATTRIBUTE_SIZE = 96

FIRST_PID = 1000
FIRST_ADDRESS = 0x10000
MAP_SIZE = 0x1000
FIRST_PAGE, PAGE_SIZE = 0x1_0000_0000, 0x1_0000  # of maps that are made up, beyond those with a meaning of their own
# No such folder: the symbols of these maps cost one look for the file, for maps in use.
MAP_NAME = "/no-such-folder/lib%d.so"


def name_bytes(text):
    """A name as the kernel stores it: NULs up to the next multiple of eight bytes."""
    name = text.encode()
    return name + bytes(8 - len(name) % 8)


def record(record_type, body):
    return RECORD_HEADER.pack(record_type, 0, RECORD_HEADER.size + len(body)) + body


def comm(pid):
    return record(RECORD_COMM, COMM.pack(pid, pid) + name_bytes(f"process{pid}"))


def mmap(pid, address, number):
    body = MMAP.pack(pid, pid, address, MAP_SIZE, 0) + name_bytes(MAP_NAME % number)
    return record(RECORD_MMAP, body)


def sample(pid, time, chain):
    body = SAMPLE.pack(chain[0], pid, pid, time, time // 1000 % 4, 0, 50000, len(chain) + 1)
    return record(RECORD_SAMPLE, body + struct.pack(f"<{len(chain) + 1}Q", CONTEXT_USER, *chain))


def write_recording(path, records):
    """Writes a file of these records, each given as its bytes."""
    attribute = struct.pack("<IIQQQ", 1, ATTRIBUTE_SIZE, 0, 50000, SAMPLE_TYPE)  # software, cpu-clock
    attribute += bytes(ATTRIBUTE_SIZE - len(attribute)) + bytes(16)  # no section of ids
    data_at = FILE_HEADER.size + len(attribute)
    size = 0
    with open(path, "wb") as file:
        file.write(bytes(data_at))
        for content in records:
            file.write(content)
            size += len(content)
        file.seek(0)
        sections = (FILE_HEADER.size, len(attribute), data_at, size, 0, 0)
        file.write(FILE_HEADER.pack(b"PERFILE2", FILE_HEADER.size, len(attribute), *sections))
        file.write(attribute)


def map_address(number):
    return FIRST_ADDRESS + 2 * number * MAP_SIZE


def samples_records(samples):
    """Ten processes of twenty maps each, and so many samples with four callers each."""
    processes, maps = 10, 20
    for pid in range(FIRST_PID, FIRST_PID + processes):
        yield comm(pid)
        yield from (mmap(pid, map_address(i), i) for i in range(maps))
    numbers = random.Random(1)
    for i in range(samples):
        drawn = numbers.getrandbits(160)
        chain = [map_address((drawn >> 32 * j) % maps) + (drawn >> (32 * j + 16)) % MAP_SIZE for j in range(5)]
        yield sample(FIRST_PID + i % processes, 10**12 + i * 1000, chain)


def ordered(count, order):
    """The numbers from 0 on, in "ascending", "descending" or "random" order."""
    numbers = list(range(count))
    if order == "random":
        random.Random(1).shuffle(numbers)
    return reversed(numbers) if order == "descending" else numbers


def maps_records(processes, maps, order):
    """So many processes of so many maps each, and a sample of the last process for each of 16 of its
    maps, so that recordings differ in their maps only."""
    for pid in range(FIRST_PID, FIRST_PID + processes):
        yield comm(pid)
        yield from (mmap(pid, map_address(i), i) for i in ordered(maps, order))
    for i in range(16):
        yield sample(FIRST_PID + processes - 1, 10**12 + i, [map_address(i % maps)])


def pages_records(pages, order):
    """So many samples without a map, each in a page of its own."""
    yield comm(FIRST_PID)
    for i, page in enumerate(ordered(pages, order)):
        yield sample(FIRST_PID, 10**12 + i, [FIRST_PAGE + page * PAGE_SIZE])


def program_records(path):
    """A process that runs the program at `path`, and a sample in it."""
    yield comm(FIRST_PID)
    yield record(RECORD_MMAP, MMAP.pack(FIRST_PID, FIRST_PID, FIRST_ADDRESS, MAP_SIZE, 0) + name_bytes(str(path)))
    yield sample(FIRST_PID, 10**12, [FIRST_ADDRESS])


def words(numbers, count):
    """A name of so many words."""
    return "_".join(numbers.choice(WORDS) for _ in range(count))


WORDS = "add alloc buffer check copy device do file find free get index init insert list lock map next node page \
process queue read register release remove request reset set state table thread timer update value write".split()


def write_kernel_list(path, lines):
    """What /proc/kallsyms holds: text first, then data, then modules."""
    numbers = random.Random(1)
    address = 0xFFFF_FFFF_8100_0000
    with open(path, "w", encoding="ascii") as file:
        file.write(f"{address:016x} T _text\n")
        for i in range(1, lines):
            address += numbers.randrange(1, 40) * 16
            share = i / lines
            letter = numbers.choice("tttT") if share < 0.5 or share >= 0.75 else numbers.choice("dDrRbB")
            module = f"\t[{words(numbers, 1)}]" if share >= 0.75 else ""
            file.write(f"{address:016x} {letter} {words(numbers, numbers.randint(2, 4))}{module}\n")


def write_program_list(path, lines):
    """What the lister prints of a program in C++ with line information."""
    numbers = random.Random(1)
    address = 0x40_0000
    parameters = "", "int", "char const*, unsigned long", "std::vector<int, std::allocator<int> > const&"
    with open(path, "w", encoding="ascii") as file:
        source = ""
        for i in range(lines):
            address += numbers.randrange(1, 40) * 16
            if i % 20 == 0:
                source = f"/usr/src/{words(numbers, 1)}/{words(numbers, 2)}.cpp"
            name = f"{words(numbers, 1)}::{words(numbers, 2)}::{words(numbers, 2)}({numbers.choice(parameters)})"
            letter = numbers.choice("TTTW")
            file.write(f"{address:016x} {letter} {name}\t{source}:{numbers.randint(1, 2000)}\n")
