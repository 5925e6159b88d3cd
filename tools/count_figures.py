#!/usr/bin/env python3
"""Counts what tests say they have done: count_figures.py LOG...

A test prints "oom: TEST N stacks" for the call stacks whose allocation it made fail, and
"crash: WHAT N points" for the system calls at which it killed or failed something. This prints the
sums, by the folder of the test program, and leaves them for docs/quality.md. At full length a test
prints "soak: TEST: N WHAT" too, which becomes a row of its own."""
import collections
import pathlib
import re
import sys

import quality

# Kind of line: name of the table, head of its column, what the numbers are.
KINDS = {
    "oom": ("stacks", "stacks", "distinct call stacks whose allocation was driven to failure"),
    "crash": ("crashes", "points", "system calls at which a save was killed or refused"),
}


def read(logs):
    """{kind: {test: (folder, number)}}; what is said in one locale and again in another counts once."""
    found = {kind: {} for kind in KINDS}
    for log in logs:
        folder = ""
        for line in pathlib.Path(log).read_text(errors="replace").splitlines():
            if match := re.match(r"\d+/\d+ Testing: (\w+)/", line):
                folder = match[1]
            match = re.search(r"\b(oom|crash): (\S+) (\d+) (stacks|points)$", line)
            if match and not match[2].startswith("OomDrive"):
                found[match[1]][match[2]] = (folder, int(match[3]))
    return found


def read_soak(logs):
    """[[test, amount, what]]"""
    return [[test, f"{int(amount):,}", what] for log in logs for test, amount, what in
            re.findall(r"^soak: (\S+): (\d+) (.+)$", pathlib.Path(log).read_text(errors="replace"), re.M)]


def main():
    if rows := read_soak(sys.argv[1:]):
        print(quality.leave("soak", [["test", "amount", "of"], *rows]))
    for kind, tests in read(sys.argv[1:]).items():
        if not tests:
            continue
        name, head, what = KINDS[kind]
        sums = collections.Counter()
        for folder, number in tests.values():
            sums[folder] += number
        rows = [["", head], *([f"`tests/{folder}`", sums[folder]] for folder in sorted(sums))]
        print(f"{what}: {sum(sums.values())}")
        print(quality.leave(name, rows + [["sum", sum(sums.values())]]))


if __name__ == "__main__":
    main()
