"""Tests of tools/check_style.py on small sources made for the purpose."""

import contextlib
import io
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))

import check_style  # noqa: E402

NO_BRACES = "a statement without braces"
EXPECTED_FIRST = "the expected value stands first"


class CheckStyleTest(unittest.TestCase):
    def check(self, text, *expected):
        self.assertEqual(check_style.find_violations(text), list(expected), text)

    def test_statements_with_braces_pass(self):
        self.check("if (a(b)) {\n} else if (c) {\n} else {\n}\nfor (;;) {\n}\nwhile (d) {\n}\n")
        self.check("if constexpr (a) {\n}\ndo {\n} while (b);\n")
        self.check("if (const int a = b(); a > (c)) {\n}\n")

    def test_statements_without_braces_are_named_with_their_line(self):
        self.check("\nif (a) return;\n", (2, NO_BRACES))
        self.check("if (a)\n  return;\n", (1, NO_BRACES))
        self.check("for (int a : b) c(a);\n", (1, NO_BRACES))
        self.check("if constexpr (a) return;\n", (1, NO_BRACES))
        self.check("while (a());\n", (1, NO_BRACES))
        self.check("if (a) {\n}\nelse b();\n", (3, NO_BRACES))

    def test_what_is_no_code_is_passed_over(self):
        self.check("// if (a) return;\n/* while (b) c(); */\n#if (A)\n#else\n#endif\n")
        self.check('x = "if (a) return;";\nx = R"(if (a) "b" else c;)";\n')
        self.check("if (a == '(') {\n}\nx = 1'000'000;\nif (b) c();\n", (4, NO_BRACES))
        self.check("waitif(a);\nx.else_ = b;\n")

    def test_what_was_found_stands_first(self):
        self.check('EXPECT_EQ(found(1), 2);\nASSERT_NE(found, "a");\nEXPECT_EQ(1 + a, b);\n')
        self.check("EXPECT_EQ(1, found);\n", (1, EXPECTED_FIRST))
        self.check('\nASSERT_EQ(\n    "a, b", found);\n', (2, EXPECTED_FIRST))
        self.check("EXPECT_NE(nullptr, found);\n", (1, EXPECTED_FIRST))
        self.check("EXPECT_EQ(-0.5, found);\n", (1, EXPECTED_FIRST))
        self.check("EXPECT_EQ('a', found);\n", (1, EXPECTED_FIRST))

    def test_the_status_tells(self):
        with tempfile.TemporaryDirectory() as folder:
            source = Path(folder) / "model" / "A.cpp"
            source.parent.mkdir()
            for text, status in (("if (a) {\n}\n", 0), ("if (a) b();\n", 1)):
                source.write_text(text)
                self.assertEqual(self.status(folder, "model"), status)
            self.assertEqual(self.status(folder, "output"), 1)

    def status(self, *arguments):
        with contextlib.redirect_stdout(io.StringIO()), contextlib.redirect_stderr(io.StringIO()):
            return check_style.main(list(arguments))


if __name__ == "__main__":
    unittest.main()
