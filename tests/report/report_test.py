"""The program tracemill-report: its steps with stand-ins for the other programs, and its formats."""

import gzip
import json
import os
import re
import shutil
import stat
import subprocess
import sys
import tempfile
import unittest
from collections import Counter
from pathlib import Path

HERE = Path(__file__).resolve().parent
ROOT = HERE.parents[1]
sys.path.insert(0, str(HERE))

import document_numbers  # noqa: E402

REPORT = os.environ["TRACEMILL_REPORT"]
TRACEMILL = os.environ["TRACEMILL"]
QUALITY = {
    "recording": {"host": "board7", "kernel": "6.1", "commandLine": "perf record -g ./app"},
    "chains": {"chainsCanBeTrusted": False, "judgement": "Half of the chains end early."},
    "losses": [{"reason": "no frame pointers", "cure": "build with them", "samples": 12}],
}

PREPARE = """#!/bin/sh
echo "the quality report"
[ -z "$FAIL_PREPARE" ] || { echo "cannot prepare" >&2; exit 3; }
mkdir -p "$1.prepared"
echo '{}' > "$1.prepared/tracemill.conf"
cp "$QUALITY" "$1.prepared/quality.json"
"""
CONVERT = """#!/bin/sh
[ "$1" = -c ] && [ -f "$2" ] && [ "$3" = -o ] || exit 9
if [ -n "$FAIL_CONVERT" ]; then head -c 2000 "$DOCUMENT" > "$4"; echo "ERROR: no space" >&2; exit 1; fi
cat "$DOCUMENT" > "$4"
"""
PERF = """#!/bin/sh
echo "perf $*" >> "$PERF_LOG"
[ -z "$FAIL_PERF" ] || { echo "no permission" >&2; exit 255; }
case "$*" in *"-e cycles"*) exit 1 ;; esac
while [ "$1" != -o ]; do shift; done
[ "$2" != /dev/null ] || exit 0
printf PERFILE2 > "$2"
exit 7
"""


class ReportTest(unittest.TestCase):
    def setUp(self):
        self.folder = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)
        self.document = self.folder / "profile.json"
        maker = [sys.executable, str(HERE / "make_document.py"), "--samples", "500", str(self.document)]
        subprocess.run(maker, check=True)
        # Beside a copy of the program, where its companions are looked for.
        self.programs = self.folder / "bin"
        self.programs.mkdir()
        shutil.copy(REPORT, self.programs / "tracemill-report")
        for name, text in (("tracemill-prepare", PREPARE), ("tracemill", CONVERT), ("perf", PERF)):
            self.write_program(name, text)
        (self.folder / "quality").write_text(json.dumps(QUALITY))
        self.recording = self.folder / "perf.data"
        self.recording.write_bytes(b"PERFILE2" + bytes(96))

    def write_program(self, name, text):
        path = self.programs / name
        path.write_text(text)
        path.chmod(path.stat().st_mode | stat.S_IXUSR)

    def run_report(self, *words, **variables):
        environment = {
            **os.environ,
            "PATH": f"{self.programs}:{os.environ['PATH']}",
            "QUALITY": str(self.folder / "quality"),
            "DOCUMENT": str(self.document),
            "PERF_LOG": str(self.folder / "perf.log"),
            **variables,
        }
        return subprocess.run(
            [str(self.programs / "tracemill-report"), *map(str, words)],
            env=environment, cwd=self.folder, capture_output=True, text=True, timeout=120,
        )

    def output(self, *words):
        result = self.run_report("-q", "-o", "-", *words)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout

    def files(self):
        return sorted(path.name for path in self.folder.iterdir())

    def test_a_document_becomes_a_page_beside_it(self):
        result = self.run_report("profile.json")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertEqual(result.stdout, "Wrote profile.html: 500 samples.\n")
        self.assertIn(b'data-name="sample.time"', (self.folder / "profile.html").read_bytes())

    def test_a_recording_goes_through_the_steps(self):
        before = self.files()
        result = self.run_report("perf.data")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertEqual(result.stdout, "the quality report\nWrote perf.data.html: 500 samples.\n")
        # Nothing is left but what was asked for, and what the preparation keeps.
        self.assertEqual(self.files(), sorted([*before, "perf.data.html", "perf.data.prepared"]))
        self.assertIn('data-name="quality"', (self.folder / "perf.data.html").read_text())

    def test_the_document_is_kept_when_asked_for(self):
        self.assertEqual(self.run_report("--json", "-q", "perf.data").returncode, 0)
        self.assertEqual((self.folder / "perf.data.json").read_bytes(), self.document.read_bytes())

    def test_the_quality_report_stays_out_of_what_is_printed(self):
        result = self.run_report("-f", "folded", "-o", "-", "perf.data")
        self.assertEqual(result.stderr, "the quality report\n")
        self.assertEqual(sum(int(line.rsplit(" ", 1)[1]) for line in result.stdout.splitlines()), 500)

    def test_a_step_that_fails_is_named_and_leaves_nothing(self):
        for variables, sentence in (
            ({"FAIL_PREPARE": "1"}, "Preparing perf.data failed: tracemill-prepare ended with status 3."),
            ({"FAIL_CONVERT": "1"}, "Converting perf.data failed: tracemill ended with status 1;"),
        ):
            for options in ([], ["--json"]):
                result = self.run_report(*options, "perf.data", **variables)
                self.assertEqual(result.returncode, 1)
                self.assertIn(f"tracemill-report: {sentence}", result.stderr)
                self.assertNotIn("perf.data.html", self.files())
                self.assertNotIn("perf.data.json", self.files())
                self.assertFalse([name for name in self.files() if "tmp" in name.lower()])

    def test_an_old_page_survives_a_failure(self):
        (self.folder / "perf.data.html").write_text("old")
        self.run_report("perf.data", FAIL_CONVERT="1")
        self.assertEqual((self.folder / "perf.data.html").read_text(), "old")

    def test_a_missing_companion_is_said(self):
        (self.programs / "tracemill-prepare").unlink()
        result = self.run_report("perf.data", PATH="/nonexistent")
        self.assertEqual(result.returncode, 1)
        self.assertIn("Cannot run tracemill-prepare: No such file or directory. Install it", result.stderr)

    def test_a_place_that_cannot_be_written(self):
        result = self.run_report("-o", "missing/folder/page.html", "profile.json")
        self.assertEqual(result.returncode, 1)
        self.assertIn("Cannot write missing/folder/page.html", result.stderr)
        self.assertIn("Name another place with -o.", result.stderr)

    def test_a_full_disk_is_said(self):
        if not os.path.exists("/dev/full"):
            self.skipTest("no /dev/full")
        with open("/dev/full", "w") as full:
            command = [REPORT, "-q", "-f", "jsonl", "-o", "-", str(self.document)]
            result = subprocess.run(command, stdout=full, stderr=subprocess.PIPE, text=True)
        self.assertEqual(result.returncode, 1)
        self.assertIn("Standard output cannot be written.", result.stderr)

    def test_a_program_is_recorded_first(self):
        result = self.run_report("--record-options", "-F 99", "--", "true", "an argument")
        self.assertEqual(result.returncode, 0, result.stderr)
        log = (self.folder / "perf.log").read_text().splitlines()
        # Cycles cannot be counted in this test, so the clock is taken; status 7 is the program's own.
        self.assertIn("-e cpu-clock", log[-1])
        self.assertIn("-F 99 -- true an argument", log[-1])
        self.assertTrue((self.folder / "perf.data.html").exists())

    def test_recording_that_does_not_work(self):
        result = self.run_report("--", "true", FAIL_PERF="1")
        self.assertEqual(result.returncode, 1)
        self.assertIn("perf record does not work here.", result.stderr)
        self.assertIn("perf_event_paranoid", result.stderr)

    # --- Formats, against tests/report/document_numbers.py

    def numbers(self):
        return document_numbers.numbers(document_numbers.Document(self.document), {})

    def test_folded(self):
        counts = Counter()
        for line in self.output("-f", "folded", "profile.json").splitlines():
            stack, count = line.rsplit(" ", 1)
            counts[stack] += int(count)
        self.assertEqual(counts, self.numbers()["folded"])

    def test_jsonl(self):
        document = document_numbers.Document(self.document)
        lines = [json.loads(line) for line in self.output("-f", "jsonl", "profile.json").splitlines()]
        self.assertEqual(len(lines), len(document.rows))
        for line, row in zip(lines, document.rows):
            chain = document.chain(row)
            pid, tid, name, process = document.thread(row)
            number = lambda value: None if value == document_numbers.NO_TID else value
            self.assertEqual(line["recording"], "profile.json")
            self.assertAlmostEqual(line["time"], float(row[3]), 9)
            self.assertEqual(line["cpu"], number(row[4]))
            self.assertEqual([line["pid"], line["tid"]], [number(pid), number(tid)])
            self.assertEqual([line["process"], line["thread"]], [process, name])
            self.assertEqual([line["function"], line["library"]], list(chain[0][:2]))
            self.assertEqual(line["kind"] == "kernel", chain[0][2])
            self.assertEqual(line["file"] or "", chain[0][3])
            self.assertEqual(line["stack"], [frame[0] for frame in chain])

    def test_jsonl_names_the_host(self):
        line = json.loads(self.output("-f", "jsonl", "perf.data").splitlines()[0])
        self.assertEqual((line["recording"], line["host"]), ("perf.data", "board7"))

    def test_speedscope(self):
        file = json.loads(self.output("-f", "speedscope", "profile.json"))
        schema = ROOT / "viewer/node_modules/speedscope/dist/release/file-format-schema.json"
        if schema.exists():  # after npm ci
            import jsonschema

            jsonschema.validate(file, json.loads(schema.read_text()))
        names = [frame["name"] for frame in file["shared"]["frames"]]
        stacks = Counter()
        for profile in file["profiles"]:
            self.assertEqual(len(profile["samples"]), len(profile["weights"]))
            length = profile["endValue"] - profile["startValue"]
            self.assertAlmostEqual(sum(profile["weights"]), length, 6)
            for stack in profile["samples"]:
                if stack:
                    stacks["\n".join(names[frame] for frame in stack)] += 1
        document = document_numbers.Document(self.document)
        chains = Counter("\n".join(frame[0] for frame in reversed(document.chain(row))) for row in document.rows)
        self.assertEqual(stacks, chains)

    def test_pprof(self):
        protoc = shutil.which("protoc")
        if protoc is None:
            self.skipTest("protoc is not installed")
        path = self.folder / "profile.pb.gz"
        self.assertEqual(self.run_report("-q", "-f", "pprof", "profile.json").returncode, 0)
        proto = ROOT / "report" / "formats"
        command = [protoc, "--decode", "perftools.profiles.Profile", "-I", str(proto), "profile.proto"]
        text = subprocess.run(command, input=gzip.decompress(path.read_bytes()), capture_output=True, check=True)
        values = [int(line.split()[1]) for line in text.stdout.decode().splitlines() if line.startswith("  value:")]
        self.assertEqual(sum(values), 500)
        # The first mapping is the main program (profile.proto of pprof).
        strings = re.findall(r'^string_table: "(.*)"$', text.stdout.decode(), re.M)
        first = re.search(r"^mapping \{[^}]*?filename: (\d+)", text.stdout.decode(), re.M)
        self.assertEqual(strings[int(first.group(1))], "/usr/bin/app")

    def test_pprof_is_read_by_go(self):
        go = shutil.which("go")
        if go is None:
            self.skipTest("go is not installed")
        self.assertEqual(self.run_report("-q", "-f", "pprof", "profile.json").returncode, 0)
        command = [go, "tool", "pprof", "-top", "-nodecount=100", "profile.pb.gz"]
        text = subprocess.run(command, cwd=self.folder, capture_output=True, text=True, check=True).stdout
        functions = Counter()
        for key, (own, _) in self.numbers()["functions"].items():
            functions[key.rpartition("!")[0]] += own
        name, own = functions.most_common(1)[0]
        line = next(line for line in text.splitlines() if name.split("(")[0] in line)
        self.assertEqual(line.split()[0], str(own))

    def test_memory_is_that_of_columns(self):
        """The rows of a document in pieces: four times as many take their columns and chains, not their text."""
        if b"__asan_init" in Path(REPORT).read_bytes():
            self.skipTest("the address sanitizer keeps freed memory for a while")
        peaks = []
        for samples in (60000, 240000):
            path = self.folder / f"{samples}.json"
            maker = [sys.executable, str(HERE / "make_document.py"), "--samples", str(samples), str(path)]
            subprocess.run(maker, check=True)
            script = (
                "import resource, subprocess, sys; subprocess.run(sys.argv[1:], check=True); "
                "print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)"
            )
            command = [sys.executable, "-c", script, REPORT, "-q", "-f", "folded", "-o", os.devnull, str(path)]
            run = subprocess.run(command, capture_output=True, text=True, check=True)
            peaks.append(int(run.stdout) * 1024)
        # Chains of chance, hardly one twice: about 100 bytes, and as many again would be the text.
        self.assertLess(peaks[1] - peaks[0], 180000 * 150)


if __name__ == "__main__":
    unittest.main()
