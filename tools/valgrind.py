#!/usr/bin/env python3
"""Runs the test programs under valgrind's memcheck: valgrind.py BUILD [PROGRAM]...

An access to memory that is not the program's, a decision on a value that nobody set and a block that
is lost are findings. Cases and programs are left out for the reasons that stand there; all of them run
with the address sanitizer in the preset dev. What a test starts is not watched."""
import concurrent.futures
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time

import quality

# Cases: patterns of GoogleTest.
TIMED = "it holds the library to a time"
CASES = {
    "*DeathTest*": "they abort, in processes that begin anew for each",
    "VelasyncHost/*.TimeoutsEndTheWait": TIMED,
    "VelhttpLiteBlockedWrite.*": TIMED,
    "*/Cicap.LargeBody/*": TIMED,
    "VelsocketSilence.SecondBeginTakesThePlaceOfTheFirst": "the contract loses the first, which the test shows",
}

# Programs.
STEPS = "hundreds of thousands of steps against a model: minutes here, and ten thousands in other tests"
TRACED = "it counts the system calls of a process, of which valgrind makes some itself"
DEEP = "trees or documents of a depth or a size that takes minutes here"
LEFT_OUT = {
    "adt-velhash_model_test": STEPS,
    "adt-veljson_depth_test": DEEP,
    "adt-veljson_model_test": STEPS,
    "adt-veljson_number_test": STEPS,
    "adt-velstringhash_test": STEPS,
    "adt-velwchar_internal_test": STEPS,
    "adt-velwchar_model_test": STEPS,
    "adt-velxml_depth_test": DEEP,
    "adt-velxml_model_test": STEPS,
    "async-velasync_model_test": STEPS,
    "crypto-velrandom_test": DEEP,
    "crypto-velsha_test": DEEP,
    "io-veldir_remove_deep_test": DEEP,
    "io-veldir_remove_test": DEEP,
    "io-velfile_crash_test": TRACED,
}
LIMIT = 900  # seconds


def programs(build):
    return {path.name: path for path in sorted((build / "tests").glob("*_test"))
            if path.is_file() and os.access(path, os.X_OK)}


def run(program):
    """(name, seconds, cases, what it found or None)"""
    begin = time.monotonic()
    with tempfile.NamedTemporaryFile("r", prefix="valgrind", suffix=".log") as log:
        command = ["valgrind", "--quiet", "--leak-check=full", "--show-leak-kinds=definite,indirect",
                   "--errors-for-leak-kinds=definite,indirect", "--error-exitcode=77", "--num-callers=30",
                   "--fair-sched=yes", "--child-silent-after-fork=yes", f"--log-file={log.name}",
                   "--suppressions=tools/valgrind.supp",
                   # Where a test counts allocations it puts its own functions before the platform's,
                   # and those are to be watched.
                   "--soname-synonyms=somalloc=nouserintercepts",
                   str(program), f"--gtest_filter=-{':'.join(CASES)}"]
        try:
            done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT, text=True, errors="replace", timeout=LIMIT)
        except subprocess.TimeoutExpired:
            return program.name, LIMIT, 0, "it did not end"
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
