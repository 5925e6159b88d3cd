#!/usr/bin/env python3
"""Drives veljson beside the reader of Python: veljson_check.py VELJSON [CASE]..."""
import json
import subprocess

from cases import LONG, Case, main, program

VELJSON = program(1)
SAMPLE = {"name": "web", "ports": [80, 8080, {"tls": False}], "": None, "half": 0.5,
          "text": "\"\u00e4\n", "#": "a key"}


class Veljson(Case):
    def setUp(self):
        super().setUp()
        (self.here / "a.json").write_text(json.dumps(SAMPLE))

    def run_veljson(self, *arguments, **options):
        options = {"capture_output": True, "timeout": LONG, "cwd": self.here} | options
        return subprocess.run([VELJSON, *arguments], check=False, **options)

    def good(self, *arguments, **options):
        result = self.run_veljson(*arguments, **options)
        self.assertEqual((result.returncode, result.stderr), (0, b""), arguments)
        return result.stdout.decode()

    def check_failure(self, code, message, *arguments, **options):
        result = self.run_veljson(*arguments, **options)
        self.assertEqual((result.returncode, result.stdout), (code, b""), arguments)
        self.assertEqual(result.stderr.decode().splitlines()[0], f"veljson: {message}")

    def test_document(self):
        self.assertEqual(json.loads(self.good("a.json")), SAMPLE)
        text = json.dumps(SAMPLE).encode()
        self.assertEqual(json.loads(self.good(input=text)), SAMPLE)
        self.assertEqual(json.loads(self.good("-", input=text)), SAMPLE)

    def test_paths(self):
        for words, value in ((["name"], "web"), (["ports", "#", "1"], 8080), ([""], None),
                             (["ports", "#", "2", "tls"], False), (["ports"], SAMPLE["ports"])):
            with self.subTest(words):
                self.assertEqual(json.loads(self.good("a.json", *words)), value)
        self.assertEqual(self.good("--raw", "a.json", "text"), SAMPLE["text"] + "\n")
        self.assertEqual(self.good("--type", "a.json", "half"), "number\n")
        self.assertEqual(self.good("--keys", "a.json").split("\n"), sorted(SAMPLE) + [""])

    def test_set(self):
        self.assertEqual(json.loads(self.good("--set", "[1]", "a.json", "name"))["name"], [1])
        self.assertEqual(json.loads(self.good("--set", "plain", "a.json", "new"))["new"], "plain")
        changed = json.loads(self.good("--set", "5", "a.json", "ports", "#", "3"))
        self.assertEqual(changed["ports"], SAMPLE["ports"] + [5])

    def test_failures(self):
        nowhere = "the path leads nowhere"
        self.check_failure(2, f"none: {nowhere}", "a.json", "none")
        self.check_failure(2, f"# 7: {nowhere}", "a.json", "ports", "#", "7")
        self.check_failure(2, f"# x: {nowhere}", "a.json", "ports", "#", "x")
        self.check_failure(2, f"'': {nowhere}", "a.json", "ports", "")
        self.check_failure(2, "--keys: this is not an object", "--keys", "a.json", "name")
        self.check_failure(3, "--none: there is no such option", "--none")
        self.check_failure(3, "--set, --type and --keys exclude each other", "-t", "-k", "a.json")
        self.check_failure(1, "none: No such file or directory", "none")
        self.check_failure(1, "'': No such file or directory", "")
        self.check_failure(1, ".: Is a directory", ".")
        self.check_failure(1, "standard input: expecting JSON but got an empty string", input=b"")
        self.check_failure(1, "standard input: maximum parsing depth 100 reached",
                           input=b"[" * 200 + b"]" * 200)


if __name__ == "__main__":
    main(1)
