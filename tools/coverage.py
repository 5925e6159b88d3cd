#!/usr/bin/env python3
"""Shows what the tests run of the library: coverage.py BUILD [--list]

BUILD is the build directory of the preset coverage after its tests have run. Each process has left
its counters in BUILD/profiles, also one that aborted, so that an assertion which a test makes fail
counts. This prints lines and branches for each folder of src/. A branch is one outcome of one
condition of the source; in a template it counts once for each instance, so that twins are tested
each by itself.

tools/coverage_gaps.txt says why a gap is left. A gap without a reason fails, and so does a reason
without a gap. With --list this prints the gaps, with their line numbers, that have no reason."""
import collections
import fnmatch
import pathlib
import re
import subprocess
import sys

import quality

GAPS = pathlib.Path("tools/coverage_gaps.txt")
# Gaps that say what they are themselves.
ASSERTION = "an assertion in an internal function, whose callers hold it"
CONSTEXPR = "a table that the compiler makes"


def tool(name, *arguments):
    return subprocess.run([f"{name}-14", *arguments], check=True, capture_output=True, text=True).stdout


def merge(build):
    """One profile of all that the processes left; one that was killed as it began left nothing."""
    profiles = [str(path) for path in sorted(build.glob("profiles/*.profraw")) if path.stat().st_size]
    if not profiles:
        sys.exit(f"coverage: no profiles in {build}")
    listed, merged = build / "profiles.txt", build / "all.profdata"
    listed.write_text("\n".join(profiles))
    tool("llvm-profdata", "merge", "--failure-mode=all", "--num-threads=1", "-sparse", "-f", str(listed), "-o", str(merged))
    return merged


class Source:
    def __init__(self, name):
        self.name = name
        self.text = pathlib.Path(name).read_text().splitlines()
        self.starts = set()
        self.lines = {}
        self.branches = collections.defaultdict(list)

    def line(self, number):
        return self.text[number - 1].strip()

    def head(self, number):
        """The line with the name of the function in which a line stands."""
        for number in range(max((start for start in self.starts if start <= number), default=1), 0, -1):
            if re.match(r"[^\s#/*{}].*\bvel_\w+\(", self.text[number - 1]):
                return self.text[number - 1]
        return ""

    def figures(self):
        """Lines, lines that run, branches, branches that run."""
        outcomes = [count for counts in self.branches.values() for count in counts]
        return [len(self.lines), sum(count > 0 for count in self.lines.values()),
                len(outcomes), sum(count > 0 for count in outcomes)]


def read(build, merged):
    """What llvm-cov exports: {file: Source}, of src/ alone."""
    sources, source = {}, None
    exported = tool("llvm-cov", "export", "-format=lcov", str(build / "libvellib.so"), f"-instr-profile={merged}")
    for line in exported.splitlines():
        kind, _, rest = line.partition(":")
        if kind == "SF":
            name = rest.partition(f"{build}/")[2] or rest
            source = Source(name) if name.startswith("src/") else None
            if source:
                sources[name] = source
        elif source and kind == "FN":
            source.starts.add(int(rest.split(",")[0]))
        elif source and kind == "DA":
            number, count = rest.split(",")[:2]
            source.lines[int(number)] = int(count)
        elif source and kind == "BRDA":
            number, _, _, count = rest.split(",")
            source.branches[int(number)].append(0 if count == "-" else int(count))
    return sources


class Gap:
    """A place at which something does not run: the text of the line stands for it, as numbers move."""

    def __init__(self, source, number, what):
        self.name = f"{source.name}: {what}: {source.line(number)}"
        self.number, self.head = number, source.head(number)
        self.lines = self.branches = 0

    def own_reason(self, exported):
        if "constexpr" in self.head or "consteval" in self.head:
            return CONSTEXPR
        function = re.search(r"\b(vel_\w+)\(", self.head)
        if "VEL_ASSERT(" in self.name and not (function and function[1] in exported):
            return ASSERTION
        return None


def gaps_of(source):
    """Lines that do not run belong to the branch before them that would lead there."""
    gaps, last = [], None
    for number in sorted(set(source.lines) | set(source.branches)):
        if source.lines.get(number, 1) == 0:
            if not last or last[1] < number - 1:
                gaps.append(Gap(source, number, "not run"))
            last = (gaps[-1], number)
            gaps[-1].lines += 1
            gaps[-1].branches += len(source.branches.get(number, []))
            continue
        missed = [i % 2 for i, count in enumerate(source.branches.get(number, [])) if count == 0]
        for outcome in sorted(set(missed)):
            what = "holds" if "VEL_ASSERT(" in source.line(number) else f"never {'false' if outcome else 'true'}"
            if not missed or not gaps or gaps[-1].number != number or not gaps[-1].name.startswith(f"{source.name}: {what}"):
                gaps.append(Gap(source, number, what))
            gaps[-1].branches += missed.count(outcome)
            last = (gaps[-1], number)
    return gaps


def read_reasons():
    """{name of a gap: (reason, whether it may also run)}"""
    reasons, reason = {}, None
    for line in GAPS.read_text().splitlines():
        if match := re.fullmatch(r"\[(.*?)(, or not, by machine and moment)?\]", line):
            reason = (match[1], bool(match[2]))
        elif line and not line.startswith("#"):
            reasons[line] = reason
    return reasons


def reason_of(name, reasons):
    """By the name, or by a pattern of names that may run or not."""
    if name in reasons:
        return reasons[name][0]
    return next((reason for pattern, (reason, optional) in reasons.items()
                 if optional and fnmatch.fnmatchcase(name, pattern)), None)


def percent(part, whole):
    return f"{100 * part / whole:.1f} %" if whole else ""


def show_folders(sources):
    folders = collections.defaultdict(lambda: [0] * 4)
    for source in sources.values():
        for name in (source.name.rpartition("/")[0], "sum"):
            folders[name] = [a + b for a, b in zip(folders[name], source.figures())]
    return [["", "lines", "run", "branches", "taken"]] + [
        [name if name == "sum" else f"`{name}`", lines, percent(run, lines), branches, percent(taken, branches)]
        for name, (lines, run, branches, taken) in sorted(folders.items(), key=lambda item: (item[0] == "sum", item))]


def main():
    build = pathlib.Path(sys.argv[1])
    sources = read(build, merge(build))
    exported = set(pathlib.Path("tools/exports.txt").read_text().split())
    reasons, seen, bare = read_reasons(), set(), []
    sums = collections.defaultdict(lambda: [0, 0])
    for source in sources.values():
        for gap in gaps_of(source):
            seen.add(gap.name)
            reason = gap.own_reason(exported) or reason_of(gap.name, reasons)
            if not reason:
                bare.append(gap)
                continue
            sums[reason] = [sums[reason][0] + gap.lines, sums[reason][1] + gap.branches]

    if "--list" in sys.argv[2:]:
        for gap in bare:
            print(f"{gap.number}\t{gap.name}")
        return
    print(quality.leave("coverage", show_folders(sources)))
    print()
    print(quality.leave("gaps", [["what no test runs", "lines", "branches"]] + [
        [reason, *counts] for reason, counts in sorted(sums.items(), key=lambda item: -item[1][1])]))
    stale = [name for name, (_, optional) in reasons.items() if name not in seen and not optional]
    for gap in bare:
        print(f"no test and no reason: line {gap.number} of {gap.name}")
    for name in stale:
        print(f"a reason in {GAPS}, but no gap: {name}")
    sys.exit(bool(bare or stale))


if __name__ == "__main__":
    main()
