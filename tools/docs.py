#!/usr/bin/env python3
"""Makes the reference from the public headers: docs.py OUTPUT

HTML in OUTPUT/html and man pages in OUTPUT/man/man3, by doxygen, which has to be silent. The
docstrings are plain text (see CONTRIBUTING.md); this turns their shape into what doxygen reads."""
import pathlib
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent


def convert_block(text):
    """One comment: arguments become parameters, and the headed paragraphs become sections."""
    text = re.sub(r"([@\\<>#%])", r"\\\1", text)
    lines = [re.sub(r"^ ?\* ?", "", line) for line in text.splitlines()]
    out, section = [], None
    for paragraph in "\n".join(lines).split("\n\n"):
        if re.match(r"[a-z_0-9]+ {2,}\S", paragraph.lstrip("\n")):
            rows = re.split(r"\n(?=[a-z_0-9]+ {2,}\S)", paragraph)
            out.append("\n".join("@param " + re.sub(r"\s+", " ", row).strip() for row in rows))
            continue
        paragraph = re.sub(r"(?m)^Returns ", "\n@return ", paragraph)
        paragraph = re.sub(r"(?m)^Note: ", "\n@note ", paragraph)
        paragraph = re.sub(r"(?m)^Threads: ", "\n@par Threads\n", paragraph)
        out.append(paragraph)
    return "/** " + "\n\n".join(out) + " */"


def convert(text):
    text = re.sub(r"(?m)^VEL_API ", "", text)
    text = re.sub(r"\)\s*VEL_PRINTF\([0-9, ]+\)", ")", text)
    text = re.sub(r"\}\s*__attribute__\(\(may_alias\)\)", "}", text)
    text = re.sub(r"(?m)^VEL_DECLARATIONS_(BEGIN|END)$", "", text)
    return re.sub(r"(?ms)^/\* (.*?) ?\*/", lambda m: convert_block(m.group(1)), text)


def main():
    output = pathlib.Path(sys.argv[1]).resolve()
    shutil.rmtree(output, ignore_errors=True)
    headers = output / "headers" / "vellib"
    headers.mkdir(parents=True)
    for path in (ROOT / "include/vellib").glob("*.h"):
        text = convert(path.read_text())
        # The first comment is the header's; doxygen wants to be told.
        text = re.sub(r"/\*\* (\w+): ", r"/** @file\n\1: ", text, count=1)
        (headers / path.name).write_text(text)
    config = f"""
        PROJECT_NAME = vellib
        PROJECT_BRIEF = "Foundation library for POSIX"
        PROJECT_NUMBER = 1.0.0
        INPUT = {headers.parent} {ROOT}/docs {ROOT}/README.md
        USE_MDFILE_AS_MAINPAGE = {ROOT}/README.md
        IMAGE_PATH = {ROOT}/docs
        RECURSIVE = YES
        STRIP_FROM_PATH = {headers.parent} {ROOT}
        STRIP_FROM_INC_PATH = {headers.parent}
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
        GENERATE_MAN = YES
        MAN_LINKS = YES
        HAVE_DOT = NO
        QUIET = YES
        WARNINGS = YES
    """
    done = subprocess.run(["doxygen", "-"], input=config, text=True, capture_output=True)
    if done.returncode != 0 or done.stderr.strip():
        print(done.stderr)
        return 1
    print(f"reference: {output}/html/index.html, man pages: {output}/man")
    return 0


if __name__ == "__main__":
    sys.exit(main())
