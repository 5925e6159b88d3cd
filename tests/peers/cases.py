"""What the checks of the programs share: running a program as a child that is always ended, a
server on the loopback that follows a script, and a report that counts every case."""
import hashlib
import os
import pathlib
import random
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import xml.etree.ElementTree as ET

# Programs speak English here, whoever runs the tests.
os.environ["LC_ALL"] = "C.UTF-8"

# A limit for whatever should take no time at all, on a machine that is busy.
LONG = 60


def program(number):
    """The path of a program under test, by its number among the arguments."""
    return os.path.abspath(sys.argv[number])


def sanitized(path):
    """Whether a program was built with the address sanitizer, which makes it larger and slower."""
    return b"__asan_init" in pathlib.Path(path).read_bytes()


def need_program(name, package):
    path = shutil.which(name, path=os.environ.get("PATH", "") + ":/usr/sbin:/sbin")
    if not path:
        raise AssertionError(
            f"there is no program {name}: ./dev test installs it, or: apt-get install {package}"
        )
    return path


def random_bytes(size, seed=1):
    return random.Random(seed).randbytes(size)


def digest(data):
    return hashlib.sha256(data).hexdigest()


def wait_until(condition, seconds=LONG):
    """Waits for a condition; returns whether it came true."""
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.01)
    return True


def poll(process, seconds):
    """The exit code of a process that ends within the time, or None."""
    try:
        return process.wait(seconds)
    except subprocess.TimeoutExpired:
        return None


def run_to_end(path, *arguments):
    """Runs a program that ends by itself; what it answers is text."""
    return subprocess.run(
        [path, *map(str, arguments)], capture_output=True, text=True, timeout=LONG, check=False
    )


class Case(unittest.TestCase):
    """A case with an empty directory that is removed afterwards."""

    maxDiff = 2000

    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="velcheck")
        self.addCleanup(directory.cleanup)
        self.here = pathlib.Path(directory.name)
        os.chmod(self.here, 0o755)

    def start(self, arguments, **options):
        """Starts a child that is ended with the case."""
        process = subprocess.Popen([str(word) for word in arguments], **options)

        def end():
            if process.poll() is None:
                process.kill()
            process.wait()
            for stream in (process.stdin, process.stdout, process.stderr):
                if stream:
                    stream.close()

        self.addCleanup(end)
        return process


class Script:
    """A server that calls handler(connection, head) for each connection, on a thread of its own,
    once it has read up to the empty line of a request. A handler may return bytes to send."""

    def __init__(self, case, handler, host="127.0.0.1"):
        family = socket.AF_INET6 if ":" in host else socket.AF_INET
        self.listener = socket.create_server((host, 0), family=family, backlog=64)
        self.port = self.listener.getsockname()[1]
        self.url = f"http://127.0.0.1:{self.port}"
        self.handler = handler
        self.heads = []
        self.closing = threading.Event()
        self.threads = [threading.Thread(target=self.accept)]
        self.threads[0].start()
        case.addCleanup(self.close)

    def accept(self):
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:
                return
            if self.closing.is_set():
                connection.close()
                return
            thread = threading.Thread(target=self.serve, args=(connection,))
            self.threads.append(thread)
            thread.start()

    def serve(self, connection):
        connection.settimeout(LONG)
        with connection:
            try:
                head = read_head(connection)
                self.heads.append(head.decode("latin-1"))
                answer = self.handler(connection, self.heads[-1])
                if answer is not None:
                    connection.sendall(answer)
                    connection.shutdown(socket.SHUT_WR)
                    while connection.recv(65536):  # closing with data unread would reset
                        pass
            except OSError:
                pass  # the client has gone, which is its affair

    def close(self):
        self.closing.set()
        try:
            socket.create_connection(self.listener.getsockname()[:2], LONG).close()
        except OSError:
            pass
        for thread in self.threads:
            thread.join(LONG)
        self.listener.close()


def read_head(connection):
    head = b""
    while not head.endswith(b"\r\n\r\n"):
        byte = connection.recv(1)
        if not byte:
            break
        head += byte
    return head


def reset(connection):
    """Closes so that the peer sees a reset."""
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


class _Result(unittest.TextTestResult):
    def __init__(self, *arguments):
        super().__init__(*arguments)
        self.names = []

    def startTest(self, test):
        self.names.append(test.id())
        self.begin = time.monotonic()
        super().startTest(test)

    def stopTest(self, test):
        super().stopTest(test)
        self.stream.writeln(f"    {time.monotonic() - self.begin:.1f} s")


def main(arguments):
    """Runs the cases of the calling script, which takes this many arguments and then, perhaps, the
    names of the cases to run. The result goes where GTEST_OUTPUT says, as for a GoogleTest."""
    if len(sys.argv) <= arguments:
        sys.exit(f"usage: {sys.argv[0]} PROGRAM... [CASE...]")
    names = sys.argv[arguments + 1 :]
    loader = unittest.defaultTestLoader
    module = sys.modules["__main__"]
    if names:
        suite = loader.loadTestsFromNames(names, module)
    else:
        suite = loader.loadTestsFromModule(module)
    result = unittest.TextTestRunner(resultclass=_Result, verbosity=2, stream=sys.stdout).run(suite)
    bad = {test.id() for test, _ in result.failures + result.errors}
    output = re.match(r"xml:(.+)", os.environ.get("GTEST_OUTPUT", ""))
    if output:
        root = ET.Element("testsuites", tests=str(len(result.names)), disabled="0", errors="0")
        root.set("failures", str(len(bad) + (not result.names)))
        for name in result.names:
            case = ET.SubElement(root, "testcase", name=name)
            if name in bad:
                ET.SubElement(case, "failure")
        pathlib.Path(output[1]).parent.mkdir(parents=True, exist_ok=True)
        ET.ElementTree(root).write(output[1])
    sys.exit(0 if result.wasSuccessful() and result.names else 1)
