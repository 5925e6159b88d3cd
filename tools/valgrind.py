#!/usr/bin/env python3
"""Runs the test programs under valgrind's memcheck: valgrind.py BUILD [--record] [PROGRAM]...

An access to memory that is not the program's, a decision on a value that nobody set and a block that
is lost are findings. What runs in a process of its own is left out, the rest of LEFT_OUT for the
reason that stands there; all of that runs with the address sanitizer in the preset dev."""
import concurrent.futures
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time

import quality

# Cases: patterns of GoogleTest. They start a process for each failure that they look for, and it ends
# as it should not, so that what it still holds says nothing.
CASES = {
    "*DeathTest*": "the process aborts",
    "*Death.*": "the process aborts",
}

# Programs.
LEFT_OUT = {}


def programs(build):
    return {path.name: path for path in sorted((build / "tests").glob("*_test"))
            if path.is_file() and os.access(path, os.X_OK)}


def run(program):
    """(name, seconds, what it found or None)"""
    begin = time.monotonic()
    with tempfile.NamedTemporaryFile("r", prefix="valgrind", suffix=".log") as log:
        done = subprocess.run(
            ["valgrind", "--quiet", "--leak-check=full", "--show-leak-kinds=definite,indirect",
             "--errors-for-leak-kinds=definite,indirect", "--error-exitcode=77", "--num-callers=30",
             "--fair-sched=yes", "--soname-synonyms=somalloc=nouserintercepts", "--child-silent-after-fork=yes", f"--log-file={log.name}",
             str(program), f"--gtest_filter=-{':'.join(CASES)}"],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace")
        cases = re.search(r"^\[  PASSED  \] (\d+) tests?", done.stdout, re.M)
        finding = None
        if done.returncode != 0 or not cases:
            failures = re.findall(r"^.*(?:Failure$|\[  FAILED  \].*)", done.stdout, re.M)
            finding = f"exit {done.returncode}\n" + "\n".join(failures[:20]) + "\n" + log.read()[:6000]
    return program.name, time.monotonic() - begin, int(cases[1]) if cases else 0, finding


def main():
    build = pathlib.Path(sys.argv[1])
    available = programs(build)
    chosen = [word for word in sys.argv[2:] if not word.startswith("-")]
    chosen = chosen or [name for name in available if name not in LEFT_OUT]
    cases = findings = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for name, seconds, count, finding in pool.map(lambda name: run(available[name]), chosen):
            cases += count
            print(f"    {name}: {count} cases, {seconds:.0f} s", flush=True)
            if finding:
                findings += 1
                print(f"FOUND: {name}\n{finding}", flush=True)
    print(f"{len(chosen)} programs, {cases} cases, {findings} with findings")
    if len(chosen) > 1:
        quality.leave("valgrind", [["", "number"], ["programs", len(chosen)], ["cases", cases],
                                   ["programs left out", len(LEFT_OUT)], ["findings", findings]])
    sys.exit(findings > 0)


if __name__ == "__main__":
    main()
