"""Makes the Debian packages and tries that of the program: unpacked and configured by dpkg under a
root of its own, run from there, and removed again.

    debian_test.py SOURCE BUILD CPACK BUILD_TYPE companions|alone
"""

import gzip
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

PROGRAM = "tracemill"
LIBRARIES = "libtracemill-dev"
MADE_FROM_RELEASE = "packages for users are made from the release build"
NEEDED = {"dpkg-shlibdeps": "dpkg-dev", "dpkg": "dpkg", "file": "file"}
FILES = """
usr/bin/tracemill
usr/share/bash-completion/completions/tracemill
usr/share/doc/tracemill/README.md
usr/share/doc/tracemill/changelog.gz
usr/share/doc/tracemill/copyright
usr/share/doc/tracemill/docs/output-format.md
usr/share/doc/tracemill/examples/tracemill.conf
usr/share/doc/tracemill/examples/plots/top_functions.py
usr/share/man/man1/tracemill.1.gz
usr/share/tracemill/tracemill.schema.json
""".split()
FILES_OF_COMPANIONS = """
usr/bin/tracemill-prepare
usr/share/bash-completion/completions/tracemill-prepare
usr/share/man/man1/tracemill-prepare.1.gz
usr/share/tracemill/tracemill-quality.schema.json
""".split()
LIBRARIES_OF_COMPANIONS = ["libelf1", "libdw1", "libzstd1", "zlib1g", "liblzma5", "libarchive13"]


def run(*command, status=0, **options):
    command = [str(word) for word in command]
    environment = dict(
        os.environ, LC_ALL="C.UTF-8", TZ="UTC", PATH=os.environ["PATH"] + ":/usr/sbin:/sbin"
    )
    done = subprocess.run(
        command, capture_output=True, text=True, env=environment, check=False, **options
    )
    if done.returncode != status:
        raise AssertionError(
            f"{' '.join(command)}: status {done.returncode}\n{done.stdout}{done.stderr}"
        )
    return done.stdout


class DebianPackagesTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        run(
            cls.cpack,
            "-G",
            "DEB",
            "--config",
            cls.build / "CPackConfig.cmake",
            "-B",
            cls.folder,
            cwd=cls.folder,
        )
        cls.packages = {path.name.split("_")[0]: path for path in cls.folder.glob("*.deb")}

    def field(self, package, name):
        return run("dpkg-deb", "--field", self.packages[package], name).strip()

    def test_there_is_one_for_users_and_one_for_programmers(self):
        self.assertEqual(set(self.packages), {PROGRAM, LIBRARIES})

    def test_they_are_for_this_machine(self):
        machine = run("dpkg", "--print-architecture").strip()
        for name in self.packages:
            self.assertEqual(self.field(name, "Architecture"), machine)

    def test_the_program_depends_on_its_shared_libraries_and_recommends_the_lister(self):
        self.assertRegex(self.field(PROGRAM, "Depends"), r"libc6 \(>= 2\.\d+\)")
        self.assertIn("libstdc++6", self.field(PROGRAM, "Depends"))
        self.assertEqual(self.field(PROGRAM, "Recommends"), "binutils")
        for library in LIBRARIES_OF_COMPANIONS if self.has_companions else []:
            self.assertRegex(self.field(PROGRAM, "Depends"), rf"\b{library}\b")

    def test_the_libraries_depend_on_the_headers_that_theirs_include(self):
        self.assertEqual(self.field(LIBRARIES, "Depends"), "libboost-dev")

    def test_only_the_libraries_bring_headers(self):
        listed = {name: run("dpkg-deb", "--contents", path) for name, path in self.packages.items()}
        self.assertNotRegex(listed[PROGRAM], r"\.(h|a|cmake)\n")
        for name in (
            "perfevents/PerfRecordFileReader.h",
            "kestrel/json/JSONData.h",
            "app/PerfSettings.h",
        ):
            self.assertIn(f" ./usr/include/tracemill/{name}\n", listed[LIBRARIES])

    def test_nothing_tells_where_it_was_built(self):
        if self.build_type != "Release":  # the sanitizers name the sources, generated ones too
            self.skipTest(MADE_FROM_RELEASE)
        for name, path in self.packages.items():
            run("dpkg-deb", "--extract", path, self.folder / name)
            for file in (self.folder / name).rglob("*"):
                if file.is_file() and file.suffix != ".a":  # archives keep their debug information
                    self.assertNotIn(str(self.build).encode(), file.read_bytes(), file)

    @unittest.skipUnless(shutil.which("lintian"), "lintian is not installed")
    def test_the_distributions_own_check_finds_no_error(self):
        if self.build_type != "Release":  # it would look through all debug information, for a minute
            self.skipTest(MADE_FROM_RELEASE)
        options = ["--no-cfg", "--allow-root", "--fail-on", "error", "--display-level", "error"]
        run("lintian", *options, *self.packages.values())

    def test_the_changelog_is_of_this_version_and_by_the_maintainer(self):
        for name, path in self.packages.items():
            folder = self.folder / "texts" / name
            folder.parent.mkdir(exist_ok=True)
            run("dpkg-deb", "--extract", path, folder)
            changelog = folder / "usr/share/doc" / name / "changelog.gz"
            text = gzip.decompress(changelog.read_bytes()).decode()
            self.assertTrue(text.startswith(f"tracemill ({self.field(name, 'Version')}) "), text)
            self.assertIn(f" -- {self.field(name, 'Maintainer')}  ", text)

    def test_it_installs_runs_and_leaves_nothing(self):
        root = self.folder / "root"
        (root / "var/lib/dpkg").mkdir(parents=True)
        (root / "var/lib/dpkg/status").touch()
        # Nothing else is installed under this root, and it may belong to somebody else than root.
        dpkg = [
            "dpkg",
            f"--root={root}",
            "--force-depends",
            "--force-not-root",
            f"--log={self.folder}/dpkg.log",
        ]
        if os.geteuid() != 0:
            dpkg.insert(0, "fakeroot")
        run(*dpkg, "--unpack", self.packages[PROGRAM])
        run(*dpkg, "--configure", PROGRAM)
        status = run(*dpkg[:-3], "--status", PROGRAM)
        self.assertIn("Status: install ok installed", status)
        for name in FILES + (FILES_OF_COMPANIONS if self.has_companions else []):
            self.assertTrue((root / name).is_file(), name)
        self._run_program(root / "usr/bin/tracemill")
        if self.has_companions:
            self._run_companions(root / "usr/bin")
        run(*dpkg, "--remove", PROGRAM)
        left = [path for path in (root / "usr").rglob("*") if path.is_file()]
        self.assertEqual(left, [])

    def _run_program(self, program):
        self.assertIn(" USAGE tracemill [options]\n", run(program, "-h", status=1))
        work = self.folder / "work"
        work.mkdir()
        (work / "tracemill.conf").write_text('{"log": {"adapter": {"type": "file"}}}')
        recording = self.source / "examples/demo/demo.perf.data"
        document = json.loads(run(program, "-i", recording, cwd=work))
        self.assertEqual(len(document["samples"]["data"]), 2383)

    def _run_companions(self, programs):
        recording = self.source / "examples/demo/demo.perf.data"
        files = ["--sysroot", self.source / "examples/demo/sysroot", "--no-cache"]
        prepared = self.folder / "work/prepared"
        run(programs / "tracemill-prepare", "-q", *files, "-o", prepared, recording)
        document = json.loads(run(programs / "tracemill", "-c", prepared / "tracemill.conf"))
        self.assertEqual(len(document["samples"]["data"]), 2383)
        self.assertIn("waves::stepRow", [row[1] for row in document["functions"]["data"]])


def main(arguments):
    source, build, DebianPackagesTest.cpack, DebianPackagesTest.build_type, extent = arguments
    DebianPackagesTest.has_companions = extent == "companions"
    DebianPackagesTest.source, DebianPackagesTest.build = Path(source), Path(build)
    needed = dict(NEEDED) if os.geteuid() == 0 else dict(NEEDED, fakeroot="fakeroot")
    missing = [package for tool, package in needed.items() if shutil.which(tool) is None]
    if missing:
        return f"debian_test: tools are missing. On Debian: apt install {' '.join(missing)}"
    return 0 if unittest.main(argv=["debian_test"], exit=False).result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
