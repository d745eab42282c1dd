"""What the page shows of a recording made here, against perf report of the same recording.

Own and total shares of the thirty functions with the most, within 0.1 percentage points. Needs perf, leave
to record, and tracemill-prepare; skipped where one of them is missing.
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from collections import Counter
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

import document_numbers  # noqa: E402

REPORT = os.environ["TRACEMILL_REPORT"]
WORKLOAD = os.environ.get("WORKLOAD", REPORT)
POINTS = 0.1
LINE = re.compile(r"^\s*([\d.]+)%\s+(?:([\d.]+)%\s+)?\[([.k])\] (.*?)\s*$")


def skip_reason():
    for tool in (shutil.which("perf"), Path(REPORT).with_name("tracemill-prepare").exists()):
        if not tool:
            return "perf or tracemill-prepare is not there"
    probe = ["perf", "record", "-q", "-e", "cpu-clock", "-o", "/dev/null", "true"]
    return None if subprocess.run(probe, capture_output=True).returncode == 0 else "perf may not record"


def perf_shares(recording, *options):
    """First column of perf report by function, and how often it lists a function of that name."""
    command = ["perf", "report", "-i", recording, "--stdio", "-g", "none", "-s", "sym", "--no-inline", "-f", *options]
    text = subprocess.run(command, capture_output=True, text=True, check=True).stdout
    shares, places = Counter(), Counter()
    for line in text.splitlines():
        match = LINE.match(line)
        if match:
            shares[match.group(4)] += float(match.group(1))
            places[match.group(4)] += 1
    return shares, places


def plain(name):
    return re.sub(r"\s+", "", name)


@unittest.skipIf(skip_reason(), skip_reason())
class PerfNumbersTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.recording = cls.folder / "perf.data"
        document = cls.folder / "work.json"
        maker = [sys.executable, str(Path(__file__).with_name("make_document.py")), "--samples", "20000", str(document)]
        subprocess.run(maker, check=True)
        # The program itself is what is looked at: it has symbols, and is at hand.
        command = ["perf", "record", "-q", "-e", "cpu-clock", "-F", "2000", "-g", "-k", "mono", "--sample-cpu", "-o"]
        command += [str(cls.recording), "--", WORKLOAD, "-q", "-f", "folded", "-o", "/dev/null", str(document)]
        subprocess.run(command, check=True, capture_output=True)
        run = subprocess.run([REPORT, "-q", "--json", "--no-open", str(cls.recording)], capture_output=True, text=True)
        if run.returncode != 0:
            raise AssertionError(run.stderr)
        cls.numbers = document_numbers.numbers(document_numbers.Document(cls.folder / "perf.data.json"), {})

    def compare(self, place, *options):
        ours = Counter()
        for key, counts in self.numbers["functions"].items():
            ours[plain(key.rpartition("!")[0])] += 100 * counts[place] / self.numbers["count"]
        theirs, places = perf_shares(self.recording, *options)
        known = [
            (name, share)
            for name, share in theirs.most_common()
            # perf leaves parameters out: overloads that call each other would count twice in a sum of totals.
            # What has no name is an address to perf.
            if not re.fullmatch("(0x)?[0-9a-f]+", name) and (place == 0 or places[name] == 1)
        ][:30]
        self.assertGreater(len(known), 10)
        different = {name: (share, round(ours[plain(name)], 2)) for name, share in known if abs(ours[plain(name)] - share) > POINTS}
        self.assertEqual(different, {})

    def test_own_shares(self):
        self.compare(0, "--no-children")

    def test_total_shares(self):
        self.compare(1, "--children")


if __name__ == "__main__":
    unittest.main()
