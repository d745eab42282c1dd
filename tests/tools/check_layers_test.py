"""Tests of tools/check_layers.py on small trees made for the purpose."""

import contextlib
import io
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))

import check_layers  # noqa: E402


class CheckLayersTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)

    def add(self, name, *includes):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text("".join(f"#include {include}\n" for include in includes))

    def violations(self):
        return check_layers.check_tree(self.root)[1]

    def status(self):
        with contextlib.redirect_stdout(io.StringIO()), contextlib.redirect_stderr(io.StringIO()):
            return check_layers.main([str(self.root)])

    def test_downward_includes_pass(self):
        self.add("kestrel/json/JSOM.h", '"kestrel/json/JSONData.h"', "<string>")
        self.add("kestrel/log/Logger.h", '"kestrel/json/JSOM.h"', '"kestrel/threads/Lock.h"')
        self.add("app/PerfSettings.h", '"kestrel/Singleton.h"')
        self.add("perfevents/PerfEventData.h", '"kestrel/ByteBuffer.h"')
        self.add("model/MMapStore.cpp", '"perfevents/X.h"', '"app/PerfSettings.h"', '"model/Y.h"')
        self.add("symbols/SymbolTable.h", '"model/MMapInfo.h"')
        self.add("output/SampleWriter.h", '"symbols/SymbolTable.h"')
        self.add("app/Driver.cpp", '"output/SampleWriter.h"', '"app/PerfSettings.h"')
        self.assertEqual(self.violations(), [])
        self.assertEqual(self.status(), 0)

    def test_upward_include_fails_and_is_named_with_its_line(self):
        self.add("model/MMapInfo.h", "<memory>", '"symbols/SymbolTable.h"')
        self.assertEqual(
            self.violations(),
            [
                'model/MMapInfo.h:2: "symbols/SymbolTable.h" belongs to symbols, '
                "which model may not include."
            ],
        )
        self.assertEqual(self.status(), 1)

    def test_each_layer_is_kept_from_the_next_one_up(self):
        self.add("kestrel/json/A.h", '"kestrel/B.h"')
        self.add("kestrel/A.h", '"app/PerfSettings.h"')
        self.add("app/PerfSettings.cpp", '"perfevents/A.h"')
        self.add("perfevents/A.h", '"model/A.h"')
        self.add("model/A.h", '"symbols/A.h"')
        self.add("symbols/A.h", '"output/A.h"')
        self.add("output/A.h", '"app/Driver.h"')
        self.assertEqual(len(self.violations()), 7)

    def test_the_record_reader_does_without_the_settings(self):
        self.add("perfevents/A.cpp", '"app/PerfSettings.h"')
        self.assertEqual(len(self.violations()), 1)

    def test_only_the_settings_of_app_may_be_included_from_below(self):
        self.add("model/A.h", '"app/PerfSettings.h"')
        self.add("model/B.h", '"app/Options.h"')
        self.assertEqual(len(self.violations()), 1)

    def test_angle_brackets_and_odd_spacing_do_not_hide_an_include(self):
        path = self.root / "kestrel/A.h"
        path.parent.mkdir(parents=True)
        path.write_text('  #  include   <model/A.h>\n#include"model/B.h"\n')
        self.assertEqual(len(self.violations()), 2)

    def test_quoted_includes_start_at_the_root(self):
        self.add("model/A.cpp", '"A.h"')
        self.add("model/B.cpp", '"../symbols/A.h"')
        self.add("model/C.cpp", '"tests/support/TempDir.h"')
        self.assertEqual(len(self.violations()), 3)

    def test_tests_may_include_everything(self):
        self.add("kestrel/A.h")
        self.add("tests/kestrel/ATest.cpp", '"app/Driver.h"', '"tests/support/TempDir.h"')
        self.assertEqual(self.violations(), [])

    def test_a_folder_without_sources_does_not_pass(self):
        self.assertEqual(self.status(), 1)


if __name__ == "__main__":
    unittest.main()
