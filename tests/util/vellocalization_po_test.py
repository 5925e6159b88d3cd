#!/usr/bin/python3
"""Compares what the library reads of catalogues of real programs with what polib does.

vellocalization_po_test.py FILTER DIRECTORY: the program FILTER loads a text domain and looks strings
up; the directories below DIRECTORY are text domains. An escape stands for the character itself in
the library, so that polib's strings are escaped again and then read like this."""
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

import polib

FILTER = ""
DIRECTORY = ""
DOMAINS = ("admindocs", "flatpages", "openssh", "redirects")
INVALID_SYNTAX = 209


def plain(text):
    """A string of polib's as the library has it: without the backslashes of its escapes."""
    return re.sub(r"\\(.)", r"\1", polib.escape(text), flags=re.DOTALL)


def ask(localepath, domain, questions=()):
    """The code of the load, the languages, the answer to each question and the log."""
    text = "".join(f"{language}\0{string}\0" for language, string in questions)
    done = subprocess.run([FILTER, localepath, domain], input=text.encode(), capture_output=True,
                          timeout=60, check=True)
    code, languages, *answers, end = done.stdout.decode().split("\0")
    assert end == "" and len(answers) == len(questions)
    answers = [answer[1:] if answer[0] == "+" else None for answer in answers]
    log = re.findall(r"^\S+ \S+ (\S+):\d+\[(\d+)\] (.*)$", done.stderr.decode(), re.MULTILINE)
    return int(code), languages, answers, log


def unrecognized(path):
    """The lines of the log about a file with contexts and plural forms."""
    lines = []
    with open(path, encoding="utf-8") as file:
        for number, line in enumerate(file, start=1):
            if re.match(r"msgctxt|msgid_plural|msgstr\[", line):
                lines.append(("util/vellocalization", "6",
                              f"unrecognized line '{line.rstrip()}' in {path} line {number}"))
    return lines


class Catalogues(unittest.TestCase):
    def check_domain(self, localepath, domain):
        files = sorted(os.listdir(os.path.join(localepath, domain)))
        questions, expected = [], []
        for name in files:
            language = name.removesuffix(".po")
            entries = polib.pofile(os.path.join(localepath, domain, name))
            found = [entry for entry in entries if not entry.obsolete]
            self.assertGreater(len(found), 2, name)
            for entry in found:
                questions.append((language, plain(entry.msgid)))
                expected.append(plain(entry.msgstr))
            questions.append((language, "no string of any program"))
            expected.append(None)
        code, languages, answers, log = ask(localepath, domain, questions)
        self.assertEqual(code, 0, log)
        self.assertEqual(languages, "/".join(name.removesuffix(".po") for name in files))
        for question, answer, translation in zip(questions, answers, expected):
            self.assertEqual(answer, translation, question)
        self.assertEqual(log, [])
        return len(questions)

    def test_catalogues(self):
        strings = sum(self.check_domain(DIRECTORY, domain)
                      for domain in DOMAINS)
        self.assertGreater(strings, 60)

    def test_catalogues_with_carriage_returns(self):
        for domain in DOMAINS:
            with self.subTest(domain), tempfile.TemporaryDirectory() as path:
                shutil.copytree(os.path.join(DIRECTORY, domain), os.path.join(path, domain))
                for name in os.listdir(os.path.join(path, domain)):
                    with open(os.path.join(path, domain, name), "r+b") as file:
                        content = file.read().replace(b"\n", b"\r\n")
                        file.seek(0)
                        file.write(content)
                self.check_domain(path, domain)

    def test_header(self):
        _, _, (header,), _ = ask(DIRECTORY, "redirects", [("ja", "")])
        self.assertTrue(header.startswith("Project-Id-Version: djangonReport-Msgid-Bugs-To: n"))
        self.assertTrue(header.endswith("Plural-Forms: nplurals=1; plural=0;n"))

    def test_contexts_and_plural_forms(self):
        path = os.path.join(DIRECTORY, "humanize", "fr.po")
        first = polib.pofile(path)[0]
        code, languages, (title,), log = ask(DIRECTORY, "humanize", [("fr", plain(first.msgid))])
        self.assertEqual(code, INVALID_SYNTAX)
        self.assertEqual(languages, "fr")
        self.assertEqual(title, plain(first.msgstr), "what precedes the first context is there")
        lines = unrecognized(path)
        self.assertGreater(len(lines), 50)
        self.assertEqual(log, lines + [
            ("util/vellocalization", "7",
             f"unable to load po file {path}, error 209 (invalid syntax)")])


if __name__ == "__main__":
    DIRECTORY = os.path.abspath(sys.argv.pop())
    FILTER = os.path.abspath(sys.argv.pop())
    unittest.main()
