#!/usr/bin/env python3
"""Makes the manual pages and checks them against the headers, the library, docs/ and the host programs.

usage: check_manual.py ROOT BUILD"""
import ctypes
import os
import pathlib
import re
import subprocess
import sys
import tempfile

import headers
import manual

# Pages of other packages that ours refer to, and calls of the platform that descriptions name.
FOREIGN = {("sha256sum", "1"), ("socket", "2"), ("connect", "2")}
OPTION = re.compile(r"(?:^|(?<=[ ,|\[]))--?[a-zA-Z][a-z0-9-]*", re.M)


def run(command):
    return subprocess.run(command, text=True, capture_output=True, env={**os.environ, "LC_ALL": "C"})


def check_sections(name, text, is_void):
    """The parts that a page of a function has."""
    for section in ("NAME", "LIBRARY", "SYNOPSIS", "DESCRIPTION", "THREADS", "SEE ALSO"):
        if f"\n.SH {section}\n" not in text:
            yield f"{name}(3) has no section {section}"
    errors = re.search(r"(?ms)^\.SH ERRORS\n(.*?)^\.SH ", text)
    if errors and "\\fBVEL_ERROR_" in errors[1]:
        yield f"{name}(3) tells of other codes in the cause of one"
    if ('.SH "RETURN VALUE"' in text) == is_void:
        yield f"{name}(3) has a return value, and the function none, or the other way round"


def check_symbols(root, pages, all_headers):
    functions = {d.name: d for h in all_headers for d in h.declarations if d.kind == "function"}
    for symbol in (root / "tools/exports.txt").read_text().split():
        page = pages.get(f"man3/{symbol}.3", "")
        if not page.startswith(".\\\""):
            yield f"{symbol} has no page"
        elif symbol in functions:
            yield from check_sections(symbol, page, bool(re.match(r"void\s+vel_", functions[symbol].text)))
    for header in all_headers:
        for declaration in header.declarations:
            if f"man3/{declaration.name}.3" not in pages:
                yield f"{declaration.name} has no page"


def check_links(pages):
    for name, text in pages.items():
        target = re.match(r"\.so (\S+)", text)
        if target and target[1] not in pages:
            yield f"{name} leads to {target[1]}, which is not there"
        for other, section in re.findall(r"(?:^\.BR |\\fB)([\w-]+)(?:\\fP| )\((\d)\)", text, re.M):
            if f"man{section}/{other}.{section}" not in pages and (other, section) not in FOREIGN:
                yield f"{name} refers to {other}({section}), which is not there"


def check_roff(output, pages):
    whole = [str(output / name) for name, text in pages.items() if not text.startswith(".so ")]
    for command in (["mandoc", "-Tlint", "-W", "warning"], ["groff", "-mandoc", "-ww", "-z", "-Tutf8"]):
        done = run(command + whole)
        said = (done.stdout + done.stderr).strip()
        if said or done.returncode != 0:
            yield f"{command[0]} says: {said[:2000]}"
    shown = run(["groff", "-mandoc", "-Tascii", "-P-c", "-P-b", "-P-u", str(output / "man3/vel_json_parse.3")]).stdout
    if "vel_json_parse - reads a text into a document" not in shown:
        yield "man vel_json_parse does not show its first sentence"


def options_of(page):
    section = re.search(r"^\.SH OPTIONS\n(.*?)^\.SH ", page, re.S | re.M)[1]
    tags = "\n".join(re.findall(r"^\.TP\n(.*)$", section, re.M))
    return set(OPTION.findall(re.sub(r'^\.\w+ |"', "", re.sub(r"\\f[A-Z]", "", tags.replace("\\-", "-")), flags=re.M)))


def codes_of(page):
    section = re.search(r'^\.SH "?EXIT STATUS"?\n(.*?)^\.SH ', page, re.S | re.M)[1]
    return set(re.findall(r"(?m)^\.TP\n(\d+)", section))


def check_programs(root, build, pages):
    for source in sorted((root / "examples").glob("vel*.c")):
        page = pages.get(f"man1/{source.stem}.1")
        if not page:
            yield f"{source.stem} has no page"
            continue
        told = run([str(build / "examples" / source.stem), "--help"]).stdout
        rows = re.search(r"^OPTIONS:\n(.*?)\n\n", told, re.S | re.M)[1]
        options = {option for row in re.findall(r"^ (-.*?)(?:  |$)", rows, re.M) for option in OPTION.findall(row)}
        for option in options ^ options_of(page):
            yield f"{option} stands in {source.stem}(1) or in what {source.stem} --help tells, not in both"
        codes = set(re.findall(r"(?:: |; |, )(\d+) ", re.sub(r"\s+", " ", told[told.index("\nExit code"):])))
        for code in codes ^ codes_of(page):
            yield f"exit code {code} stands in {source.stem}(1) or in what {source.stem} --help tells, not in both"


def check_errors(root, build, all_headers):
    codes = manual.error_codes(all_headers)
    rows = re.findall(r"^\| `(VEL_ERROR_\w+)` \| (\d+) \| ([^|]*) \| [^|]+ \|$", (root / "docs/errors.md").read_text(), re.M)
    if rows != codes:
        yield f"docs/errors.md and velerror.h differ in {sorted(set(rows) ^ set(codes))}"
    text_of = ctypes.CDLL(str(build / "libvellib.so")).vel_error_string
    text_of.restype = ctypes.c_char_p
    known = {int(number): text for _, number, text in codes}
    for number in range(-1, 300):
        if text_of(number).decode() != known.get(number, "unknown error"):
            yield f"vel_error_string({number}) is not what velerror.h has"


def check_docs(root, all_headers):
    if (root / "docs/threads.md").read_text() != manual.threads_markdown(all_headers):
        yield "docs/threads.md is not what the headers say: run ./dev docs"
    for trap in re.split(r"(?m)^(?=- |## )", (root / "docs/traps.md").read_text()):
        if trap.startswith("- ") and not re.search(r"\bDo:\s+\S", trap):
            yield f"docs/traps.md does not tell what to do: {trap.splitlines()[0]}"


def main():
    root, build = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
    all_headers = headers.read_headers(root)
    with tempfile.TemporaryDirectory() as work:
        output = pathlib.Path(work)
        manual.write_pages(output)
        pages = {str(path.relative_to(output)): path.read_text() for path in sorted(output.glob("man*/*"))}
        faults = [*check_symbols(root, pages, all_headers), *check_links(pages), *check_roff(output, pages),
                  *check_programs(root, build, pages), *check_errors(root, build, all_headers),
                  *check_docs(root, all_headers)]
    print("\n".join(faults) or f"{len(pages)} manual pages")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
