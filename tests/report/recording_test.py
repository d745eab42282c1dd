"""What tracemill-report records by itself: frame pointers where the program keeps them, the stack where it does not.

The programs are built here, and the chain of each is known. Needs a compiler, perf, leave to record, and
tracemill-prepare; skipped where one of them is missing.
"""

import json
import os
import platform
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

REPORT = os.environ["TRACEMILL_REPORT"]
COMPILER = os.environ.get("CXX", "c++")
CHAIN = ["main", "outer", "middle", "inner"]
# Each function does something behind its call, so that the call is not the last thing it does.
PROGRAM = """
#include <time.h>
volatile unsigned long sum;
__attribute__((noinline)) unsigned long inner(unsigned long n) {
  unsigned char space[64];
  for (unsigned long i = 0; i < n; ++i) { space[(i * n) % 64] = i; sum += space[i % 64]; }
  return sum;
}
__attribute__((noinline)) unsigned long middle(unsigned long n) { return inner(n) + sum; }
__attribute__((noinline)) unsigned long outer(unsigned long n) { return middle(n) * 3 + sum; }
int main(void) {
  struct timespec now, end;
  clock_gettime(CLOCK_MONOTONIC, &end);
  end.tv_sec += 1;
  do { sum += outer(1000000); clock_gettime(CLOCK_MONOTONIC, &now); }
  while (now.tv_sec < end.tv_sec || (now.tv_sec == end.tv_sec && now.tv_nsec < end.tv_nsec));
  return 0;
}
"""


def skip_reason():
    if platform.machine() != "x86_64":
        return "the choice is looked at on x86-64"
    for tool in ("perf", COMPILER):
        if not shutil.which(tool):
            return f"{tool} is not there"
    if not Path(REPORT).with_name("tracemill-prepare").exists():
        return "tracemill-prepare is not there"
    probe = ["perf", "record", "-q", "-e", "cpu-clock", "-o", "/dev/null", "true"]
    return None if subprocess.run(probe, capture_output=True).returncode == 0 else "perf may not record"


@unittest.skipIf(skip_reason(), skip_reason())
class RecordingTest(unittest.TestCase):
    def setUp(self):
        self.folder = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)

    def check(self, chosen, *options):
        source, program = self.folder / "work.cpp", self.folder / "work"
        source.write_text(PROGRAM)
        subprocess.run([COMPILER, "-O2", *options, "-o", str(program), str(source)], check=True)
        command = [REPORT, "-q", "-f", "folded", "--", str(program)]
        run = subprocess.run(command, cwd=self.folder, capture_output=True, text=True)
        self.assertEqual(run.returncode, 0, run.stderr)
        quality = json.loads((self.folder / "perf.data.prepared/quality.json").read_text())
        words = quality["recording"]["commandLine"]
        self.assertEqual(words[words.index("--call-graph") + 1].split(",")[0], chosen)
        whole = found = 0
        for line in (self.folder / "perf.data.folded").read_text().splitlines():
            chain, _, count = line.rpartition(" ")
            names = [name.partition("(")[0] for name in chain.split(";")]
            if "inner" in names:
                whole += int(count)
                found += int(count) if names[names.index("inner") - 3 : names.index("inner") + 1] == CHAIN else 0
        self.assertGreater(whole, 100)
        self.assertGreaterEqual(found, 0.98 * whole)

    def test_frame_pointers(self):
        self.check("fp", "-fno-omit-frame-pointer")

    def test_no_frame_pointers(self):
        self.check("dwarf", "-fomit-frame-pointer")

    def test_frame_pointers_and_marked_entries(self):
        self.check("fp", "-fno-omit-frame-pointer", "-fcf-protection")

    def test_no_frame_pointers_and_marked_entries(self):
        self.check("dwarf", "-fomit-frame-pointer", "-fcf-protection")


if __name__ == "__main__":
    unittest.main()
