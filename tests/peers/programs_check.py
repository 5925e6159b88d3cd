#!/usr/bin/env python3
"""What holds for every example program: output that cannot be written, and closed standard streams:
programs_check.py SOURCES PROGRAMS [CASE]..., the directories of the sources and of the programs."""
import os
import pathlib
import signal
import socket
import subprocess
import sys
import urllib.request

from cases import LONG, Case, main, poll, wait_until

PROGRAMS = pathlib.Path(sys.argv[2]).resolve()
NAMES = sorted(path.stem for path in pathlib.Path(sys.argv[1]).glob("vel*.c"))


def closer(*descriptors):
    """Closes them in a child before it becomes the program."""
    return lambda: [os.close(descriptor) for descriptor in descriptors]


class Streams(Case):
    def run_program(self, *command, **options):
        return subprocess.run([PROGRAMS / command[0], *command[1:]], stderr=subprocess.PIPE,
                              cwd=self.here, text=True, timeout=LONG, check=False, **options)

    def check_unwritten(self, reason, *command, **options):
        answer = self.run_program(*command, **options)
        self.assertNotEqual(answer.returncode, 0, command)
        self.assertEqual(answer.stderr, f"{command[0]}: standard output: {reason}\n")

    def test_there_are_eight(self):
        self.assertEqual(len(NAMES), 8)

    def test_help_and_version_that_cannot_be_written(self):
        for name in NAMES:
            for option in "--help", "--version":
                with self.subTest(name=name, option=option):
                    with open("/dev/full", "wb") as full:
                        self.check_unwritten("No space left on device", name, option, stdout=full)
                    self.check_unwritten("Bad file descriptor", name, option, preexec_fn=closer(1))

    def test_output_longer_than_a_buffer(self):
        """What fails before the last flush counts as well."""
        (self.here / "long.json").write_text(str(list(range(100000))))
        for options in {"stdout": open("/dev/full", "wb")}, {"preexec_fn": closer(1)}:
            answer = self.run_program("veljson", "long.json", **options)
            self.assertEqual(answer.returncode, 4)
            self.assertIn("veljson: standard output: ", answer.stderr)
        (self.here / "long.ini").write_text("".join(f"key{i} = 1\n" for i in range(100000)))
        with open("/dev/full", "wb") as full:
            answer = self.run_program("velini", "long.ini", "list", stdout=full)
        self.assertEqual(answer.returncode, 5)
        self.assertIn("velini: standard output: ", answer.stderr)

    def test_input_that_is_closed(self):
        for command, code in (["velsum"], 1), (["veljson"], 1), (["velsum", "-c"], 1):
            answer = self.run_program(*command, stdout=subprocess.PIPE, preexec_fn=closer(0))
            self.assertEqual((answer.returncode, answer.stdout), (code, ""), command)
            self.assertIn("Bad file descriptor", answer.stderr)

    def test_what_is_opened_takes_no_standard_place(self):
        """A program without standard streams prints into none of its pipes and files."""
        (self.here / "file").write_bytes(b"x" * 1000)
        answer = self.run_program("velsum", "file", preexec_fn=closer(0, 1))
        self.assertEqual((answer.returncode, answer.stderr),
                         (1, "velsum: standard output: Bad file descriptor\n"))
        self.assertEqual((self.here / "file").read_bytes(), b"x" * 1000)

    def test_services_go_on_without_any(self):
        with socket.create_server(("127.0.0.1", 0)) as other:
            port = other.getsockname()[1]
        url = f"http://127.0.0.1:{port}/file"
        (self.here / "file").write_text("served")
        process = self.start([PROGRAMS / "velserve", "-p", port, self.here],
                             preexec_fn=closer(0, 1, 2))

        def answers():
            try:
                return urllib.request.urlopen(url, timeout=LONG).read() == b"served"
            except OSError:
                return False

        self.assertTrue(wait_until(lambda: answers() or process.poll() is not None))
        self.assertTrue(answers())
        process.send_signal(signal.SIGTERM)
        self.assertEqual(poll(process, LONG), 0)


if __name__ == "__main__":
    main(2)
