#!/usr/bin/env python3
"""The figures of docs/quality.md: quality.py [--record | --check | --recorded]

What measures leaves its table in build/quality/<name>.md. This prints the tables that are there; with
--record they also go into docs/quality.md, between the marks "<!-- quality: NAME -->" and
"<!-- end -->". With --check, nothing counted in this run may have shrunk against the page: each
number in the last column of a counted table is at least nine tenths of the one on the page, as the
sum may differ a little between machines. With --recorded it prints the tables of the page that a test
run does not measure anew, each with its command."""
import datetime
import pathlib
import re
import sys

PAGE = pathlib.Path("docs/quality.md")
TABLES = pathlib.Path("build/quality")
COUNTED = ("stacks", "crashes")


def table(rows):
    widths = [max(len(str(row[i])) for row in rows) for i in range(len(rows[0]))]
    lines = ["| " + " | ".join(str(cell).ljust(width) if i == 0 else str(cell).rjust(width)
                               for i, (cell, width) in enumerate(zip(row, widths))) + " |" for row in rows]
    lines.insert(1, "|" + "|".join("-" * (width + 1) + ("-" if i == 0 else ":")
                                   for i, width in enumerate(widths)) + "|")
    return "\n".join(lines)


def leave(name, rows):
    """Leaves a table, its first row the heads of the columns, and returns its text."""
    TABLES.mkdir(parents=True, exist_ok=True)
    text = table(rows)
    (TABLES / f"{name}.md").write_text(f"Measured on {datetime.date.today()}.\n\n{text}\n")
    return text


def marked(name):
    return re.compile(rf"(<!-- quality: {name} -->\n).*?(<!-- end -->)", re.S)


def record(name, text):
    content, count = marked(name).subn(lambda match: f"{match[1]}\n{text}\n{match[2]}", PAGE.read_text())
    if count != 1:
        sys.exit(f"{PAGE} has no place for {name}")
    PAGE.write_text(content)


def numbers(text):
    """{first cell: number in the last cell}"""
    return {row[0]: int(row[1]) for row in re.findall(r"^\| (.*?) +\|.*?([0-9]+) \|$", text, re.M)}


def shrunk(name):
    recorded = marked(name).search(PAGE.read_text())
    now = numbers((TABLES / f"{name}.md").read_text())
    return [f"{name}: {row}: {was} on the page, {now.get(row, 0)} now"
            for row, was in numbers(recorded[0] if recorded else "").items() if now.get(row, 0) < 0.9 * was]


def print_recorded():
    for command, section in re.findall(r"^## [^\n]*`(\./dev [^`]+)`\n(.*?)(?=^## |\Z)", PAGE.read_text(), re.M | re.S):
        for name, text in re.findall(r"<!-- quality: (\w+) -->\n(.*?)<!-- end -->", section, re.S):
            if name not in COUNTED and text.strip():
                print(f"{command}, {name}. {text.strip()}\n")


def main():
    if "--recorded" in sys.argv[1:]:
        print_recorded()
        return
    names = sorted(path.stem for path in TABLES.glob("*.md"))
    if "--check" in sys.argv[1:]:
        if lost := [line for name in COUNTED for line in shrunk(name)]:
            sys.exit("\n".join(lost))
        return
    for name in names:
        text = (TABLES / f"{name}.md").read_text()
        print(f"{name}\n\n{text}")
        if "--record" in sys.argv[1:]:
            record(name, text)


if __name__ == "__main__":
    main()
