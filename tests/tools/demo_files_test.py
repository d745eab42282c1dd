"""Checks that the files of examples/demo fit together and hold what the demo needs of them."""

import json
import os
import re
import struct
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
DEMO = ROOT / "examples" / "demo"
SYSROOT = DEMO / "sysroot"
sys.path.insert(0, str(ROOT / "bench"))

from plain_recording import CALLCHAIN, CPU, IP, PERIOD, SAMPLE, TID, TIME, PlainRecording  # noqa: E402

NEEDED = IP | TID | TIME | CALLCHAIN | CPU
CONTEXT_MARKERS = 0xFFFF_FFFF_FFFF_F000  # PERF_CONTEXT_* values start here
KERNEL_HALF = 1 << 63


def open_recording():
    return PlainRecording(DEMO / "demo.perf.data")


def read_samples(recording):
    """Their records, without the headers."""
    return [body for kind, body in recording.records() if kind == SAMPLE]


def sampled_addresses(recording):
    """The call chains of all samples in one list, context markers left out."""
    chain = 40 if recording.sample_types[0] & PERIOD else 32
    addresses = []
    for body in read_samples(recording):
        (count,) = struct.unpack_from("<Q", body, chain)
        addresses += struct.unpack_from(f"<{count}Q", body, chain + 8)
    return [address for address in addresses if address < CONTEXT_MARKERS]


def read_kernel_list():
    text = (SYSROOT / "kallsyms.txt").read_text(encoding="ascii")
    return [(int(line.split()[0], 16), line.split()[2]) for line in text.splitlines()]


class RecordingTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.recording = open_recording()

    def test_it_is_small(self):
        self.assertLess(os.path.getsize(DEMO / "demo.perf.data"), 300_000)

    def test_it_has_one_event_with_a_layout_that_is_decoded(self):
        (sample_type,) = self.recording.sample_types
        self.assertEqual(sample_type & ~PERIOD, NEEDED)

    def test_its_first_sample_is_the_earliest(self):
        # Without a window the first sample in the file is time zero, and earlier ones are left out.
        times = self.recording.sample_times()
        self.assertEqual(times[0], min(times))

    def test_it_names_the_program_and_its_library_under_the_neutral_path(self):
        names = {name for _, _, _, _, name in self.recording.maps()}
        self.assertIn("/opt/tracemill-demo/ripples", names)
        self.assertIn("/opt/tracemill-demo/libwaves.so", names)

    def test_no_map_lies_in_the_fixed_stack_and_kernel_ranges(self):
        for _, start, length, _, name in self.recording.maps():
            self.assertTrue(start + length <= 0xB000_0000 or start > 0xCF00_0000, name)

    def test_it_has_threads_call_chains_and_kernel_addresses(self):
        samples = read_samples(self.recording)
        threads = {struct.unpack_from("<II", body, 8) for body in samples}
        self.assertGreaterEqual(len(threads), 5)
        addresses = sampled_addresses(self.recording)
        self.assertGreater(len(addresses), 3 * len(samples))
        self.assertTrue(any(address >= KERNEL_HALF for address in addresses))


class SysrootTest(unittest.TestCase):
    def test_functions_have_the_same_address_in_file_and_memory(self):
        for name in ("ripples", "libwaves.so"):
            elf = (SYSROOT / "opt/tracemill-demo" / name).read_bytes()
            (table,) = struct.unpack_from("<Q", elf, 32)
            size, count = struct.unpack_from("<HH", elf, 54)
            headers = [struct.unpack_from("<IIQQ", elf, table + size * i) for i in range(count)]
            text = [(o, v) for kind, flags, o, v in headers if kind == 1 and flags & 1]
            self.assertEqual([offset for offset, _ in text], [address for _, address in text])

    def test_every_mapped_file_is_there(self):
        names = {name for _, _, _, _, name in open_recording().maps() if name.startswith("/")}
        self.assertGreater(len(names), 2)
        for name in names:
            self.assertTrue((SYSROOT / name[1:]).is_file(), name)

    def test_the_kernel_list_ascends_from_text_alone_to_etext(self):
        symbols = read_kernel_list()
        addresses = [address for address, _ in symbols]
        self.assertEqual((symbols[0][1], symbols[-1][1]), ("_text", "_etext"))
        self.assertEqual(addresses, sorted(set(addresses)))
        self.assertTrue((SYSROOT / "kallsyms.txt").read_bytes().endswith(b"\n"))
        self.assertLess(os.path.getsize(SYSROOT / "kallsyms.txt"), 200_000)

    def test_kernel_addresses_lie_inside_the_kernel_list(self):
        symbols = read_kernel_list()
        kernel = [a for a in sampled_addresses(open_recording()) if a >= KERNEL_HALF]
        self.assertGreaterEqual(min(kernel), symbols[0][0])
        self.assertLess(max(kernel), symbols[-1][0])

    def test_nothing_tells_where_it_was_built(self):
        for path in [DEMO / "demo.perf.data", *SYSROOT.rglob("*")]:
            if path.is_file():
                found = re.findall(rb"/(?:home|root|work|tmp)/[\w./-]*", path.read_bytes())
                self.assertEqual(found, [], path)


def without_comments(text):
    """The configuration format less what JSON does not have: // comments and trailing commas."""
    text = re.sub(r"^\s*//.*$", "", text, flags=re.MULTILINE)
    return re.sub(r",(\s*[}\]])", r"\1", text)


class ConfigurationTest(unittest.TestCase):
    def test_the_example_has_every_key_once_with_a_comment(self):
        text = (ROOT / "examples" / "tracemill.conf").read_text(encoding="utf-8")
        keys = re.findall(r'^\s*"(\w+)":', text, flags=re.MULTILINE)
        self.assertEqual(
            sorted(keys),
            sorted(
                "log kernelStartAddress kernelEndAddress maxBackTrace timePrecision symbolCacheDir"
                " symbolFileSeachPath kernelSymbolFile freezeSymbolCache onTargetMode inputPerfFile"
                " outputFile appendOutput whitespace buffering default level categories adapter"
                " type baseName maxSize fileCount PerfRecordFileReader".split()
            ),
        )
        lines = text.splitlines()
        for key in keys:
            at = next(i for i, line in enumerate(lines) if line.strip().startswith(f'"{key}":'))
            above = lines[at - 1].strip()
            example = key in ("kernelEndAddress", "PerfRecordFileReader")
            self.assertTrue(above.startswith("//") or example, f"{key} has no comment")

    def test_the_example_has_the_defaults_but_for_the_cache_folder(self):
        text = (ROOT / "examples" / "tracemill.conf").read_text(encoding="utf-8")
        values = json.loads(without_comments(text))
        log = values.pop("log")
        self.assertEqual(
            values,
            {
                "inputPerfFile": None,
                "outputFile": None,
                "appendOutput": False,
                "whitespace": False,
                "maxBackTrace": 16,
                "timePrecision": 6,
                "kernelStartAddress": 0xBF000000,
                "kernelEndAddress": 0xCF000000,
                "onTargetMode": True,
                "symbolFileSeachPath": "/",
                "kernelSymbolFile": "/proc/kallsyms",
                "symbolCacheDir": "./symbol-cache",
                "freezeSymbolCache": False,
            },
        )
        self.assertEqual((log["level"], log["adapter"]["type"]), ("INFO", "file"))

    def test_the_demo_uses_only_keys_of_the_example(self):
        documents = [
            json.loads(without_comments(path.read_text(encoding="utf-8")))
            for path in (ROOT / "examples" / "tracemill.conf", DEMO / "demo.conf")
        ]
        self.assertLessEqual(set(documents[1]), set(documents[0]))


class ScriptTest(unittest.TestCase):
    def test_the_commands_are_executable(self):
        for name in (
            "scripts/demo scripts/test scripts/install-packages .ci/run"
            " examples/demo/rebuild"
        ).split():
            self.assertTrue(os.access(ROOT / name, os.X_OK), name)

    def test_help_and_wrong_arguments_build_nothing(self):
        for command, status in (
            (["scripts/test", "--help"], 0),
            (["scripts/test", "--nonsense"], 1),
            (["scripts/demo", "--help"], 1),
            (["scripts/install-packages", "nonsense"], 1),
        ):
            run = subprocess.run([ROOT / command[0], *command[1:]], capture_output=True, text=True)
            self.assertEqual(run.returncode, status, command)
            self.assertIn("Usage", run.stdout + run.stderr)

    def packages_of(self, level):
        """What would be installed where nothing is."""
        with tempfile.TemporaryDirectory() as folder:
            for program, text in (("dpkg-query", "exit 1"), ("id", "echo 0"), ("apt-get", "exit 0")):
                path = Path(folder) / program
                path.write_text(f"#!/bin/sh\n{text}\n")
                path.chmod(0o755)
            run = subprocess.run([ROOT / "scripts" / "install-packages", level], capture_output=True, text=True,
                                 check=True, env={"PATH": f"{folder}:/usr/bin:/bin"})
        (line,) = re.findall(r"^Installing: (.*)$", run.stdout, re.MULTILINE)
        return set(line.split())

    def test_programs_are_built_without_what_only_tests_take(self):
        for_tests = {"libgtest-dev", "libgmock-dev", "nlohmann-json3-dev"}
        self.assertEqual(self.packages_of("build") & for_tests, set())
        for level in ("test", "arm", "all", "bench"):
            self.assertEqual(self.packages_of(level) & for_tests, for_tests, level)
            self.assertLess(self.packages_of("build"), self.packages_of(level), level)
        self.assertIn("scripts/install-packages build\n", (ROOT / "scripts" / "demo").read_text())


if __name__ == "__main__":
    unittest.main()
