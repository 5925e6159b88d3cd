#!/usr/bin/env python3
"""Makes the manual pages from the public headers and docs/.

    manual.py OUTPUT            all pages, below OUTPUT
    manual.py --threads FILE    docs/threads.md, which a check compares with the headers

Section 3 has a page for each function, callback type, macro and header, and links for the other names
of a header; section 7 has an overview and the pages of docs/; section 1 has the host programs, whose
pages are written by hand in docs/man1."""
import datetime
import functools
import os
import pathlib
import re
import shutil
import sys
import textwrap
import time

import headers

ROOT = pathlib.Path(__file__).resolve().parent.parent
VERSION = re.search(r"project\(vellib VERSION ([0-9.]+)", (ROOT / "CMakeLists.txt").read_text())[1]
NAME = re.compile(r"(?<![\w*])(?:vel_[a-z0-9_]+\b(?!\*)|VEL_[A-Z0-9_]+\b(?!\*))")
OVERVIEW = ["vellib", "vellib-errors", "vellib-oom", "vellib-threads", "vellib-traps"]


# ---- roff ----------------------------------------------------------------------------------------

def escape(text):
    return text.replace("\\", "\\e").replace("^", "\\(ha").replace("~", "\\(ti").replace("`", "\\(ga")


def guard(line):
    """A line that begins with a control character is text all the same."""
    return "\\&" + line if line[:1] in (".", "'") else line


def fill(text):
    """Running text as lines: each sentence begins one, and none is long."""
    lines = []
    for sentence in re.split(r"(?<=[.?!:])(?<!\be\.g\.) (?=\S)", text):
        lines += textwrap.wrap(sentence, 78, break_long_words=False, break_on_hyphens=False) or [""]
    return "\n".join(guard(line) for line in lines)


def code(text):
    return ".PP\n.in +4n\n.EX\n" + "\n".join(guard(escape(line).replace("-", "\\-")) for line in text.split("\n")) + "\n.EE\n.in"


def heading(text):
    return f'.SH "{text}"' if " " in text else f".SH {text}"


@functools.cache
def date_of_release():
    """As the changelog has it; of what is not released yet, today or what the packager says."""
    dated = re.search(r"(?m)^## [0-9.]+, (\d{4}-\d\d-\d\d)$", (ROOT / "CHANGELOG.md").read_text())
    if dated:
        return dated[1]
    now = int(os.environ.get("SOURCE_DATE_EPOCH", time.time()))
    return datetime.datetime.fromtimestamp(now, datetime.timezone.utc).date().isoformat()


def page_head(name, section, source):
    return f'.\\" Made from {source}.\n.TH {name} {section} {date_of_release()} "vellib {VERSION}" "vellib"\n.nh\n.ad l'


class Names:
    """What the text of a page refers to: names of the interface have pages, arguments have none."""

    def __init__(self, known, arguments=()):
        self.known = known
        # Others are words of the language too, such as data and name.
        self.arguments = {name for name in arguments if re.search(r"ptr$|len$|_", name)}
        self.seen = []

    def mark(self, text):
        def name(match):
            kind = self.known.get(match[0])
            if kind and match[0] not in self.seen:
                self.seen.append(match[0])
            return f"\\fB{match[0]}\\fP" + ("(3)" if kind == "function" else "")

        text = NAME.sub(name, escape(text))
        if self.arguments:
            words = "|".join(sorted(map(re.escape, self.arguments), key=len, reverse=True))
            text = re.sub(rf"(?<![\w\\.\"/-])({words})(?![\w(./\"-])", r"\\fI\1\\fP", text)
        return text


def render_parts(parts, names):
    """Text, code, lists and arguments of a docstring."""
    out = []
    for kind, content in parts:
        if kind == "code":
            out.append(code(content))
        elif kind == "list":
            out += [".IP \\(bu 2\n" + fill(names.mark(item)) for item in content]
        elif kind == "arguments":
            for row, text in content:
                tag = ", ".join(f"\\fI{escape(name)}\\fP" for name in row)
                out.append(f".TP\n{tag}\n" + fill(names.mark(text)))
        else:
            out.append(".PP\n" + fill(names.mark(content)))
    return re.sub(r"\A\.PP\n", "", "\n".join(out))


def render_prototype(text):
    """A prototype as it stands, the names of the arguments told apart by nothing but their place."""
    return "\n".join(guard(escape(line).replace("-", "\\-")) for line in text.split("\n"))


def shown_prototype(declaration):
    """Without what a macro becomes, and what only a compiler reads."""
    if declaration.kind == "macro":
        return re.match(r"#define (\w+\([^)]*\))", declaration.text)[1]
    return re.sub(r"\s*VEL_PRINTF\([0-9, ]+\)", "", declaration.text)


# ---- pages of section 3 --------------------------------------------------------------------------

def lower_first(text):
    return text if re.match(r"[A-Z]{2}|[A-Z]\w*[A-Z]", text) else text[:1].lower() + text[1:]


def summary_of(docstring):
    """The first sentence for a list or a NAME line, which has to be one line."""
    text = escape(docstring.summary)
    return lower_first(text)


def capital(text):
    return text[:1].upper() + text[1:]


def see_also(names):
    """References, sorted by section and name."""
    rows = sorted(set(names), key=lambda row: (row[1], row[0]))
    return ".SH SEE ALSO\n" + ",\n".join(f".BR {name} ({section})" for name, section in rows).replace(
        "),\n", ") ,\n")


def result_of(declaration):
    """What the RETURN VALUE section says: the paragraphs on it, and lists that belong to them."""
    out, taken = [], False
    for kind, content in declaration.docstring.parts:
        taken = kind == "returns" or (taken and kind == "list")
        if taken:
            out.append((kind, content))
    return out


def errors_of(docstring, codes, names):
    """The codes that a docstring names, with number, text and cause."""
    told = docstring.plain()
    rows = []
    for name, number, text in codes:
        if number == "0" or not re.search(rf"\b{name}\b", told):
            continue
        cause = re.search(rf"(?m)\b{name} ((?:if|for|when|after|where|without|past)\b.*?)(?=;|\.(?: |$)|,? (?:or|and) VEL_|, VEL_|,? with |$)", told)
        words = f"{capital(text)}: {cause[1].rstrip(',')}" if cause else capital(text)
        rows.append(f".TP\n.BR {name} \" ({number})\"\n" + fill(names.mark(words + ".")))
    return rows


def result_of_another(docstring, known, declared):
    """Where a result is that of another function, perhaps by way of a third: its declaration, or None."""
    for _ in range(4):
        named = re.search(r"\b(?:as|as for|way of|what|those of|see) (vel_\w+)", docstring.plain())
        other = declared.get(named[1]) if named and known.get(named[1]) == "function" else None
        if not other or result_of(other):
            return other
        docstring = other.docstring
    return None


def callbacks_beside(declaration, known, declared):
    """The callback types that a function takes, or the functions that take a callback type."""
    if declaration.kind == "callback":
        return [other.name for other in declared.values() if other.kind == "function"
                and re.search(rf"\b{declaration.name}\b", other.text)]
    return [name for name in re.findall(r"\bvel_\w+_cb\b", declaration.text) if known.get(name) == "function"]


def function_page(header, declaration, known, codes, declared):
    names = Names(known, declaration.arguments)
    docstring = declaration.docstring
    result = result_of(declaration)
    apart = result + [part for part in docstring.parts if part[0] in ("threads", "note", "arguments")]
    out = [page_head(declaration.name, 3, f"include/vellib/{header.path.name}"),
           heading("NAME"), f"{declaration.name} \\- {summary_of(docstring)}",
           heading("LIBRARY"), "vellib (libvellib, \\-lvellib)",
           heading("SYNOPSIS"), ".nf", f".B #include <vellib/{header.path.name}>", ".PP",
           "\\fB" + render_prototype(shown_prototype(declaration)) + "\\fP", ".fi",
           heading("DESCRIPTION"), render_parts([part for part in docstring.parts if part not in apart], names)]

    def section(title, parts):
        if parts:
            out.extend([heading(title), render_parts(parts, names)])

    section("ARGUMENTS", [part for part in docstring.parts if part[0] == "arguments"])
    section("RETURN VALUE", result)
    told = []
    if not result and not re.match(r"(typedef )?void\s+vel_|#define|extern", declaration.text):
        out += [heading("RETURN VALUE"), "As the description has it."]
        other = result_of_another(docstring, known, declared)
        if other:
            out[-1] = names.mark(f"That of {other.name}:")
            out.append(".PP\n" + render_parts(result_of(other), names))
            told = result_of(other)
    rows = errors_of(headers.Docstring(docstring.parts + told), codes, names)
    if rows:
        out += [heading("ERRORS"), "\n".join(rows)]
    section("THREADS", [("text", capital(text)) for text in docstring.of("threads") or header.docstring.of("threads")])
    section("NOTES", [("text", capital(text)) for text in docstring.of("note")])
    others = [(name, 3) for name in names.seen if known[name] == "function" and name != declaration.name]
    others += [(name, 3) for name in callbacks_beside(declaration, known, declared)]
    if rows:
        others.append(("vellib-errors", 7))
    out.append(see_also(others + [(header.name, 3), ("vellib", 7)]))
    return "\n".join(out) + "\n"


def types_of(header, rows, names):
    """Types and constants with what is said of them; a run of constants is told of once."""
    out, before = [], None
    for row in rows:
        if row.docstring is not before and row.docstring is not header.docstring:
            out.append(".PP\n" + capital(render_parts([p for p in row.docstring.parts if p[0] == "text"], names)))
        if out and out[-1] == ".fi" and row.docstring is before:
            out.pop()
        else:
            out += [".PP", ".nf"]
        out += [render_prototype(row.text), ".fi"]
        before = row.docstring
    return out


def functions_of(rows, names):
    out, group = [], ""
    for row in rows:
        if row.group != group:
            group = row.group
            out.append(f'.SS "{escape(group)}"')
        out.append(f".TP\n.BR {row.name} (3)\n" + fill(names.mark(row.docstring.summary + ".")))
    return out


def header_page(header, known):
    names = Names(known)
    docstring = header.docstring
    out = [page_head(header.name, 3, f"include/vellib/{header.path.name}"),
           heading("NAME"), f"{header.name} \\- {summary_of(docstring)}",
           heading("SYNOPSIS"), ".nf", f".B #include <vellib/{header.path.name}>", ".PP", ".B cc \\&... \\-lvellib", ".fi",
           heading("DESCRIPTION"),
           capital(render_parts([part for part in docstring.parts if part[0] not in ("threads", "note")], names))]
    others = []
    for title, kinds in (("TYPES AND CONSTANTS", ("type", "constant")),
                         ("FUNCTIONS", ("function", "macro", "object", "callback"))):
        rows = [d for d in header.declarations if d.kind in kinds and d.docstring]
        if not rows:
            continue
        out.append(heading(title))
        out += types_of(header, rows, names) if title.startswith("TYPES") else functions_of(rows, names)
        others += [(row.name, 3) for row in rows if row.kind not in ("type", "constant")]
    for kind, title in (("threads", "THREADS"), ("note", "NOTES")):
        if docstring.of(kind):
            out += [heading(title), render_parts(
                [("text", capital(text)) for text in docstring.of(kind)], names)]
    others = [(name, 3) for name in names.seen if known[name] == "function" and (name, 3) not in others]
    out.append(see_also(others + [(name, 7) for name in OVERVIEW]))
    return "\n".join(out) + "\n"


# ---- markdown, of which docs/api.md and the tables below use a little -----------------------------

def split_row(line):
    return [cell.strip() for cell in line.strip().strip("|").split("|")]


def render_markdown(text, known):
    names = Names(known)

    def inline(piece):
        piece = re.sub(r"\[([^]]*)\]\([^)]*\)", r"\1", headers.unwrap(piece))
        parts = re.split(r"`([^`]*)`|\*\*([^*]*)\*\*", piece)
        out = []
        for i in range(0, len(parts), 3):
            out.append(names.mark(parts[i]))
            if i + 2 < len(parts):
                bold = parts[i + 1] if parts[i + 1] is not None else parts[i + 2]
                bold = bold.replace("`", "")
                out.append(names.mark(bold) if NAME.fullmatch(bold) else f"\\fB{escape(bold)}\\fP")
        return fill("".join(out))

    out = []
    for block in re.split(r"\n\n+", text.strip()):
        if block.startswith("<!--"):
            continue
        if block.startswith("#"):
            level, title = block.split(" ", 1)
            if len(level) > 1:
                out.append(heading(title.upper()) if len(level) == 2 else f'.SS "{title}"')
        elif block.startswith("    "):
            out.append(code(re.sub(r"(?m)^    ", "", block)))
        elif block.startswith("- "):
            out += [".IP \\(bu 2\n" + inline(item) for item in re.split(r"(?m)^- ", block)[1:]]
        elif block.startswith("|"):
            lines = block.split("\n")
            titles = split_row(lines[0])
            for line in lines[2:]:
                cells = split_row(line)
                if titles[1] == "number":
                    out.append(f".TP\n{inline(cells[0])} ({cells[1]}), \\(lq{escape(cells[2])}\\(rq\n"
                               + inline(capital(cells[3]) + ("" if cells[3].endswith(".") else ".")))
                    continue
                rest = [cell if len(cells) < 3 or not title else f"{title}: {cell}."
                        for title, cell in zip(titles[1:], cells[1:]) if cell]
                out.append(f".TP\n{inline(cells[0])}\n" + "\n.br\n".join(inline(cell) for cell in rest))
        else:
            out.append(".PP\n" + inline(block))
    return "\n".join(out)


# ---- pages of section 7 --------------------------------------------------------------------------

def error_codes(all_headers):
    """(name, number, text) of each result code."""
    header = next(h for h in all_headers if h.name == "velerror")
    source = header.path.read_text()
    return re.findall(r"(VEL_ERROR_\w+) = (\d+), +/\* (.*?) \*/", source)


def errors_markdown(all_headers):
    """docs/errors.md, with the functions whose description names a code."""
    functions = [d for h in all_headers for d in h.declarations if d.kind in ("function", "callback")]

    def add_functions(match):
        told = told_by(functions, match[1])
        return f"{match[0][:-2].rstrip('. ')}. Named by {told}. |" if told else match[0]

    text = (ROOT / "docs/errors.md").read_text()
    return re.sub(r"(?m)^\| `(VEL_ERROR_(?!NONE)\w+)` .*\|$", add_functions, text)


def told_by(functions, word):
    names = [f"`{d.name}`" for d in functions if re.search(rf"\b{word}\b", d.docstring.plain())]
    return ", ".join(names)


THREADS = """<!-- `./dev docs` makes this page of the headers. -->

# Threads

Which threads may be in a function at a time.

- The rule of a header holds for all that it declares. What has a rule of its own stands below it.
- "One at a time" is meant for each object: two threads may use two of them. The host sees to it, by a lock
  or by giving each thread its own.
- "Any" is any thread at any time, as nothing is shared but what the caller passes. What it passes may not
  change meanwhile.

Before threads are started by other means than `vel_thread_start`, call `vel_log_init_threaded`. Call
`vel_uninit` when no other thread is in the library. `VELMALLOC_FAILMODE` is for one thread that allocates.

## Rules

| where | rule |
|---|---|
RULES
"""


def threads_markdown(all_headers):
    """The rule of each header, and of each function that has its own."""
    rows = []
    for header in all_headers:
        rules = [text for d in header.declarations if d.docstring is not header.docstring
                 for text in d.docstring.of("threads")]
        common = header.docstring.of("threads") or (rules[:1] if len(set(rules)) == 1 else [])
        rows += [f"| `{header.path.name}` | {text} |" for text in common]
        rows += [f"| `{d.name}` | {text} |" for d in header.declarations if d.docstring is not header.docstring
                 for text in d.docstring.of("threads") if text not in common]
    return THREADS.replace("RULES", "\n".join(rows))


def subsystems(root):
    """The headers by subsystem, as vellib.h groups them."""
    source = (root / "include/vellib/vellib.h").read_text()
    for block in re.findall(r"(?m)^/\* (.*) \*/\n((?:#include <vellib/.*\n)+)", source):
        yield block[0], re.findall(r"vellib/(\w+)\.h", block[1])


def overview_page(all_headers, known):
    by_name = {header.name: header for header in all_headers}
    listed = []
    for title, names in subsystems(ROOT):
        listed.append(f".SS \"{title}\"")
        listed += [f".TP\n.BR {name} (3)\n" + fill(Names(known).mark(by_name[name].docstring.summary + "."))
                   for name in names if by_name[name].docstring.parts]
    return "\n".join([
        page_head("vellib", 7, "docs/api.md and the public headers"),
        heading("NAME"), "vellib \\- foundation library for long\\-running programs and small tools",
        heading("SYNOPSIS"), ".nf", ".B #include <vellib/vellib.h>", ".PP",
        ".B cc $(pkg\\-config \\-\\-cflags \\-\\-libs vellib) \\&...", ".fi",
        heading("DESCRIPTION"),
        "Each header has a page, and may be included alone.",
        render_markdown((ROOT / "docs/api.md").read_text(), known),
        heading("HEADERS"), "\n".join(listed),
        see_also([(name, 7) for name in OVERVIEW[1:]])]) + "\n"


def markdown_page(name, summary, text, source, known):
    body = render_markdown(text, known)
    first, rest = body.split(".SH", 1)
    others = [(other, 7) for other in OVERVIEW if other != name]
    return "\n".join([page_head(name, 7, source), heading("NAME"), f"{name} \\- {summary}",
                      heading("DESCRIPTION"), re.sub(r"\A\.PP\n", "", first).strip(), ".SH" + rest,
                      see_also(others)]) + "\n"


# ---- pages of section 1 --------------------------------------------------------------------------

def program_page(text):
    """A page of docs/man1, with the date, the version, and what all programs share."""
    text = re.sub(r'(?m)^(\.TH \w+ 1) .*$', rf'\1 {date_of_release()} "vellib {VERSION}" "vellib"', text)
    return text.replace(".SH EXAMPLES\n", (ROOT / "docs/man1/environment.roff").read_text() + ".SH EXAMPLES\n")


# ---- all of them ---------------------------------------------------------------------------------

def write_pages(output):
    all_headers = headers.read_headers(ROOT)
    known = {}
    codes = error_codes(all_headers)
    declared = {d.name: d for h in all_headers for d in h.declarations}
    for header in all_headers:
        for declaration in header.declarations:
            paged = declaration.kind in ("function", "callback", "macro", "object")
            known.setdefault(declaration.name, "function" if paged else declaration.kind)
    for section in ("man1", "man3", "man7"):
        shutil.rmtree(output / section, ignore_errors=True)
        (output / section).mkdir(parents=True)
    count = 0

    def write(name, text):
        nonlocal count
        text = re.sub(r"(?m)^(\.S[HS] .*)\n\.PP$", r"\1", text)
        (output / f"man{name[-1]}" / name).write_text(text)
        count += 1

    for header in all_headers:
        write(header.name + ".3", header_page(header, known))
        for declaration in header.declarations:
            if known[declaration.name] == "function":
                write(declaration.name + ".3", function_page(header, declaration, known, codes, declared))
        # The other names of a header lead to its page; the result codes have one of their own.
        target = "man7/vellib-errors.7" if header.name == "velerror" else f"man3/{header.name}.3"
        source = re.sub(r"(?s)/\*.*?\*/", "", header.path.read_text())
        for name in re.findall(r"(?m)^ +(VEL_\w+) = ", source) + [d.name for d in header.declarations]:
            if not (output / "man3" / f"{name}.3").exists():
                write(name + ".3", f".so {target}\n")
    write("vellib.7", overview_page(all_headers, known))
    for name, summary, text in (
            ("errors", "the result codes of vellib, and where they come from", errors_markdown(all_headers)),
            ("threads", "which functions of vellib may run at a time", threads_markdown(all_headers)),
            ("traps", "what surprises in vellib, and what to do about it", None),
            ("oom", "how to drive each failure of an allocation", None)):
        source = f"docs/{name}.md"
        write(f"vellib-{name}.7", markdown_page(
            f"vellib-{name}", summary, text or (ROOT / source).read_text(), source, known))
    for path in sorted((ROOT / "docs/man1").glob("*.1")):
        write(path.name, program_page(path.read_text()))
    return count


def main():
    if sys.argv[1] == "--threads":
        pathlib.Path(sys.argv[2]).write_text(threads_markdown(headers.read_headers(ROOT)))
        return
    output = pathlib.Path(sys.argv[1])
    print(f"{write_pages(output)} manual pages: man -M {output} 7 vellib")


if __name__ == "__main__":
    main()
