#!/usr/bin/env python3
"""Drives veloffline, the backend of its own, over directories: veloffline_check.py VELOFFLINE [CASE]..."""
import os
import subprocess

from cases import LONG, Case, main, program, random_bytes

VELOFFLINE = program(1)

IS_ROOT = os.geteuid() == 0  # to whom every file can be read


class Veloffline(Case):
    def setUp(self):
        super().setUp()
        self.site = self.here / "site"
        (self.site / "example.org" / "sub").mkdir(parents=True)
        (self.site / "example.org:8080").mkdir()
        (self.site / "example.org" / "index.html").write_bytes(b"home")
        (self.site / "example.org" / "a?b=c").write_bytes(b"query")
        (self.site / "example.org" / "a%20+b").write_bytes(b"as it stands")
        (self.site / "example.org" / "empty").write_bytes(b"")
        (self.site / "example.org" / "sub" / "index.html").write_bytes(b"below")
        (self.site / "example.org:8080" / "a").write_bytes(b"other port")
        (self.site / "example.org" / "loop").mkdir()
        (self.here / "secret").write_bytes(b"secret")

    def fetch(self, *arguments, **options):
        options = {"capture_output": True, "timeout": LONG, "cwd": self.here} | options
        return subprocess.run([VELOFFLINE, *arguments], check=False, **options)

    def check(self, url, content):
        result = self.fetch("site", url)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, content, b""), url)

    def check_failure(self, code, words, *arguments, **options):
        result = self.fetch(*arguments, **options)
        self.assertEqual((result.returncode, result.stdout or b""), (code, b""), arguments)
        self.assertIn(words, result.stderr.decode())

    def test_files(self):
        for url, content in (("http://example.org/", b"home"),
                             ("http://example.org/index.html", b"home"),
                             ("http://example.org/a?b=c", b"query"),
                             ("http://example.org/a%20+b", b"as it stands"),
                             ("http://example.org/empty", b""),
                             ("http://example.org/a?b=c#part", b"query"),
                             ("http://example.org/sub/", b"below"),
                             ("http://example.org:8080/a", b"other port")):
            with self.subTest(url):
                self.check(url, content)

    def test_large_file(self):
        for size in 16383, 16384, 16385, 1 << 20:
            content = random_bytes(size)
            (self.site / "example.org" / "large").write_bytes(content)
            self.check("http://example.org/large", content)

    def test_redirect_to_a_directory(self):
        self.check("http://example.org/sub", b"below")

    def test_other_status(self):
        for status, url in ((404, "http://example.org/none"), (404, "http://example.net/"),
                            (404, "http://example.org/loop"), (404, "http://example.org/sub?x"),
                            (403, "http://example.org/../../secret"), (403, "http://../secret"),
                            (403, "http://example.org/sub/.."), (403, "http://./secret")):
            with self.subTest(url):
                self.check_failure(22, f"{url}: answered with status {status}\n", "site", url)

    def test_what_is_no_file(self):
        os.mkfifo(self.site / "example.org" / "pipe")
        self.check_failure(22, "status 404", "site", "http://example.org/pipe")
        (self.site / "example.org" / "closed").write_bytes(b"x")
        (self.site / "example.org" / "closed").chmod(0)
        if not IS_ROOT:
            self.check_failure(22, "status 403", "site", "http://example.org/closed")

    def test_mistakes(self):
        self.check_failure(3, "only http:// is supported", "site", "https://example.org/")
        for url in "example.org", "", "http://", "http:///example.org/a":
            self.check_failure(3, f"{url or repr('')}: the URL is not valid", "site", url)
        for directory, reason in (("none", "No such file or directory"), ("secret", "Not a directory")):
            self.check_failure(1, f"{directory}: {reason}", directory, "http://example.org/")
        for arguments in (), ("site",), ("site", "http://example.org/", "more"):
            self.check_failure(2, "are needed", *arguments)
        self.check_failure(2, "no such option", "-x", "site", "http://example.org/")

    def test_full_disk(self):
        with open("/dev/full", "wb") as full:
            self.check_failure(23, "cannot write to standard output", "site", "http://example.org/",
                               capture_output=False, stdout=full, stderr=subprocess.PIPE)

    def test_log(self):
        result = self.fetch("-v", "site", "https://example.org/")
        self.assertEqual((result.returncode, result.stdout), (3, b""))
        result = self.fetch("--version")
        self.assertEqual((result.returncode, result.stdout), (0, b"veloffline 1.0.0\n"))

    def test_every_allocation_fails_once(self):
        """Whatever fails, the program says so. A redirect whose Location cannot be looked up for want of
        memory is a protocol error to the library."""
        directory = self.here / "sweep"
        directory.mkdir()
        database, stacks = directory / "velmallocfail.db", -1
        for _ in range(300):
            result = self.fetch("../site", "http://example.org/sub", cwd=directory,
                                env=os.environ | {"VELMALLOC_FAILMODE": "1"})
            if result.returncode == 0:
                self.assertEqual(result.stdout, b"below")
            else:
                self.assertEqual(result.returncode, 1, result.stderr)
                self.assertRegex(result.stderr, rb"\nveloffline: .*(not enough memory|protocol error)\n\Z")
            count = database.read_bytes().count(b"\n")
            if count == stacks:
                break
            stacks = count
        self.assertEqual((result.returncode, count), (0, stacks))
        self.assertGreater(stacks, 20)


if __name__ == "__main__":
    main(1)
