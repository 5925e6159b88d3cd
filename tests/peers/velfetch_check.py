#!/usr/bin/env python3
"""Drives velfetch against scripted servers, on pipes and on a terminal:
velfetch_check.py VELFETCH [CASE]..."""
import fcntl
import os
import pathlib
import pty
import re
import resource
import select
import signal
import socket
import stat
import struct
import subprocess
import termios
import threading
import time

from cases import LONG, Case, Script, digest, main, poll, program, random_bytes, reset
from cases import sanitized, wait_until

VELFETCH = program(1)
SANITIZED = sanitized(VELFETCH)
# A wait ends with the signal itself, or with the tick of a second that the library has.
INTERRUPT_SECONDS = 2.5 if SANITIZED else 1.5
# A reset that has come in when a read begins looks like the end of the connection, as the library
# tries a read that failed once more.
RESET = (18, 56)
# A name that no resolver looks for, since a part of it is too long.
UNRESOLVABLE = "http://" + "a" * 300 + "/"


def answer(body=b"", status="200 OK", headers=()):
    """An answer with its length."""
    lines = [f"HTTP/1.0 {status}", f"Content-Length: {len(body)}", *headers]
    return "\r\n".join(lines).encode() + b"\r\n\r\n" + body


def always(data):
    return lambda connection, head: data


def read_body(connection, head):
    """The body of a request, by its Content-Length."""
    length = int(re.search(r"(?i)^content-length: (\d+)", head, re.MULTILINE)[1])
    body = b""
    while len(body) < length:
        body += connection.recv(65536)
    return body


class Fetching(Case):
    def fetch(self, *arguments, **options):
        options = {"capture_output": True, "timeout": LONG, "cwd": self.here} | options
        return subprocess.run([VELFETCH, *map(str, arguments)], check=False, **options)

    def serve(self, handler):
        return Script(self, handler)

    def check(self, code, words, *arguments, **options):
        """Runs velfetch and checks its exit code and that it says one line with these words, with a
        hint behind it where the command line is wrong."""
        result = self.fetch(*arguments, **options)
        codes = code if isinstance(code, tuple) else (code,)
        self.assertIn(result.returncode, codes, (arguments, result.stderr))
        message = result.stderr.decode()
        self.assertRegex(message, r"\Avelfetch: [^\n]+\n(Try 'velfetch --help'\.\n)?\Z")
        self.assertTrue(result.returncode == 2 or "Try" not in message, message)
        self.assertIn(words, message)
        return result

    def refusing_url(self):
        """A URL whose port nobody listens on, as long as the case runs."""
        holder = socket.socket()
        self.addCleanup(holder.close)
        holder.bind(("127.0.0.1", 0))
        return f"http://127.0.0.1:{holder.getsockname()[1]}/"

    def reset_within(self, connection, _):
        """Resets once a part of the body is in the file beside the one to be written."""
        connection.sendall(b"HTTP/1.0 200 OK\r\nContent-Length: 1000000\r\n\r\n")

        def has_begun():
            connection.sendall(b"x")
            return any(name.startswith("file.") for name in os.listdir(self.here))

        wait_until(has_begun)
        reset(connection)

    def full_port(self):
        """A port where connecting goes on for ever: the queue of those not accepted is full."""
        listener = socket.socket()
        self.addCleanup(listener.close)
        listener.bind(("127.0.0.1", 0))
        listener.listen(0)
        for _ in range(4):
            waiting = socket.socket()
            self.addCleanup(waiting.close)
            waiting.setblocking(False)
            waiting.connect_ex(listener.getsockname())
        return listener.getsockname()[1]


class ExitCode(Fetching):
    """Each exit code by its causes, with the one line that tells the cause."""

    def test_0_fetched(self):
        body = random_bytes(3 << 20)
        server = self.serve(always(answer(body)))
        result = self.fetch(server.url + "/a")
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        self.assertEqual(digest(result.stdout), digest(body))

    def test_0_scheme_in_capitals(self):
        server = self.serve(always(answer(b"body")))
        result = self.fetch(server.url.replace("http", "HTTP", 1))
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, b"body", b""))

    def test_0_without_a_length(self):
        server = self.serve(always(b"HTTP/1.0 200 OK\r\n\r\nuntil the end"))
        self.assertEqual(self.fetch(server.url).stdout, b"until the end")

    def test_0_help_and_version(self):
        result = self.fetch("--help")
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        self.assertIn(b"usage: velfetch", result.stdout)
        self.assertEqual(self.fetch("--version").stdout, b"velfetch 1.0.0\n")

    def test_1_out_of_memory(self):
        """Every allocation fails once in its turn. The program then says so, and leaves nothing
        behind; no run crashes, and in the end one succeeds."""
        server = self.serve(always(answer(b"new")))
        (self.here / "file").write_text("old")
        environment = {**os.environ, "VELMALLOC_FAILMODE": "1"}
        environment.pop("LD_PRELOAD", None)
        codes = []
        while 0 not in codes and len(codes) < 1000:
            arguments = [
                "--proxy", f"127.0.0.1:{server.port}", "--proxy-user", "a:b", "-d", "data",
                "-H", "X: y", "-o", "file", server.url,
            ]  # fmt: skip
            result = self.fetch(*arguments, env=environment)
            codes.append(result.returncode)
            # Where connecting to an address has no memory, that address counts as unreachable.
            self.assertIn(result.returncode, (0, 1, 7), result.stderr)
            if result.returncode != 0:
                self.assertRegex(result.stderr.decode(), r"(?m)^velfetch: .*\n\Z")
                self.assertEqual((self.here / "file").read_text(), "old")
            files = sorted(os.listdir(self.here))
            self.assertEqual(files, ["file", "velmallocfail.db"])
        self.assertEqual((self.here / "file").read_text(), "new")
        self.assertGreater(codes.count(1), 20)
        print(f"{codes.count(1)} failing allocations", end=" ")

    def test_2_usage(self):
        for arguments in (
            [],
            ["http://h/", "http://h/"],
            ["-X", "", "http://h/"],
            ["-X", "A B", "http://h/"],
            ["-H", "no colon", "http://h/"],
            ["-H", "A: b\r\nC: d", "http://h/"],
            ["-d", "@none", "http://h/"],
            ["--proxy", "host", "http://h/"],
            ["--proxy", ":1", "http://h/"],
            ["--proxy", "host:0", "http://h/"],
            ["--proxy", "host:65536", "http://h/"],
            ["--proxy", "host:1x", "http://h/"],
            ["--proxy-user", "user", "http://h/"],
            ["--proxy-user", ":password", "http://h/"],
            ["--timeout", "0", "http://h/"],
            ["--timeout", "-1", "http://h/"],
            ["--timeout", "1x", "http://h/"],
            ["--timeout", "nan", "http://h/"],
            ["--timeout", "inf", "http://h/"],
            ["--idle-timeout", "", "http://h/"],
        ):
            self.check(2, "", *arguments)
        for arguments in ["--none"], ["-o"], ["--timeout"]:
            result = self.fetch(*arguments)
            self.assertEqual(result.returncode, 2)
            self.assertIn(b"Try 'velfetch --help'.", result.stderr)

    def test_3_url(self):
        self.check(3, "", "nonsense")
        self.check(3, "", "")
        self.check(3, "", "http:/one-slash")
        self.check(3, "only http:// is supported", "https://127.0.0.1/")
        self.check(3, "only http:// is supported", "ftp://127.0.0.1/")
        self.check(3, "", "http://127.0.0.1:65536/")
        self.check(3, "", "http://127.0.0.1:x/")
        self.check(3, "http:///path: not a URL like http://host/path", "http:///path")
        self.check(3, "http://: not a URL like http://host/path", "http://")
        self.check(3, "white space", "http://127.0.0.1/a b")
        self.check(3, "white space in it: http://127.0.0.1/?X:?y", "http://127.0.0.1/\nX:\ty")
        server = self.serve(always(answer(status="302 F", headers=["Location: relative"])))
        self.check(3, "redirects to what is not a URL", server.url)
        server = self.serve(always(answer(status="302 F", headers=["Location: http://h:0x/"])))
        self.check(3, "redirects to what is not a URL", server.url)
        server = self.serve(always(answer(status="302 F", headers=["Location: http:///path"])))
        self.check(3, "redirects to what is not a URL", server.url)
        server = self.serve(always(answer(status="302 F", headers=["Location: https://h/"])))
        self.check(3, "only http:// is supported", server.url)

    def test_6_host(self):
        self.check(6, "unable to resolve host", UNRESOLVABLE)
        self.check(6, "unable to resolve host", "--proxy", UNRESOLVABLE[7:-1] + ":1", "http://h/")

    def test_7_connection(self):
        self.check(7, "refused", self.refusing_url())
        proxy = self.refusing_url()[7:-1]
        self.check(7, f"proxy 127.0.0.1 port {proxy[10:]}", "--proxy", proxy, "http://h/")

    def test_8_reply(self):
        for words, data in (
            ("the reply is not HTTP", b"ICY 200 OK\r\n\r\n"),
            ("the reply is not HTTP", b"HTTP/1.0\r\n\r\n"),
            ("the reply is not HTTP", b"HTTP/1.0 20x OK\r\n\r\n"),
            ("a header line is too long", b"HTTP/1.0 200 OK\r\nX: " + b"a" * 5000 + b"\r\n\r\n"),
            ("redirects without saying where to", answer(status="301 Moved")),
        ):
            server = self.serve(always(data))
            self.check(8, words, server.url)

    def test_18_short(self):
        server = self.serve(always(b"HTTP/1.0 200 OK\r\nContent-Length: 10\r\n\r\n12345"))
        self.check(18, "after 5 of 10 bytes", server.url)
        # A redirect is none.
        self.assertEqual(self.check(18, "5 of 10", "-o", "file", server.url).stdout, b"")
        self.assertEqual(os.listdir(self.here), [])

    def test_22_status(self):
        for status in "404 Not Found", "500 Error", "303 See Other", "201 Created", "100 Continue":
            server = self.serve(always(answer(b"not this", status=status)))
            result = self.check(22, f"status {status[:3]}", server.url)
            self.assertEqual(result.stdout, b"")

    def test_22_proxy_asks_for_a_user(self):
        refusal = answer(
            status="407 Proxy Authentication", headers=['Proxy-Authenticate: Basic realm="x"']
        )
        server = self.serve(always(refusal))  # which closes after its answer
        self.check(22, "a user is asked for", "--proxy", f"127.0.0.1:{server.port}", "http://h/")
        arguments = ["--proxy", f"127.0.0.1:{server.port}", "--proxy-user", "a:b", "http://h/"]
        self.check(22, "the user is not accepted", *arguments)

        def refuse_all(connection, _):
            while connection.send(refusal):
                if not connection.recv(65536):
                    break

        server = self.serve(refuse_all)
        self.check(22, "a user is asked for", "--proxy", f"127.0.0.1:{server.port}", "http://h/")

    def test_23_writing(self):
        server = self.serve(always(answer(b"x" * 200000)))
        self.check(23, "cannot write none/file", "-o", "none/file", server.url)
        self.check(23, "cannot write " + str(self.here), "-o", self.here, server.url)
        self.check(23, "No space left", "-o", "/dev/full", server.url)
        with open("/dev/full", "wb") as full:
            self.check(
                23,
                "cannot write to standard output: No space left",
                server.url,
                capture_output=False,
                stdout=full,
                stderr=subprocess.PIPE,
            )
        small = self.serve(always(answer(b"x")))  # seen when the file is closed, not before
        self.check(23, "No space left", "-o", "/dev/full", small.url)

    def test_23_file_that_may_not_grow(self):
        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (10000, 10000))

        server = self.serve(always(answer(bytes(100000))))
        self.check(23, "cannot write file: File too large", "-o", "file", server.url,
                   preexec_fn=limit)
        self.assertEqual(os.listdir(self.here), [])

    def test_28_timeout(self):
        def silent(connection, _):
            connection.recv(1)

        def drip(connection, _):
            connection.sendall(b"HTTP/1.0 200 OK\r\n\r\n")
            while connection.send(b"x"):
                time.sleep(0.05)

        for handler in silent, drip:
            server = self.serve(handler)
            begin = time.monotonic()
            words = "the time limit has passed"
            self.check(28, words, "--timeout", "0.5", "-o", "file", server.url)
            self.assertGreaterEqual(time.monotonic() - begin, 0.5)
            self.assertLess(time.monotonic() - begin, 5)
        server = self.serve(silent)
        self.check(28, "timed out", "--idle-timeout", "0.5", server.url)
        port = self.full_port()
        self.check(28, "", "--timeout", "0.5", f"http://127.0.0.1:{port}/")
        self.check(28, "", "--idle-timeout", "0.5", f"http://127.0.0.1:{port}/")
        self.assertEqual(os.listdir(self.here), [])

    def test_idle_limit_is_no_limit_for_what_comes(self):
        def drip(connection, _):
            connection.sendall(b"HTTP/1.0 200 OK\r\n\r\n")
            for _ in range(15):
                connection.sendall(b"x")
                time.sleep(0.1)

        server = self.serve(drip)
        self.assertEqual(self.fetch("--idle-timeout", "1", server.url).stdout, b"x" * 15)

    def test_47_redirects(self):
        server = self.serve(always(answer(status="302 Found", headers=["Location: /again"])))
        self.check(47, "too many redirects", server.url)
        self.assertEqual(len(server.heads), 10)

    def test_56_lost(self):
        server = self.serve(always(b""))
        self.check(56, "the connection was closed without an answer", server.url)
        server = self.serve(always(b"HTTP/1.0 200 OK\r\nContent-Length: 5\r\n"))
        self.check(56, "", server.url)
        server = self.serve(lambda connection, head: reset(connection))
        self.check(56, "", server.url)
        self.check(RESET, "", "-o", "file", self.serve(self.reset_within).url)
        self.assertEqual(os.listdir(self.here), [])

    def test_message_does_not_steer_the_terminal(self):
        headers = ["Location: http://127.0.0.1:x\x1b[31m\x07\x7f/"]
        server = self.serve(always(answer(status="302 Found", headers=headers)))
        message = self.check(3, "", server.url).stderr
        self.assertFalse(set(message[:-1]) & {*range(32), 127}, message)
        message = self.check(2, "--proxy: ", "--proxy", "\x1b[31mhost\n").stderr
        self.assertIn(b"not a HOST:PORT: ?[31mhost?", message)


class Output(Fetching):
    """-o: what was there stays until what takes its place is complete."""

    def setUp(self):
        super().setUp()
        self.file = self.here / "file"
        self.good = self.serve(always(answer(b"new")))

    def test_replaces(self):
        self.file.write_text("old and longer")
        os.chmod(self.file, 0o640)
        self.assertEqual(self.fetch("-o", "file", self.good.url).returncode, 0)
        self.assertEqual(self.file.read_text(), "new")
        self.assertEqual(stat.S_IMODE(self.file.stat().st_mode), 0o640)
        self.assertEqual(os.listdir(self.here), ["file"])

    def test_creates_with_the_usual_permissions(self):
        result = self.fetch("-o", "file", self.good.url, umask=0o027)
        self.assertEqual(result.returncode, 0)
        self.assertEqual(stat.S_IMODE(self.file.stat().st_mode), 0o640)

    def test_empty_body(self):
        empty = self.serve(always(answer()))
        self.file.write_text("old")
        self.assertEqual(self.fetch("-o", "file", empty.url).returncode, 0)
        self.assertEqual(self.file.read_text(), "")

    def test_minus_is_standard_output(self):
        self.assertEqual(self.fetch("-o", "-", self.good.url).stdout, b"new")
        self.assertEqual(os.listdir(self.here), [])

    def test_link_stays_a_link(self):
        (self.here / "target").write_text("old")
        self.file.symlink_to("target")
        self.assertEqual(self.fetch("-o", "file", self.good.url).returncode, 0)
        self.assertTrue(self.file.is_symlink())
        self.assertEqual((self.here / "target").read_text(), "new")

    def test_what_is_no_regular_file(self):
        self.assertEqual(self.fetch("-o", "/dev/null", self.good.url).returncode, 0)
        self.assertTrue(stat.S_ISCHR(os.stat("/dev/null").st_mode))
        os.mkfifo(self.here / "fifo")
        reader = self.start(["cat", self.here / "fifo"], stdout=subprocess.PIPE)
        self.assertEqual(self.fetch("-o", "fifo", self.good.url).returncode, 0)
        self.assertEqual(reader.communicate(timeout=LONG)[0], b"new")

    def test_keeps_the_old_file_on_failure(self):
        failures = [
            (22, self.serve(always(answer(b"gone", status="404 Not Found"))).url),
            (18, self.serve(always(b"HTTP/1.0 200 OK\r\nContent-Length: 9\r\n\r\nshort")).url),
            (RESET, self.serve(self.reset_within).url),
            (56, self.serve(always(b"")).url),
            (8, self.serve(always(b"nonsense\r\n")).url),
            (7, self.refusing_url()),
        ]
        for code, url in failures:
            for old in "old", None:
                with self.subTest(code=code, old=old):
                    if old:
                        self.file.write_text(old)
                    else:
                        self.file.unlink()
                    self.check(code, "", "-o", "file", url)
                    self.assertEqual(os.listdir(self.here), ["file"] if old else [])
                    if old:
                        self.assertEqual(self.file.read_text(), old)

    def test_keeps_the_old_file_on_a_full_disk(self):
        """A limit on the size of a file stands for the disk."""
        large = self.serve(always(answer(b"x" * 300000)))
        self.file.write_text("old")
        result = subprocess.run(
            ["bash", "-c", 'ulimit -f 100; trap "" XFSZ; exec "$@"', "bash", VELFETCH]
            + ["-o", "file", large.url],
            capture_output=True,
            cwd=self.here,
            check=False,
        )
        self.assertEqual(result.returncode, 23, result.stderr)
        self.assertIn(b"File too large", result.stderr)
        self.assertEqual(self.file.read_text(), "old")
        self.assertEqual(os.listdir(self.here), ["file"])

    def test_directory_that_may_not_be_written(self):
        if os.geteuid() == 0:
            self.assertEqual(self.fetch("-o", "/proc/none", self.good.url).returncode, 23)
            return
        self.file.write_text("old")
        os.chmod(self.here, 0o555)
        self.addCleanup(os.chmod, self.here, 0o755)
        self.check(23, "Permission denied", "-o", "file", self.good.url)
        self.assertEqual(self.file.read_text(), "old")


class Request(Fetching):
    """What the options put into a request."""

    def head(self, *arguments):
        server = self.serve(always(answer()))
        result = self.fetch(*arguments, server.url + "/path?query")
        self.assertEqual(result.returncode, 0, result.stderr)
        return server.heads[0].replace(str(server.port), "PORT")

    def test_plain(self):
        self.assertEqual(
            self.head(), "GET /path?query HTTP/1.0\r\nHost: 127.0.0.1:PORT\r\n\r\n"
        )

    def test_headers_in_their_order(self):
        self.assertEqual(
            self.head("-H", "B: 1", "--header", "A: 2", "-H", "B: 3"),
            "GET /path?query HTTP/1.0\r\nHost: 127.0.0.1:PORT\r\nB: 1\r\nA: 2\r\nB: 3\r\n\r\n",
        )

    def test_method(self):
        self.assertTrue(self.head("-X", "BREW").startswith("BREW /path?query HTTP/1.0\r\n"))
        self.assertTrue(self.head("--method", "HEAD").startswith("HEAD /"))

    def test_head_has_no_body(self):
        server = self.serve(always(b"HTTP/1.0 200 OK\r\nContent-Length: 1000\r\n\r\n"))
        result = self.fetch("-X", "HEAD", server.url)
        self.assertEqual((result.returncode, result.stdout), (0, b""))

    def check_data(self, data, method, *arguments):
        bodies = []

        def keep(connection, head):
            bodies.append(read_body(connection, head))
            return answer(b"taken")

        server = self.serve(keep)
        result = self.fetch(*arguments, server.url)
        self.assertEqual((result.returncode, result.stdout), (0, b"taken"), result.stderr)
        self.assertEqual(digest(bodies[0]), digest(data))
        self.assertTrue(server.heads[0].startswith(method + " "))
        self.assertIn(f"\r\nContent-Length: {len(data)}\r\n", server.heads[0])

    def test_data(self):
        self.check_data(b"a=b&c", "POST", "-d", "a=b&c")
        self.check_data(b"", "POST", "-d", "")
        self.check_data(b"a", "PUT", "-d", "a", "-X", "PUT")
        self.check_data(b"a", "PUT", "-X", "PUT", "--data", "a")

    def test_data_from_a_file(self):
        for size in 0, 1, 100000, 8 << 20:
            data = random_bytes(size)
            (self.here / "data").write_bytes(data)
            self.check_data(data, "POST", "-d", "@data")

    def test_fragment_is_cut_off(self):
        server = self.serve(always(answer(b"x")))
        self.assertEqual(self.fetch(server.url + "/a#b").stdout, b"x")
        self.assertTrue(server.heads[0].startswith("GET /a HTTP/1.0\r\n"))

    def test_redirect_keeps_method_headers_and_data(self):
        def handler(connection, head):
            body = read_body(connection, head)
            if head.startswith("PUT /first "):
                return answer(b"dropped", status="302 Found", headers=["Location: /second"])
            return answer(b"second " + body)

        server = self.serve(handler)
        result = self.fetch("-X", "PUT", "-d", "data", "-H", "X: y", server.url + "/first")
        self.assertEqual(result.stdout, b"second data")
        self.assertIn("\r\nX: y\r\n", server.heads[1])

    def test_proxy(self):
        server = self.serve(always(answer(b"by proxy")))
        for proxy in f"127.0.0.1:{server.port}", f"localhost:{server.port}":
            self.assertEqual(self.fetch("--proxy", proxy, "http://h:81/a").stdout, b"by proxy")
            self.assertEqual(
                server.heads[-1], "GET http://h:81/a HTTP/1.0\r\nHost: h:81\r\n\r\n"
            )

    def test_proxy_with_an_ipv6_address(self):
        server = Script(self, always(answer(b"six")), host="::1")
        self.assertEqual(self.fetch("--proxy", f"[::1]:{server.port}", "http://h/").stdout, b"six")

    def test_proxy_user_goes_with_each_pass(self):
        def handler(_, head):
            if head.startswith("GET http://h/ "):
                return answer(status="301 Moved", headers=["Location: http://other/"])
            return answer(b"welcome")

        server = self.serve(handler)
        result = self.fetch(
            "--proxy", f"127.0.0.1:{server.port}", "--proxy-user", "us:er:word", "http://h/"
        )
        self.assertEqual(result.stdout, b"welcome", result.stderr)
        for head in server.heads:
            self.assertEqual(head.count("proxy-authorization: Basic dXM6ZXI6d29yZA==\r\n"), 1)

    def test_verbose(self):
        server = self.serve(always(answer(b"x")))
        quiet = self.fetch(server.url).stderr
        refused = self.fetch("-v", self.refusing_url()).stderr.decode()
        everything = self.fetch("--trace", server.url).stderr.decode()
        self.assertEqual(quiet, b"")
        self.assertRegex(refused, r"net/velhttp_lite:\d+\[7\] connection failed")
        self.assertTrue(refused.splitlines()[-1].startswith("velfetch: cannot connect to "))
        self.assertIn("[13] the HTTP status code is 200\n", everything)
        self.assertNotIn("[13]", self.fetch("-v", server.url).stderr.decode())


class Interrupt(Fetching):
    """A signal ends the program soon, whatever it is waiting for, and the old file stays."""

    def check_interrupt(self, ready, *arguments, number=signal.SIGINT):
        (self.here / "file").write_text("old")
        process = self.start(
            [VELFETCH, "-o", "file", *arguments], stderr=subprocess.PIPE, cwd=self.here
        )
        self.assertTrue(wait_until(lambda: ready(process)))
        begin = time.monotonic()
        process.send_signal(number)
        self.assertEqual(poll(process, LONG), 128 + number)
        self.assertLess(time.monotonic() - begin, INTERRUPT_SECONDS)
        self.assertEqual(process.stderr.read(), b"velfetch: interrupted\n")
        self.assertEqual((self.here / "file").read_text(), "old")
        self.assertEqual(os.listdir(self.here), ["file"])

    @staticmethod
    def is_waiting(process):
        """Whether the process sleeps in a wait for a descriptor."""
        try:
            call = pathlib.Path(f"/proc/{process.pid}/wchan").read_text()
        except OSError:
            return False
        return "poll" in call

    def test_while_connecting(self):
        self.check_interrupt(self.is_waiting, f"http://127.0.0.1:{self.full_port()}/")

    def test_while_waiting_for_an_answer(self):
        server = self.serve(lambda connection, _: connection.recv(1) and None)
        ready = lambda process: server.heads and self.is_waiting(process)
        self.check_interrupt(ready, server.url)

    def test_while_waiting_for_the_rest(self):
        def some(connection, _):
            connection.sendall(b"HTTP/1.0 200 OK\r\nContent-Length: 100\r\n\r\nsome")
            connection.recv(1)

        server = self.serve(some)
        ready = lambda process: len(os.listdir(self.here)) == 2 and self.is_waiting(process)
        self.check_interrupt(ready, server.url)
        self.check_interrupt(ready, server.url, number=signal.SIGTERM)
        self.check_interrupt(ready, server.url, number=signal.SIGHUP)

    def test_hangup_that_is_ignored(self):
        """As by nohup: the transfer goes on."""
        goon = threading.Event()
        self.addCleanup(goon.set)

        def some(connection, _):
            connection.sendall(b"HTTP/1.0 200 OK\r\nContent-Length: 8\r\n\r\nsome")
            return b"more" if goon.wait(LONG) else None

        server = self.serve(some)
        process = self.start(
            [VELFETCH, "-o", "file", server.url],
            cwd=self.here,
            preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN),
        )
        ready = lambda: len(os.listdir(self.here)) == 1 and self.is_waiting(process)
        self.assertTrue(wait_until(ready))
        process.send_signal(signal.SIGHUP)
        goon.set()
        self.assertEqual(poll(process, LONG), 0)
        self.assertEqual((self.here / "file").read_text(), "somemore")

    def test_while_much_comes_in(self):
        def flood(connection, _):
            connection.sendall(b"HTTP/1.0 200 OK\r\n\r\n")
            while connection.send(b"x" * 65536):
                pass

        server = self.serve(flood)
        self.check_interrupt(lambda process: len(os.listdir(self.here)) == 2, server.url)

    def test_while_sending(self):
        (self.here / "data").write_bytes(bytes(32 << 20))
        blocked = threading.Event()
        server = self.serve(lambda connection, head: blocked.wait(LONG) and None)
        self.addCleanup(blocked.set)
        (self.here / "file").write_text("old")
        process = self.start(
            [VELFETCH, "-d", "@data", "-o", "file", server.url],
            stderr=subprocess.PIPE,
            cwd=self.here,
        )
        self.assertTrue(wait_until(lambda: server.heads and self.is_waiting(process)))
        begin = time.monotonic()
        process.send_signal(signal.SIGINT)
        self.assertEqual(poll(process, LONG), 130)
        self.assertLess(time.monotonic() - begin, INTERRUPT_SECONDS)
        self.assertEqual((self.here / "file").read_text(), "old")


class Terminal(Fetching):
    """The progress bar, on a pseudo-terminal of a given width."""

    AMOUNT = r"\d+(\.\d)? ([KMG]i)?B"

    def on_terminal(self, columns, arguments, stdout=subprocess.DEVNULL):
        """What velfetch shows on a terminal, as the lines that overwrite each other."""
        master, slave = pty.openpty()
        self.addCleanup(os.close, master)
        fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        process = self.start(
            [VELFETCH, *arguments],
            stdin=subprocess.DEVNULL,
            stdout=slave if stdout is None else stdout,
            stderr=slave,
            cwd=self.here,
        )
        os.close(slave)
        shown = b""
        end = time.monotonic() + LONG
        while time.monotonic() < end and select.select([master], [], [], LONG)[0]:
            try:
                piece = os.read(master, 65536)
            except OSError:  # the last one has closed it
                break
            shown += piece
        self.code = poll(process, LONG)
        return shown.decode()

    @staticmethod
    def slowly(size, seconds, withlength=True):
        """Sends so many bytes in about so many seconds."""

        def handler(connection, _):
            length = f"Content-Length: {size}\r\n" if withlength else ""
            connection.sendall(f"HTTP/1.0 200 OK\r\n{length}\r\n".encode())
            for _ in range(32):
                connection.sendall(bytes(size // 32))
                time.sleep(seconds / 32)

        return handler

    @staticmethod
    def frames(shown):
        return [frame.rstrip() for frame in re.split(r"[\r\n]+", shown) if frame.strip()]

    def test_bar(self):
        server = self.serve(self.slowly(2 << 20, 3.5))
        whole = rf"\[(=* *)\]  +({self.AMOUNT}) of 2\.0 MiB  +{self.AMOUNT}/s  +\d:\d\d left"
        for columns in 80, 200:
            shown = self.on_terminal(columns, ["-o", "file", server.url])
            self.assertEqual(self.code, 0, shown)
            frames = self.frames(shown)
            for frame in frames:
                self.assertLess(len(frame), columns, repr(frame))
            matches = [match for frame in frames if (match := re.fullmatch(whole, frame))]
            self.assertGreaterEqual(len(matches), 3, frames)
            self.assertEqual(len({len(match[1]) for match in matches}), 1, frames)
            filled = [match[1].count("=") for match in matches]
            self.assertEqual(filled, sorted(filled))
            self.assertLess(filled[0], len(matches[0][1]))
            last = rf"\[=+\]  +2\.0 MiB of 2\.0 MiB  +{self.AMOUNT}/s  in \d:\d\d"
            self.assertRegex(frames[-1], rf"^{last}$")
            self.assertTrue(shown.endswith("\n"), repr(shown[-20:]))
            self.assertNotIn("\n", shown[:-2])

    def test_facts_alone_where_there_is_no_room_for_a_bar(self):
        server = self.serve(self.slowly(2 << 20, 2.5))
        shown = self.on_terminal(40, ["-o", "file", server.url])
        frames = self.frames(shown)
        facts = rf"{self.AMOUNT} of 2\.0 MiB  {self.AMOUNT}/s  \d:\d\d"
        complete = [frame for frame in frames if re.fullmatch(facts, frame)]
        self.assertGreaterEqual(len(complete), 3, frames)
        for frame in frames:
            self.assertLess(len(frame), 40, repr(frame))

    def test_time_left_goes_down(self):
        server = self.serve(self.slowly(2 << 20, 4.5))
        frames = self.frames(self.on_terminal(80, ["-o", "file", server.url]))
        left = [int(match[1]) for frame in frames if (match := re.search(r":(\d\d) left", frame))]
        self.assertGreaterEqual(len(left), 4, frames)
        self.assertGreaterEqual(max(left), 2)
        self.assertEqual(left, sorted(left, reverse=True))
        self.assertLessEqual(left[-1], 1)

    def test_length_unknown(self):
        server = self.serve(self.slowly(1 << 20, 2.5, withlength=False))
        shown = self.on_terminal(80, ["-o", "file", server.url])
        frames = self.frames(shown)
        self.assertEqual(self.code, 0)
        self.assertRegex(frames[-1], rf"^1\.0 MiB  {self.AMOUNT}/s  in \d:\d\d$")
        self.assertNotIn("left", shown)
        self.assertNotIn("[", shown)

    def test_narrow_terminal(self):
        """Even where nothing has room, no line is wrapped."""
        server = self.serve(self.slowly(1 << 20, 1.5))
        for columns in 30, 10, 1, 0:
            frames = self.frames(self.on_terminal(columns, ["-o", "file", server.url]))
            self.assertEqual(self.code, 0)
            for frame in frames:
                self.assertLess(len(frame), columns or 80, frames)

    def test_failure_takes_the_place_of_the_bar(self):
        server = self.serve(always(b"HTTP/1.0 200 OK\r\nContent-Length: 10\r\n\r\n12345"))
        shown = self.on_terminal(80, ["-o", "file", server.url])
        self.assertEqual(self.code, 18)
        last = shown.rstrip("\r\n").rpartition("\r")[2]
        self.assertRegex(last, r"^velfetch: .* after 5 of 10 bytes$")

    def test_none_where_output_goes_to_the_terminal(self):
        server = self.serve(always(answer(b"text\n")))
        self.assertEqual(self.on_terminal(80, [server.url], stdout=None), "text\r\n")

    def test_one_where_output_goes_elsewhere(self):
        server = self.serve(always(answer(b"text\n")))
        self.assertIn("5 B of 5 B", self.on_terminal(80, [server.url]))

    def test_none_with_the_log(self):
        server = self.serve(always(answer(b"text\n")))
        self.assertNotIn("5 B", self.on_terminal(80, ["-v", "-o", "file", server.url]))

    def test_none_where_there_is_no_terminal(self):
        server = self.serve(self.slowly(1 << 20, 1.5))
        self.assertEqual(self.fetch("-o", "file", server.url).stderr, b"")


if __name__ == "__main__":
    main(1)
