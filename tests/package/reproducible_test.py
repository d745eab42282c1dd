"""The same sources give the same bytes, wherever and whenever they are built: SOURCE_DATE_EPOCH says what time the help
text shows and the packages carry.

    reproducible_test.py SOURCE BUILD CPACK COMPILER
"""

import hashlib
import os
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

# 1 day, 1 hour, 1 minute and 1 second after the beginning of 1970.
EPOCH = str(86400 + 3600 + 60 + 1)
SHOWN = '"Jan  2 1970" " " "01:01:01"'


def run(*command, **options):
    environment = dict(os.environ, SOURCE_DATE_EPOCH=EPOCH, TZ="Asia/Tokyo")
    done = subprocess.run(
        [str(word) for word in command],
        capture_output=True,
        text=True,
        env=environment,
        check=False,
        **options,
    )
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, command))}:\n{done.stdout}{done.stderr}")
    return done.stdout


class ReproducibleTest(unittest.TestCase):
    def test_the_help_text_shows_the_time_that_counts_as_the_builds(self):
        version = run(self.compiler, "--version")
        if "clang version 14" in version:
            self.skipTest("clang knows SOURCE_DATE_EPOCH from version 16 on")
        options = ["-std=c++20", "-E", "-P", "-I", self.source]
        text = run(self.compiler, *options, self.source / "app" / "Options.cpp")
        built = text[text.index("Built ") :]
        self.assertIn(SHOWN, re.sub(r"\s*<<\s*", " ", built[:80].replace("\n", " ")))

    def test_packing_twice_gives_the_same_packages(self):
        sums = [self._pack(), self._pack()]
        self.assertEqual(len(sums[0]), 2)
        self.assertEqual(sums[0], sums[1])

    def _pack(self):
        with tempfile.TemporaryDirectory() as folder:
            config = self.build / "CPackConfig.cmake"
            run(self.cpack, "-G", "DEB", "--config", config, "-B", folder, cwd=folder)
            packages = sorted(Path(folder).glob("*.deb"))
            return {path.name: hashlib.sha256(path.read_bytes()).hexdigest() for path in packages}


def main(arguments):
    source, build, ReproducibleTest.cpack, ReproducibleTest.compiler = arguments
    ReproducibleTest.source, ReproducibleTest.build = Path(source), Path(build)
    program = unittest.main(argv=["reproducible_test"], exit=False)
    return 0 if program.result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
