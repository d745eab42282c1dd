#!/usr/bin/python3
"""Checks what clang-format cannot: braces and the order of comparisons in tests.

    check_style.py ROOT FOLDER...

A statement under if, else, for or while stands in braces. EXPECT_EQ and its like name the value that
was found first and the expected one second. Prints one line for each place that is otherwise and ends
with status 1 if there is any.
"""

import argparse
import re
import sys
from pathlib import Path

SUFFIXES = {".h", ".cpp"}
# What must not be taken for code: comments, and the inside of texts and characters.
NO_CODE = re.compile(
    r"""//[^\n]*|/\*.*?\*/|R"([^(]*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|(?<![0-9a-fA-F])'(?:\\.|[^'\\\n])+'""",
    re.DOTALL,
)
STATEMENT = re.compile(r"(?<![#\w])(?:(if|for|while)(?:\s+constexpr)?\s*(?=\()|else\b)")
COMPARISON = re.compile(r"\b(?:EXPECT|ASSERT)_(?:EQ|NE)\(\s*")
LITERAL = re.compile(r"""(?:""|''|-?[0-9][\w.']*|nullptr|true|false)\s*,""")


def code_only(text):
    """The text with its lines as they are, but nothing inside comments and quotes."""

    def blank(match):
        found = match.group()
        quote = "" if found.startswith("/") else found[-1] * 2
        return quote + "\n" * found.count("\n")

    return NO_CODE.sub(blank, text)


def behind_parentheses(code, start):
    """Where what follows the parentheses at `start` begins."""
    depth = 0
    for at in range(start, len(code)):
        depth += {"(": 1, ")": -1}.get(code[at], 0)
        if depth == 0:
            return at + 1
    return len(code)


def find_violations(text):
    """The number and kind of each line that is not as it should be, in order."""
    code = code_only(text)
    found = []
    for match in STATEMENT.finditer(code):
        at = behind_parentheses(code, match.end()) if match.group(1) else match.end()
        rest = code[at:].lstrip()
        is_end_of_do = match.group(1) == "while" and code[: match.start()].endswith("} ")
        is_chain = match.group(1) is None and re.match(r"if\b", rest)
        if not (rest.startswith("{") or is_end_of_do or is_chain):
            found.append((match.start(), "a statement without braces"))
    for match in COMPARISON.finditer(code):
        if LITERAL.match(code, match.end()):
            found.append((match.start(), "the expected value stands first"))
    return [(code.count("\n", 0, at) + 1, kind) for at, kind in sorted(found)]


def main(arguments):
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("root", type=Path, help="the root of the project")
    parser.add_argument("folders", nargs="+", help="what to look at, from there")
    options = parser.parse_args(arguments)
    paths = sorted(
        path
        for folder in options.folders
        for path in (options.root / folder).rglob("*")
        if path.suffix in SUFFIXES
    )
    if not paths:
        print(f"No sources found under {options.root}.", file=sys.stderr)
        return 1
    count = 0
    for path in paths:
        text = path.read_text(encoding="utf-8", errors="replace")
        for line, kind in find_violations(text):
            print(f"{path.relative_to(options.root).as_posix()}:{line}: {kind}.", file=sys.stderr)
            count += 1
    print(f"{len(paths)} files, {count} places in another style.")
    return 1 if count else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
