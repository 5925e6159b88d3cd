#!/usr/bin/env python3
"""Drives velicap against scripted servers and c-icap:
velicap_check.py VELICAP [CASE]..."""
import os
import re
import socket
import subprocess
import threading
import urllib.parse

from cases import LONG, Case, Script, main, need_program, program, random_bytes, wait_until

VELICAP = program(1)
RESPONSE = b"HTTP/1.1 200 OK\r\nA: b\r\n\r\n"
NULL_BODY = b"ICAP/1.0 %s\r\nEncapsulated: null-body=0\r\n\r\n"


class UnixScript(Script):
    """The same at a UNIX-domain socket."""

    def __init__(self, case, handler, path):  # pylint: disable=super-init-not-called
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(path)
        self.listener.listen(8)
        self.path, self.handler, self.heads = path, handler, []
        self.closing = threading.Event()
        self.threads = [threading.Thread(target=self.accept)]
        self.threads[0].start()
        case.addCleanup(self.close)

    def close(self):
        self.closing.set()
        with socket.socket(socket.AF_UNIX) as waker:
            waker.connect(self.path)
        for thread in self.threads:
            thread.join(LONG)
        self.listener.close()


def read_message(connection, head):
    """What is encapsulated in a request: the HTTP headers, and the body as it is on the wire."""
    offset = int(re.search(r"(?:null|req|res)-body=(\d+)", head)[1])
    stream = connection.makefile("rb")
    headers, body = stream.read(offset), b""
    if "null-body" not in head:
        while not body.endswith(b"0\r\n\r\n"):
            body += stream.readline()
    return headers, body


def answer(body=b"", headers=RESPONSE, status=b"200 OK", kind=b"res"):
    """An answer with one message, its body as one chunk."""
    head = b"ICAP/1.0 " + status + b"\r\nEncapsulated: " + kind + b"-hdr=0, "
    if not body:
        return head + b"null-body=%d\r\n\r\n" % len(headers) + headers
    head += kind + b"-body=%d\r\n\r\n" % len(headers)
    return head + headers + b"%x\r\n" % len(body) + body + b"\r\n0\r\n\r\n"


class Sending(Case):
    def run_velicap(self, *arguments, **options):
        options = {"capture_output": True, "timeout": LONG, "cwd": self.here} | options
        return subprocess.run([VELICAP, *map(str, arguments)], check=False, **options)

    def serve(self, data):
        """A server that takes one whole message, keeps it in self.message, and answers data."""

        def handle(connection, head):
            self.message = read_message(connection, head)
            return data

        script = Script(self, handle)
        script.url = f"icap://127.0.0.1:{script.port}/service"
        return script

    def write(self, name, data):
        path = self.here / name
        path.write_bytes(data)
        return path

    def check_failure(self, code, words, *arguments, **options):
        """Checks the exit code, and that the last line of the errors has these words."""
        result = self.run_velicap(*arguments, **options)
        self.assertEqual(result.returncode, code, (arguments, result.stderr))
        message = result.stderr.decode()
        self.assertRegex(message, r"\Avelicap: [^\n]+\n(Try 'velicap --help'\.\n)?\Z")
        self.assertIn(words, message)
        return result


class Message(Sending):
    """What is sent, and what is said of the answer."""

    def test_bare_file_as_a_response(self):
        server = self.serve(answer(b"changed"))
        self.write("a b.bin", b"the body")
        result = self.run_velicap("--url", server.url, "--body", "a b.bin", "-o", "out")
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        self.assertIn(f"RESPMOD {server.url} ICAP/1.0\r\n", server.heads[0])
        self.assertNotIn("Allow", server.heads[0])
        headers, body = self.message
        self.assertTrue(headers.startswith(b"GET http://velicap.invalid/a%20b.bin HTTP/1.1\r\n"))
        self.assertIn(b"\r\n\r\nHTTP/1.1 200 OK\r\n", headers)
        self.assertIn(b"\r\nContent-Length: 8\r\n", headers)
        self.assertEqual(body, b"8\r\nthe body\r\n0\r\n\r\n")
        self.assertEqual((self.here / "out").read_bytes(), b"changed")
        self.assertEqual(
            result.stdout.decode(),
            "ICAP status 200\n  Encapsulated: res-hdr=0, res-body=25\n"
            "HTTP message\n  HTTP/1.1 200 OK\n  A: b\n"
            "Body: 7 bytes, not those that were sent\n",
        )

    def test_standard_input_and_output(self):
        body = random_bytes(300000)
        server = self.serve(answer(body))
        result = self.run_velicap("--url", server.url, "--body", "-", "-o", "-", input=body)
        self.assertEqual((result.returncode, result.stdout), (0, body))
        self.assertIn(b"Body: 300000 bytes, as they were sent\n", result.stderr)

    def test_request_with_a_body(self):
        headers = b"POST http://other/ HTTP/1.1\r\nB: c\r\n\r\n"
        server = self.serve(answer(b"x", headers, kind=b"req"))
        self.write("f", b"x")
        result = self.run_velicap("--reqmod", "--allow-204", "--url", server.url, "--body", "f")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertTrue(server.heads[0].startswith("REQMOD "))
        self.assertIn("\r\nAllow: 204\r\n", server.heads[0])
        self.assertTrue(self.message[0].startswith(b"POST http://velicap.invalid/f HTTP/1.1\r\n"))
        self.assertIn(b"  POST http://other/ HTTP/1.1\n", result.stdout)

    def test_headers_from_files_with_bare_line_ends(self):
        server = self.serve(answer())
        self.write("q", b"GET http://h/ HTTP/1.1\nHost: h\n")
        self.write("r", b"HTTP/1.0 201 Made\nC: d\n\nnot this")
        result = self.run_velicap("--url", server.url, "--request-headers", "q",
                                  "--response-headers", "r", "--body", self.write("e", b""))
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(self.message, (b"GET http://h/ HTTP/1.1\r\nHost: h\r\n\r\n"
                                        b"HTTP/1.0 201 Made\r\nC: d\r\n\r\n", b""))
        self.assertIn(b"No body\n", result.stdout)

    def test_message_in_chunks(self):
        chunks = b"5\r\nhello\r\n0\r\n\r\n"
        server = self.serve(answer(b"hello"))
        self.write("r", b"HTTP/1.1 200 OK\nTransfer-Encoding: chunked\n")
        result = self.run_velicap("--url", server.url, "--response-headers", "r",
                                  "--body", self.write("f", chunks), "-o", "out")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(self.message[1], chunks)
        self.assertEqual((self.here / "out").read_bytes(), chunks)
        self.assertIn(b"as they were sent", result.stdout)

    def test_options(self):
        server = self.serve(NULL_BODY.replace(b"\r\n", b"\r\nMethods: RESPMOD\r\n", 1) % b"200 OK")
        result = self.run_velicap("--options", "--url", server.url)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn(b"  Methods: RESPMOD\n", result.stdout)
        self.assertTrue(server.heads[0].startswith("OPTIONS "))

    def test_nothing_to_change_writes_what_was_sent(self):
        server = self.serve(b"ICAP/1.0 204 No change\r\n\r\n")
        result = self.run_velicap("--url", server.url, "--body", self.write("f", b"same"),
                                  "-o", "out")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn(b"Nothing to change\n", result.stdout)
        self.assertEqual((self.here / "out").read_bytes(), b"same")

    def test_terminal_is_not_steered(self):
        server = self.serve(answer(headers=b"HTTP/1.1 200 \x1b[31mOK\r\n\r\n"))
        result = self.run_velicap("--url", server.url)
        self.assertIn(b"  HTTP/1.1 200 ?[31mOK\n", result.stdout)

    def test_unix_domain_socket(self):
        path = str(self.here / "a%b:c d.sock")
        data = answer(b"back")

        def handle(connection, head):
            read_message(connection, head)
            return data

        server = UnixScript(self, handle, path)
        for arguments in (["--socket", path, "--url", "/s"],
                          ["--socket", path, "--url", "icap://elsewhere/s"],
                          ["--url", f"icap+unix://{urllib.parse.quote(path, safe='')}/s"]):
            result = self.run_velicap(*arguments, "-o", "-")
            self.assertEqual((result.returncode, result.stdout), (0, b"back"), result.stderr)
        for head in server.heads[:3]:
            self.assertTrue(head.startswith("RESPMOD icap://localhost/s ICAP/1.0\r\n"
                                            "Host: localhost\r\n"), head)


class Failure(Sending):
    """Each exit code by its causes, with the one line that tells the cause."""

    def test_0_help_and_version(self):
        self.assertIn(b"usage: velicap", self.run_velicap("--help").stdout)
        self.assertEqual(self.run_velicap("--version").stdout, b"velicap 1.0.0\n")

    def test_2_usage(self):
        for words, *arguments in (
            ["--url is needed"],
            ["--body", "file"],
            ["number of seconds", "--timeout", "soon"],
            ["--options takes no message", "--options", "--body", "f", "--url", "/"],
            ["takes no --response-headers", "--reqmod", "--response-headers", "f", "--url", "/"],
        ):
            with self.subTest(arguments=arguments):
                self.check_failure(2, words, *arguments)
        result = self.run_velicap("--nonsense")
        self.assertEqual(result.returncode, 2)
        self.assertIn(b"Try 'velicap --help'.", result.stderr)

    def test_3_url(self):
        for words, url in (
            ("like icap://host/service", "nothing"),
            ("like icap://host/service", "icap:///service"),
            ("like icap://host/service", "icap://host:0/service"),
            ("like icap://host/service", "icap://host:70000/service"),
            ("only icap://", "http://host/service"),
            ("white space", "icap://host/a service"),
            ("use --socket", "icap+unix://%zz/service"),
        ):
            with self.subTest(url=url):
                self.check_failure(3, words, "--url", url)
        self.check_failure(3, "at most", "--socket", "/" + "a" * 200, "--url", "/s")
        self.check_failure(3, "--url is /SERVICE", "--socket", "/s", "--url", "http://h/")

    def test_6_resolve(self):
        self.check_failure(6, "", "--url", "icap://" + "a" * 300 + "/")

    def test_7_connect(self):
        with socket.socket() as holder:
            holder.bind(("127.0.0.1", 0))
            port = holder.getsockname()[1]
            self.check_failure(7, "is the server running", "--url", f"icap://127.0.0.1:{port}/")
        self.check_failure(7, "is the server running", "--socket", self.here / "no", "--url", "/")

    def test_8_reply(self):
        for words, data in (
            ("did not start with 'ICAP/'", b"HTTP/1.1 200 OK\r\n\r\n"),
            ("no Encapsulated header", b"ICAP/1.0 200 OK\r\n\r\n"),
            ("without a colon", b"ICAP/1.0 200 OK\r\nnonsense\r\n\r\n"),
            ("too long", b"ICAP/1.0 200 OK\r\nA: " + b"a" * 5000 + b"\r\n\r\n"),
            ("ends within a line", b"ICAP/1.0 200 OK\r\nA"),
            ("not supported", b"ICAP/1.0 200 OK\r\nEncapsulated: res-hdr=9, null-body=9\r\n\r\n"),
        ):
            with self.subTest(data=data[:60]):
                self.check_failure(8, words, "--url", self.serve(data).url)

    def test_22_status(self):
        for words, data in (
            ("404: no such service", b"ICAP/1.0 404 Service not found\r\n\r\n"),
            ("405: the service does not take RESPMOD", NULL_BODY % b"405 No"),
            ("ICAP status 500", NULL_BODY % b"500 Oops"),
        ):
            with self.subTest(data=data[:60]):
                self.check_failure(22, words, "--url", self.serve(data).url, "-o", "out")
                self.assertFalse((self.here / "out").exists())

    def test_23_write(self):
        server = self.serve(answer(b"x" * 100000))
        self.check_failure(23, "cannot write", "--url", server.url, "-o", "no/out")
        self.check_failure(23, "No space left", "--url", server.url, "-o", "/dev/full")
        with open("/dev/full", "wb") as full:
            result = self.run_velicap("--url", server.url, stdout=full, stderr=subprocess.PIPE,
                                      capture_output=False)
        self.assertEqual(result.returncode, 23)

    def test_26_read(self):
        self.write("plain", b"not in chunks")
        self.write("chunked", b"HTTP/1.1 200 OK\nTransfer-Encoding: Chunked\n")
        self.write("nocolon", b"HTTP/1.1 200 OK\nnonsense\n")
        for words, *arguments in (
            ["cannot read missing", "--body", "missing"],
            ["cannot read .", "--body", "."],
            ["cannot read missing", "--request-headers", "missing"],
            ["first line must be like", "--response-headers", "plain"],
            ["first line must be like", "--request-headers", "nocolon"],
            ["without a colon", "--response-headers", "nocolon"],
            ["not in chunks", "--response-headers", "chunked", "--body", "plain"],
        ):
            with self.subTest(arguments=arguments):
                self.check_failure(26, words, "--url", "icap://127.0.0.1/", *arguments)

    def test_28_time_limit(self):
        done = threading.Event()
        server = Script(self, lambda connection, head: done.wait(LONG) and None)
        self.addCleanup(done.set)
        self.check_failure(28, "--timeout sets it", "--timeout", "0.2", "--url",
                           f"icap://127.0.0.1:{server.port}/")

    def test_56_connection_lost(self):
        self.check_failure(56, "without an answer", "--url", self.serve(b"").url)


class Service(Sending):
    """c-icap, which answers while it still reads."""

    def test_c_icap(self):
        holder = socket.create_server(("127.0.0.1", 0))
        port = holder.getsockname()[1]
        holder.close()
        config = self.write("c-icap.conf", b"""
Port 127.0.0.1:%(port)d
PidFile %(here)s/pid
CommandsSocket %(here)s/ctl
TmpDir %(here)s
ServerLog %(here)s/server.log
AccessLog %(here)s/access.log
StartServers 1
MaxServers 2
LoadMagicFile /etc/c-icap/c-icap.magic
Service echo srv_echo.so
""" % {b"port": port, b"here": bytes(self.here)})
        server = self.start([need_program("c-icap", "c-icap"), "-N", "-D", "-f", config],
                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                            start_new_session=True)
        self.addCleanup(lambda: os.killpg(server.pid, 9))
        url = f"icap://127.0.0.1:{port}/echo"
        self.assertTrue(wait_until(
            lambda: self.run_velicap("--options", "--url", url).returncode == 0))
        body = random_bytes(200000)
        self.write("f", body)
        for method in ("--respmod", "--reqmod"):
            result = self.run_velicap(method, "--url", url, "--body", "f", "-o", "out")
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertIn(b"as they were sent", result.stdout)
            self.assertEqual((self.here / "out").read_bytes(), body)
        result = self.run_velicap("--reqmod", "--allow-204", "--url", url)
        self.assertIn(b"Nothing to change\n", result.stdout)


if __name__ == "__main__":
    main(1)
