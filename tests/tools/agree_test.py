"""Tests of bench/agree: documents and outputs of perf that are written here by hand.

The perf is a shell script that prints what a test gives it, so that what perf says is known.
"""

import json
import struct
import subprocess
import sys
import tempfile
import unittest
import unittest.mock
from pathlib import Path
from typing import Any

BENCH = Path(__file__).resolve().parents[2] / "bench"
sys.path.insert(0, str(BENCH))

from agreement.comparison import aligned, library_name  # noqa: E402
from agreement.document import Document  # noqa: E402
from agreement.perf_script import Place, split_place  # noqa: E402
from agreement.repair import repaired  # noqa: E402

FAKE_PERF = """#!/bin/sh
# evlist; script with -G: samples; script: chains
case "$*" in
  *evlist*) cat '{folder}/events' ;;
  *-G*) case "$(cat '{folder}/lacks')" in
          "") cat '{folder}/samples' ;;
          *) case "$*" in *cpu*) cat '{folder}/lacks' >&2; exit 1 ;; *) cat '{folder}/samples' ;; esac ;;
        esac ;;
  *) cat '{folder}/chains' ;;
esac
"""

KERNEL_IP = 0xFFFFFFFF81000010


def document(samples: list[list[Any]], libraries: list[list[Any]], functions: list[list[Any]],
             processes: list[list[Any]]) -> dict[str, Any]:
    tables = {"samples": samples, "libraries": libraries, "functions": functions, "processes": processes, "files": []}
    return {name: {"descriptions": {}, "data": rows} for name, rows in tables.items()}


class AgreeTest(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        perf = self.folder / "perf"
        perf.write_text(FAKE_PERF.format(folder=self.folder), encoding="utf-8")
        perf.chmod(0o755)
        self.write("events", "dummy:HG\ncpu-clock\n")
        self.write("lacks", "")
        self.write("recording", "")

    def write(self, name: str, text: str) -> None:
        (self.folder / name).write_text(text, encoding="utf-8")

    def perf_says(self, samples: str, chains: str) -> None:
        self.write("samples", samples)
        self.write("chains", chains)

    def agree(self, *options: str) -> subprocess.CompletedProcess[str]:
        files = (BENCH / "agree", self.folder / "document", self.folder / "recording")
        words = [sys.executable, "-B", *map(str, files), "--perf", str(self.folder / "perf"), *options]
        return subprocess.run(words, check=False, capture_output=True, text=True)

    def result(self, made: dict[str, Any], *options: str, indent: int | None = None) -> dict[str, Any]:
        separators = (",", ":") if indent is None else None
        self.write("document", json.dumps(made, indent=indent, separators=separators))
        done = self.agree("--json", *options)
        self.assertEqual("", done.stderr)
        result: dict[str, Any] = json.loads(done.stdout)
        return result

    def small(self) -> dict[str, Any]:
        """Two user samples and one of the kernel; perf's clock is 5 s ahead. Names: one right, one wrong, and a
        sample that perf has no name for."""
        self.perf_says(
            "app 10/10 [000] 5.000000100: cpu-clock:   1010 _Z3onev (/bin/app)\n"
            "my app 10/11 [001] 5.001000200: cpu-clock:   2010 two (/lib/b (1).so)\n"
            "app 10/10 [000] 5.002000300: cpu-clock: ffffffff81000010 read ([kernel.kallsyms])\n"
            "app 10/10 [000] 5.003000400: cpu-clock:   3010 [unknown] (/bin/app)\n"
            "app 10/10 [000] 5.003000500: task-clock:   3010 [unknown] (/bin/app)\n",
            "10 \n\t    10 _Z3onev (/bin/app)\n\t 7777 [unknown] ([unknown])\n\t  20 main (/bin/app)\n\n"
            "11 \n\t    10 two (/lib/b (1).so)\n\n"
            "10 \n\tffffffff81000010 read ([kernel.kallsyms])\n\t 30 main (/bin/app)\n\n"
            "10 \n\t 10 [unknown] (/bin/app)\n\n"
            "10 \n\t 10 [unknown] (/bin/app)\n\n")
        return document(
            [[1, 0x1010, 100, 0, 0, 10, 10, [[0x1010, 100], [0x1020, 101]]],
             [2, 0x2010, 102, 0.001000100, 1, 11, 11, []],
             [3, KERNEL_IP, 103, 0.002000200, 0, 10, 10, [[KERNEL_IP, 103], [0x1030, 101]]],
             [4, 0x3010, 104, 0.003000300, 0, 10, 10, []]],
            [[1, 0, "kernel", KERNEL_IP - 16, 4096], [2, 10, "/bin/app", 0x1000, 4096], [3, 10, "/lib/b (1).so", 0, 1]],
            [[100, "one()", 0x10, 16, [2]], [101, "main", 0x20, 16, [2]], [102, "to ", 0x10, 16, [3]],
             [103, "read", KERNEL_IP, 16, [1]], [104, "three", 0x10, 16, [2]]],
            [[10, 10, 10, "app"], [11, 10, 11, "my app"]])

    def test_what_agrees_and_what_does_not_is_counted(self) -> None:
        result = self.result(self.small())
        self.assertEqual(5_000_000_100, result["start"])
        user, kernel = result["samples"]["user"], result["samples"]["kernel"]
        expected = {"total": 3, "present": 3, "same_library": 3, "named": 2, "same_function": 1, "wrong_function": 1,
                    "no_function": 0, "unnamed": 1, "named_now": 1}
        self.assertEqual(expected, {name: user[name] for name in expected})
        self.assertEqual([1, 1, 1], [kernel[name] for name in ("present", "same_library", "same_function")])
        # Entries: `main` twice. What perf cannot place is no entry, and the samples' own addresses are none.
        entries = result["entries"]["all"]
        self.assertEqual([2, 2, 2], [entries[name] for name in ("total", "present", "same_function")])
        self.assertEqual([0, 0, 0], [result[name] for name in ("moved", "rowsLeft", "entriesLeft")])
        self.assertEqual([{"what": "sample: wrong function", "perf_library": "/lib/b (1).so", "perf_function": "two",
                           "library": "/lib/b (1).so", "function": "to", "count": 1}], result["differences"])

    def test_an_indented_document_is_read_as_well(self) -> None:
        self.assertEqual(self.result(self.small()), self.result(self.small(), indent=1))

    def test_other_events_count_when_asked_for(self) -> None:
        made = self.small()
        self.assertEqual(1, self.result(made, "--event", "task-clock")["samples"]["all"]["total"])
        self.assertEqual(5, self.result(made, "--event", "all")["samples"]["all"]["total"])
        self.write("quality.json", '{"recording": {"event": "task-clock"}}')
        quality = str(self.folder / "quality.json")
        self.assertEqual("task-clock", self.result(made, "--quality", quality)["event"])

    def test_a_missing_sample_and_an_unknown_row_are_seen(self) -> None:
        made = self.small()
        made["samples"]["data"][1][6] = 12  # another thread
        result = self.result(made)
        self.assertEqual(2, result["samples"]["user"]["present"])
        self.assertEqual(1, result["rowsLeft"])
        self.assertEqual("sample: missing", result["differences"][0]["what"])
        self.assertEqual(1, self.agree("--strict").returncode)

    def test_another_processor_or_another_process_is_another_sample(self) -> None:
        for change in ((4, 2), (5, 11)):
            made = self.small()
            made["samples"]["data"][0][change[0]] = change[1]
            made["processes"]["data"][1][1] = 99
            with self.subTest(change):
                # the sample of thread 11 is now one of process 99, too
                self.assertEqual(2, self.result(made)["samples"]["all"]["present"])

    def test_a_renumbered_thread_is_the_recorded_one(self) -> None:
        made = self.small()
        made["samples"]["data"][1][6] = 2147483648
        self.write("quality.json", '{"renumbered": [{"pid": 10, "tid": 11, "as": 2147483648, "samples": 1}]}')
        self.assertEqual(3, self.result(made)["samples"]["all"]["present"])
        self.assertEqual(4, self.result(made, "--quality", str(self.folder / "quality.json"))["samples"]["all"]["present"])

    def test_a_sample_at_another_page_has_moved(self) -> None:
        made = self.small()
        made["samples"]["data"][0][1] = 0x7F0000000010
        made["samples"]["data"][0][7][0][0] = 0x7F0000000010
        result = self.result(made)
        self.assertEqual([4, 1], [result["samples"]["all"]["present"], result["moved"]])
        self.assertEqual(1, result["samples"]["user"]["same_function"])
        made["samples"]["data"][0][1] = 0x7F0000000011  # another place in the page is another address
        self.assertEqual(3, self.result(made)["samples"]["all"]["present"])

    def test_times_count_within_the_documents_digits(self) -> None:
        made = self.small()
        made["samples"]["data"][1][3] = 0.001000300
        self.assertEqual(3, self.result(made)["samples"]["all"]["present"])
        for row in made["samples"]["data"]:
            row[3] = round(row[3], 6)
        self.assertEqual(4, self.result(made)["samples"]["all"]["present"])

    def test_a_recording_without_processors_is_compared_without_them(self) -> None:
        made = self.small()
        self.write("lacks", "Samples for 'cpu-clock' event do not have CPU attribute set. Cannot print 'cpu' field.")
        samples = (self.folder / "samples").read_text(encoding="utf-8")
        self.write("samples", samples.replace(" [000]", "").replace(" [001]", ""))
        for row in made["samples"]["data"]:
            row[4] = 4294967295
        self.assertEqual(4, self.result(made)["samples"]["all"]["present"])

    def test_libraries_and_names_are_compared_as_they_are_meant(self) -> None:
        self.perf_says(
            "a 1/1 [000] 1.000000000: cpu-clock: 10 ab (/bin/gone (deleted))\n"
            "a 1/1 [000] 1.000000001: cpu-clock: ffffffffc0000020 $a.x (/lib/modules/6.1/nf-tables.ko.xz)\n"
            "a 1/1 [000] 1.000000002: cpu-clock: 30 [unknown] ([unknown])\n"
            "a 1/1 [000] 1.000000003: cpu-clock: 0 [unknown] ([unknown])\n"
            "a 1/1 [000] 1.000000004: cpu-clock: 50 known (/bin/x)\n",
            "1   10 a (b)\n1   20 a (b)\n1   30 a (b)\n1   0 a (b)\n1  50 a (b)\n")
        made = document(
            [[1, 0x10, 10, 0, 0, 1, 1, []], [2, 0xFFFFFFFFC0000020, 11, 1e-9, 0, 1, 1, []],
             [3, 0x30, 3, 2e-9, 0, 1, 1, []], [4, 0x50, 12, 4e-9, 0, 1, 1, []]],
            [[1, 1, "/bin/gone", 0, 1], [2, 0, "[nf_tables]", 0, 1], [3, 1, "{a-0}", 0, 1], [4, 1, "/bin/x", 0, 1]],
            [[10, "ab ", 0, 1, [1]], [11, "＄a.x", 0, 1, [2]], [12, "[unknown]", 0, 1, [4]]], [[1, 1, 1, "a"]])
        result = self.result(made)
        everything = result["samples"]["all"]
        expected = {"total": 4, "present": 4, "placed": 3, "same_library": 3, "named": 3, "same_function": 2,
                    "no_function": 1, "wrong_function": 0, "unnamed": 1, "named_now": 0}
        self.assertEqual(expected, {name: everything[name] for name in expected})
        self.assertEqual([1, 1], [result["withoutAddress"], result["samples"]["kernel"]["total"]])

    def test_entries_that_a_full_back_trace_had_no_room_for_do_not_count(self) -> None:
        made = self.small()
        chain = "10 \n\t    10 _Z3onev (/bin/app)\n\t  20 main (/bin/app)\n\t 30 main (/bin/app)\n\n"
        self.write("chains", chain + (self.folder / "chains").read_text(encoding="utf-8").split("\n\n", 1)[1])
        self.assertEqual(2, self.result(made)["entries"]["all"]["total"])
        entries = self.result(made, "--max-entries", "16")["entries"]["all"]
        self.assertEqual([3, 2], [entries["total"], entries["present"]])

    def test_entries_in_libraries_that_begin_anywhere_are_paired_by_their_order(self) -> None:
        made = self.small()
        chains = (self.folder / "chains").read_text(encoding="utf-8")
        made["libraries"]["data"].append([4, 10, "/tmp/jitted-10-1.so", 0x1000, 4096])
        made["functions"]["data"][1][4] = [4]
        self.write("chains", chains.replace(" 7777 [unknown] ([unknown])\n\t  20 main (/bin/app)\n",
                                            " 99 main (/tmp/jitted-10-1.so)\n"))
        entries = self.result(made)["entries"]["all"]
        self.assertEqual([2, 2, 2], [entries[name] for name in ("total", "present", "same_function")])

    def test_libraries_that_begin_anywhere_are_found_in_chains_of_other_lengths(self) -> None:
        """perf prints addresses in the file, of which only the library can be compared; and it prints the
        sample's own address, and one that is in no map, in front of a caller that both have."""
        made = self.small()
        jitted = "/tmp/jitted-10-1.so"
        made["libraries"]["data"].append([4, 10, jitted, 0x1000, 4096])
        made["functions"]["data"][4][4] = [4]
        made["samples"]["data"] = [[4, 0x3010, 104, 0.003000300, 0, 10, 10, [[0x3010, 104], [0x1855, 104], [0x1020, 101]]]]
        self.perf_says(f"app 10/10 [000] 5.003000400: cpu-clock:   3010 three ({jitted})\n",
                       f"10 \n\t  99 three ({jitted})\n\t 7777 [unknown] ([unknown])\n"
                       f"\t  33 three ({jitted})\n\t 20 main (/bin/app)\n\n")
        entries = self.result(made)["entries"]["all"]
        self.assertEqual([2, 2, 2], [entries[name] for name in ("total", "present", "same_function")])

    def test_names_are_compared_without_choosing_a_demangler(self) -> None:
        made = self.small()
        self.write("samples", (self.folder / "samples").read_text(encoding="utf-8").replace("_Z3onev", "_Z3oneSi"))
        for name in ("one(std::istream)", "one(std::basic_istream<char, std::char_traits<char> >)", "one", "_Z3oneSi"):
            made["functions"]["data"][0][1] = name
            with self.subTest(name):
                self.assertEqual(1, self.result(made)["samples"]["user"]["same_function"])

    def test_what_is_no_document_is_said(self) -> None:
        self.perf_says("", "")
        for text in ("", "{}", '{"samples":{"data":[[1,2', '{"samples":{"descriptions":{},"data":[]}}'):
            self.write("document", text)
            done = self.agree()
            self.assertEqual(2, done.returncode)
            self.assertRegex(done.stderr, r"^agree: .*document (is empty|has no|ends within|is not a document)")

    def test_perf_without_samples_is_said(self) -> None:
        self.write("document", json.dumps(self.small()))
        self.perf_says("", "")
        done = self.agree()
        self.assertEqual(2, done.returncode)
        self.assertIn("prints no samples", done.stderr)

    def test_the_table_is_aligned(self) -> None:
        self.write("document", json.dumps(self.small()))
        lines = self.agree().stdout.splitlines()
        self.assertEqual(lines[0], "samples                         user        kernel           all")
        self.assertEqual(lines[5], "  wrong function            50.000 %       0.000 %      33.333 %")
        self.assertEqual(1, self.agree("--strict").returncode)


class PartsTest(unittest.TestCase):
    def test_a_place_is_split_where_its_library_begins(self) -> None:
        for text, function, library in (
            ("main (/bin/app)", "main", "/bin/app"),
            ("(anonymous namespace)::f(int) const ([vdso])", "(anonymous namespace)::f(int) const", "[vdso]"),
            ("f (/a folder/work load (1))", "f", "/a folder/work load (1)"),
            ("[unknown] (/bin/gone (deleted))", "[unknown]", "/bin/gone (deleted)"),
            ("bpf_prog_1_x (bpf_prog_1_x)", "bpf_prog_1_x", "bpf_prog_1_x"),
        ):
            self.assertEqual(Place(function, library), split_place(text))

    def test_libraries_have_one_name(self) -> None:
        for name, common in (("[kernel.kallsyms]", "kernel"), ("kernel", "kernel"), ("/boot/vmlinux-6.1", "kernel"),
                             ("/lib/modules/6.1/a-b.ko", "[a_b]"), ("/tmp/perf-12.map", "anonymous memory"),
                             ("//anon", "anonymous memory"), ("[vdso32]", "[vdso]"), ("/bin/kernel", "/bin/kernel")):
            self.assertEqual(common, library_name(name))

    def test_chains_are_aligned_by_the_place_in_the_page(self) -> None:
        self.assertEqual([(1, 0x1001), (9, None), (0x20, 0x21)], list(aligned((1, 9, 0x20), (0x1001, 0x21))))
        self.assertEqual([(1, 1), (None, 0x55), (9, 9)], list(aligned((1, 9), (1, 0x55, 9))))
        self.assertEqual([(1, None), (None, 0x55)], list(aligned((1,), (0x55,))))

    def test_of_a_broken_recording_the_sound_part_stays(self) -> None:
        records = struct.pack("<IHH", 68, 0, 8) + struct.pack("<IHHQ", 3, 0, 16, 7)

        def recording(size: int, features: int, behind: bytes) -> bytes:
            header = struct.pack("<8s11Q", b"PERFILE2", 104, 80, 104, 0, 104, size, 0, 0, features, 0, 0)
            return header.ljust(104, b"\0") + records + behind

        sound = recording(len(records), 0, b"")
        with tempfile.TemporaryDirectory() as folder:
            path, copy = Path(folder) / "path", Path(folder) / "copy"
            for size, behind in ((0, b""), (0, b"\0" * 64), (64, struct.pack("<IHH", 9, 0, 80)), (64, b"\0" * 40),
                                 (24 + 16, struct.pack("<IHH", 9, 0, 7) + b"12345678")):
                path.write_bytes(recording(size, 8, behind))
                self.assertTrue(repaired(path, copy))
                self.assertEqual(sound, copy.read_bytes())
            for whole in (recording(len(records), 8, b"features"), b"PERFILE2" + struct.pack("<Q", 16), b""):
                path.write_bytes(whole)
                self.assertFalse(repaired(path, copy))
            self.assertFalse(repaired(Path(folder), copy))

    def test_blocks_of_rows_are_put_together(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder) / "document"
            rows: list[list[Any]] = [[i, 4096 + i, 1, i / 1000, 0, 1, 1, [[4096 + i, 1]] * (i % 3)] for i in range(200)]
            path.write_text(json.dumps(document(rows, [[1, 1, "/a", 0, 1]], [], [[1, 1, 1, "a"]])), encoding="utf-8")
            for size in (64, 1000, 1 << 22):
                with unittest.mock.patch("agreement.document.BLOCK", size):
                    samples = Document(path).samples()
                self.assertEqual([row[1] for row in rows], list(samples.ip))
                self.assertEqual([len(row[7]) for row in rows], [len(samples.chains[chain]) for chain in samples.chain])


if __name__ == "__main__":
    unittest.main()
