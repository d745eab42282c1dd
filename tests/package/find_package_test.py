"""Installs the libraries below a folder of its own and builds the example reader on them, as
another project would: with nothing of this project but what was installed.

    find_package_test.py SOURCE BUILD CMAKE GENERATOR COMPILER flags=FLAGS BUILD_TYPE
"""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

# Every sample of the demo's recording, by thread: as `perf script -F tid` counts them.
EXPECTED = {"9519": 1, "9520": 586, "9521": 623, "9522": 587, "9523": 586}


def run(*command, **options):
    done = subprocess.run(
        [str(word) for word in command],
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        check=False,
        **options,
    )
    if done.returncode != 0:
        sys.exit(f"find_package_test: this failed: {' '.join(map(str, command))}\n{done.stdout}")
    return done.stdout


def check_headers(prefix):
    """Whoever includes them gets no macros but the project's own, and nothing that is for its tests."""
    headers = sorted(prefix.rglob("*.h"))
    if not headers:
        sys.exit("find_package_test: no headers were installed")
    for header in headers:
        for line in header.read_text().splitlines():
            macro = re.match(r"\s*#\s*define\s+(\w+)", line)
            if macro and not re.match("KESTREL_|TRACEMILL_", macro[1]):
                sys.exit(f"find_package_test: {header.name} defines {macro[1]}")
            if "ForTest" in line:
                sys.exit(f"find_package_test: {header.name} has {line.strip()}")


LINKS_ALL = """cmake_minimum_required(VERSION 3.25)
project(whole LANGUAGES CXX)
find_package(tracemill REQUIRED)
add_executable(whole main.cpp)
target_link_libraries(whole PRIVATE {libraries})
# A library that others bring, too, comes twice.
target_link_options(whole PRIVATE -Wl,--allow-multiple-definition)
set_target_properties(whole PROPERTIES LINK_LIBRARY_OVERRIDE "WHOLE_ARCHIVE,{overridden}")
"""


def check_libraries(prefix, folder, configure):
    """Every library has all that it needs: each object of it is linked. And there are no headers of others."""
    targets = next(prefix.rglob("tracemill-targets.cmake")).read_text()
    names = re.findall(r"add_library\(tracemill::(\w+) STATIC", targets)
    if not names:
        sys.exit("find_package_test: no libraries were installed")
    folder.mkdir()
    (folder / "main.cpp").write_text("int main() {}\n")
    libraries = [f"tracemill::{name}" for name in names]
    text = LINKS_ALL.format(libraries=" ".join(libraries), overridden=",".join(libraries))
    (folder / "CMakeLists.txt").write_text(text)
    run(*configure, "-S", folder, "-B", folder / "build")
    run(configure[0], "--build", folder / "build")
    headers = {path.parts[0] for path in ((path.relative_to(prefix / "include" / "tracemill"))
                                          for path in prefix.rglob("*.h"))}
    without = headers - {name.removeprefix("tracemill_") for name in names}
    if without:
        sys.exit(f"find_package_test: headers without their library: {sorted(without)}")


def main(arguments):
    source, build, cmake, generator, compiler, flags, build_type = arguments
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        run(cmake, "--install", build, "--component", "development", "--prefix", folder / "here")
        # Installed packages may be moved.
        (folder / "here").rename(folder / "prefix")
        check_headers(folder / "prefix")
        shutil.copytree(Path(source) / "examples" / "reader", folder / "reader")
        configure = [cmake, "-S", folder / "reader", "-B", folder / "build", "-G", generator]
        configure += [
            f"-DCMAKE_PREFIX_PATH={folder / 'prefix'}",
            f"-DCMAKE_BUILD_TYPE={build_type}",
        ]
        configure += [
            f"-DCMAKE_CXX_COMPILER={compiler}",
            f"-DCMAKE_CXX_FLAGS={flags.removeprefix('flags=')} -Wall -Wextra -Werror",
        ]
        run(*configure)
        run(cmake, "--build", folder / "build")
        check_libraries(folder / "prefix", folder / "all", [cmake, *configure[5:]])
        recording = Path(source) / "examples" / "demo" / "demo.perf.data"
        counts = json.loads(run(folder / "build" / "reader", recording))
        if counts != EXPECTED:
            sys.exit(f"find_package_test: the reader counted {counts}")
        newer = folder / "reader" / "CMakeLists.txt"
        newer.write_text(newer.read_text().replace("tracemill 1.0", "tracemill 2.0"))
        configure[4] = folder / "newer"
        refused = subprocess.run(
            [str(word) for word in configure], capture_output=True, text=True, check=False
        )
        if refused.returncode == 0 or "2.0" not in refused.stderr:
            sys.exit("find_package_test: a version that is not there was found")
    return 0


if __name__ == "__main__":
    os.environ.pop("DESTDIR", None)
    sys.exit(main(sys.argv[1:]))
