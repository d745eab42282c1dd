"""Tests of examples/summarize.py on a small document."""

import contextlib
import io
import json
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "examples"))

import summarize  # noqa: E402


def document(sample_map_keys):
    functions = [[5, "waves::step(int)", 0, 1, []], [6, "main", 9, 1, []]]
    return {
        "samples": {
            "descriptions": {"key": "", "mapkey": ""},
            "data": [[n + 1, key] for n, key in enumerate(sample_map_keys)],
        },
        "functions": {
            "descriptions": {"key": "", "name": "", "startAddress": "", "sectionSize": "", "maps": ""},
            "data": functions,
        },
    }


class SummarizeTest(unittest.TestCase):
    def test_functions_come_by_their_share_and_maps_do_not(self):
        hottest = summarize.hottest_functions(document([6, 5, 5, 3]), 5)
        self.assertEqual(hottest, [("waves::step(int)", 0.5), ("main", 0.25)])

    def test_no_more_than_asked_for(self):
        self.assertEqual(len(summarize.hottest_functions(document([6, 5, 5]), 1)), 1)

    def test_no_samples_no_functions(self):
        self.assertEqual(summarize.hottest_functions(document([]), 5), [])

    def test_it_prints_two_lines(self):
        with tempfile.NamedTemporaryFile("w", suffix=".json") as file:
            json.dump(document([6, 5, 5, 3]), file)
            file.flush()
            output = io.StringIO()
            with contextlib.redirect_stdout(output):
                self.assertEqual(summarize.main([file.name]), 0)
        self.assertEqual(
            output.getvalue(),
            "It holds 4 samples, 2 functions; each table says what its columns are.\n"
            "Look first at where most samples fell: waves::step 50.0%, main 25.0%.\n",
        )


if __name__ == "__main__":
    unittest.main()
