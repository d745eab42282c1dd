"""Every case of a test program runs in a process of its own, and none is lost however it ends.

    cases_test.py PROGRAM
"""

import re
import subprocess
import sys
import unittest


class CasesTest(unittest.TestCase):
    def run_cases(self, pattern, status):
        with subprocess.Popen(
            [self.program, f"--gtest_filter={pattern}"], stdout=subprocess.PIPE, text=True
        ) as process:
            text, _ = process.communicate()
        self.assertEqual(process.returncode, status, text)
        return process.pid, text

    def test_each_case_ends_as_it_does(self):
        _, text = self.run_cases("CasesExample.*", 1)
        told = {name: word for word, name in re.findall(r"^(\w+) CasesExample\.(\w+) \(", text, re.M)}
        self.assertEqual(
            told,
            {
                "Passes": "passed",
                "PassesInAProcessOfItsOwn": "passed",
                "Fails": "FAILED",
                "IsKilled": "FAILED",
                "EndsTheProcess": "FAILED",
                "TakesTooLong": "FAILED",
                "IsSkipped": "skipped",
            },
        )
        self.assertIn("\ncases: 2 passed, 1 skipped, 4 failed\n", text)
        self.assertIn("as it is to", text)
        self.assertIn("with a reason", text)
        self.assertIn("ended by signal 9", text)
        self.assertIn("ended by signal 14", text)

    def test_parameters_are_cases(self):
        _, text = self.run_cases("Few/NumberedExample.*", 1)
        self.assertIn("FAILED Few/NumberedExample.IsOdd/1 ", text)
        self.assertIn("\ncases: 2 passed, 0 skipped, 1 failed\n", text)

    def test_several_patterns(self):
        _, text = self.run_cases("*.Pass*:*.IsSkipped:-*Own", 0)
        self.assertIn("\ncases: 1 passed, 1 skipped, 0 failed\n", text)

    def test_a_case_alone_runs_where_it_is_started(self):
        pid, text = self.run_cases("SingleExample.*", 0)
        self.assertIn(f"pid {pid}\n", text)
        self.assertIn("\ncases: 1 passed, 0 skipped, 0 failed\n", text)
        self.run_cases("CasesExample.Fails", 1)
        self.run_cases("CasesExample.IsSkipped", 77)

    def test_all_skipped_is_no_success(self):
        self.run_cases("SkippedExample.*", 77)

    def test_no_case_is_a_failure(self):
        _, text = self.run_cases("NoSuchExample.*", 1)
        self.assertIn("cases: 0 passed, 0 skipped, 0 failed\n", text)
        self.run_cases("*DISABLED_Example.*", 1)


if __name__ == "__main__":
    CasesTest.program = sys.argv[1]
    sys.exit(0 if unittest.main(argv=["cases_test"], exit=False).result.wasSuccessful() else 1)
