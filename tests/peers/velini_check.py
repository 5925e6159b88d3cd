#!/usr/bin/env python3
"""Drives velini beside the reader of Python: velini_check.py VELINI [CASE]..."""
import configparser
import os
import re
import stat
import subprocess

from cases import LONG, Case, main, need_program, program

VELINI = program(1)
STRACE = need_program("strace", "strace")

SAMPLE = """\
; what stands ahead of the sections
top = 1

# network
[net]
host = example.org   \t
port=80
; a comment = with an equals sign
port = 81
[odd ] name]
=key = a=b
[net]
later\t=\tä ö

[empty]
"""


class Velini(Case):
    def setUp(self):
        super().setUp()
        self.file = self.here / "a.ini"
        self.file.write_text(SAMPLE)

    def run_velini(self, *arguments, file="a.ini", **options):
        options = {"capture_output": True, "timeout": LONG, "cwd": self.here} | options
        return subprocess.run([VELINI, str(file), *arguments], check=False, **options)

    def good(self, *arguments, **options):
        """What a command that succeeds prints."""
        result = self.run_velini(*arguments, **options)
        self.assertEqual((result.returncode, result.stderr), (0, b""), arguments)
        return result.stdout.decode()

    def check_failure(self, code, words, *arguments, **options):
        """Checks the exit code and the words, and that the directory stays as it was."""
        before = {p.name: p.read_bytes() for p in self.here.iterdir() if p.is_file()}
        result = self.run_velini(*arguments, **options)
        self.assertEqual((result.returncode, result.stdout), (code, b""), (arguments, result.stderr))
        message = result.stderr.decode()
        self.assertRegex(message, r"\Avelini: [^\n]+\n(Try 'velini --help'\.\n)?\Z")
        self.assertIn(words, message)
        after = {p.name: p.read_bytes() for p in self.here.iterdir() if p.is_file()}
        self.assertEqual(before, after)

    def parsed(self):
        """The file as Python reads it, without interpolation and other extras."""
        parser = configparser.ConfigParser(
            delimiters="=", comment_prefixes=("#", ";"), strict=False, interpolation=None,
            default_section="no such section", empty_lines_in_values=False)
        parser.optionxform = str
        parser.read(self.file, "utf-8")
        return {name: dict(section) for name, section in parser.items() if section}


class Commands(Velini):
    def test_get(self):
        for value, *words in (("1", "top"), ("example.org", "net", "host"), ("81", "net", "port"),
                              ("ä ö", " net", "later "), ("a=b", "odd ] name", "=key")):
            self.assertEqual(self.good("get", *words), value + "\n")
        self.assertEqual(self.file.read_text(), SAMPLE)

    def test_get_from_a_pipe(self):
        self.assertEqual(self.good("get", "s", "k", file="/dev/stdin", input=b"[s]\nk=v"), "v\n")

    def test_set_changes_one_line(self):
        inode = self.file.stat().st_ino
        self.good("set", "net", "port", " 82 ")
        self.assertEqual(self.file.read_text(), SAMPLE.replace("port = 81", "port=82"))
        self.assertNotEqual(self.file.stat().st_ino, inode)

    def test_set_adds(self):
        self.good("set", "net", "new", "x")
        self.good("set", "under", "x")
        self.good("set", "fresh", "key", "")
        text = SAMPLE.replace("later\t=\tä ö\n", "later\t=\tä ö\nnew=x\n")
        text = text.replace("top = 1\n", "top = 1\nunder=x\n")
        self.assertEqual(self.file.read_text().replace("\n\n[fresh]", "\n[fresh]"),
                         text + "[fresh]\nkey=\n")

    def test_set_of_the_same_value_leaves_the_file_alone(self):
        before = self.file.stat()
        self.good("set", "net", "port", "81")
        self.assertEqual(self.file.stat(), before)

    def test_set_makes_a_file(self):
        mask = os.umask(0o027)
        self.addCleanup(os.umask, mask)
        self.good("set", "s", "k", "v", file="new.ini")
        self.assertEqual((self.here / "new.ini").read_text(), "[s]\nk=v\n")
        self.assertEqual(stat.S_IMODE((self.here / "new.ini").stat().st_mode), 0o640)

    def test_delete(self):
        self.good("delete", "net", "port")
        self.good("delete", "top")
        text = SAMPLE.replace("port=80\n", "").replace("port = 81\n", "").replace("top = 1\n", "")
        self.assertEqual(self.file.read_text(), text)

    def test_list(self):
        self.assertEqual(self.good("list"), "top\n[net]\nhost\nport\nlater\n[odd ] name]\n=key\n"
                                            "[empty]\n")
        self.assertEqual(self.good("list", "net"), "host\nport\nlater\n")
        self.assertEqual(self.good("list", "empty"), "")

    def test_list_agrees_with_get(self):
        lines = [f"[s{n % 7}]\nkey{n % 50} ={n}" for n in range(2000)]
        self.file.write_text("\r\n".join(lines))
        listed = self.good("list").splitlines()
        self.assertEqual(len(listed), 7 + 350)
        self.assertEqual(self.good("get", "s3", "key9"), "1809\n")
        self.assertEqual(set(listed[1:51]), {f"key{n}" for n in range(50)})

    def test_mode_and_link_are_kept(self):
        os.chmod(self.file, 0o604)
        (self.here / "deep").mkdir()
        link = self.here / "deep" / "link"
        link.symlink_to("../a.ini")
        self.good("set", "k", "v", file="deep/link")
        self.assertTrue(link.is_symlink())
        self.assertEqual(stat.S_IMODE(self.file.stat().st_mode), 0o604)
        self.assertEqual(self.good("get", "k"), "v\n")
        self.assertEqual(len(list((self.here / "deep").iterdir())), 1)

    def test_line_ends_and_indentation(self):
        self.file.write_bytes(b"[s]\r\n\tk=v\r\n; c")
        self.good("set", "s", "l", "w")
        self.assertEqual(self.file.read_bytes(), b"[s]\nk=v\nl=w\n; c\n")

    def test_writers_wait_for_each_other(self):
        self.file.write_text("; shared\n")
        several = [self.start([VELINI, self.file, "set", "many", f"key{n}", str(n)])
                   for n in range(12)]
        for process in several:
            self.assertEqual(process.wait(LONG), 0)
        self.assertEqual(self.parsed()["many"], {f"key{n}": str(n) for n in range(12)})


class Python(Velini):
    def test_python_reads_what_is_written(self):
        self.file.write_text("; notes\n[plain]\nk = v\n")
        wanted = {"plain": {"k": "v"}}
        for section, key, value in (
            ("plain", "path", r"C:\temp\n"), ("plain", "percent", "100%"), ("plain", "empty", ""),
            ("other one", "quotes", '"a" \'b\''), ("other one", "comment", "a ; b # c"),
            ("ünï", "schlüssel", "größe €"), ("plain", "k", "a=b==c"), ("plain", "[k", "v"),
        ):
            self.good("set", section, key, value)
            wanted.setdefault(section, {})[key] = value
            self.assertEqual(self.parsed(), wanted)
            self.assertEqual(self.good("get", section, key), value + "\n")
        self.good("delete", "other one", "quotes")
        del wanted["other one"]["quotes"]
        self.assertEqual(self.parsed(), wanted)
        self.assertTrue(self.file.read_text().startswith("; notes\n"))

    def test_velini_reads_what_python_writes(self):
        parser = configparser.ConfigParser(interpolation=None)
        parser.optionxform = str
        parser["a b"] = {"Key": "some value", "other": "x=y"}
        parser["c"] = {"k": "ü"}
        with self.file.open("w", encoding="utf-8") as file:
            parser.write(file)
        self.assertEqual(self.good("list"), "[a b]\nKey\nother\n[c]\nk\n")
        for section in "a b", "c":
            for key, value in parser[section].items():
                self.assertEqual(self.good("get", section, key), value + "\n")


class Failure(Velini):
    def test_1_missing(self):
        self.check_failure(1, "no key 'none' in section 'net'", "get", "net", "none")
        self.check_failure(1, "no key 'host' ahead of the sections", "get", "host")
        self.check_failure(1, "no key 'Host'", "delete", "net", "Host")
        self.check_failure(1, "no section 'none'", "list", "none")

    def test_2_usage(self):
        for words, *arguments in (
            ["a file and a command are needed"], ["no such command", "frobnicate"],
            ["words behind this command", "get"], ["words behind this command", "get", "a", "b", "c"],
            ["words behind this command", "set", "a"], ["words behind this command", "delete"],
            ["words behind this command", "list", "a", "b"],
        ):
            self.check_failure(2, words, *arguments)
        self.check_failure(2, "--none: there is no such option", file="--none")

    def test_2_texts_that_would_not_read_back(self):
        for words in (("k", "a\nb"), ("a\nb", "v"), ("a=b", "v"), ("#k", "v"), (";k", "v"),
                      ("[k", "v]"), ("", "v"), ("s\n", "k\nl", "v"), ("s\nt", "k", "v"),
                      ("s", "k", "a\rb"), ("s\rt", "k", "v")):
            with self.subTest(words=words):
                self.check_failure(2, "reads back", "set", *words)

    def test_3_read(self):
        self.check_failure(3, "none.ini: No such file", "get", "k", file="none.ini")
        self.check_failure(3, "none.ini: No such file", "delete", "k", file="none.ini")
        self.check_failure(3, ".: Is a directory", "get", "k", file=".")

    def test_4_syntax(self):
        for line, reason in (("nonsense", "no '=' found"), ("[s] x", "after ']'")):
            self.file.write_text(f"[a]\n\n{line}\n")
            for arguments in ("get", "a", "k"), ("set", "a", "k", "v"), ("list",):
                with self.subTest(line=line, arguments=arguments):
                    self.check_failure(4, f"velini: a.ini:3: {'bogus characters ' * (line[0] == '[')}"
                                          f"{reason}", *arguments)
        self.file.write_bytes(b"a=\0\nb=c\n")
        self.check_failure(4, "zero byte", "set", "k", "v")

    def test_5_write(self):
        self.check_failure(5, "no/a.ini: No such file", "set", "k", "v", file="no/a.ini")
        self.check_failure(5, ".: Is a directory", "set", "k", "v", file=".")
        self.check_failure(5, "/dev/null: not a regular file", "set", "k", "v", file="/dev/null")
        with open("/dev/full", "wb") as full:
            result = self.run_velini("list", stdout=full, stderr=subprocess.PIPE,
                                     capture_output=False)
        self.assertEqual(result.returncode, 5)
        self.assertIn(b"standard output: No space left", result.stderr)

    def test_help_and_version(self):
        self.assertIn("usage: velini FILE get", self.good(file="--help"))
        self.assertEqual(self.good(file="--version"), "velini 1.0.0\n")


class Saving(Velini):
    """The calls of a save: each is the last one of a run, and each fails in a run."""

    NEW = SAMPLE.replace("port = 81", "port=82")
    CALLS = "openat,open,creat,write,fsync,rename,renameat,fchmod,chmod,close"

    def trace(self, *options):
        environment = os.environ | {"ASAN_OPTIONS": "detect_leaks=0"}
        return subprocess.run(
            [STRACE, "-qq", "-o", self.here / "trace", *options, VELINI, self.file, "set", "net",
             "port", "82"], capture_output=True, timeout=LONG, check=False, env=environment)

    def calls(self):
        """The calls of an undisturbed save, from the side file on: the name and which of its kind."""
        self.assertEqual(self.trace("-e", f"trace={self.CALLS}").returncode, 0)
        counts, saving = {}, []
        for line in (self.here / "trace").read_text().splitlines():
            name = re.match(r"\w+(?=\()", line)
            if not name:
                continue
            counts[name[0]] = counts.get(name[0], 0) + 1
            if saving or re.search(r"a\.ini\.\w{6}\"", line):
                saving.append((name[0], counts[name[0]]))
        self.assertEqual({"rename", "fsync", "write"} - {name for name, _ in saving}, set())
        return saving

    def restart(self):
        for path in self.here.iterdir():
            path.unlink()
        self.file.write_text(SAMPLE)

    def test_crash_at_each_call(self):
        seen, calls = set(), self.calls()
        for name, number in calls:
            with self.subTest(name=name, number=number):
                self.restart()
                result = self.trace("-e", f"inject={name}:signal=KILL:when={number}")
                self.assertEqual(result.returncode, -9, result.stderr)
                text = self.file.read_text()
                self.assertIn(text, (SAMPLE, self.NEW))
                seen.add(text)
        self.assertEqual(seen, {SAMPLE, self.NEW})
        print(f"crash: velini/killed {len(calls)} points")

    def test_failure_of_each_call(self):
        calls = [call for call in self.calls() if call[0] != "close"]
        print(f"crash: velini/refused {len(calls)} points")
        for name, number in calls:
            with self.subTest(name=name, number=number):
                self.restart()
                result = self.trace("-e", f"inject={name}:error=ENOSPC:when={number}")
                text = self.file.read_text()
                self.assertEqual(text, self.NEW if result.returncode == 0 else SAMPLE)
                if result.returncode != 0:
                    self.assertEqual(sorted(os.listdir(self.here)), ["a.ini", "trace"])
                    self.assertRegex(result.stderr, rb"\Avelini: [^\n]+\n\Z")
                    self.assertIn(result.returncode, (2, 5))

    def test_stable_storage_comes_before_the_name(self):
        names = [name for name, _ in self.calls()]
        self.assertLess(names.index("fsync"), names.index("rename"))
        self.assertIn("fsync", names[names.index("rename"):])  # the directory


if __name__ == "__main__":
    main(1)
