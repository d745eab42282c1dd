"""Tests of examples/demo/cut_kallsyms.py."""

import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "examples" / "demo"))

import cut_kallsyms  # noqa: E402

LINES = [
    "0000000000001000 A percpu",
    "ffff000000000100 T alias",
    "ffff000000000100 T _text",
    "ffff000000000100 T _stext",
    "ffff000000000200 T first",
    "ffff000000000280 D data_between",
    "ffff000000000300 t second",
    "ffff000000000300 T second_alias",
    "ffff000000000400 W third",
    "ffff000000000500 T fourth",
    "ffff000000000600 T _etext",
    "ffff000000000700 D data",
    "ffff000000000800 T initialisation",
    "ffff000000000900 t in_module\t[module]",
]


class CutKallsymsTest(unittest.TestCase):
    def cut(self, *addresses):
        cut = cut_kallsyms.cut_symbols(cut_kallsyms.read_symbols(LINES), addresses)
        return [name for _, name in cut.values()]

    def test_nothing_sampled_leaves_the_ends(self):
        self.assertEqual(self.cut(), ["_text", "_etext"])

    def test_a_function_is_kept_with_the_next_one(self):
        expected = ["_text", "first", "second_alias", "_etext"]
        self.assertEqual(self.cut(0xFFFF000000000200), expected)
        self.assertEqual(self.cut(0xFFFF0000000002FF), expected)

    def test_the_last_function_is_kept(self):
        self.assertEqual(self.cut(0xFFFF0000000005FF), ["_text", "fourth", "_etext"])

    def test_text_is_alone_at_its_address(self):
        symbols = cut_kallsyms.read_symbols(LINES)
        self.assertEqual(symbols[0xFFFF000000000100], ("T", "_text"))

    def test_addresses_outside_the_kernel_code_are_not_looked_for(self):
        self.assertEqual(self.cut(0x1000, 0xFFFF000000000080, 0xFFFF000000000800), ["_text", "_etext"])


if __name__ == "__main__":
    unittest.main()
