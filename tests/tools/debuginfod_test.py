"""Runs tracemill-prepare where programs or their symbols are on a debuginfod server: one that is written here, and
Debian's, both on the loopback. A server that never answers is what makes the listing of a file hang.

    debuginfod_test.py TRACEMILL_PREPARE STRIP OBJCOPY
"""

import http.server
import json
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import urllib.error
import urllib.request
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
DEMO = ROOT / "examples" / "demo"
PROGRAM = "opt/tracemill-demo/ripples"
BUILD_ID = "be6959bee03c4ac2b8acb64456d1a29d946a1a9f"  # of it, as readelf -n says
FUNCTION = "ripples::simulatePond"  # the most frequent one of it, as perf script says
DEADLINE = 60  # seconds


class Server:
    """Serves /buildid/ID/KIND from files, and remembers what was asked for. Of what is in `silent` no answer comes."""

    def __init__(self):
        self.files = {}
        self.silent = set()
        self.asked = []
        self.ports = {}  # by path: whoever asked last
        self.is_closed = threading.Event()
        server = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                server.asked.append(self.path)
                server.ports[self.path] = self.client_address[1]
                if self.path in server.silent:
                    server.is_closed.wait(DEADLINE)
                    return
                content = server.files.get(self.path)
                self.send_response(404 if content is None else 200)
                self.send_header("Content-Length", str(len(content or b"")))
                self.end_headers()
                self.wfile.write(content or b"")

            def log_message(self, *_):
                pass

        self.http = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.url = f"http://127.0.0.1:{self.http.server_address[1]}"
        threading.Thread(target=self.http.serve_forever, daemon=True).start()

    def close(self):
        self.is_closed.set()
        self.http.shutdown()
        self.http.server_close()


class DebuginfodTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.sysroot = self.folder / "sysroot"
        shutil.copytree(DEMO / "sysroot", self.sysroot)
        self.program = self.sysroot / PROGRAM
        self.whole = self.folder / "whole"
        shutil.copy(self.program, self.whole)
        self.debug = self.folder / "ripples.debug"
        self.run_tool(self.objcopy, "--only-keep-debug", self.whole, self.debug)

    def run_tool(self, *words):
        subprocess.run([str(word) for word in words], check=True, timeout=DEADLINE)

    def prepare_with(self, url, *options):
        """Names of all lists, and the report."""
        return self.result_of(self.start_with(url, *options))

    def start_with(self, url, *options):
        environment = {"HOME": str(self.folder), "TZ": "UTC", "PATH": os.environ["PATH"],
                       "DEBUGINFOD_CACHE_PATH": str(self.folder / "fetched"), "DEBUGINFOD_URLS": url,
                       "DEBUGINFOD_RETRY_LIMIT": "0"}
        words = [self.prepare, "-q", "--sysroot", self.sysroot, "--kallsyms", self.sysroot / "kallsyms.txt", *options,
                 "-o", self.folder / "prepared", DEMO / "demo.perf.data"]
        return subprocess.Popen([str(word) for word in words], env=environment)

    def result_of(self, running):
        try:
            self.assertEqual(0, running.wait(DEADLINE))
        finally:
            running.kill()
        output = self.folder / "prepared"
        lists = "".join(path.read_text(encoding="utf-8") for path in (output / "symbols").glob("*.list"))
        return lists, json.loads((output / "quality.json").read_text(encoding="utf-8"))

    def entry_of(self, quality):
        return next(entry for entry in quality["nameless"] if entry["name"] == "/" + PROGRAM)


class OwnServerTest(DebuginfodTest):
    def setUp(self):
        super().setUp()
        self.server = Server()
        self.addCleanup(self.server.close)

    def test_symbols_of_a_stripped_program(self):
        self.run_tool(self.strip, self.program)
        self.server.files[f"/buildid/{BUILD_ID}/debuginfo"] = self.debug.read_bytes()
        lists, quality = self.prepare_with(self.server.url)
        self.assertIn(FUNCTION, lists)
        self.assertIn("ripples.cpp", lists)  # by the line tables
        self.assertNotIn("/" + PROGRAM, [entry["name"] for entry in quality["nameless"]])

    def test_a_program_that_is_gone(self):
        self.program.unlink()
        self.server.files[f"/buildid/{BUILD_ID}/executable"] = self.whole.read_bytes()
        self.server.files[f"/buildid/{BUILD_ID}/debuginfo"] = self.debug.read_bytes()
        lists, _ = self.prepare_with(self.server.url)
        self.assertIn(FUNCTION, lists)

    def test_what_the_server_does_not_have_is_tried_again_next_time(self):
        self.run_tool(self.strip, self.program)
        lists, quality = self.prepare_with(self.server.url)
        self.assertNotIn(FUNCTION, lists)
        entry = self.entry_of(quality)
        self.assertEqual("stripped", entry["reason"])
        self.assertIn("debuginfod", entry["searched"])
        self.assertIn(BUILD_ID, entry["cure"])
        self.server.files[f"/buildid/{BUILD_ID}/debuginfo"] = self.debug.read_bytes()
        shutil.rmtree(self.folder / "fetched")  # the client keeps what is missing, too
        self.assertIn(FUNCTION, self.prepare_with(self.server.url)[0])

    def test_what_comes_from_it_may_be_anything(self):
        self.run_tool(self.strip, self.program)
        for content in (b"", b"\x7fELF", os.urandom(5000), b"\x1f\x8b" + bytes(100)):
            shutil.rmtree(self.folder / "fetched", ignore_errors=True)
            self.server.files[f"/buildid/{BUILD_ID}/debuginfo"] = content
            lists, _ = self.prepare_with(self.server.url, "--no-cache")
            self.assertNotIn(FUNCTION, lists)
            self.assertIn("waves::", lists)

    def test_a_server_that_is_not_there_costs_the_names_alone(self):
        self.run_tool(self.strip, self.program)
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            lists, _ = self.prepare_with(f"http://127.0.0.1:{free.getsockname()[1]}")
        self.assertIn("waves::", lists)

    def test_nobody_is_asked_where_files_are_whole(self):
        self.prepare_with(self.server.url)
        self.assertFalse([path for path in self.server.asked if BUILD_ID in path])


class FailingListingTest(DebuginfodTest):
    """The listing of the program hangs, waiting for its symbols; what becomes of that costs its names alone."""

    def setUp(self):
        super().setUp()
        self.server = Server()
        self.addCleanup(self.server.close)
        self.run_tool(self.strip, self.program)
        self.request = f"/buildid/{BUILD_ID}/debuginfo"
        self.server.silent.add(self.request)

    def has_names_of_the_library_alone(self, lists, quality):
        self.assertNotIn("ripples::", lists)
        self.assertIn("waves::stepRow", lists)
        entry = self.entry_of(quality)
        self.assertEqual(("failed", "could not be listed"), (entry["reason"], entry["text"]))
        self.assertIn("--listing-timeout", entry["cure"])
        self.assertGreater(entry["samples"], 0)
        failed = [other["name"] for other in quality["nameless"] if other["reason"] == "failed"]
        self.assertEqual(["/" + PROGRAM], failed)

    def hanging_child(self, running):
        """The process that waits for the answer: the one that has the other end of the connection."""
        end = time.monotonic() + DEADLINE
        while self.request not in self.server.ports:
            self.assertLess(time.monotonic(), end, "nobody asked")
            time.sleep(0.01)
        client = f"{self.server.ports[self.request]:04X}"
        sockets = [line.split() for line in Path("/proc/net/tcp").read_text(encoding="ascii").splitlines()]
        inode = next(words[9] for words in sockets if words[1] == f"0100007F:{client}")
        children = Path(f"/proc/{running.pid}/task/{running.pid}/children").read_text(encoding="ascii").split()
        for child in children:
            if f"socket:[{inode}]" in [os.readlink(file) for file in Path(f"/proc/{child}/fd").iterdir()]:
                return int(child)
        return self.fail(f"none of {children} has it")

    def test_one_that_hangs_is_given_up(self):
        begin = time.monotonic()
        self.has_names_of_the_library_alone(*self.prepare_with(self.server.url, "--listing-timeout", "1"))
        self.assertGreaterEqual(time.monotonic() - begin, 1)
        self.assertIn(self.request, self.server.asked)

    def test_one_that_is_killed(self):
        running = self.start_with(self.server.url, "--listing-timeout", str(2 * DEADLINE))
        os.kill(self.hanging_child(running), signal.SIGKILL)
        self.has_names_of_the_library_alone(*self.result_of(running))

    def test_what_failed_is_listed_the_next_time(self):
        self.prepare_with(self.server.url, "--listing-timeout", "1")
        self.server.silent.clear()
        self.server.files[self.request] = self.debug.read_bytes()
        self.assertIn(FUNCTION, self.prepare_with(self.server.url)[0])


@unittest.skipUnless(shutil.which("debuginfod"), "debuginfod is not installed")
class RealServerTest(DebuginfodTest):
    def test_symbols_of_a_stripped_program(self):
        self.run_tool(self.strip, self.program)
        shelf = self.folder / "shelf"
        shelf.mkdir()
        self.debug.rename(shelf / "ripples.debug")
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            port = free.getsockname()[1]
        words = ["debuginfod", "-F", "-p", str(port), "-d", self.folder / "database", "-t", "0", shelf]
        with (self.folder / "log").open("w", encoding="utf-8") as log:
            server = subprocess.Popen(list(map(str, words)), stdout=log, stderr=log, env={"PATH": os.environ["PATH"]})
        self.addCleanup(server.wait)
        self.addCleanup(server.kill)
        url = f"http://127.0.0.1:{port}"
        self.wait_for(f"{url}/buildid/{BUILD_ID}/debuginfo")
        self.assertIn(FUNCTION, self.prepare_with(url)[0])

    def wait_for(self, url):
        """Until its first scan is done."""
        end = time.monotonic() + DEADLINE
        while time.monotonic() < end:
            try:
                with urllib.request.urlopen(url, timeout=DEADLINE):
                    return
            except (urllib.error.URLError, ConnectionError):
                time.sleep(0.1)
        self.fail(f"{url} is not served: {(self.folder / 'log').read_text(encoding='utf-8')}")


if __name__ == "__main__":
    DebuginfodTest.prepare, DebuginfodTest.strip, DebuginfodTest.objcopy = sys.argv[1:4]
    unittest.main(argv=sys.argv[:1])
