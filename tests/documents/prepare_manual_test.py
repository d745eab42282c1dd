"""Holds the help text of tracemill-prepare, its manual page and its completion together.

    prepare_manual_test.py TRACEMILL_PREPARE
"""

import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
MANUAL = ROOT / "share" / "tracemill-prepare.1"
COMPLETION = ROOT / "share" / "tracemill-prepare.bash-completion"
SOURCE = ROOT / "prepare" / "Options.cpp"
# What mandoc says of the machine, and not of the page.
MACHINE = ("mandoc.db", "referenced manual not found")
WITH_FILES = ("--bundle", "--kallsyms", "--vmlinux")
WITH_FOLDERS = ("-o", "--output", "--sysroot", "--debug-dir")
WITH_WORDS = ("--event", "--window", "--max-frames", "--cache-size", "--listing-timeout")


def section(name):
    source = MANUAL.read_text(encoding="utf-8")
    return re.search(rf"^\.Sh {name}\n(.*?)(?=^\.Sh |\Z)", source, re.MULTILINE | re.DOTALL).group(1)


def options_of(lines):
    """The options that macros name: `Fl o , -output` is -o and --output."""
    options = set()
    for line in lines:
        for words in re.findall(r"Fl ((?:[\w-]+(?: , )?)+)", line):
            options |= {"-" + word for word in words.split(" , ")}
    return options


def complete(*words):
    """What the completion offers for the last of the words."""
    script = """
      compopt() { :; }  # knows completions that bash itself started only
      source "$0"
      COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
      _tracemill_prepare
      printf '%s\\n' "${COMPREPLY[@]}"
    """
    command = ["bash", "-c", script, COMPLETION, *words]
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout.split()


class OptionsTest(unittest.TestCase):
    def setUp(self):
        self.help = subprocess.run([self.program, "--help"], capture_output=True, text=True, check=True).stdout
        self.options = set(re.findall(r"(?:^ +|, )(--?[a-z][\w-]*)", self.help, re.MULTILINE))

    def test_the_help_names_those_that_are_understood(self):
        table = re.findall(r'^ +\{"([\w-]+)", \w+, nullptr, (.+)\},$', SOURCE.read_text(), re.MULTILINE)
        understood = {f"--{name}" for name, _ in table}
        understood |= {f"-{short[1]}" for _, short in table if short.startswith("'")}
        self.assertGreater(len(understood), 20)
        self.assertEqual(self.options, understood)

    def test_the_manual_describes_each_once(self):
        items = [line for line in section("DESCRIPTION").splitlines() if line.startswith(".It Fl ")]
        self.assertEqual(options_of(items), self.options)
        self.assertEqual(sum(len(line.split(" , ")) - line.count(" , Ns") for line in items), len(self.options))

    def test_the_manuals_summary_has_them_all(self):
        lines = [line for line in section("SYNOPSIS").splitlines() if line.startswith(".Op Fl ")]
        letters = lines.pop(0).split()[-1]
        self.assertEqual(options_of(lines) | {f"-{letter}" for letter in letters}, self.options)

    def test_the_completion_offers_them_all(self):
        self.assertEqual(set(complete("tracemill-prepare", "-")), self.options)

    def test_what_is_due_behind_an_option_is_what_it_takes(self):
        taking = set(re.findall(r"(--[\w-]+) (?=[A-Z])", self.help)) | {"-o"}
        self.assertEqual(taking, {*WITH_FILES, *WITH_FOLDERS, *WITH_WORDS})
        with tempfile.TemporaryDirectory() as folder:
            (Path(folder) / "perf.data").touch()
            (Path(folder) / "perf.folder").mkdir()
            both = {f"{folder}/perf.data", f"{folder}/perf.folder"}
            start = f"{folder}/pe"
            for option in WITH_FILES:
                self.assertEqual(set(complete("tracemill-prepare", option, start)), both)
            for option in WITH_FOLDERS:
                self.assertEqual(complete("tracemill-prepare", option, start), [f"{folder}/perf.folder"])
            for option in WITH_WORDS:
                self.assertEqual(complete("tracemill-prepare", option, start), [])
            # A recording may be a folder, and stand behind any option without a value.
            self.assertEqual(set(complete("tracemill-prepare", "-q", start)), both)

    def test_the_manuals_defaults_are_those_of_the_help(self):
        items = re.split(r"^\.It ", section("DESCRIPTION"), flags=re.MULTILINE)
        compared = 0
        # An entry of the help begins with an option, two or six blanks in.
        for entry in re.split(r"^ {2,6}(?=-)", self.help, flags=re.MULTILINE):
            found = re.search(r"\(default (\w+)\)", entry)
            if not found:
                continue
            option, default = re.search(r"--[\w-]+", entry).group(), found.group(1)
            item = next(item for item in items if re.match(rf".*Fl -?{option[1:]}\b", item.splitlines()[0]))
            self.assertIn(f".Pq {default}", item, option)
            compared += 1
        self.assertEqual(compared, 3)


class ManualTest(unittest.TestCase):
    def test_it_has_no_mistake(self):
        done = subprocess.run(["mandoc", "-Tlint", "-Wstyle", MANUAL], stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, check=False)
        lines = done.stdout.splitlines()
        self.assertEqual([line for line in lines if not any(word in line for word in MACHINE)], [])

    def test_every_exit_status_of_the_help_is_there(self):
        self.assertEqual(re.findall(r"^\.It (\d)", section("EXIT STATUS"), re.MULTILINE), ["0", "1", "2"])


def main(arguments):
    if len(arguments) != 1:
        print(__doc__)
        return 1
    if shutil.which("mandoc") is None:
        return "prepare_manual_test: mandoc is missing. On Debian: apt install mandoc"
    OptionsTest.program = Path(arguments[0]).resolve()
    return 0 if unittest.main(argv=["prepare_manual_test"], exit=False).result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
