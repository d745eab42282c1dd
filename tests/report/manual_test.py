"""The manual page, the completion and the help of tracemill-report name the same options."""

import os
import re
import shutil
import subprocess
import unittest
from pathlib import Path

SHARE = Path(__file__).resolve().parents[2] / "share"
REPORT = os.environ["TRACEMILL_REPORT"]


class ManualTest(unittest.TestCase):
    def setUp(self):
        run = subprocess.run([REPORT, "--help"], capture_output=True, text=True, check=True)
        self.assertEqual(run.stderr, "")
        self.options = set(re.findall(r"(?<![\w-])--[a-z-]+\b", run.stdout))
        self.assertGreater(len(self.options), 7)

    def test_the_manual_has_every_option(self):
        page = (SHARE / "tracemill-report.1").read_text()
        items = re.findall(r"^\.It (Fl .*)$", page, re.MULTILINE)
        named = {f"-{word}" for item in items for word in re.findall(r"(-[a-z-]+)", item) if len(word) > 2}
        self.assertEqual(named, self.options)

    def test_the_completion_has_every_option(self):
        text = (SHARE / "tracemill-report.bash-completion").read_text()
        words = set(re.findall(r"(?<![\w-])--[a-z-]+\b", text.split("case $current", 1)[1]))
        self.assertEqual(words, self.options)

    def test_the_manual_is_well_formed(self):
        if shutil.which("mandoc") is None:
            self.skipTest("mandoc is not installed")
        command = ["mandoc", "-T", "lint", "-W", "warning", str(SHARE / "tracemill-report.1")]
        text = subprocess.run(command, capture_output=True, text=True).stdout
        found = [line for line in text.splitlines() if "mandoc.db" not in line and "referenced manual" not in line]
        self.assertEqual(found, [])


if __name__ == "__main__":
    unittest.main()
