"""Reads the public headers: what they declare, and the docstring of each declaration.

Used by tools/docs.py, tools/manual.py and tools/check_docstrings.py. CONTRIBUTING.md has the form of a
docstring; the headers are regular enough (clang-format sees to it) to be read without a compiler."""
import dataclasses
import pathlib
import re

TOKEN = re.compile(
    r"""(?P<comment>/\*.*?\*/)
      | (?P<directive>^\#(?:[^\n\\]|\\\n|\\.)*)
      | (?P<frame>^VEL_DECLARATIONS_(?:BEGIN|END)$)
      | (?P<text>[^\s/#][^;{]*(?:\{(?:[^{}]|\{[^{}]*\})*\}[^;\n]*)?;?)""",
    re.S | re.M | re.X)
ARGUMENT_ROW = re.compile(r"(?P<names>(?:\.\.\.|[a-z_0-9]+)(?:, [a-z_0-9]+)*) {2,}(?P<text>\S.*)", re.S)
FLOW = re.compile(r"^(Returns|Threads:|Note:) ?", re.M)


@dataclasses.dataclass
class Docstring:
    """Its paragraphs in order, as (kind, content): text, code, returns, threads, note and broken have
    a string, list has several, and arguments has a list of (names, text)."""

    parts: list

    def of(self, kind):
        return [content for found, content in self.parts if found == kind]

    def plain(self):
        """All its words."""
        words = []
        for kind, content in self.parts:
            if kind == "arguments":
                words += [f"{', '.join(names)} {text}" for names, text in content]
            else:
                words += content if kind == "list" else [content]
        return "\n".join(words)

    @property
    def summary(self):
        """The first sentence, without its full stop."""
        text = next((content for kind, content in self.parts if kind in ("text", "returns")), "")
        sentence = re.match(r"(.*?)[.:;](?= |$)(?<!\be\.g\.)", text)
        return sentence.group(1) if sentence else text


@dataclasses.dataclass
class Declaration:
    kind: str  # function, object, callback, type, macro, constant
    name: str
    text: str  # as it stands in the header, without VEL_API
    docstring: Docstring | None
    arguments: list  # names in order, ... included
    group: str
    line: int


@dataclasses.dataclass
class Header:
    path: pathlib.Path
    title: str  # what stands behind "velx: "
    docstring: Docstring
    declarations: list

    @property
    def name(self):
        return self.path.stem


def uncomment(text):
    body = text[2:-2]
    return "\n".join(re.sub(r"^ \* ?", "", line.rstrip()) for line in body.splitlines()).strip("\n ")


def unwrap(text):
    return re.sub(r"\s+", " ", text).strip()


def split_rows(paragraph):
    """The rows of an argument list, or None if one is not of the form."""
    rows = re.split(r"\n(?=\S)", paragraph)
    matches = [ARGUMENT_ROW.fullmatch(row) for row in rows]
    if not all(matches):
        return None
    return [(match["names"].split(", "), unwrap(match["text"])) for match in matches]


def split_flow(paragraph):
    """A paragraph of text, at the lines that begin with Returns, Threads: or Note:."""
    at = 0
    kind = "text"
    for match in FLOW.finditer(paragraph):
        if paragraph[at:match.start()].strip():
            yield kind, unwrap(paragraph[at:match.start()])
        kind = match[1].rstrip(":").lower().replace("notes", "note")
        at = match.start() if kind == "returns" else match.end()
    yield kind, unwrap(paragraph[at:])


def parse_docstring(text):
    parts = []
    for paragraph in re.split(r"\n\n+", text):
        if paragraph.startswith("    "):
            parts.append(("code", re.sub(r"(?m)^    ", "", paragraph)))
            continue
        if ARGUMENT_ROW.match(paragraph):
            rows = split_rows(paragraph)
            parts.append(("arguments", rows) if rows else ("broken", unwrap(paragraph)))
            continue
        # A list may have a line of text in front of it, and other paragraphs behind.
        items = re.split(r"(?m)^- ", paragraph)
        parts += split_flow(items[0]) if items[0].strip() else []
        if len(items) > 1:
            last = re.split(r"\n(?=\S)", items[-1], maxsplit=1)
            parts.append(("list", [unwrap(item) for item in items[1:-1] + last[:1]]))
            parts += split_flow(last[1]) if len(last) > 1 else []
    # Two code blocks with an empty line between them are one.
    joined = []
    for kind, content in parts:
        if kind == "code" and joined and joined[-1][0] == "code":
            joined[-1] = ("code", joined[-1][1] + "\n\n" + content)
        else:
            joined.append((kind, content))
    return Docstring(joined)


def argument_names(text):
    """The names in the last parenthesis of a prototype that is one of its own."""
    inner = text[text.index("(", re.search(r"\bvel_\w+\s*\(", text).start()) + 1:]
    names, depth, current = [], 0, ""
    for letter in inner:
        depth += (letter in "([") - (letter in ")]")
        if depth < 0 or (letter == "," and depth == 0):
            name = re.search(r"\(\*(\w+)\)|(\.\.\.)\s*$|(\w+)(?:\[\w*\])?\s*$", current.strip())
            names.append(next(group for group in name.groups() if group))
            current = ""
        else:
            current += letter
        if depth < 0:
            break
    return [name for name in names if name != "void"]


def classify(text):
    """Kind, name and arguments of a declaration, or None for what is nobody's business."""
    if text.startswith("#"):
        match = re.match(r"#define (VEL_\w+)(\(([^)]*)\))?", text)
        if not match or match[1].startswith("VELLIB_"):
            return None
        if match[2]:
            return "macro", match[1], [name.strip() for name in match[3].split(",")]
        return "constant", match[1], []
    if text.startswith("enum"):
        return "constant", re.search(r"VEL_\w+", text)[0], []
    if text.startswith("typedef"):
        function = re.search(r"\b(vel_\w+_cb)\(", text)
        if function:
            return "callback", function[1], argument_names(text)
        return "type", re.search(r"(\w+)(?:\(void\))?;$", text)[1], []
    if text.startswith("extern"):
        return "object", re.search(r"(vel_\w+)\[", text)[1], []
    if text.startswith("VEL_API"):
        return "function", re.search(r"\b(vel_\w+)\(", text)[1], argument_names(text)
    return None


def read_header(path):
    source = path.read_text()
    title, docstring, declarations = "", Docstring([]), []
    comment, group, end = None, "", 0
    told, own = None, None
    for match in TOKEN.finditer(source):
        text = match[0]
        # What is not in the line above has nothing to say about this.
        adjacent = "\n\n" not in source[end:match.start()]
        end = match.end()
        if match.lastgroup == "comment":
            comment = uncomment(text)
            section = re.match(r"-+ (.*?) -+(\n|$)", comment)
            if section:
                group, comment = section[1], None
            elif not docstring.parts and comment.startswith(path.stem + ": "):
                title = path.stem
                docstring = parse_docstring(comment[len(title) + 2:])
            continue
        if not adjacent:
            comment = None
        if re.match(r"#(if|else|endif)", text):
            continue
        found = classify(text)
        if found:
            shown = text
            if text.startswith("VEL_API "):
                shown = re.sub(r"(?m)^ {8}(?= )", "", text.removeprefix("VEL_API "))
            shown = shown.replace("extern VEL_API ", "extern ")
            if comment and comment.startswith(path.stem + ": "):
                own = docstring
            elif comment != told:
                own = parse_docstring(re.sub(r"^vel\w+: ", "", comment)) if comment else None
            told = comment
            declarations.append(Declaration(*found[:2], shown, own, found[2], group,
                                            source.count("\n", 0, match.start()) + 1))
            # A row of constants has one comment.
            if found[0] == "constant" and text.startswith("#"):
                continue
        comment = None
    return Header(path, title, docstring, declarations)


def read_headers(root):
    paths = sorted((pathlib.Path(root) / "include/vellib").glob("*.h"))
    return [read_header(path) for path in paths if path.stem != "vellib"]
