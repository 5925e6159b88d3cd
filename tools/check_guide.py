#!/usr/bin/env python3
"""Checks the guide: does in a directory of its own, with an installed library, what its chapters tell.

usage: check_guide.py ROOT BUILD [CHAPTER]...

A chapter is a file of docs/guide. Its fenced blocks are, by the words behind the fence:

  LANGUAGE NAME       a file, written as it stands; the text in front of it or its first line names it
  LANGUAGE from PATH  lines that stand so in that file of the tree
  console             "$ " begins a command, "> " goes on with it; what follows is what it says, on a
                      terminal. A command that fails fails the check
  output              what the program of the last file says, compiled and run without arguments

Any other block fails, and so does a file that nothing uses. cc and c++ warn of everything, treat
warnings as errors and find leaks and bad accesses. In what is said, a line "..." stands for any
lines, "..." within one for any text, and the words of PLACEHOLDERS for what varies.

A program with an output block, if it has one thread, is also driven through each failure of an
allocation: it may say and return what it likes but must not crash or leak."""
import os
import pathlib
import pty
import re
import select
import shutil
import subprocess
import sys
import tempfile
import termios
import time

SOURCES = {"c": "cc", "cpp": "c++"}
DATA = {"cmake", "diff", "ini", "json", "po", "sh", "text", "xml"}
PLACEHOLDERS = {"<date>": r"\d{4}-\d\d-\d\d", "<time>": r"\d\d:\d\d:\d\d", "<line>": r"\d+",
                "<number>": r"\d+", "<port>": r"\d+", "<address>": r"0x[0-9a-f]+"}
THREADS = re.compile(r"\bvel_(thread|threadpool|tcpserver|udpserver)_\w+\(")
SANITIZERS = "-fsanitize=address,undefined -fno-sanitize-recover=all"
FAILED_SANITIZER = 99  # the exit status of a program that it stops
TIME_LIMIT = 120       # seconds for a block
ROUNDS = 500           # of a sweep


class Wrong(Exception):
    """What a chapter says is not so."""


class Block:
    """A fenced block: the words behind its fence, its lines, and the text in front of it."""

    def __init__(self, number, words, before):
        self.number, self.words, self.before, self.lines = number, words, before, []

    def text(self):
        return "".join(line + "\n" for line in self.lines)


def blocks_of(chapter):
    """The blocks of a chapter. Code in any other form than a fence is not allowed."""
    block, before = None, []
    for number, line in enumerate(chapter.read_text().splitlines(), 1):
        if block:
            if line.rstrip() == "```":
                yield block
                block, before = None, []
            else:
                block.lines.append(line)
        elif line.startswith("```"):
            block = Block(number, line[3:].split(), "\n".join(before))
        elif "```" in line or line.startswith(("    ", "\t", "~~~")):
            raise Wrong(f"line {number}: code outside of a fence that begins its line")
        else:
            before.append(line)
    if block:
        raise Wrong(f"line {block.number}: a block without an end")


def pattern_of(text):
    """The expression that what is said has to match."""
    def of_line(line):
        parts = re.split("(" + "|".join(map(re.escape, ("...", *PLACEHOLDERS))) + ")", line)
        return "".join({"...": ".*"}.get(part) or PLACEHOLDERS.get(part) or re.escape(part)
                       for part in parts)
    return "".join(r"(?:.*\n)*?" if line == "..." else of_line(line) + r"\n"
                   for line in text.splitlines())


def run(arguments, directory, environment, limit=TIME_LIMIT):
    """Runs a program on a terminal, as its user does: so its streams come in the order of time.
    Returns its status and what it said."""
    leader, follower = pty.openpty()
    attributes = termios.tcgetattr(follower)
    attributes[1] &= ~termios.OPOST
    termios.tcsetattr(follower, termios.TCSANOW, attributes)
    said, end = b"", time.monotonic() + limit
    with subprocess.Popen(arguments, cwd=directory, env=environment, stdin=subprocess.DEVNULL,
                          stdout=follower, stderr=follower) as process:
        os.close(follower)
        try:
            while True:
                ready = select.select([leader], [], [], max(0, end - time.monotonic()))[0]
                if not ready:
                    process.kill()
                    raise Wrong(f"{arguments[0]}: no end after {limit} s; it said:\n{said.decode()}")
                piece = os.read(leader, 65536)
                if not piece:
                    break
                said += piece
        except OSError:  # the other end is closed
            pass
        finally:
            os.close(leader)
    return process.returncode, said.decode(errors="replace")


def compare(what, expected, said):
    if not re.fullmatch(pattern_of(expected), said):
        raise Wrong(f"{what} says\n{said}but the chapter shows\n{expected}")


class Chapter:
    """Does one chapter after the other, block by block."""

    def __init__(self, path, root, directory, environment):
        self.path, self.root, self.directory, self.environment = path, root, directory, environment
        self.files, self.used = {}, set()   # the block of each file; the names that are used
        self.last = None                    # the name of the last file
        self.commands = self.programs = self.stacks = 0
        self.threaded = []

    def write(self, block):
        name = block.words[1]
        if name in self.files:
            raise Wrong(f"{name} is there already")
        if f"`{name}`" not in block.before and name not in (block.lines or [""])[0]:
            raise Wrong(f"neither the text in front of {name} nor its first line names it")
        (self.directory / name).write_text(block.text())
        self.files[name], self.last = block, name
        if block.words[0] in SOURCES:
            result = subprocess.run(["clang-format", f"--style=file:{self.root}/.clang-format"],
                                    input=block.text(), text=True, capture_output=True, check=True)
            if result.stdout != block.text():
                raise Wrong(f"{name} is not formatted; clang-format has\n{result.stdout}")

    def excerpt(self, block):
        name = block.words[2]
        if block.text() not in (self.root / name).read_text():
            raise Wrong(f"{name} has no such lines")
        if f"`{name}`" not in block.before and f"/{name})" not in block.before:
            raise Wrong(f"the text in front does not name {name}")

    def console(self, block):
        commands = []  # pairs of a command and what it says
        for line in block.lines:
            if line.startswith("$ "):
                commands.append([line[2:], ""])
            elif not commands:
                raise Wrong("a console block begins with a command")
            elif line.startswith("> ") and not commands[-1][1]:
                commands[-1][0] += "\n" + line[2:]
            else:
                commands[-1][1] += line + "\n"
        script = "".join(f"printf '\\001'\n{command}\n[ $? -eq 0 ] || exit 1\n" for command, _ in commands)
        _, said = run(["bash", "-c", script + "printf '\\001'\n"], self.directory, self.environment)
        said = said.split("\001")[1:]
        for (command, expected), text in zip(commands, said):
            compare(f"`{command}`", expected, text)
        if len(said) != len(commands) + 1:
            raise Wrong(f"`{commands[len(said) - 1][0]}` fails")
        self.commands += len(commands)
        text = "\n".join(command for command, _ in commands)
        self.used |= {name for name in self.files
                      if re.search(rf"(?<![\w.]){re.escape(pathlib.Path(name).stem)}\b", text)}
        if "cmake " in text:
            self.used.add("CMakeLists.txt")

    def output(self, block):
        name = self.last
        if not name or self.files[name].words[0] not in SOURCES:
            raise Wrong("no program stands in front of this output")
        program = "./" + pathlib.Path(name).stem
        flags = subprocess.run(["pkg-config", "--cflags", "--libs", "vellib"], env=self.environment,
                               capture_output=True, text=True, check=True).stdout.split()
        compiler = SOURCES[self.files[name].words[0]]
        status, said = run([shutil.which(compiler, path=self.environment["PATH"]), name, *flags,
                            "-o", program], self.directory, self.environment)
        if status != 0:
            raise Wrong(f"{name} does not compile:\n{said}")
        status, said = run([program], self.directory, self.environment)
        compare(program, block.text(), said)
        if status != 0:
            raise Wrong(f"{program} ends with {status}")
        self.used |= {name} | {used for used in self.files if f'"{used}"' in self.files[name].text()}
        self.programs += 1
        if THREADS.search(self.files[name].text()):
            self.threaded.append(name)
        else:
            self.sweep(program)

    def sweep(self, program):
        """Runs the program until each allocation has failed."""
        directory = self.directory / "sweep"
        stacks, database = -1, directory / "velmallocfail.db"
        for _ in range(ROUNDS):
            directory.mkdir(exist_ok=True)
            for left in directory.iterdir():
                if left.is_dir():
                    shutil.rmtree(left)
                elif left != database:
                    left.unlink()
            for name in self.files:
                shutil.copy(self.directory / name, directory)
            status, said = run([str(self.directory / program)], directory,
                               self.environment | {"VELMALLOC_FAILMODE": "1"})
            if status not in (0, 1):
                raise Wrong(f"{program} ends with {status} where an allocation fails:\n{said}")
            count = len(database.read_text().splitlines()) if database.exists() else 0
            if count == stacks:
                break
            stacks = count
        else:
            raise Wrong(f"{program}: the sweep does not end")
        if status != 0:
            raise Wrong(f"{program} fails with {status} when all allocations succeed again:\n{said}")
        self.stacks += stacks
        shutil.rmtree(directory)

    def do(self, block):
        if not block.lines:
            raise Wrong("an empty block")
        match block.words:
            case [language, "from", _] if language in SOURCES | dict.fromkeys(DATA):
                self.excerpt(block)
            case [language, _] if language in SOURCES | dict.fromkeys(DATA):
                self.write(block)
            case ["console"]:
                self.console(block)
            case ["output"]:
                self.output(block)
            case _:
                raise Wrong("a block that is none of: a file, lines from one, console, output")

    def check_links(self):
        for target in re.findall(r"\]\(([^)#]+)", self.path.read_text()):
            if "://" not in target and not (self.path.parent / target).exists():
                raise Wrong(f"a link to {target}, which is not there")

    def check(self):
        """Yields what is wrong. It goes on behind a block that is."""
        try:
            self.check_links()
            for block in blocks_of(self.path):
                try:
                    self.do(block)
                except Wrong as wrong:
                    yield f"line {block.number}: {wrong}"
        except Wrong as wrong:
            yield wrong
        if set(self.files) - self.used:
            yield f"nothing uses {', '.join(sorted(set(self.files) - self.used))}"


def make_environment(root, build, work):
    """Installs the library, and gives the variables with which programs find it."""
    prefix, bin_directory = work / "prefix", work / "bin"
    subprocess.run(["cmake", "--install", build, "--prefix", prefix], check=True, stdout=subprocess.DEVNULL)
    libdir = next(prefix.rglob("vellib.pc")).parent.parent
    bin_directory.mkdir()
    for name, real in {"cc": "gcc", "c++": "g++"}.items():
        wrapper = bin_directory / name
        # A command that names a sanitizer has its own alone.
        wrapper.write_text(f"""#!/bin/sh
case "$*" in *-fsanitize*) sanitizers= ;; *) sanitizers='{SANITIZERS}' ;; esac
exec {shutil.which(real)} -Wall -Wextra -Werror -g $sanitizers "$@"
""")
        wrapper.chmod(0o755)
    dropped = ("CC", "CXX", "CFLAGS", "CXXFLAGS", "LDFLAGS", "LSAN_OPTIONS", "VELMALLOC_FAILMODE", "LANGUAGE")
    return {key: value for key, value in os.environ.items() if key not in dropped} | {
        "PATH": f"{bin_directory}:{os.environ['PATH']}", "LC_ALL": "C.UTF-8", "TERM": "dumb",
        "PKG_CONFIG_PATH": str(libdir / "pkgconfig"), "LD_LIBRARY_PATH": str(libdir),
        "CMAKE_PREFIX_PATH": str(prefix), "CMAKE_GENERATOR": "Ninja",
        # 1 is what a program ends with that has failed in an orderly way
        **{name: f"exitcode={FAILED_SANITIZER}:color=never" for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS")}}


def main():
    root, build = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
    guide = root / "docs" / "guide"
    chapters = [pathlib.Path(name).resolve() for name in sys.argv[3:]] or sorted(guide.glob("*.md"))
    failed, done = 0, []
    with tempfile.TemporaryDirectory() as work:
        work = pathlib.Path(work)
        environment = make_environment(root, build, work)
        for path in chapters:
            directory = work / path.stem
            directory.mkdir()
            (directory / "examples").symlink_to(root / "examples")
            chapter = Chapter(path, root, directory, environment)
            done.append(chapter)
            for wrong in chapter.check():
                print(f"{path.relative_to(root)}: {wrong}")
                failed += 1
    if not sys.argv[3:]:
        index = (guide / "README.md").read_text()
        for path in chapters:
            if path.name != "README.md" and f"({path.name})" not in index:
                print(f"README.md of the guide has no link to {path.name}")
                failed += 1
    print(f"{len(done)} chapters: {sum(len(c.files) for c in done)} files, "
          f"{sum(c.programs for c in done)} programs with their output, "
          f"{sum(c.commands for c in done)} commands; {sum(c.stacks for c in done)} stacks swept, "
          f"not in programs of several threads: {' '.join(n for c in done for n in c.threaded) or 'none'}")
    return 1 if failed or not done else 0


if __name__ == "__main__":
    sys.exit(main())
