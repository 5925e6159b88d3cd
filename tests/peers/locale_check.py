#!/usr/bin/env python3
"""Checks that the example programs speak all their languages:
locale_check.py SOURCES PROGRAMS [CASE]..., the directories of the sources and of the programs."""
import errno
import os
import pathlib
import re
import shutil
import subprocess
import sys

import polib

from cases import LONG, Case, main

SOURCES = pathlib.Path(sys.argv[1]).resolve()
PROGRAMS = pathlib.Path(sys.argv[2]).resolve()
CATALOGUES = sorted((SOURCES / "locale" / "vellib-tools").glob("*.po"))
NAMES = sorted(path.stem for path in SOURCES.glob("vel*.c"))

# What comes from the platform, and is translated where it is shown.
ERRNOS = (errno.EACCES, errno.EADDRINUSE, errno.EADDRNOTAVAIL, errno.EBADF, errno.EBUSY,
          errno.EEXIST, errno.EFBIG, errno.EINVAL, errno.EIO, errno.EISDIR, errno.ELOOP,
          errno.EMFILE, errno.ENAMETOOLONG, errno.ENOENT, errno.ENOMEM, errno.ENOSPC,
          errno.ENOTDIR, errno.ENXIO, errno.EPERM, errno.EPIPE, errno.EROFS)

LITERAL = r'"(?:[^"\\\n]|\\.)*"'
MARKED = re.compile(rf"\b(?:tr|N_)\(\s*({LITERAL}(?:\s*{LITERAL})*)\s*\)")
FORMAT = re.compile(r"%(?:%|[-+ 0#]*(?:\*|\d+)?(?:\.(?:\*|\d+))?(?:hh|h|ll|l|z|j|t)?[a-zA-Z])")


def marked_texts():
    """What the sources mark for translation."""
    texts = set()
    for source in [*SOURCES.glob("*.c"), *SOURCES.glob("*.h")]:
        for literals in MARKED.findall(source.read_text()):
            parts = re.findall(LITERAL, literals)
            text = "".join(part[1:-1] for part in parts)
            texts.add(re.sub(r"\\(.)", r"\1", text.replace(r"\n", "\n")))
    return texts


def library_texts():
    """What vel_error_string can give."""
    table = (SOURCES.parent / "src" / "util" / "velerror.cpp").read_text()
    return set(re.findall(r'\{VEL_ERROR_\w+, "([^"]*)"\}', table)) - {"success"}


def run(name, *arguments, **variables):
    """Runs a program with nothing but these variables of the locale."""
    environment = {key: value for key, value in os.environ.items()
                   if key not in ("LC_ALL", "LC_MESSAGES", "LANG", "LANGUAGE", "VELLIB_LOCALE")}
    return subprocess.run([name if os.sep in str(name) else PROGRAMS / name, *arguments],
                          env=environment | variables, capture_output=True, text=True,
                          timeout=LONG, check=False)


class Catalogues(Case):
    def test_there_are_two(self):
        self.assertEqual([path.stem for path in CATALOGUES], ["de", "fi"])

    def test_every_message_has_a_translation(self):
        texts = marked_texts() | library_texts() | {os.strerror(number) for number in ERRNOS}
        self.assertGreater(len(texts), 100)
        self.assertEqual([text for text in texts if "\n" in text], [])
        for path in CATALOGUES:
            with self.subTest(path=path.name):
                catalogue = {entry.msgid: entry.msgstr for entry in polib.pofile(str(path))}
                self.assertEqual(texts - {text for text in catalogue if catalogue[text]}, set())
                self.assertEqual(set(catalogue) - texts, set(), "no program says this")

    def test_translations_take_the_same_arguments(self):
        for path in CATALOGUES:
            for entry in polib.pofile(str(path)):
                with self.subTest(path=path.name, text=entry.msgid):
                    self.assertEqual(FORMAT.findall(entry.msgid), FORMAT.findall(entry.msgstr))
                    for text in entry.msgid, entry.msgstr:
                        self.assertEqual(text, text.strip())

    def test_the_library_reads_what_others_read(self):
        """To the library a backslash makes the next character literal, and a line has an end."""
        for path in CATALOGUES:
            header = True
            for line in path.read_text("utf-8").splitlines():
                self.assertLess(len(line.encode()), 4000)
                header = header and line != ""
                if not header and not line.startswith("#"):
                    self.assertRegex(line, r'\A(?:(?:msgid |msgstr )?"(?:[^"\\]|\\["\\])*")?\Z')


class Programs(Case):
    def test_each_program_helps_in_each_language(self):
        for path in CATALOGUES:
            catalogue = {entry.msgid: entry.msgstr for entry in polib.pofile(str(path))}
            for name in NAMES:
                with self.subTest(name=name, language=path.stem):
                    english = run(name, "--help", LC_ALL="C")
                    other = run(name, "--help", LC_ALL=f"{path.stem}_XX.UTF-8")
                    for result in english, other:
                        self.assertEqual((result.returncode, result.stderr), (0, ""))
                        for line in result.stdout.splitlines():
                            self.assertLess(len(line), 80)
                    # Each text of the catalogue that the one has, the other has translated.
                    flat = [" ".join(result.stdout.split()) for result in (english, other)]
                    found = [text for text in catalogue if len(text) > 15 and text in flat[0]]
                    self.assertGreater(len(found), 2)
                    self.assertEqual([text for text in found if catalogue[text] not in flat[1]], [])
                    paragraphs = re.findall(r"(?:\A|\n\n)([^ \n][^\n]*(?:\n[^ \n][^\n]*)*)(?=\n\n|\n\Z)",
                                            english.stdout)
                    plain = [" ".join(text.split()) for text in paragraphs]
                    self.assertEqual([text for text in plain if text not in catalogue
                                      and not text.startswith(("usage:", "OPTIONS:"))], [])

    def test_mistakes_name_the_option_and_the_value(self):
        for name in NAMES:
            for locale, words in (("C", "there is no such option"),
                                  ("de_DE.UTF-8", "diese Option gibt es nicht"),
                                  ("fi_FI.UTF-8", "tällaista valitsinta ei ole")):
                result = run(name, "--none=x", LC_ALL=locale)
                self.assertNotIn(result.returncode, (0, 1))
                self.assertEqual(result.stderr.splitlines()[0], f"{name}: --none: {words}")
        result = run("velserve", "-p", "http", ".", LANG="de_DE.UTF-8")
        self.assertIn("velserve: -p: keine Portnummer: http\n", result.stderr)
        result = run("velfetch", "--timeout", LANG="de_DE.UTF-8")
        self.assertIn("velfetch: --timeout: die Option braucht einen Wert\n", result.stderr)


class Choice(Case):
    """Which language is taken, and from where."""

    def word(self, program="velini", **variables):
        return run(program, "--help", **variables).stdout.split(":")[0]

    def test_language(self):
        for word, variables in (
            ("usage", {}),
            ("Aufruf", {"LANG": "de_DE.UTF-8"}),
            ("käyttö", {"LC_MESSAGES": "fi_FI.utf8", "LANG": "de_DE.UTF-8"}),
            ("Aufruf", {"LC_ALL": "de", "LC_MESSAGES": "fi_FI", "LANG": "fi"}),
            ("Aufruf", {"LC_ALL": "", "LC_MESSAGES": "", "LANG": "de_AT@euro"}),
            ("usage", {"LC_ALL": "C", "LANG": "de_DE.UTF-8"}),
            ("usage", {"LC_ALL": "C.UTF-8", "LANG": "de_DE.UTF-8"}),
            ("usage", {"LC_ALL": "sv_SE.UTF-8", "LANG": "de_DE.UTF-8"}),
            ("usage", {"LANG": "de_DE.ISO-8859-1"}),
            ("usage", {"LANG": "../de"}),
        ):
            with self.subTest(variables=variables):
                self.assertEqual(self.word(**variables), word)

    def test_named_directory(self):
        domain = self.here / "vellib-tools"
        domain.mkdir()
        (domain / "sv.po").write_text('msgid "usage:"\nmsgstr "användning:"\n', "utf-8")
        place = {"VELLIB_LOCALE": str(self.here)}
        self.assertEqual(self.word(LANG="sv_SE.UTF-8", **place), "användning")
        self.assertEqual(self.word(LANG="de_DE.UTF-8", **place), "usage")
        self.assertEqual(self.word(LANG="de_DE.UTF-8", VELLIB_LOCALE="/none"), "usage")
        (domain / "sv.po").write_text("nonsense\n")
        result = run("velini", "--help", LANG="sv_SE.UTF-8", **place)
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_installed(self):
        (self.here / "bin").mkdir()
        program = self.here / "bin" / "velini"
        shutil.copy(PROGRAMS / "velini", program)
        self.assertEqual(self.word(program, LANG="fi_FI.UTF-8"), "usage")
        shutil.copytree(SOURCES / "locale", self.here / "share" / "vellib" / "locale")
        self.assertEqual(self.word(program, LANG="fi_FI.UTF-8"), "käyttö")


if __name__ == "__main__":
    main(2)
