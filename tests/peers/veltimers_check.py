#!/usr/bin/env python3
"""Drives veltimers with clients over TCP and UDP: veltimers_check.py VELTIMERS [CASE]..."""
import concurrent.futures
import fcntl
import os
import pty
import re
import resource
import select
import signal
import socket
import subprocess
import termios
import time

from cases import LONG, Case, main, poll, program, random_bytes, reset, run_to_end
from cases import wait_until

VELTIMERS = program(1)
STATUS = re.compile(r"(\d+) s: (\d+) open, (\d+) opened, (\d+) datagrams, (\d+) bytes\n")
LARGEST_DATAGRAM = 65507


class Echoed(Case):
    """veltimers on a free port, with options that a case may add."""

    OPTIONS = []
    HOST = "127.0.0.1"

    def setUp(self):
        super().setUp()
        self.begun = time.monotonic()
        self.log = self.here / "log"
        self.process = self.start(
            [VELTIMERS, "-p", "0", *self.OPTIONS],
            stdout=subprocess.PIPE,
            stderr=self.log.open("wb"),
            text=True,
            **self.start_options(),
        )
        line = self.process.stdout.readline()
        found = re.fullmatch(r"veltimers: echoing on (\S+) port (\d+), TCP and UDP\n", line)
        self.assertEqual(found[1], self.HOST)
        self.port = int(found[2])

    def start_options(self):
        return {}

    def tearDown(self):
        """However it was treated, it still echoes, and ends when it is asked to."""
        if self.process.poll() is None:
            self.echo(self.connect(), b"still there")
            self.end()

    def end(self, number=signal.SIGTERM):
        """Ends it. Returns the numbers of the last line that it writes."""
        self.process.send_signal(number)
        self.assertEqual(poll(self.process, LONG), 0, self.log.read_text())
        self.assertEqual(self.log.read_text(), "")
        return self.numbers(self.process.stdout.readlines()[-1])

    def numbers(self, line):
        found = STATUS.fullmatch(line)
        self.assertTrue(found, line)
        return tuple(map(int, found.groups()))

    def connect(self):
        connection = socket.create_connection((self.HOST, self.port), LONG)
        self.addCleanup(connection.close)
        return connection

    def open_datagrams(self):
        family = socket.AF_INET6 if ":" in self.HOST else socket.AF_INET
        datagrams = socket.socket(family, socket.SOCK_DGRAM)
        self.addCleanup(datagrams.close)
        datagrams.settimeout(LONG)
        datagrams.connect((self.HOST, self.port))
        return datagrams

    def receive(self, connection, count):
        answer = b""
        while len(answer) < count and (piece := connection.recv(count - len(answer))):
            answer += piece
        return answer

    def echo(self, connection, data):
        """What is sent must fit into the buffers on the way, as nothing is read meanwhile."""
        connection.sendall(data)
        self.assertEqual(self.receive(connection, len(data)), data)

    def echo_all(self, data):
        """Sends and receives at a time, and ends the sending; all must come back before the end."""
        connection = self.connect()
        with concurrent.futures.ThreadPoolExecutor() as pool:

            def send():
                connection.sendall(data)
                connection.shutdown(socket.SHUT_WR)

            sent = pool.submit(send)
            answer = self.receive(connection, len(data) + 1)
            sent.result()
        self.assertEqual(len(answer), len(data))
        self.assertTrue(answer == data)

    def echo_datagrams(self, datagrams, count, seed):
        for number in range(count):
            data = random_bytes(1 + (number * 997 + seed) % 9000, seed + number)
            datagrams.send(data)
            self.assertTrue(datagrams.recv(LARGEST_DATAGRAM + 1) == data)

    def check_rest(self):
        """While nothing moves it takes next to no time of the processor."""

        def ticks():
            with open(f"/proc/{self.process.pid}/stat", encoding="utf-8") as file:
                fields = file.read().rpartition(")")[2].split()
            return int(fields[11]) + int(fields[12])

        before = ticks()
        time.sleep(1)
        self.assertLess(ticks() - before, os.sysconf("SC_CLK_TCK") / 4)

    def wait_for(self, *expected):
        """Waits for a line with these numbers behind the seconds."""
        seen = None
        end = time.monotonic() + LONG
        while seen != expected and time.monotonic() < end:
            seen = self.numbers(self.process.stdout.readline())[1:]
        self.assertEqual(seen, expected)

    def wait_for_end(self, connection):
        """Waits for the end of a connection, with nothing before it."""
        self.assertEqual(connection.recv(1), b"")


class Echo(Echoed):
    def test_connections_of_all_sizes(self):
        for size in 0, 1, 16383, 16384, 16385, 20 << 20:
            with self.subTest(size):
                self.echo_all(random_bytes(size))

    def test_back_and_forth(self):
        connection = self.connect()
        for number in range(300):
            self.echo(connection, b"%d" % number)

    def test_datagrams_of_all_sizes(self):
        datagrams = self.open_datagrams()
        for size in 0, 1, 1472, 16385, LARGEST_DATAGRAM:
            with self.subTest(size):
                data = random_bytes(size)
                datagrams.send(data)
                self.assertTrue(datagrams.recv(LARGEST_DATAGRAM + 1) == data)

    def test_senders_in_turn(self):
        """Each gets its own, also when several wait."""
        senders = [self.open_datagrams() for _ in range(5)]
        for turn in range(20):
            for number, sender in enumerate(senders):
                sender.send(b"%d %d" % (turn, number))
            for number, sender in reversed(list(enumerate(senders))):
                self.assertEqual(sender.recv(100), b"%d %d" % (turn, number))

    def test_all_at_once(self):
        with concurrent.futures.ThreadPoolExecutor(12) as pool:
            tasks = [
                pool.submit(self.echo_all, random_bytes((1 << 20) + seed, seed))
                for seed in range(8)
            ]
            for seed in range(4):
                datagrams = self.open_datagrams()
                tasks.append(pool.submit(self.echo_datagrams, datagrams, 100, seed))
            for task in tasks:
                task.result()
        seconds, still_open, opened, received, _ = self.end()
        self.assertEqual((still_open, opened, received), (0, 8, 400))
        self.assertLessEqual(seconds, time.monotonic() - self.begun)

    def test_many_connections(self):
        connections = [self.connect() for _ in range(200)]
        for number, connection in enumerate(connections):
            connection.sendall(b"%d" % number)
        for number, connection in reversed(list(enumerate(connections))):
            self.assertEqual(connection.recv(100), b"%d" % number)

    def test_who_does_not_read_holds_up_nobody(self):
        stuck = self.connect()
        stuck.setblocking(False)
        sent = 0

        def is_full():
            """Nothing moves any more: what was sent fills all buffers of both directions."""
            nonlocal sent
            try:
                while True:
                    sent += stuck.send(b"x" * 65536)
            except BlockingIOError:
                return not select.select([], [stuck], [], 1)[1]

        self.assertTrue(wait_until(is_full))
        self.check_rest()
        self.echo_all(random_bytes(1 << 20))
        self.echo_datagrams(self.open_datagrams(), 10, 1)
        # All that was taken still comes back.
        stuck.settimeout(LONG)
        stuck.shutdown(socket.SHUT_WR)
        received = 0
        while piece := stuck.recv(1 << 20):
            received += len(piece)
        self.assertEqual(received, sent)

    def test_reset_is_the_end_of_one(self):
        other = self.connect()
        for _ in range(20):
            connection = self.connect()
            connection.sendall(b"x" * 50000)
            reset(connection)
            self.echo(other, b"other")
        self.assertTrue(
            wait_until(lambda: self.numbers(self.process.stdout.readline())[1:3] == (1, 21))
        )


class Ipv6(Echoed):
    OPTIONS = ["-a", "::1"]
    HOST = "::1"

    def test_both(self):
        self.echo_all(random_bytes(100000))
        self.echo_datagrams(self.open_datagrams(), 10, 1)


class Status(Echoed):
    def test_line_each_second(self):
        for second in range(1, 4):
            self.assertEqual(
                self.process.stdout.readline(),
                f"{second} s: 0 open, 0 opened, 0 datagrams, 0 bytes\n",
            )
            self.assertGreaterEqual(time.monotonic() - self.begun, second)
            self.assertLess(time.monotonic() - self.begun, second + LONG)

    def test_numbers(self):
        first, second = self.connect(), self.connect()
        self.echo(first, b"x" * 100)
        self.echo(second, b"x" * 20)
        datagrams = self.open_datagrams()
        for data in b"", b"abc":
            datagrams.send(data)
            self.assertEqual(datagrams.recv(10), data)
        self.wait_for(2, 2, 2, 123)
        first.close()
        self.wait_for(1, 2, 2, 123)
        self.assertEqual(self.end()[1:], (0, 2, 2, 123))

    def test_goes_on_under_load(self):
        """The lines come although there is always a descriptor ready."""
        connection = self.connect()
        lines = 0
        while lines < 2:
            self.echo(connection, b"x" * 1000)
            if select.select([self.process.stdout], [], [], 0)[0]:
                self.numbers(self.process.stdout.readline())
                lines += 1
            self.assertLess(time.monotonic() - self.begun, LONG)


class SlowStatus(Echoed):
    OPTIONS = ["-i", "2"]

    def test_line_every_other_second(self):
        for second in 2, 4:
            self.assertEqual(self.numbers(self.process.stdout.readline())[0], second)
            self.assertGreaterEqual(time.monotonic() - self.begun, second)


class NoStatus(Echoed):
    """With no limit of time either, nothing but descriptors is left to wait for."""

    OPTIONS = ["-i", "0", "-t", "0"]

    def test_last_line_alone(self):
        connection = self.connect()
        self.echo(connection, b"x" * 10)
        self.assertEqual(self.end(), (0, 0, 1, 0, 10))

    def test_nothing_else_is_written(self):
        connection = self.connect()
        end = time.monotonic() + 1.5
        while time.monotonic() < end:
            self.echo(connection, b"x")
        self.assertEqual(select.select([self.process.stdout, connection], [], [], 0)[0], [])

    def test_does_not_spin(self):
        self.echo(self.connect(), b"x")
        self.check_rest()


class Idle(Echoed):
    OPTIONS = ["-t", "1"]

    def test_idle_one_is_closed_and_busy_one_is_not(self):
        begin = time.monotonic()
        idle, busy = self.connect(), self.connect()
        while not select.select([idle], [], [], 0)[0]:
            self.echo(busy, b"busy")
            self.assertLess(time.monotonic() - begin, LONG)
        self.wait_for_end(idle)
        self.assertGreaterEqual(time.monotonic() - begin, 1)
        self.echo(busy, b"busy")
        self.assertEqual(self.end()[1:3], (0, 2))

    def test_one_that_was_busy_is_closed_too(self):
        connection = self.connect()
        self.echo(connection, b"busy")
        begin = time.monotonic()
        self.wait_for_end(connection)
        self.assertLess(time.monotonic() - begin, LONG)

    def test_one_that_does_not_read_is_closed(self):
        stuck = self.connect()
        with self.assertRaises(OSError) as raised:
            while True:
                stuck.sendall(b"x" * 65536)
        self.assertIsInstance(raised.exception, (ConnectionResetError, BrokenPipeError))

    def test_many_end_together(self):
        for connection in [self.connect() for _ in range(100)]:
            self.wait_for_end(connection)
        self.assertEqual(self.end()[1:3], (0, 100))


class FewDescriptors(Echoed):
    """It waits for descriptors as long as it has none, and goes on then."""

    DESCRIPTORS = 24

    def start_options(self):
        def limit():
            resource.setrlimit(resource.RLIMIT_NOFILE, (self.DESCRIPTORS, self.DESCRIPTORS))

        return {"preexec_fn": limit}

    def tearDown(self):
        pass  # the case ends it

    def test_connections_without_number(self):
        connections = [self.connect() for _ in range(3 * self.DESCRIPTORS)]
        self.assertTrue(wait_until(lambda: self.log.read_text()))
        self.echo_datagrams(self.open_datagrams(), 10, 1)
        for connection in connections:
            self.echo(connection, b"at last")
            connection.close()
        self.process.send_signal(signal.SIGINT)
        self.assertEqual(poll(self.process, LONG), 0)
        said = self.log.read_text().splitlines()
        self.assertEqual(set(said), {"veltimers: accept: Too many open files"})
        pauses = (time.monotonic() - self.begun) / 0.5
        self.assertLessEqual(len(said), pauses + 1)

    def test_end_while_it_waits(self):
        connections = [self.connect() for _ in range(self.DESCRIPTORS)]
        self.assertTrue(wait_until(lambda: self.log.read_text()))
        self.process.send_signal(signal.SIGINT)
        self.assertEqual(poll(self.process, LONG), 0, self.log.read_text())
        for connection in connections:
            try:
                self.wait_for_end(connection)
            except ConnectionResetError:
                pass  # it was never accepted


class End(Echoed):
    def test_when_idle(self):
        self.assertEqual(self.end(signal.SIGINT)[1:], (0, 0, 0, 0))

    def test_when_nothing_moves(self):
        connections = [self.connect() for _ in range(10)]
        for connection in connections:
            self.echo(connection, b"x")
        self.assertEqual(self.end(signal.SIGTERM)[1:], (0, 10, 0, 10))
        for connection in connections:
            self.wait_for_end(connection)

    def test_in_the_midst(self):
        """All peers are told, whatever they are doing."""
        stuck, busy = self.connect(), self.connect()
        stuck.settimeout(0)
        try:
            while True:
                stuck.send(b"x" * 65536)
        except BlockingIOError:
            pass
        self.echo(busy, b"busy")
        self.process.send_signal(signal.SIGINT)
        try:
            busy.sendall(b"busy")
            while busy.recv(100):
                busy.sendall(b"busy")
        except (ConnectionResetError, BrokenPipeError):
            pass
        self.assertEqual(poll(self.process, LONG), 0, self.log.read_text())
        self.assertEqual(self.log.read_text(), "")
        self.assertEqual(self.numbers(self.process.stdout.readlines()[-1])[1:3], (0, 2))

    def test_port_is_free_afterwards(self):
        self.echo(self.connect(), b"x")
        self.end()
        process = self.start(
            [VELTIMERS, "-p", self.port], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True
        )
        self.assertIn(f"port {self.port},", process.stdout.readline())


class Terminal(Case):
    def test_interrupt_key(self):
        terminal, child = pty.openpty()
        self.addCleanup(os.close, terminal)

        def control():
            fcntl.ioctl(0, termios.TIOCSCTTY, 0)

        process = self.start(
            [VELTIMERS, "-p", "0"],
            stdin=child,
            stdout=subprocess.PIPE,
            stderr=child,
            start_new_session=True,
            preexec_fn=control,
        )
        os.close(child)
        self.assertIn(b"echoing", process.stdout.readline())
        os.write(terminal, termios.tcgetattr(terminal)[6][termios.VINTR])
        self.assertEqual(poll(process, LONG), 0)
        self.assertRegex(process.stdout.read(), rb"\d+ s: 0 open, 0 opened, 0 datagrams, 0 bytes\n$")


class Usage(Case):
    def test_bad_usage(self):
        for arguments in (
            ["extra"],
            ["--none"],
            ["-x"],
            ["-p"],
            ["-p", "65536"],
            ["-p", "-1"],
            ["-p", "http"],
            ["-t", "-1"],
            ["-t", "86401"],
            ["-i", "86401"],
            ["-i", "1s"],
        ):
            with self.subTest(arguments):
                answer = run_to_end(VELTIMERS, *arguments)
                self.assertEqual((answer.returncode, answer.stdout), (2, ""))
                self.assertTrue(answer.stderr)

    def test_help_and_version(self):
        answer = run_to_end(VELTIMERS, "--help")
        self.assertEqual((answer.returncode, answer.stderr), (0, ""))
        self.assertIn("usage: veltimers", answer.stdout)
        for option in "-a", "-p", "-t", "-i":
            self.assertIn(option, answer.stdout)
        answer = run_to_end(VELTIMERS, "--version")
        self.assertEqual((answer.returncode, answer.stdout), (0, "veltimers 1.0.0\n"))

    def test_address_that_is_none(self):
        for address in "localhost", "127.0.0.x", "":
            answer = run_to_end(VELTIMERS, "-a", address)
            self.assertEqual((answer.returncode, answer.stdout), (1, ""))
            shown = address or "''"
            self.assertEqual(answer.stderr, f"veltimers: {shown}: not a numeric address\n")

    def test_port_in_use(self):
        for kind in socket.SOCK_STREAM, socket.SOCK_DGRAM:
            with self.subTest(kind), socket.socket(socket.AF_INET, kind) as other:
                other.bind(("127.0.0.1", 0))
                if kind == socket.SOCK_STREAM:
                    other.listen()
                port = other.getsockname()[1]
                answer = run_to_end(VELTIMERS, "-p", port)
                self.assertEqual((answer.returncode, answer.stdout), (1, ""))
                self.assertEqual(
                    answer.stderr,
                    f"veltimers: cannot listen on 127.0.0.1 port {port}: Address already in use\n",
                )


if __name__ == "__main__":
    main(1)
