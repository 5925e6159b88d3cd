#!/usr/bin/env python3
"""Do the tests notice? mutate.py BUILD [OPTION]... [MODULE]...

Changes one place of a module's source at a time (a mutant), compiles that one file, links the shared
library with it, and runs the test programs of the module, tests/MODULE_*test, until one fails. What
none of them notices is listed: a test is missing, or the code is superfluous, or the change makes no
difference, and then tools/mutation_equal.txt says why. Fails if there is a survivor without a
reason, or a reason for a mutant that is killed.

BUILD       the build directory of the preset dev: a mutant that reads too far is noticed too
MODULE      a source without src/ and .cpp, such as adt/velcache; else those of MODULES
--sample N  N mutants of each module instead of all, the same ones for the same S
--again     only those that survived the last time, as after a test was written
--list      shows the mutants, and runs none
--programs  prints the targets that have to be built for the modules

The mutants: < becomes <=, == becomes !=, && becomes ||, + becomes -, ++ becomes --, and each the other
way round; an integer becomes one more; a condition of if, while, for and ?: and what a function of
type bool returns are negated; a statement that is a call is left out. Left alone: the sizes of arrays,
and assertions but for those that begin a function that is not static, as no test can make the others fail. The source is
read by its tokens alone: what stands in a header is not changed, and what does not compile is not counted.

An endless loop counts as noticed, after CPU time of five times what the test takes, and three seconds."""
import argparse
import collections
import concurrent.futures
import hashlib
import json
import os
import pathlib
import random
import re
import resource
import shlex
import signal
import subprocess
import sys
import tempfile
import threading

import quality

MODULES = ["adt/velhash", "adt/velcache", "util/velurlencode", "util/velinifile", "util/velinifile_index",
           "util/velinifile_read", "io/velhandle", "net/velicap_encapsulated", "async/velasync_timeoutheap",
           "platform/eventqueue_epoll"]
EQUAL = pathlib.Path("tools/mutation_equal.txt")
JOBS = 2
MEGABYTE = 1 << 20

OPPOSITES = {"<": "<=", ">": ">=", "==": "!=", "&&": "||", "+": "-", "++": "--", "+=": "-=", "true": "false"}
OPPOSITES |= {value: key for key, value in OPPOSITES.items()}
TOKEN = re.compile(r"""
    (?P<space>\s+|//[^\n]*|/\*.*?\*/|^[ \t]*\#(?:[^\n\\]|\\.)*)
  | (?P<text>(?:u8|[LuU])?"(?:[^"\\]|\\.)*"|(?:[LuU])?'(?:[^'\\]|\\.)*')
  | (?P<number>(?:0[xX][0-9a-fA-F]+|\d[\d.]*(?:[eE][-+]?\d+)?)[uUlLzZfF]*)
  | (?P<word>[A-Za-z_]\w*)
  | (?P<sign>->\*?|\+\+|--|<<=|>>=|<=>|[<>=!+\-*/%&|^]=|&&|\|\||<<|>>|::|.)
""", re.S | re.M | re.X)

Token = collections.namedtuple("Token", "kind text begin end")
# What stands from begin to end becomes text.
Mutant = collections.namedtuple("Mutant", "begin end text")


# ---- the mutants of a source ---------------------------------------------------------------------

class Source:
    def __init__(self, module):
        self.module = module
        self.path = pathlib.Path(f"src/{module}.cpp")
        self.code = self.path.read_text()
        self.tokens = [Token(match.lastgroup, match[0], *match.span()) for match in TOKEN.finditer(self.code)
                       if match.lastgroup != "space"]
        self.partners = self.pair()
        self.bodies = self.functions()
        self.asserted = self.assertions()
        self.mutants = sorted(self.make())

    def text(self, index):
        return self.tokens[index].text if 0 <= index < len(self.tokens) else ""

    def pair(self):
        """{index of a bracket: index of the one that closes or opens it}"""
        partners, stack = {}, []
        for index, token in enumerate(self.tokens):
            if token.kind == "sign" and token.text in "([{":
                stack.append(index)
            elif token.kind == "sign" and token.text in ")]}":
                partners[index] = stack.pop()
                partners[partners[index]] = index
        return partners

    def functions(self):
        """[(index of its brace, index of the other one, the words in front of its name)]"""
        found = []
        for index in sorted(self.partners):
            if self.text(index) == "{" and self.text(index - 1) in (")", "const") and \
                    not (found and index < found[-1][1]):
                name = self.partners[index - 1 if self.text(index - 1) == ")" else index - 2] - 1
                begin = name
                while self.text(begin - 1) not in (";", "{", "}", ""):
                    begin -= 1
                found.append((index, self.partners[index], [token.text for token in self.tokens[begin:name]]))
        return found

    def function(self, index):
        return next((body for body in self.bodies if body[0] < index < body[1]), None)

    def assertions(self):
        """Indexes of all tokens of the assertions that do not begin a function that others call."""
        found = set()
        for index, token in enumerate(self.tokens):
            if token.text in ("VEL_ASSERT", "static_assert"):
                before = index - 1
                while self.text(before) == ";" and self.text(self.partners.get(before - 1, 0) - 1) == "VEL_ASSERT":
                    before = self.partners[before - 1] - 2
                function = self.function(index)
                if not function or function[0] != before or "static" in function[2]:
                    found.update(range(index, self.partners[index + 1] + 1))
        return found

    def make(self):
        seen = set()
        for index in range(len(self.tokens)):
            if index in self.asserted:
                continue
            for mutant in (*self.of_token(index), *self.of_condition(index), *self.of_call(index)):
                if mutant not in seen:
                    seen.add(mutant)
                    yield mutant

    # A sign between two operands has a blank on both sides, which its other meanings have not.
    def is_binary(self, token):
        return self.code[token.begin - 1].isspace() and self.code[token.end].isspace()

    def of_token(self, index):
        token = self.tokens[index]
        if token.kind == "number":
            if not self.is_array_size(index) and (parts := re.fullmatch(r"(0[xX][0-9a-fA-F]+|\d+)([uUlLzZ]*)", token.text)):
                yield Mutant(token.begin, token.end, f"{int(parts[1], 0) + 1}{parts[2]}")
        elif token.text in ("++", "--", "true", "false") or token.text in OPPOSITES and self.is_binary(token):
            yield Mutant(token.begin, token.end, OPPOSITES[token.text])

    def is_array_size(self, index):
        """As in: char text[32]."""
        if self.text(index - 1) != "[" or self.text(index + 1) != "]":
            return False
        name = index - 2
        while self.text(name) == "]":
            name = self.partners[name] - 1
        kind, text, *_ = self.tokens[name - 1]
        return kind == "word" and text not in ("return", "else") or text == ">"

    def negated(self, first, last):
        """The expression from first to last the other way round, unless a single == does that already."""
        words = [token.text for token in self.tokens[first:last + 1]]
        depths, depth = [], 0
        for word in words:
            depth -= word in (")", "]", "}")
            depths.append(depth)
            depth += word in ("(", "[", "{")
        top = [word for word, depth in zip(words, depths) if depth == 0]
        single = sum(word in ("==", "!=") for word in top) == 1 and not {"&&", "||", "?"} & set(top)
        if words and not single and "=" not in top and ":" not in top and top not in (["true"], ["false"]):
            begin, end = self.tokens[first].begin, self.tokens[last].end
            yield Mutant(begin, end, f"!({self.code[begin:end]})")

    def of_condition(self, index):
        word = self.text(index)
        if word in ("if", "while") and self.text(index + 1) == "(":
            yield from self.negated(index + 2, self.partners[index + 1] - 1)
        elif word == "for":
            close = self.partners[index + 1]
            ends = [i for i in range(index, close) if self.text(i) == ";"]
            if len(ends) == 2 and ends[1] > ends[0] + 1:
                yield from self.negated(ends[0] + 1, ends[1] - 1)
        elif word == "?":
            yield from self.negated(self.first_of_operand(index), index - 1)
        elif word == "return" and self.returns_bool(index):
            yield from self.negated(index + 1, self.end_of_statement(index) - 1)

    def first_of_operand(self, index):
        """Where the condition in front of ? begins."""
        first = index
        while self.text(first - 1) not in ("return", "=", "+=", "-=", ",", ";", "(", "[", "{", "?", ":"):
            first = self.partners[first - 1] if self.text(first - 1) in (")", "]") else first - 1
        return first

    def end_of_statement(self, index):
        while self.text(index) != ";":
            index = self.partners[index] if self.text(index) in ("(", "[", "{") else index
            index += 1
        return index

    def returns_bool(self, index):
        function = self.function(index)
        return function is not None and function[2][-1:] == ["bool"]

    def of_call(self, index):
        """A statement that does nothing but call."""
        before = self.text(index - 1)
        if before == ")" and self.text(self.partners[index - 1] - 1) in ("if", "while", "for"):
            before = ";"
        if before not in (";", "{", "}", "else", "do", ":") or not self.function(index):
            return
        end, top, i = self.end_of_block(index), [], index
        while i < end:
            top.append(self.tokens[i])
            i = self.partners[i] + 1 if self.text(i) in ("(", "[") else i + 1
        words = [token.text for token in top]
        if words[:1] == ["("] and self.text(index + 1) == "void":
            top, words = top[1:], words[1:]
        declares = any(a.kind == b.kind == "word" for a, b in zip(top, top[1:])) or "*" in words or "=" in words
        if words and top[0].kind == "word" and words[-1] == "(" and self.text(end) == ";" and not declares and \
                words[0] not in ("if", "for", "while", "switch", "return", "static_assert"):
            yield Mutant(self.tokens[index].begin, self.tokens[end].end, ";")

    def end_of_block(self, index):
        while self.text(index) not in (";", "{", "}"):
            index = self.partners[index] if self.text(index) in ("(", "[") else index
            index += 1
        return index

    # ---- how a mutant is shown ----

    def line(self, mutant):
        return self.code.count("\n", 0, mutant.begin) + 1

    def mutated(self, mutant):
        return self.code[:mutant.begin] + mutant.text + self.code[mutant.end:]

    def shown(self, mutant):
        """The lines of a mutant before and after, each as one line; with those in front until they are unique."""
        lines = [" ".join(line.split()) for line in self.code.splitlines()]
        first, last = (self.code.count("\n", 0, place) for place in (mutant.begin, mutant.end))
        while first > 0 and sum(lines[i:i + last + 1 - first] == lines[first:last + 1] for i in range(len(lines))) > 1:
            first -= 1
        begins = [0] + [place + 1 for place, sign in enumerate(self.code) if sign == "\n"]
        before = self.code[begins[first]:begins[last + 1]]
        place = mutant.begin - begins[first]
        after = before[:place] + mutant.text + before[place + mutant.end - mutant.begin:]
        return " ".join(before.split()), " ".join(after.split())


# ---- building and running ------------------------------------------------------------------------

class Module:
    """A module with its test programs, and how to build the library with another object for it."""

    def __init__(self, build, name):
        self.build, self.source = build, Source(name)
        self.object = f"CMakeFiles/vellib_objects.dir/src/{name}.cpp.o"
        self.compile = self.command(self.object)
        self.link = self.command("libvellib.so.1.0.0")
        self.programs = {}
        for path in self.tests(name):
            program = f"tests/{self.target(path)}"
            self.programs[program] = self.command(program) if program.endswith("_internal_test") else None

    @staticmethod
    def tests(name):
        """Those of the module, which may be one of several sources of what they test, as velinifile_read."""
        folder, _, word = name.partition("/")
        found = sorted(path for path in pathlib.Path("tests", folder).glob(f"{word.partition('_')[0]}*_test.cpp")
                       if path.stem.split("_")[0] == word.split("_")[0])
        return found or sys.exit(f"mutate: {name} has no tests")

    @staticmethod
    def target(path):
        return f"{path.parent.name}-{path.stem}"

    def command(self, target):
        commands = subprocess.run(["ninja", "-t", "commands", target], cwd=self.build, check=True,
                                  capture_output=True, text=True).stdout
        words = shlex.split(commands.splitlines()[-1])
        words = [word for word in words if word not in (":", "&&")]
        return words[1:] if words[0].endswith("ccache") else words

    def with_output(self, words, output, changed):
        """The command with another output and with the object of the mutant."""
        words = [changed if word == self.object else word for word in words]
        words[words.index("-o") + 1] = str(output)
        return words

    def make_object(self, code, directory):
        source = directory / self.source.path
        source.parent.mkdir(parents=True, exist_ok=True)
        source.write_text(code)
        words = self.with_output(self.compile, directory / "object.o", self.object)
        words[words.index("-MF") + 1] = str(directory / "object.d")
        words[-1] = str(source)
        # The assertions show the path.
        return self.run([*words, "-g0", "-w", f"-ffile-prefix-map={directory}/="])

    def make_program(self, program, directory):
        """Returns the program that sees the mutant; what is linked with the library is as it was."""
        changed = str(directory / "object.o")
        if self.programs[program]:
            output = directory / "internal_test"
            made = self.run(self.with_output(self.programs[program], output, changed))
        else:
            output, made = self.build / program, True
            if not (directory / "libvellib.so.1").exists():
                made = self.run(self.with_output(self.link, directory / "libvellib.so.1", changed))
        if not made:
            sys.exit(f"mutate: {program} does not link")
        return output

    def run(self, words):
        return subprocess.run(words, cwd=self.build, capture_output=True, check=False).returncode == 0


def run_test(program, directory, seconds):
    """Whether a test program passes, within that much CPU time for each of its processes."""
    def limit():
        os.nice(5)
        resource.setrlimit(resource.RLIMIT_CPU, (seconds, seconds))
        resource.setrlimit(resource.RLIMIT_FSIZE, (64 * MEGABYTE, 64 * MEGABYTE))
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    # The address sanitizer reserves far more than it uses, so that it is itself told the limit.
    environment = os.environ | {"LD_LIBRARY_PATH": str(directory), "GTEST_FAIL_FAST": "1", "GTEST_BRIEF": "1",
                                "ASAN_OPTIONS": "hard_rss_limit_mb=2048", "TMPDIR": str(directory)}
    process = subprocess.Popen([program], cwd=directory, env=environment, preexec_fn=limit, start_new_session=True,
                               stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        return process.wait(60 + 10 * seconds) == 0
    except subprocess.TimeoutExpired:
        return False
    finally:
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()


def cpu_time():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


def measure(module):
    """[(program, its limit in seconds)], the quick ones first; without a change, each passes."""
    times = []
    with tempfile.TemporaryDirectory(prefix="mutate") as name:
        directory = pathlib.Path(name)
        if not module.make_object(module.source.code, directory):
            sys.exit(f"mutate: {module.source.path} does not compile")
        for program in module.programs:
            made = module.make_program(program, directory)
            before = cpu_time()
            if not run_test(made, directory, 300):
                sys.exit(f"mutate: {program} fails without a mutant")
            times.append((cpu_time() - before, program))
    return [(program, int(3 + 5 * seconds)) for seconds, program in sorted(times)]


def try_mutant(module, limits, mutant):
    """"invalid", "killed" or "survived"."""
    with tempfile.TemporaryDirectory(prefix="mutate") as name:
        directory = pathlib.Path(name)
        if not module.make_object(module.source.mutated(mutant), directory):
            return "invalid"
        for program, seconds in limits:
            if not run_test(module.make_program(program, directory), directory, seconds):
                return "killed"
    return "survived"


# ---- what is known -------------------------------------------------------------------------------

def reasons():
    """{(path, line before, line after): why no test can tell them apart}"""
    found = {}
    for block in EQUAL.read_text().split("\n\n"):
        head, *lines = re.split(r"\n([-+] .*)", "\n" + block.strip())
        path, _, why = " ".join(line for line in head.splitlines() if not line.startswith("#")).strip().partition(": ")
        changes = [line[2:] for line in lines if line.startswith(("- ", "+ "))]
        found.update({(path, before, after): why for before, after in zip(changes[::2], changes[1::2])})
    return found


class Results:
    """What became of the mutants of a source; kept until the source changes."""

    def __init__(self, build, source):
        self.path = build / "mutate" / f"{source.module.replace('/', '-')}.json"
        self.digest = hashlib.sha256(source.code.encode()).hexdigest()
        kept = json.loads(self.path.read_text()) if self.path.exists() else {}
        self.verdicts = kept["verdicts"] if kept.get("digest") == self.digest else {}
        self.lock = threading.Lock()

    def add(self, mutant, verdict):
        with self.lock:
            self.verdicts[json.dumps(mutant)] = verdict
            self.path.parent.mkdir(exist_ok=True)
            self.path.write_text(json.dumps({"digest": self.digest, "verdicts": self.verdicts}))

    def of(self, mutant):
        return self.verdicts.get(json.dumps(mutant))


def show(source, mutant, remark):
    before, after = source.shown(mutant)
    print(f"{source.path}:{source.line(mutant)}: {remark}\n  - {before}\n  + {after}", flush=True)


def choose(source, results, options, equal):
    mutants = source.mutants
    if options.sample and options.sample < len(mutants):
        mutants = sorted(random.Random(f"{options.seed} {source.path}").sample(mutants, options.sample))
    return [mutant for mutant in mutants if not options.again or
            results.of(mutant) == "survived" and (str(source.path), *source.shown(mutant)) not in equal]


def check(module, options, equal):
    """Tries the mutants of a module, and tells whether all is well."""
    source, results = module.source, Results(options.build, module.source)
    chosen = choose(source, results, options, equal)
    limits = measure(module)
    print(f"==> {source.module}: {len(chosen)} mutants of {len(source.mutants)}", flush=True)
    well = True
    with concurrent.futures.ThreadPoolExecutor(JOBS) as pool:
        for mutant, verdict in zip(chosen, pool.map(lambda mutant: try_mutant(module, limits, mutant), chosen)):
            results.add(mutant, verdict)
            why = equal.get((str(source.path), *source.shown(mutant)))
            if verdict == ("killed" if why else "survived"):
                show(source, mutant, f"killed, but said to be equal: {why}" if why else verdict)
                well = False
    return well


def figures(build, name, equal):
    """The row of a module in the table, from all that was tried of the source as it is; or None."""
    source = Source(name)
    results = Results(build, source)
    counts = collections.Counter()
    for mutant in source.mutants:
        verdict = results.of(mutant)
        if verdict == "survived" and (str(source.path), *source.shown(mutant)) in equal:
            verdict = "equal"
        counts[verdict] += 1
    tried = counts["killed"] + counts["equal"] + counts["survived"]
    return [name, len(source.mutants), tried, counts["killed"], counts["equal"], counts["survived"]] if tried else None


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=lambda name: pathlib.Path(name).resolve())
    parser.add_argument("--sample", type=int)
    parser.add_argument("--seed", default="1")
    parser.add_argument("--again", action="store_true")
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--programs", action="store_true")
    parser.add_argument("modules", nargs="*")
    options = parser.parse_intermixed_args()
    names = options.modules or MODULES
    if options.programs:
        print("\n".join(sorted({Module.target(path) for name in names for path in Module.tests(name)})))
        return
    if options.list:
        for source in map(Source, names):
            for mutant in source.mutants:
                show(source, mutant, "")
        return
    equal = reasons()
    well = [check(Module(options.build, name), options, equal) for name in names]
    rows = filter(None, (figures(options.build, name, equal) for name in dict.fromkeys([*MODULES, *names])))
    print(quality.leave("mutation", [["module", "mutants", "tried", "killed", "equal", "survived"], *rows]))
    sys.exit(not all(well))


if __name__ == "__main__":
    main()
