"""Runs tracemill-prepare as users do, on recordings that are broken or hostile, and where something is in its way.

    prepare_program_test.py TRACEMILL_PREPARE TRACEMILL
"""

import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
DEMO = ROOT / "examples" / "demo"
SYSROOT = DEMO / "sysroot"
PROGRAM = b"/opt/tracemill-demo/ripples"  # a mapped file of the demo's recording
MAPPED = "opt/tracemill-demo/ripples"
DEADLINE = 60  # seconds


class PrepareTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.place = self.folder / "place"  # nothing may be written beside it
        self.place.mkdir()
        self.content = (DEMO / "demo.perf.data").read_bytes()

    def words(self, recording, *options, sysroot=SYSROOT):
        files = ["--sysroot", sysroot, "--kallsyms", SYSROOT / "kallsyms.txt", "--no-cache"]
        return [self.prepare, *files, *options, "-o", self.place / "prepared", recording]

    def run_on(self, content, *options, **files):
        recording = self.folder / "perf.data"
        recording.write_bytes(content)
        return self.run_words(self.words(recording, *options, **files))

    def run_words(self, words, **options):
        done = subprocess.run(words, capture_output=True, text=True, cwd=self.folder, check=False, timeout=DEADLINE,
                              env={"HOME": str(self.folder), "TZ": "UTC", "PATH": os.environ["PATH"]}, **options)
        self.assertGreaterEqual(done.returncode, 0, f"ended by signal {-done.returncode}")
        return done

    def quality(self):
        return json.loads((self.place / "prepared" / "quality.json").read_text(encoding="utf-8"))

    def rows(self):
        output = self.folder / "profile.json"
        configuration = self.place / "prepared" / "tracemill.conf"
        subprocess.run([self.tracemill, "-c", configuration, "-o", output], check=True, capture_output=True,
                       timeout=DEADLINE)
        return json.loads(output.read_text(encoding="utf-8"))["samples"]["data"]

    def complains(self, done, status, words):
        self.assertEqual(status, done.returncode, done.stderr)
        self.assertEqual(1, done.stderr.count("\n"), done.stderr)
        self.assertTrue(done.stderr.startswith("tracemill-prepare: "), done.stderr)
        self.assertIn(words, done.stderr)


class BrokenRecordingTest(PrepareTest):
    def test_what_stands_before_the_damage_is_prepared(self):
        before = 0
        begin, size = (int.from_bytes(self.content[at : at + 8], "little") for at in (40, 48))
        for cut in range(begin + 1, begin + size, 16_001):
            done = self.run_on(self.content[:cut], "-q")
            self.assertEqual(0, done.returncode, f"cut at {cut}: {done.stderr}")
            quality = self.quality()
            self.assertTrue(quality["damage"], cut)
            self.assertEqual(quality["samples"]["all"], len(self.rows()), cut)
            self.assertGreaterEqual(quality["samples"]["all"], before, cut)
            before = quality["samples"]["all"]
        self.assertGreater(before, 2000)

    def test_what_has_no_records_is_refused_and_nothing_written(self):
        for content in (b"", b"perf", b"PERFILE2", bytes(5000), self.content[:50]):
            self.complains(self.run_on(content), 1, "perf.data")
            self.assertEqual([], list(self.place.iterdir()))

    def test_what_is_not_there_is_named(self):
        self.complains(self.run_words(self.words(self.folder / "no-such-file")), 1, "no-such-file")


class HostileNamesTest(PrepareTest):
    def named(self, name):
        """The recording with another name in place of the program's."""
        self.assertLessEqual(len(name), len(PROGRAM))
        return self.content.replace(PROGRAM, name.ljust(len(PROGRAM), b"\0"))

    def test_no_name_leads_out_of_the_folder(self):
        before = set(self.folder.rglob("*"))
        names = (b"/../../../../../../../here", b"../../../../../../../here", b"//////..//..//..//here",
                 b"/here\n\"quoted\" ${HOME}:x", b"--vmlinux=here", b"| touch here", b"$(touch here)", b"/", b"..", b"/.")
        for name in names:
            done = self.run_on(self.named(name), "-q")
            self.assertEqual(0, done.returncode, f"{name}: {done.stderr}")
            self.assertEqual(["prepared"], [path.name for path in self.place.iterdir()], name)
            made = {path for path in self.folder.rglob("*") if self.place not in path.parents} - before
            self.assertLessEqual({path.name for path in made}, {"perf.data", "profile.json"}, name)
            self.assertEqual(2383, len(self.rows()), name)

    def test_what_is_no_regular_file_is_not_opened(self):
        sysroot = self.folder / "sysroot"
        shutil.copytree(SYSROOT, sysroot)
        for make in (os.mkfifo, os.mkdir, lambda path: os.symlink("/dev/zero", path),
                     lambda path: os.symlink("ripples", path)):
            place = sysroot / MAPPED
            if place.is_dir() and not place.is_symlink():
                place.rmdir()
            else:
                place.unlink()
            make(place)
            done = self.run_on(self.content, "-q", sysroot=sysroot)
            self.assertEqual(0, done.returncode, done.stderr)
            self.assertIn("/" + MAPPED, [entry["name"] for entry in self.quality()["nameless"]])

    def test_a_broken_program_costs_its_own_names_only(self):
        sysroot = self.folder / "sysroot"
        shutil.copytree(SYSROOT, sysroot)
        place = sysroot / MAPPED
        whole = place.read_bytes()
        for at in range(16, 4096, 101):
            place.write_bytes(whole[:at] + b"\xff" * 8 + whole[at + 8 :])
            done = self.run_on(self.content, "-q", sysroot=sysroot)
            self.assertEqual(0, done.returncode, f"changed at {at}: {done.stderr}")
        lists = [path.read_text(encoding="utf-8") for path in (self.place / "prepared" / "symbols").glob("*.list")]
        self.assertTrue(any("waves::stepRow" in text for text in lists))


class FolderTest(PrepareTest):
    def test_a_folder_of_somebody_else_is_left_alone(self):
        (self.place / "prepared").mkdir()
        (self.place / "prepared" / "thesis.txt").write_text("long work")
        self.complains(self.run_on(self.content), 1, "was not prepared by tracemill-prepare")
        self.assertEqual(["thesis.txt"], [path.name for path in (self.place / "prepared").iterdir()])
        self.assertEqual(["prepared"], [path.name for path in self.place.iterdir()])

    def test_its_own_is_replaced_whole(self):
        self.run_on(self.content, "-q")
        left = self.place / "prepared" / "left-over"
        left.touch()
        self.assertEqual(0, self.run_on(self.content, "-q").returncode)
        self.assertFalse(left.exists())

    def test_a_run_that_fails_leaves_the_old_one(self):
        self.run_on(self.content, "-q")
        self.complains(self.run_on(b"no recording"), 1, "perf.data")
        self.assertEqual(["prepared"], [path.name for path in self.place.iterdir()])
        self.assertEqual(2383, len(self.rows()))

    def test_a_run_that_is_killed_leaves_the_old_one_or_the_new_one(self):
        self.run_on(self.content, "-q")
        words = self.words(self.folder / "perf.data", "-q")
        for milliseconds in range(0, 60, 6):
            running = subprocess.Popen(words, cwd=self.folder)
            time.sleep(milliseconds / 1000)
            running.send_signal(signal.SIGKILL)
            running.wait()
            if (self.place / "prepared").exists():
                self.assertEqual(2383, self.quality()["samples"]["all"])
        self.assertEqual(0, self.run_words(words).returncode)
        self.assertEqual(2383, len(self.rows()))

    def test_a_place_that_cannot_be_written_is_named(self):
        words = self.words(self.folder / "perf.data")
        words[words.index("-o") + 1] = "/proc/prepared"
        (self.folder / "perf.data").write_bytes(self.content)
        self.complains(self.run_words(words), 1, "/proc")


@unittest.skipUnless(shutil.which("perf"), "perf is not installed")
class PerfTest(PrepareTest):
    """perf's own programs read what was prepared; where it comes from they tell as of the recording itself."""

    def perf(self, *words):
        return subprocess.run(["perf", *words], capture_output=True, text=True, check=True, cwd=self.folder,
                              timeout=DEADLINE, env={"HOME": str(self.folder), "PATH": os.environ["PATH"]}).stdout

    def header_lines(self, recording):
        names = ("hostname", "os release", "perf version", "arch", "cpudesc", "cpuid", "cmdline")
        lines = self.perf("report", "--header-only", "--force", "-i", recording).splitlines()
        return [line for line in lines if line.startswith(tuple(f"# {name} :" for name in names))]

    def test_it_says_where_the_recording_comes_from(self):
        self.run_on(self.content, "-q")
        lines = self.header_lines(self.place / "prepared" / "perf.data")
        self.assertEqual(self.header_lines(DEMO / "demo.perf.data"), lines)
        self.assertEqual(7, len(lines))

    def test_it_is_converted(self):
        self.run_on(self.content, "-q")
        self.perf("data", "convert", "--force", "-i", self.place / "prepared" / "perf.data", "--to-json", "out.json")
        samples = json.loads((self.folder / "out.json").read_text(encoding="utf-8"))["samples"]
        self.assertEqual(2383, len(samples))


class CommandLineTest(PrepareTest):
    def test_mistakes_end_with_status_2(self):
        for words in (["--no-such-option"], ["--event"], ["--max-frames", "0"], ["--cache-size", "many"], ["a", "b"]):
            self.complains(self.run_words([self.prepare, *words]), 2, "See tracemill-prepare --help.")
        self.complains(self.run_on(self.content, "--event", "cycles"), 2, "cpu-clock")
        self.complains(self.run_on(self.content, "--window", "noon"), 2, "noon")

    def test_quiet_says_nothing(self):
        done = self.run_on(self.content, "-q")
        self.assertEqual(("", "", 0), (done.stdout, done.stderr, done.returncode))

    def test_the_report_goes_to_standard_error_without_progress(self):
        done = self.run_on(self.content)
        self.assertEqual("", done.stdout)
        self.assertIn("Fit for totals", done.stderr)
        self.assertNotIn("\r", done.stderr)

    def test_output_that_nobody_can_read_is_a_failure(self):
        with open("/dev/full", "w", encoding="ascii") as full:
            done = subprocess.run([self.prepare, "--list", DEMO / "demo.perf.data"], stdout=full,
                                  stderr=subprocess.PIPE, text=True, check=False, timeout=DEADLINE)
        self.complains(done, 1, "standard output")


if __name__ == "__main__":
    PrepareTest.prepare, PrepareTest.tracemill = (Path(word).resolve() for word in sys.argv[1:3])
    unittest.main(argv=sys.argv[:1])
