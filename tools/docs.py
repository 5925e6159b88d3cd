#!/usr/bin/env python3
"""Makes the HTML reference from the public headers and docs/: docs.py OUTPUT

It is in OUTPUT/html, by doxygen, which has to be silent. The
docstrings are plain text (see CONTRIBUTING.md); this turns their shape into what doxygen reads."""
import pathlib
import re
import shutil
import subprocess
import sys

import headers
import manual

ROOT = pathlib.Path(__file__).resolve().parent.parent


def escape(text):
    return re.sub(r"([@\\<>#%])", r"\\\1", text)


def convert_block(text):
    """One comment as doxygen's: a section opens a group, and the parts of a docstring have commands."""
    section = re.match(r"-+ (.*?) -+(?:\n+|$)", text)
    if section:
        return f"/** @name {escape(section[1])}\n{convert_parts(text[section.end():])} @{{ */"
    return f"/** {convert_parts(text)} */"


def convert_parts(text):
    out = []
    for kind, content in headers.parse_docstring(text).parts:
        if kind == "arguments":
            out.append("\n".join(f"@param {','.join(names)} {escape(words)}" for names, words in content))
        elif kind == "list":
            out.append("\n".join("- " + escape(item) for item in content))
        elif kind == "code":
            out.append(f"@code{{.c}}\n{content}\n@endcode")
        else:
            command = {"returns": "@return ", "note": "@note ", "threads": "@par Threads\n"}.get(kind, "")
            out.append(command + escape(content.removeprefix("Returns ") if kind == "returns" else content))
    return "\n\n".join(out)


def convert(text):
    text = re.sub(r"(?m)^VEL_API ", "", text)
    text = re.sub(r"\)\s*VEL_PRINTF\([0-9, ]+\)", ")", text)
    text = re.sub(r"\}\s*__attribute__\(\(may_alias\)\)", "}", text)
    text = re.sub(r"(?m)^VEL_DECLARATIONS_(BEGIN|END)$", "", text)
    text = re.sub(r"(?m)^( +\w.*?[,;] +)/\* (.*?) \*/$", lambda m: f"{m[1]}/**< {escape(m[2])} */", text)
    # The first comment is the header's; doxygen wants to be told.
    title = re.search(r"(?m)^/\* (\w+: )", text)
    text = re.sub(r"(?ms)^/\* .*?\*/", lambda m: convert_block(headers.uncomment(m[0])), text)
    text = text.replace("/** " + title[1], "/** @file\n" + title[1], 1) if title else text
    # A group ends where the next begins, and before what closes the header.
    groups = text.split("/** @name ")
    return "/** @} */\n\n/** @name ".join([groups[0] + "/** @name " + groups[1]] + groups[2:]).replace(
        "\n#endif", "\n/** @} */\n#endif") if len(groups) > 1 else text


def page(label, text):
    """A page under a name of its own; the names in its tables lead to what they name."""
    text = re.sub(r"(?m)^# .*$", rf"\g<0> {{#{label}}}", re.sub(r"\A<!--.*-->\n", "", text), count=1)
    text = re.sub(r"`(VEL_\w+)`", r"#\1", re.sub(r"`(vel_\w+(?<!_t))`", r"\1()", text))
    # It does not know code within what is bold.
    return re.sub(r"\*\*[^*]*\*\*", lambda bold: bold[0].replace("`", ""), text)


def guide_page(label, text):
    """A chapter of the guide: a fence keeps its language, and what is no page has no link."""
    text = re.sub(r"(?m)^``` ?(c|cpp)\b.*$", r"```\1", text)
    text = re.sub(r"(?m)^``` ?(?!c$|cpp$)\w.*$", "```", text)
    return page(label, re.sub(r"\[([^\]]*)\]\(\.\./\.\./examples/[^)]*\)", r"\1", text))


def main():
    output = pathlib.Path(sys.argv[1]).resolve()
    shutil.rmtree(output, ignore_errors=True)
    shown = output / "headers" / "vellib"
    shown.mkdir(parents=True)
    for path in (ROOT / "include/vellib").glob("*.h"):
        (shown / path.name).write_text(convert(path.read_text()))
    # Where they lie in the tree, as their links expect.
    pages = output / "docs"
    pages.mkdir()
    readme = output / "README.md"
    readme.write_text((ROOT / "README.md").read_text())
    all_headers = headers.read_headers(ROOT)
    for path in (ROOT / "docs").glob("*.md"):
        text = manual.errors_markdown(all_headers) if path.stem == "errors" else path.read_text()
        (pages / path.name).write_text(page(path.stem, text))
    (pages / "guide").mkdir()
    for path in (ROOT / "docs/guide").glob("*.md"):
        (pages / "guide" / path.name).write_text(guide_page(f"guide_{path.stem}", path.read_text()))
    config = f"""
        PROJECT_NAME = vellib
        PROJECT_BRIEF = "Foundation library for POSIX"
        PROJECT_NUMBER = {manual.VERSION}
        INPUT = {shown.parent} {pages} {readme}
        USE_MDFILE_AS_MAINPAGE = {readme}
        IMAGE_PATH = {ROOT}/docs
        RECURSIVE = YES
        STRIP_FROM_PATH = {shown.parent} {output}
        STRIP_FROM_INC_PATH = {shown.parent}
        OUTPUT_DIRECTORY = {output}
        OPTIMIZE_OUTPUT_FOR_C = YES
        ENABLE_PREPROCESSING = YES
        JAVADOC_AUTOBRIEF = YES
        EXTRACT_ALL = NO
        WARN_IF_UNDOCUMENTED = NO
        WARN_NO_PARAMDOC = NO
        WARN_IF_INCOMPLETE_DOC = NO
        AUTOLINK_SUPPORT = YES
        GENERATE_LATEX = NO
        GENERATE_MAN = NO
        HAVE_DOT = NO
        QUIET = YES
        WARNINGS = YES
    """
    done = subprocess.run(["doxygen", "-"], cwd=output, input=config, text=True, capture_output=True)
    if done.returncode != 0 or done.stderr.strip():
        print(done.stderr)
        return 1
    print(f"reference: {output}/html/index.html")
    return 0


if __name__ == "__main__":
    sys.exit(main())
