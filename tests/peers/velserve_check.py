#!/usr/bin/env python3
"""Drives velserve with curl, wget, ab and clients that misbehave:
velserve_check.py VELSERVE [CASE]..."""
import concurrent.futures
import os
import pathlib
import re
import resource
import shutil
import signal
import socket
import subprocess
import time
import urllib.parse

from cases import LONG, Case, digest, main, need_program, poll, program, random_bytes
from cases import run_to_end, sanitized, wait_until

VELSERVE = program(1)
SANITIZED = sanitized(VELSERVE)
REQUEST_SECONDS = 10  # what the program allows for a request
WRITE_SECONDS = 10  # and for each wait until the peer takes more

ODD = "odd/&<>#?%25+;=@:,$!*()[]{}|\\^~`"
FILES = {
    "empty": b"",
    "byte": b"x",
    "small.txt": b"small\n",
    "page.html": b"<!DOCTYPE html><title>page</title>\n",
    "piece": random_bytes(64 * 1024),
    "piece and a byte": random_bytes(64 * 1024 + 1, 2),
    "large.bin": random_bytes(20 << 20, 3),
    "a b/c'd\"e/\u00e4\u20ac\U0001f600.txt": b"far down\n",
    ODD: b"odd\n",
    "with index/index.html": b"the index\n",
    "with index/other": b"the other\n",
}


class Served(Case):
    """velserve over a directory with FILES, on a free port."""

    def setUp(self):
        super().setUp()
        self.site = self.here / "site"
        for name, content in FILES.items():
            (self.site / name).parent.mkdir(parents=True, exist_ok=True)
            (self.site / name).write_bytes(content)
        (self.here / "secret").write_text("secret")
        (self.site / "inside").symlink_to("small.txt")
        (self.site / "outside").symlink_to(self.here / "secret")
        (self.site / "nowhere").symlink_to("no such file")
        self.log = self.here / "log"
        environment = dict(os.environ)
        # Freed memory is handed out again at once, so that memory that grows is memory that leaks.
        environment["ASAN_OPTIONS"] = "quarantine_size_mb=0:thread_local_quarantine_size_kb=0"
        self.process = self.start(
            [VELSERVE, "-p", "0", self.site],
            stdout=subprocess.PIPE,
            stderr=self.log.open("wb"),
            env=environment,
            text=True,
            preexec_fn=self.limit,
        )
        line = self.process.stdout.readline()
        self.base = re.search(r"http://127\.0\.0\.1:\d+", line)[0]
        self.port = int(self.base.rpartition(":")[2])

    def limit(self):
        """Called in the child before it becomes the program."""

    def tearDown(self):
        """However it was treated, it still answers, and ends when it is asked to."""
        if self.process.poll() is None:
            self.assertEqual(self.curl("/byte").body, b"x")
            self.process.terminate()
            self.assertEqual(poll(self.process, LONG), 0, self.log.read_text())
        self.assertNotIn("ERROR: ", self.log.read_text())

    def curl(self, target, *arguments, url=None):
        """What curl makes of a target: its exit code, and the status, headers and body it got."""
        curl = need_program("curl", "curl")
        process = subprocess.run(
            [curl, "--silent", "--include", "--path-as-is", "--globoff", "--max-time", str(LONG)]
            + list(arguments)
            + [url or self.base + target],
            capture_output=True,
            check=False,
        )
        head, _, process.body = process.stdout.partition(b"\r\n\r\n")
        lines = head.decode().split("\r\n")
        process.status = int(lines[0].split(" ")[1]) if process.stdout else 0
        process.headers = dict(line.lower().split(": ", 1) for line in lines[1:])
        return process

    def wget(self, target, *arguments):
        wget = need_program("wget", "wget")
        return subprocess.run(
            [wget, "--no-verbose", "--no-config", "--no-proxy", "--tries=1", f"--timeout={LONG}"]
            + list(arguments)
            + [self.base + target],
            capture_output=True,
            check=False,
            cwd=self.here,
        )

    def connect(self):
        connection = socket.create_connection(("127.0.0.1", self.port), LONG)
        self.addCleanup(connection.close)
        return connection

    def raw(self, request):
        """The answer to bytes that no ordinary client sends."""
        connection = self.connect()
        connection.sendall(request)
        answer = b""
        while piece := connection.recv(65536):
            answer += piece
        return answer

    def request_lines(self):
        """The lines of the log that tell of a request: those of the program itself."""
        return [line for line in self.log.read_text().splitlines() if " velserve:" in line]


class Fetch(Served):
    def test_curl_gets_every_file(self):
        for name, content in FILES.items():
            with self.subTest(name):
                answer = self.curl("/" + urllib.parse.quote(name))
                self.assertEqual(answer.status, 200)
                self.assertEqual(digest(answer.body), digest(content))
                self.assertEqual(answer.headers["content-length"], str(len(content)))

    def test_wget_gets_every_file(self):
        for name, content in FILES.items():
            with self.subTest(name):
                answer = self.wget("/" + urllib.parse.quote(name), "--output-document=-")
                self.assertEqual(answer.returncode, 0, answer.stderr)
                self.assertEqual(digest(answer.stdout), digest(content))

    def test_types(self):
        for name, expected in {
            "/page.html": "text/html; charset=utf-8",
            "/small.txt": "text/plain; charset=utf-8",
            "/large.bin": "application/octet-stream",
            "/": "text/html; charset=utf-8",
        }.items():
            self.assertEqual(self.curl(name).headers["content-type"], expected)

    def test_head(self):
        answer = self.curl("/large.bin", "--head")
        self.assertEqual(answer.status, 200)
        self.assertEqual(answer.headers["content-length"], str(20 << 20))
        self.assertEqual(answer.body, b"")
        self.assertEqual(self.wget("/large.bin", "--spider").returncode, 0)
        self.assertEqual(self.wget("/none", "--spider").returncode, 8)
        self.assertEqual(self.curl("/", "--head").status, 200)
        self.assertEqual(self.curl("/none", "--head").status, 404)

    def test_query_and_fragment_are_cut_off(self):
        self.assertEqual(self.curl("/small.txt?a=/../b").body, b"small\n")
        self.assertTrue(self.raw(b"GET /small.txt#x HTTP/1.0\r\n\r\n").endswith(b"small\n"))

    def test_listing(self):
        answer = self.curl("/odd/")
        self.assertEqual(answer.status, 200)
        page = answer.body.decode()
        self.assertIn(f'href="{urllib.parse.quote(ODD.removeprefix("odd/"))}"', page)
        self.assertIn("&amp;&lt;&gt;#?%25", page)
        self.assertIn('href="../"', page)
        self.assertNotIn('href="../"', self.curl("/").body.decode())
        self.assertNotIn("nowhere", self.curl("/").body.decode())
        self.assertNotIn("outside", self.curl("/").body.decode())
        self.assertIn("inside", self.curl("/").body.decode())

    def test_index(self):
        self.assertEqual(self.curl("/with%20index/").body, b"the index\n")

    def test_directory_without_slash(self):
        answer = self.curl("/a%20b?x")
        self.assertEqual((answer.status, answer.headers["location"]), (301, "/a%20b/"))
        self.assertEqual(self.curl("/with%20index", "--location").returncode, 0)
        self.assertEqual(self.wget("/with%20index", "-O-").stdout, b"the index\n")
        # What looks like another host must not become one.
        answer = self.curl("//a%20b")
        self.assertEqual((answer.status, answer.headers["location"]), (301, "/a%20b/"))

    def test_wget_mirrors_all(self):
        """Every link of every listing leads to the file it names."""
        (self.site / "with index" / "index.html").unlink()
        (self.site / "outside").unlink()
        # wget decodes the name of its copy once too often.
        (self.site / ODD).rename(self.site / ODD.replace("%25", "%"))
        answer = self.wget(
            "/",
            "--recursive",
            "--level=9",
            "--no-host-directories",
            "--directory-prefix=copy",
            "--restrict-file-names=nocontrol",
            "--execute=robots=off",
            "--default-page=the listing",
        )
        self.assertEqual(answer.returncode, 0, answer.stderr)
        copies = {
            str(path.relative_to(self.here / "copy")): digest(path.read_bytes())
            for path in (self.here / "copy").rglob("*")
            if path.is_file() and path.name != "the listing"
        }
        files = {
            str(path.relative_to(self.site)): digest(path.read_bytes())
            for path in self.site.rglob("*")
            if path.is_file()
        }
        self.assertEqual(copies, files)

    def test_several_at_once(self):
        with concurrent.futures.ThreadPoolExecutor(8) as pool:
            answers = list(pool.map(lambda _: self.curl("/large.bin"), range(16)))
        self.assertEqual({digest(answer.body) for answer in answers}, {digest(FILES["large.bin"])})

    def test_http11_client_sees_the_connection_end(self):
        answer = self.curl("/small.txt", "--http1.1", "--next", "--silent", self.base + "/byte")
        self.assertEqual(answer.returncode, 0)
        self.assertEqual(answer.headers["connection"], "close")

    def change_while_sent(self, size):
        """What arrives of the large file when it gets this size in the midst of it."""
        connection = self.connect()
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 65536)
        connection.sendall(b"GET /large.bin HTTP/1.0\r\n\r\n")
        received = connection.recv(1000)
        os.truncate(self.site / "large.bin", size)
        while piece := connection.recv(1 << 20):
            received += piece
        self.assertIn(b"Content-Length: %d\r\n" % (20 << 20), received)
        return received.partition(b"\r\n\r\n")[2]

    def test_file_that_grows(self):
        self.assertEqual(digest(self.change_while_sent(21 << 20)), digest(FILES["large.bin"]))

    def test_file_that_shrinks(self):
        """The client sees by the length that something is missing."""
        received = self.change_while_sent(1 << 20)
        self.assertLess(len(received), 20 << 20)
        self.assertTrue(FILES["large.bin"].startswith(received[: 1 << 20]))


class Refuse(Served):
    def test_not_found(self):
        for target in "/none", "/none/", "/small.txt/", "/small.txt/x", "/nowhere", "/a%20b/none":
            self.assertEqual(self.curl(target).status, 404, target)
        self.assertEqual(self.wget("/none").returncode, 8)
        self.assertEqual(self.curl("/none", "--fail").returncode, 22)

    def test_links(self):
        self.assertEqual(self.curl("/inside").body, b"small\n")
        self.assertEqual(self.curl("/outside").status, 403)
        (self.site / "up").symlink_to("..")
        self.assertEqual(self.curl("/up/").status, 403)
        self.assertEqual(self.curl("/up/secret").status, 403)
        (self.site / "with index" / "index.html").unlink()
        (self.site / "with index" / "index.html").symlink_to(self.here / "secret")
        answer = self.curl("/with%20index/")
        self.assertNotIn(b"secret", answer.body)

    def test_dots(self):
        for target in (
            "/../secret",
            "/%2e%2e/secret",
            "/%2E%2E%2Fsecret",
            "/..%2fsecret",
            "/a%20b/../../secret",
            "/a%20b/%2e%2e/%2e%2e/secret",
            "/..",
            "//../secret",
            "/./../secret",
        ):
            answer = self.curl(target)
            self.assertEqual(answer.status, 403, target)
            self.assertNotIn(b"secret", answer.body)
        self.assertEqual(self.curl("/%252e%252e/secret").status, 404)
        self.assertEqual(self.curl("/./small.txt").status, 200)
        (self.site / "..name").write_text("dots")
        self.assertEqual(self.curl("/..name").body, b"dots")

    def test_special_files(self):
        os.mkfifo(self.site / "fifo")
        self.assertEqual(self.curl("/fifo").status, 403)
        with socket.socket(socket.AF_UNIX) as unix:
            unix.bind(str(self.site / "socket"))
            self.assertIn(self.curl("/socket").status, (403, 404))

    def test_not_permitted(self):
        if os.geteuid() == 0:  # to whom everything is permitted
            self.process.terminate()
            self.assertEqual(poll(self.process, LONG), 0)
            os.chmod(self.site / "small.txt", 0)
            os.chmod(self.site / "a b", 0)
            line = self.start_as_nobody().stdout.readline()
            self.base = re.search(r"http://127\.0\.0\.1:\d+", line)[0]
        else:
            os.chmod(self.site / "small.txt", 0)
            os.chmod(self.site / "a b", 0)
            self.addCleanup(os.chmod, self.site / "a b", 0o700)
        self.assertEqual(self.curl("/small.txt").status, 403)
        self.assertEqual(self.curl("/a%20b/").status, 403)

    def start_as_nobody(self):
        """Of a copy, as the build may lie where nobody may go."""
        copy = self.here / "program"
        copy.mkdir(mode=0o755)
        libraries = subprocess.run(["ldd", VELSERVE], capture_output=True, text=True).stdout
        for path in (VELSERVE, re.search(r"=> (\S*libvellib\S*)", libraries)[1]):
            shutil.copy(path, copy)
        self.process = self.start(
            [copy / pathlib.Path(VELSERVE).name, "-p", "0", self.site],
            env={**os.environ, "LD_LIBRARY_PATH": str(copy)},
            stdout=subprocess.PIPE,
            stderr=self.log.open("ab"),
            text=True,
            user=65534,
            group=65534,
            extra_groups=[],
        )
        return self.process

    def test_methods(self):
        for method in "POST", "PUT", "DELETE", "OPTIONS", "get", "BREW":
            answer = self.curl("/small.txt", "--request", method)
            self.assertEqual((answer.status, answer.headers["allow"]), (405, "get, head"), method)
        answer = self.curl("/small.txt", "--data-binary", f"@{self.site / 'large.bin'}")
        self.assertIn(answer.status, (0, 405))  # it may still be sending when the answer comes
        self.assertEqual(self.curl("/", "--data", "x" * 1000).status, 405)

    def test_lengths(self):
        limit = 8192 - len("GET  HTTP/1.0\r\n")
        self.assertEqual(self.curl("/" + "a" * 9000).status, 414)
        self.assertEqual(self.curl("/" + "a" * 100000).status, 414)
        self.assertTrue(self.raw(b"GET /%s HTTP/1.0\r\n\r\n" % (b"a" * limit)).startswith(
            b"HTTP/1.0 414 "))
        self.assertEqual(self.curl("/byte?" + "a" * (limit - 6)).status, 200)
        self.assertEqual(self.curl("/byte", "--header", "X: " + "a" * 9000).status, 400)
        many = [word for i in range(200) for word in ("--header", f"X-{i}: {i}")]
        self.assertEqual(self.curl("/byte", *many).status, 400)
        self.assertEqual(self.curl("/byte", *many[:160]).status, 200)

    def test_bad_requests(self):
        for request in (
            b"\r\n\r\n",
            b"GET\r\n\r\n",
            b"GET /byte\r\n\r\n",
            b"GET  HTTP/1.0\r\n\r\n",
            b"GET byte HTTP/1.0\r\n\r\n",
            b"GET http://127.0.0.1/byte HTTP/1.0\r\n\r\n",
            b"GET /byte FTP/1.0\r\n\r\n",
            b"GET /byte%00 HTTP/1.0\r\n\r\n",
            b"GET /byte% HTTP/1.0\r\n\r\n",
            b"GET /byte%4 HTTP/1.0\r\n\r\n",
            b"GET /byte%zz HTTP/1.0\r\n\r\n",
            b"GET /b\x00yte HTTP/1.0\r\n\r\n",
            b"GET /b\ryte HTTP/1.0\r\n\r\n",
            b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03\n\n",  # TLS
        ):
            self.assertTrue(self.raw(request).startswith(b"HTTP/1.0 400 Bad Request\r\n"), request)

    def test_line_feeds_alone(self):
        self.assertTrue(self.raw(b"GET /byte HTTP/1.0\nHost: x\n\n").endswith(b"\r\n\r\nx"))


class Log(Served):
    def test_one_line_a_request(self):
        self.curl("/small.txt")
        self.curl("/", "--head")
        self.curl("/none?x")
        self.curl("/outside")
        self.curl("/", "--request", "BREW")
        self.raw(b"nonsense\r\n\r\n")
        self.raw(b"GET /a\x1b[31m\xe4 HTTP/1.0\r\n\r\n")
        self.curl("/" + "a" * 9000)
        expected = [
            r"GET /small\.txt 200 6",
            r"HEAD / 200 0",
            r"GET /none\?x 404 \d+",
            r"GET /outside 403 \d+",
            r"BREW / 405 \d+",
            r"- nonsense 400 \d+",
            r"- GET\\x20/a\\x1b\[31m\\xe4\\x20HTTP/1\.0 400 \d+",
            r"- GET\\x20/a+ 414 \d+",
        ]
        wait_until(lambda: len(self.request_lines()) >= len(expected))
        lines = self.request_lines()
        self.assertEqual(len(lines), len(expected), lines)
        for line, pattern in zip(lines, expected):
            prefix = r"^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d velserve:\d+\[8\] "
            self.assertRegex(line, prefix + pattern + "$")

    def test_connection_without_a_request_is_none(self):
        for _ in range(3):
            self.connect().close()
        self.curl("/byte")
        wait_until(self.request_lines)
        self.assertEqual(len(self.request_lines()), 1)


class Load(Served):
    # What may be added to the resident memory by ten thousand connections. The sanitizer keeps a
    # record of each thread there ever was.
    MEMORY_KIB = 32768 if SANITIZED else 1024

    def usage(self):
        process = pathlib.Path(f"/proc/{self.process.pid}")
        memory = re.search(r"VmRSS:\s+(\d+) kB", (process / "status").read_text())
        return len(os.listdir(process / "fd")), len(os.listdir(process / "task")), int(memory[1])

    def ab(self, requests, connections, target):
        ab = need_program("ab", "apache2-utils")
        answer = subprocess.run(
            [ab, "-q", "-r", "-n", str(requests), "-c", str(connections), self.base + target],
            capture_output=True,
            text=True,
            check=False,
        )
        self.assertEqual(answer.returncode, 0, answer.stderr)
        return dict(re.findall(r"^(.+?):\s+([\d.]+)", answer.stdout, re.MULTILINE))

    def test_ten_thousand_requests(self):
        self.ab(1000, 50, "/small.txt")
        descriptors, threads, memory = self.usage()
        answer = self.ab(10000, 50, "/small.txt")
        self.assertEqual(answer["Complete requests"], "10000")
        self.assertEqual(answer["Failed requests"], "0")
        self.assertNotIn("Non-2xx responses", answer)

        # A connection that has just ended is let go of when the next one comes.
        def settled():
            self.curl("/byte")
            return self.usage()[:2] <= (descriptors, threads)

        self.assertTrue(wait_until(settled), (descriptors, threads, self.usage()))
        after = self.usage()[2]
        print(f"{answer['Requests per second']} requests/s, {memory} then {after} KiB", end=" ")
        self.assertLess(after, memory + self.MEMORY_KIB)
        lines = [line for line in self.request_lines() if "GET /small.txt 200 6" in line]
        self.assertEqual(len(lines), 11000)

    def test_large_file(self):
        answer = self.ab(50, 10, "/large.bin")
        self.assertEqual(answer["Failed requests"], "0")
        print(f"{float(answer['Transfer rate']) / 1024:.0f} MiB/s", end=" ")


class Crowd(Served):
    """More connections than there is room for are sent away, and are no reason to fill the log."""

    DESCRIPTORS = 80
    MOST = DESCRIPTORS // 4

    def limit(self):
        resource.setrlimit(resource.RLIMIT_NOFILE, (self.DESCRIPTORS, self.DESCRIPTORS))

    def test_sent_away(self):
        crowd = [self.connect() for _ in range(self.MOST)]
        answer = self.curl("/byte")
        self.assertEqual(answer.status, 503)
        crowd.pop().close()
        self.assertTrue(wait_until(lambda: self.curl("/byte").status == 200))
        for connection in crowd:
            connection.sendall(b"GET /byte HTTP/1.0\r\n\r\n")
            self.assertTrue(connection.recv(100).startswith(b"HTTP/1.0 200 OK\r\n"))

    def test_flood(self):
        """Without a limit there are a million lines a second on that nothing can be accepted."""
        connections = [socket.socket() for _ in range(3 * self.DESCRIPTORS)]
        for connection in connections:
            self.addCleanup(connection.close)
            connection.setblocking(False)
            connection.connect_ex(("127.0.0.1", self.port))
        self.assertTrue(wait_until(lambda: self.curl("/byte").status == 503))
        for connection in connections:
            connection.close()
        self.assertTrue(wait_until(lambda: self.curl("/byte").status == 200))
        self.assertLess(len(self.log.read_text().splitlines()), 100 * self.DESCRIPTORS)


class Slow(Served):
    """Clients that hold a connection are cut off, and nobody waits for them meanwhile."""

    def drip(self, request, pause):
        """Sends byte after byte; the seconds until the server has had enough."""
        connection = self.connect()
        connection.settimeout(pause)
        begin = time.monotonic()
        for byte in request:
            try:
                connection.send(bytes([byte]))
                if connection.recv(1000) == b"":
                    break
            except socket.timeout:
                pass
            except OSError:
                break
        return time.monotonic() - begin

    def stall(self, request):
        """Sends and then nothing more."""
        connection = self.connect()
        begin = time.monotonic()
        connection.sendall(request)
        connection.recv(1000)
        return time.monotonic() - begin

    def stop_reading(self):
        """Asks for a large file and does not take it."""
        connection = self.connect()
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        begin = time.monotonic()
        connection.sendall(b"GET /large.bin?stalled HTTP/1.0\r\n\r\n")
        wait_until(lambda: any("?stalled" in line for line in self.request_lines()))
        return time.monotonic() - begin

    def read_slowly(self):
        """Takes a file in small pieces with pauses, which is no fault."""
        connection = self.connect()
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 65536)
        connection.sendall(b"GET /large.bin?slowly HTTP/1.0\r\n\r\n")
        received = b""
        while piece := connection.recv(1 << 20):
            received += piece
            time.sleep(0.04)
        return received.partition(b"\r\n\r\n")[2]

    def test_cut_off(self):
        with concurrent.futures.ThreadPoolExecutor(16) as pool:
            limited = {
                "silent": pool.submit(self.stall, b""),
                "half a line": pool.submit(self.stall, b"GET /small"),
                "no end": pool.submit(self.stall, b"GET /small.txt HTTP/1.0\r\nHost: x\r\n"),
                "drips a line": pool.submit(self.drip, b"GET /" + b"a" * 8000, 0.2),
                "drips headers": pool.submit(
                    self.drip, b"GET / HTTP/1.0\r\n" + b"X: y\r\n" * 1000, 0.2
                ),
                "stops reading": pool.submit(self.stop_reading),
            }
            slow = pool.submit(self.read_slowly)
            begin = time.monotonic()
            answers = 0
            while not all(future.done() for future in limited.values()):
                self.assertEqual(self.curl("/small.txt").status, 200)
                answers += 1
            self.assertGreater(answers / (time.monotonic() - begin), 2)
            for name, future in limited.items():
                with self.subTest(name):
                    limit = WRITE_SECONDS if name == "stops reading" else REQUEST_SECONDS
                    self.assertGreater(future.result(), limit - 1)
                    self.assertLess(future.result(), limit + 4)
            self.assertEqual(digest(slow.result()), digest(FILES["large.bin"]))


class Stop(Served):
    """A signal ends the program in an orderly way, whatever its connections are doing."""

    STOP_SECONDS = 5 if SANITIZED else 3

    def occupy(self):
        """One connection for each thing that a thread may be waiting for."""
        connections = [self.connect() for _ in range(6)]
        connections[1].sendall(b"GET /sm")
        connections[2].sendall(b"GET /small.txt HTTP/1.0\r\nHost")
        for connection in connections[3:]:
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            connection.sendall(b"GET /large.bin HTTP/1.0\r\n\r\n")
        for connection in connections[3:]:
            self.assertTrue(connection.recv(1))
        return connections

    def check_end(self, number):
        connections = self.occupy()
        begin = time.monotonic()
        self.process.send_signal(number)
        self.assertEqual(poll(self.process, LONG), 0, self.log.read_text())
        self.assertLess(time.monotonic() - begin, self.STOP_SECONDS)
        for connection in connections[:3]:
            self.assertEqual(connection.recv(1), b"")
        with self.assertRaises(OSError):
            socket.create_connection(("127.0.0.1", self.port), LONG)
        self.assertEqual(len(self.request_lines()), 3)

    def test_sigterm(self):
        self.check_end(signal.SIGTERM)

    def test_sigint(self):
        self.check_end(signal.SIGINT)

    def test_sigterm_when_idle(self):
        begin = time.monotonic()
        self.process.terminate()
        self.assertEqual(poll(self.process, LONG), 0)
        self.assertLess(time.monotonic() - begin, self.STOP_SECONDS)


class Usage(Case):
    def test_bad_usage(self):
        for arguments in (
            [],
            ["a", "b"],
            ["--none", "."],
            ["-p", "65536", "."],
            ["-p", "-1", "."],
            ["-p", "http", "."],
            ["-p"],
        ):
            answer = run_to_end(VELSERVE, *arguments)
            self.assertEqual((answer.returncode, answer.stdout), (2, ""), arguments)
            self.assertIn("Try 'velserve --help'.", answer.stderr)

    def test_help_and_version(self):
        answer = run_to_end(VELSERVE, "--help")
        self.assertEqual((answer.returncode, answer.stderr), (0, ""))
        self.assertIn("usage: velserve", answer.stdout)
        self.assertEqual(run_to_end(VELSERVE, "--version").stdout, "velserve 1.0.0\n")

    def test_no_directory(self):
        (self.here / "file").touch()
        for name, reason in ("none", "No such file"), ("file", "Not a directory"):
            answer = run_to_end(VELSERVE, self.here / name)
            self.assertEqual(answer.returncode, 1)
            self.assertIn(reason, answer.stderr)

    def test_port_in_use(self):
        with socket.create_server(("127.0.0.1", 0)) as other:
            answer = run_to_end(VELSERVE, "-p", other.getsockname()[1], self.here)
        self.assertEqual(answer.returncode, 1)
        self.assertRegex(answer.stderr, r"(?m)^velserve: cannot serve on 127\.0\.0\.1, port \d+: "
                                        "address already in use$")

    def test_address(self):
        for address, reason in (
            ("localhost", "not a numeric address"),
            ("", "not a numeric address"),
            ("192.0.2.1", "Cannot assign requested address"),
        ):
            answer = run_to_end(VELSERVE, "-a", address, "-p", 0, self.here)
            self.assertEqual(answer.returncode, 1)
            shown = address or "''"
            self.assertEqual(answer.stderr.splitlines()[-1],
                             f"velserve: cannot serve on {shown}, port 0: {reason}")

    def test_ipv6(self):
        (self.here / "file").write_text("six")
        process = self.start(
            [VELSERVE, "-a", "::1", "-p", "0", self.here],
            stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL,
            text=True,
        )
        base = re.search(r"http://\[::1\]:\d+/", process.stdout.readline())[0]
        curl = need_program("curl", "curl")
        answer = subprocess.run(
            [curl, "--silent", "--globoff", base + "file"], capture_output=True, check=False
        )
        self.assertEqual(answer.stdout, b"six")


if __name__ == "__main__":
    main(1)
