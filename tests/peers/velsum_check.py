#!/usr/bin/env python3
"""Drives velsum beside sha256sum and sha1sum: velsum_check.py VELSUM [CASE]..."""
import os
import pty
import random
import re
import select
import signal
import subprocess
import time

from cases import LONG, Case, main, need_program, poll, program, random_bytes, wait_until

VELSUM = program(1)
PEERS = {"sha256": need_program("sha256sum", "coreutils"), "sha1": need_program("sha1sum", "coreutils")}
ENVIRONMENT = os.environ | {"LC_ALL": "C"}


class Beside(Case):
    """Both programs are run in one directory, and must say the same."""

    def run_program(self, *command, data=b""):
        done = subprocess.run(
            command,
            input=data,
            capture_output=True,
            cwd=self.here,
            env=ENVIRONMENT,
            timeout=LONG,
            check=False,
        )
        errors = re.sub(rb"(?m)^(/\S*/)?(vel|sha1|sha256)sum:", b"sum:", done.stderr)
        return done.returncode, done.stdout, errors

    def run_velsum(self, *arguments, data=b""):
        return self.run_program(VELSUM, *arguments, data=data)

    def compare(self, *arguments, algorithm="sha256", data=b""):
        """Returns the common answer: code, output, errors."""
        peer = self.run_program(PEERS[algorithm], *arguments, data=data)
        ours = self.run_velsum("-a", algorithm, *arguments, data=data)
        self.assertEqual(ours, peer, arguments)
        return ours

    def write(self, name, data):
        path = self.here / os.fsdecode(name)
        path.write_bytes(data)
        return os.fsdecode(name)

    def write_some(self, count):
        """Files of sizes around those of blocks and pieces, the large ones first, so that later
        results come before earlier ones."""
        sizes = [3 << 20, (1 << 20) + 1, 262145, 262144, 262143, 65, 64, 63, 57, 56, 55, 1, 0]
        return [
            self.write(f"file{i}", random_bytes(sizes[i % len(sizes)], i)) for i in range(count)
        ]


class Printing(Beside):
    def test_sizes(self):
        names = self.write_some(26)
        for algorithm in PEERS:
            for jobs in "1", "2", "7", "64":
                with self.subTest(algorithm=algorithm, jobs=jobs):
                    peer = self.run_program(PEERS[algorithm], *names)
                    ours = self.run_velsum("-a", algorithm, "-j", jobs, *names)
                    self.assertEqual(ours, peer)

    def test_names(self):
        names = [b"a b", b"back\\slash", b"line\nfeed", b"all\\\n\r", b"return\r", b"\xff\x01", b"-n"]
        names = [self.write(name, name) for name in names]
        for name in names:
            with self.subTest(name):
                self.assertEqual(self.compare("--", name)[0], 0)
        code, output, _ = self.compare("--", *names)
        self.write("list", output)
        self.assertEqual((code, self.compare("-c", "list")[0]), (0, 0))

    def test_standard_input(self):
        self.write("a", b"a")
        for arguments in ([], ["-"], ["a", "-"], ["-", "a", "-"], ["--", "-", "a"], ["-", "-"]):
            with self.subTest(arguments):
                self.assertEqual(self.compare(*arguments, data=b"input" * 99999)[0], 0)

    def test_what_cannot_be_read(self):
        self.write("a", b"a")
        (self.here / "directory").mkdir()
        (self.here / "loop").symlink_to("loop")
        names = ["missing", "a", "directory", "loop", "a/b", "missing too", "", "a"]
        code, output, errors = self.compare(*names)
        self.assertEqual((code, output.count(b"\n"), errors.count(b"\n")), (1, 2, 6))

    def test_many_files(self):
        names = [self.write(f"{i:04}", b"%d" % i) for i in range(2000)]
        self.assertEqual(self.compare(*names)[1].count(b"\n"), 2000)

    def test_fifo(self):
        os.mkfifo(self.here / "fifo")
        process = self.start(
            [VELSUM, "fifo"], stdout=subprocess.PIPE, cwd=self.here, env=ENVIRONMENT
        )
        with open(self.here / "fifo", "wb") as writer:
            writer.write(b"x" * 300000)
        expected = self.run_program(PEERS["sha256"], data=b"x" * 300000)[1]
        self.assertEqual(process.communicate(timeout=LONG)[0], expected.replace(b"-", b"fifo"))

    def test_full_output(self):
        self.write("a", b"a")
        for arguments in ["a"], ["--help"]:
            with open("/dev/full", "wb") as full:
                done = subprocess.run(
                    [VELSUM, *arguments],
                    stdout=full,
                    stderr=subprocess.PIPE,
                    cwd=self.here,
                    check=False,
                )
            self.assertEqual(done.returncode, 1)
            self.assertEqual(done.stderr, b"velsum: standard output: No space left on device\n")


class Checking(Beside):
    def test_lists(self):
        names = self.write_some(13)
        for algorithm in PEERS:
            output = self.compare(*names, algorithm=algorithm)[1]
            self.write("list", output)
            self.assertEqual(self.compare("-c", "list", algorithm=algorithm)[0], 0)
            self.assertEqual(self.compare("-c", algorithm=algorithm, data=output)[0], 0)
            os.remove(self.here / names[3])
            self.write(names[7], b"changed")
            self.write("list", output + b"no line\n" + output)
            code, verdicts, errors = self.compare("-c", "list", algorithm=algorithm)
            self.assertEqual((code, verdicts.count(b": FAILED")), (1, 4))
            self.assertEqual(errors.count(b"WARNING"), 3)
            names = self.write_some(13)

    def test_lists_that_fail(self):
        self.write("empty", b"")
        self.write("comment", b"# a comment\n\n")
        self.write("other", b"no line\n")
        code, _, errors = self.compare("-c", "missing", "empty", "comment", "other")
        self.assertEqual((code, errors.count(b"\n")), (1, 4))
        self.assertEqual(self.compare("-c", data=b"no line")[0], 1)
        code, _, errors = self.run_velsum("-c", ".")
        self.assertEqual((code, errors), (1, b"sum: .: Is a directory\n"))

    def lines(self):
        """Lines of all forms, good and bad, for a file a."""
        digest = self.compare("a")[1].split()[0].decode()
        return [
            f"{digest}  a",
            f"{digest} *a",
            f"{digest} a",
            f"{digest}\ta",
            f" \t{digest}  a",
            f"{digest.upper()}  a",
            f"{digest}  a ",
            f"{digest}   a",
            f"{digest}  -",
            f"{digest}  ",
            f"{digest} ",
            digest,
            f"{digest}x  a",
            f"{digest[1:]}  a",
            f"{digest[1:]}g  a",
            f"\\{digest}  a\\\\",
            f"\\{digest}  \\a",
            f"\\{digest}  a\\",
            f"\\{digest}  b\\\\c",
            f"SHA256 (a) = {digest}",
            f"SHA256(a)={digest}",
            f"SHA256  (a) = {digest}",
            f"SHA256 (a {digest}",
            f"SHA256 (a)  {digest}",
            f"SHA256 (a) = {digest}0",
            f"SHA256 (a)) = {digest}",
            f"\\SHA256 (b\\\\c) = {digest}",
            f"SHA1 (a) = {digest}",
            "#",
            "",
        ]

    def test_each_line(self):
        self.write("a", b"a")
        self.write(b"b\\c", b"a")
        for line in self.lines():
            for end in "", "\n", "\r\n":
                with self.subTest(line + end):
                    self.write("list", (line + end).encode())
                    self.compare("-c", "list")
                    self.compare("-c", "-", data=(line + end).encode())

    def test_lines_together(self):
        self.write("a", b"a")
        self.write(b"b\\c", b"a")
        lines = self.lines()
        choose = random.Random(1)
        codes = set()
        for _ in range(40):
            text = "\n".join(choose.choices(lines, k=choose.randint(2, 12)))
            with self.subTest(text):
                self.write("list", text.encode())
                codes.add(self.compare("-c", "list")[0])
        self.assertEqual(codes, {0, 1})


class Terminal(Beside):
    """Standard error is a terminal."""

    def start_on_terminal(self, *arguments, **options):
        self.terminal, child = pty.openpty()
        self.addCleanup(os.close, self.terminal)
        self.shown = b""
        process = self.start(
            [VELSUM, *arguments], stderr=child, cwd=self.here, env=ENVIRONMENT, **options
        )
        os.close(child)
        return process

    def read_terminal(self):
        """Whatever is there; returns all so far."""
        while select.select([self.terminal], [], [], 0)[0]:
            try:
                piece = os.read(self.terminal, 65536)
            except OSError:  # nobody has it open any more
                break
            self.shown += piece
        return self.shown

    def test_bar(self):
        os.mkfifo(self.here / "fifo")
        self.write("file", random_bytes(3 << 20))
        process = self.start_on_terminal("file", "fifo", stdout=subprocess.PIPE)
        with open(self.here / "fifo", "wb") as writer:
            first = process.stdout.readline()
            end = time.monotonic() + LONG
            while b"MiB of 3.0 MiB" not in self.read_terminal() and time.monotonic() < end:
                writer.write(b"x" * 1000)
                writer.flush()
                time.sleep(0.01)
        self.assertIn(b"[====", self.shown)
        self.assertEqual(process.wait(LONG), 0)
        second = process.stdout.read()
        self.assertRegex(first + second, rb"^[0-9a-f]{64}  file\n[0-9a-f]{64}  fifo\n$")
        last = self.read_terminal().split(b"\r")[-2]
        self.assertEqual(last.strip(), b"")

    def test_no_bar_for_what_is_quick(self):
        self.write("file", b"quick")
        process = self.start_on_terminal("file", stdout=subprocess.DEVNULL)
        self.assertEqual(process.wait(LONG), 0)
        self.assertEqual(self.read_terminal(), b"")


class Stop(Beside):
    """A signal ends the program in an orderly way, whatever it waits for."""

    def check_end(self, process, number=signal.SIGINT):
        process.send_signal(number)
        self.assertEqual(poll(process, LONG), 128 + number)
        self.assertEqual(process.stderr.read(), b"velsum: interrupted\n")

    def start_velsum(self, *arguments):
        return self.start(
            [VELSUM, *arguments],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            cwd=self.here,
        )

    def test_while_it_reads_input(self):
        for number in signal.SIGINT, signal.SIGTERM:
            self.write("a", b"a")
            process = self.start_velsum("a", "-", "a")
            process.stdin.write(b"x" * 200000)  # more than a pipe holds: it is being read
            process.stdin.flush()
            self.check_end(process, number)
            self.assertLessEqual(process.stdout.read().count(b"\n"), 1)

    def test_while_it_reads_a_list(self):
        process = self.start_velsum("-c")
        process.stdin.write(b"x" * 200000)
        process.stdin.flush()
        self.check_end(process)

    def test_while_it_hashes(self):
        (self.here / "large").touch()
        os.truncate(self.here / "large", 1 << 40)
        process = self.start_velsum("-j", "3", *["large"] * 100)

        def reads():
            counters = (self.here / f"/proc/{process.pid}/io").read_text()
            return int(re.search(r"rchar: (\d+)", counters)[1]) > 4 << 20

        self.assertTrue(wait_until(reads))
        self.check_end(process)
        self.assertEqual(process.stdout.read(), b"")


class Usage(Beside):
    def test_help_and_version(self):
        code, output, errors = self.run_velsum("--help")
        self.assertEqual((code, errors), (0, b""))
        self.assertIn(b"usage: velsum", output)
        for option in b"--algorithm", b"--check", b"--jobs", b"--version":
            self.assertIn(option, output)
        self.assertEqual(self.run_velsum("--version")[:2], (0, b"velsum 1.0.0\n"))

    def test_bad_usage(self):
        for arguments in (
            ["--none"],
            ["-x"],
            ["-j"],
            ["-j", "0"],
            ["-j", "-1"],
            ["-j", "1025"],
            ["-j", "many"],
            ["-a", "md5"],
            ["-a"],
        ):
            with self.subTest(arguments):
                code, output, errors = self.run_velsum(*arguments)
                self.assertEqual((code, output), (2, b""))
                self.assertRegex(errors, rb"^sum: .*\n(Try 'velsum --help'.)\n$")


if __name__ == "__main__":
    main(1)
