"""Holds the manual page, the bash completion, docs/configuration.md and the program together.

    manual_test.py TRACEMILL
"""

import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
MANUAL = ROOT / "share" / "tracemill.1"
COMPLETION = ROOT / "share" / "tracemill.bash-completion"
CONFIGURATION = ROOT / "docs" / "configuration.md"
# What mandoc says of the machine, and not of the page.
MACHINE = ("mandoc.db", "referenced manual not found")


def output_of(*command):
    return subprocess.run(
        command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False
    ).stdout


def section(name):
    source = MANUAL.read_text(encoding="utf-8")
    return re.search(rf"^\.Sh {name}\n(.*?)(?=^\.Sh |\Z)", source, re.MULTILINE | re.DOTALL).group(
        1
    )


def complete(*words):
    """What the completion offers for the last of the words."""
    script = """
      compopt() { :; }  # knows completions that bash itself started only
      source "$0"
      COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
      _tracemill
      printf '%s\\n' "${COMPREPLY[@]}"
    """
    command = ["bash", "-c", script, COMPLETION, *words]
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout.split()


class ManualTest(unittest.TestCase):
    def test_it_has_no_mistake(self):
        lines = output_of("mandoc", "-Tlint", "-Wstyle", MANUAL).splitlines()
        self.assertEqual([line for line in lines if not any(word in line for word in MACHINE)], [])

    def test_its_options_are_those_of_the_usage_text(self):
        usage = set(re.findall(r"^ +(-\w) ", output_of(self.tracemill, "-h"), re.MULTILINE))
        self.assertEqual(len(usage), 10)
        described = re.findall(r"^\.It Fl (\w)", section("DESCRIPTION"), re.MULTILINE)
        self.assertEqual({f"-{letter}" for letter in described}, usage)
        self.assertEqual(len(described), len(usage))
        summary = re.findall(r"^\.Op Fl (\w+)", section("SYNOPSIS"), re.MULTILINE)
        self.assertEqual({f"-{letter}" for letter in "".join(summary)}, usage)
        self.assertEqual(set(complete("tracemill", "-")), usage)

    def test_its_keys_are_those_of_the_configuration(self):
        table = CONFIGURATION.read_text(encoding="utf-8")
        keys = [key.split(".")[0] for key in re.findall(r"^\| `([\w.]+)`", table, re.MULTILINE)]
        described = " , ".join(
            re.findall(r"^\.It Li (.*)", section("CONFIGURATION"), re.MULTILINE)
        ).split(" , ")
        self.assertEqual(sorted(described), sorted(set(keys)))

    def test_its_defaults_are_those_of_the_configuration(self):
        table = dict(
            re.findall(
                r"^\| `(\w+)` \| \w+ \| `?([^ `|]+)", CONFIGURATION.read_text(), re.MULTILINE
            )
        )
        entries = re.findall(
            r"^\.It Li (\w+)\n(.*?)(?=^\.It|^\.El)",
            section("CONFIGURATION"),
            re.MULTILINE | re.DOTALL,
        )
        compared = 0
        for key, text in entries:
            default = re.search(r"^\.Pq (?:Pa )?(\S+) ?\.?$", text, re.MULTILINE)
            if default:
                compared += 1
                self.assertEqual(default.group(1), table[key], key)
        self.assertEqual(compared, 9)

    def test_it_says_what_the_program_says(self):
        messages = re.findall(r"^\.It (\w.*)", section("DIAGNOSTICS"), re.MULTILINE)
        self.assertEqual(len(messages), 4)
        sources = "".join(
            path.read_text()
            for folder in ("app", "perfevents", "symbols")
            for path in (ROOT / folder).glob("*.cpp")
        )
        for message in messages:
            self.assertIn(message.split(" '")[0].split(". ...")[0], sources)


class CompletionTest(unittest.TestCase):
    def test_files_are_offered_where_a_file_is_due(self):
        with tempfile.TemporaryDirectory() as folder:
            (Path(folder) / "perf.data").touch()
            for option in ("-c", "-i", "-o"):
                self.assertEqual(
                    complete("tracemill", option, f"{folder}/pe"), [f"{folder}/perf.data"]
                )

    def test_nothing_is_offered_for_numbers(self):
        for option in ("-s", "-d", "-A", "-B", "-C"):
            self.assertEqual(complete("tracemill", option, ""), [])

    def test_options_are_completed_after_an_argument(self):
        self.assertEqual(complete("tracemill", "-i", "perf.data", "-o"), ["-o"])


def main(arguments):
    if len(arguments) != 1:
        print(__doc__)
        return 1
    if shutil.which("mandoc") is None:
        return "manual_test: mandoc is missing. On Debian: apt install mandoc"
    ManualTest.tracemill = Path(arguments[0]).resolve()
    return 0 if unittest.main(argv=["manual_test"], exit=False).result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
