#!/usr/bin/env python3
"""Checks that every public declaration has a docstring of the form that CONTRIBUTING.md tells.

usage: check_docstrings.py ROOT"""
import pathlib
import re
import sys

import headers

# A result may be told by the first sentence alone, or be that of another function.
TELLS_RESULT = re.compile(r"(Gives|Tells|Returns|Steps|Counts)\b")
TELLS_STATUS = re.compile(r"(Tells|Returns)\b")
REFERS = re.compile(r"\b(vel_\w+|VEL_ERROR_\w+|[Rr]esult)\b")


def check_arguments(declaration):
    """Rows name arguments of the declaration, each once, in its order."""
    named = [name for rows in declaration.docstring.of("arguments") for names, _ in rows for name in names]
    known = [name for name in declaration.arguments if name in named]
    for name in named:
        if name not in declaration.arguments:
            yield f"tells of {name}, which is no argument"
    if sorted(named) == sorted(known) and named != known:
        yield "tells of its arguments in another order than it takes them"
    # The handle, the context and what a format or a path stands for need no words, and others may be
    # told of in the text, or be those of another function.
    told = declaration.docstring.plain()
    if named and not re.search(r"[Oo]ther arguments (and results )?are (as|those)|as vel_\w+ does", told):
        for name in declaration.arguments:
            handle = re.search(rf"\b(vel\w+|FILE) \*{re.escape(name)}\b", declaration.text)
            if name not in named and name not in ("context", "...") and not handle and not re.search(
                    rf"\b{re.escape(name)}\b", told):
                yield f"has an argument list that leaves out {name}"


def check_declaration(declaration):
    if not declaration.docstring:
        yield "has no docstring"
        return
    docstring = declaration.docstring
    kinds = [kind for kind, _ in docstring.parts]
    if "broken" in kinds:
        yield "has an argument list with a line that is none of its rows"
    if declaration.kind in ("function", "callback", "macro", "type", "object") and kinds[0] not in ("text", "returns"):
        yield "does not begin with a sentence"
    if declaration.kind in ("function", "callback"):
        first = docstring.parts[0][1]
        if not re.match(r"[A-Z][a-z]+s\b", first):
            yield f"does not begin with a verb: {first[:40]}"
        result = not re.match(r"(?:typedef )?void\s+vel_", declaration.text)
        tells = TELLS_STATUS if re.match(r"(?:typedef )?(int|vel_error_t)\s+vel_", declaration.text) else TELLS_RESULT
        if result and "returns" not in kinds and not tells.match(first) and not REFERS.search(docstring.plain()):
            yield "does not tell its result"
        if not result and "returns" in kinds:
            yield "tells a result, and has none"
    if "arguments" in kinds and "returns" in kinds and kinds.index("returns") < kinds.index("arguments"):
        yield "tells the result before the arguments"
    yield from check_arguments(declaration)


def check_header(header):
    if header.title != header.name:
        yield f'has no comment that begins "{header.name}: "'
    functions = [d for d in header.declarations if d.kind == "function"]
    if functions and not header.docstring.of("threads") and not all(
            d.docstring and d.docstring.of("threads") for d in functions):
        yield "has no thread rule"
    for declaration in header.declarations:
        for fault in check_declaration(declaration):
            yield f"{declaration.line}: {declaration.name} {fault}"


def known_names(all_headers):
    names = set()
    for header in all_headers:
        names.update(re.findall(r"\b(?:vel_\w+|VEL_\w+)", re.sub(r"(?s)/\*.*?\*/", "", header.path.read_text())))
    return names


def check_names(path, text, known):
    """What a text calls by a name is declared. One that ends in _ stands for several, and vel_x_ for any."""
    for number, line in enumerate(text.splitlines(), 1):
        for name in re.findall(r"(?<![\w/.-])(?:vel_|VEL_)[a-zA-Z0-9_]+(?![\w*]|\.\w|=)", line):
            if name not in known and not name.startswith("vel_x_") and not (name.endswith("_") and any(k.startswith(name) for k in known)):
                yield f"{path}:{number}: {name} is not declared"


def main():
    root = pathlib.Path(sys.argv[1])
    all_headers = headers.read_headers(root)
    faults = [f"{header.path.relative_to(root)}: {fault}" for header in all_headers for fault in check_header(header)]
    known = known_names(all_headers)
    for path in sorted((root / "include/vellib").glob("*.h")) + sorted((root / "docs").glob("*.md")) + [root / "README.md"]:
        faults += check_names(path.relative_to(root), path.read_text(), known)
    print("\n".join(faults) or f"{sum(len(h.declarations) for h in all_headers)} public declarations are told of")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
