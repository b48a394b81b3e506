#!/usr/bin/env python3
"""Tells Doxygen what the plain comments of libdt's headers and pages mean: filter.py FILE

In a header
- the first comment describes the module, and a front door's the family;
- a comment above declarations describes each of them, up to the next empty line;
- a comment behind a field or a constant describes that one;
- inside a comment, lines that begin with names of arguments describe these, and other indented
  lines are shown as they stand.
"""

import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
EXPORTS = set((ROOT / "cmake/exports.txt").read_text().split())
FAMILIES = {
    "platform": "Platform layer", "foundation": "Foundation", "containers": "Containers",
    "records": "Records", "fault": "Faults", "table": "Tables", "net": "Network",
    "timer": "Timers", "collect": "Data collection",
}


def escape(text):
    """Text that Doxygen shows as it is, with links to functions and pages."""
    text = re.sub(r"([\\@<>&#%*$~|`])", r"\\\1", text)
    text = re.sub(r"\b\w+\b(?!\()", lambda m: "#" * (m[0] in EXPORTS) + m[0], text)
    return re.sub(r"docs/(\w+)\.md", r'@ref md_docs_\1 "docs/\1.md"', text)


def arguments_of(line, parameters):
    """The arguments that a line of a comment begins to describe, and what it says of them."""
    match = re.match(r"(\w+(?:, \w+)*)(?:  +(\S.*)|,?)$", line)
    names = match[1].split(", ") if match else []
    if not names or not set(names) <= parameters["all"]:
        return None
    return [name for name in names if name in parameters["own"]], match[2] or ""


def describe(lines, parameters):
    """Doxygen's markup for a comment's lines."""
    out, paragraph, argument, shown = [], [], False, []

    def close():
        nonlocal argument
        if shown:
            out.append("@verbatim\n" + "\n".join(shown) + "\n@endverbatim")
            shown.clear()
        if paragraph:
            out.append(("" if paragraph[0].startswith("@param") else "\n") + " ".join(paragraph))
            paragraph.clear()
        argument = False

    for line in lines:
        found = arguments_of(line, parameters)
        if not line:
            close()
        elif found:
            close()
            argument = True
            names, text = found
            if names:
                paragraph.append(f"@param {','.join(names)} {escape(text)}")
        elif argument and line.startswith(" "):
            if paragraph:
                paragraph.append(escape(line.strip()))
        elif line.startswith("  ") or re.match(r"\S+( \S+){0,3}  +\S", line):
            if paragraph:
                close()
            shown.append(line)
        elif shown and line[0].isspace():
            shown.append(line)
        else:
            if shown or argument:
                close()
            paragraph.append(escape(line))
    close()
    return "\n".join(out).strip()


def lines_of(comment):
    """A comment's text without its frame."""
    body = re.sub(r"^/\*+ ?|\s*\*/$", "", comment.strip())
    return [re.sub(r"^\s*\* ?", "", line).rstrip() if i else line.rstrip()
            for i, line in enumerate(body.split("\n"))]


def parameters_of(declaration):
    """The names of a function's arguments."""
    inside = re.search(r"\((?!\*)(.*)\)", declaration, re.S)
    return set(re.findall(r"(\w+)(?:\[\w*\])?(?=[,)]|$)", inside[1])) if inside else set()


def declarations(code):
    """Splits what follows a comment into the declarations up to the next empty line."""
    block, depth, start = [], 0, 0
    for at, character in enumerate(code):
        depth += {"{": 1, "}": -1}.get(character, 0)
        if character == ";" and depth == 0:
            block.append(code[start:at + 1])
            start = at + 1
        elif character == "\n" and re.match(r"\s*#", code[start:at]):
            block.append(code[start:at])
            start = at
        if depth == 0 and code.startswith("\n\n", at):
            break
    return block, start


def header(text, path):
    """A header in which every comment is one of Doxygen's."""
    room = path.parent.name
    first = re.match(r"/\*.*?\*/", text, re.S)
    intro = describe(lines_of(first[0]), {"all": set(), "own": set()})
    if path.name == "dt.h":
        return f"/** @file\n{intro} */"
    if room == "dt":
        return f"/** @defgroup {path.stem} {FAMILIES[path.stem]}\n{intro}\n\n" \
               f"\\#include \\<dt/{path.name}\\> */"
    name, title, parent = f"module_{path.stem}", path.stem, f"@ingroup {room}\n"
    if room == "platform":
        name, title, parent = room, FAMILIES[room], ""
    out = [f"/** @file\nSee @ref {name}. */",
           f"/** @defgroup {name} {title}\n{parent}{intro}\n@{{ */"]

    rest = re.sub(r"^#(ifndef|define) DT_\w+_H\n", "", text[first.end():], flags=re.M)
    rest = re.sub(r"^(?=.*\S.*/\*)(?!\s*/\*)(.*?)/\* ", r"\1/**< ", rest, flags=re.M)
    at = 0
    for comment in re.finditer(r"^/\* .*?\*/\n", rest, re.M | re.S):
        if comment.start() < at:
            continue
        out.append(rest[at:comment.start()])
        block, used = declarations(rest[comment.end():])
        at = comment.end() + used
        named = set().union(*map(parameters_of, block)) if block else set()
        for declaration in block:
            if re.match(r"\s*#(?!define)", declaration):
                out.append(declaration.strip())
                continue
            known = {"all": named, "own": parameters_of(declaration)}
            out.append(f"/** {describe(lines_of(comment[0]), known)} */\n{declaration.strip()}")
    return "\n".join(out) + rest[at:].rstrip().removesuffix("#endif") + "\n/** @} */\n"


def page(text, path):
    """A page whose headings can be linked to, and whose links lead to other pages alone."""
    def slug(title):
        return re.sub(r"[^\w -]", "", title.lower()).strip().replace(" ", "-")

    def heading(match):
        return f"{match[1]} {match[2]} {{#{path.stem.lower()}-{slug(match[2])}}}"

    def link(match):
        file, _, anchor = match[2].partition("#")
        if match[2].startswith("http"):
            return match[0]
        if anchor:
            return f"[{match[1]}](#{(Path(file).stem or path.stem).lower()}-{anchor})"
        known = (path.parent / file).resolve()
        if known.suffix == ".md" and known.parent == ROOT / "docs":
            return f"[{match[1]}](@ref md_docs_{known.stem})"
        return match[1]

    parts = re.split(r"(^```.*?^```$)", text, flags=re.M | re.S)
    for i in range(0, len(parts), 2):
        parts[i] = re.sub(r"^(##+) (.+)$", heading, parts[i], flags=re.M)
        parts[i] = re.sub(r"\[([^]]+)\]\(([^)]+)\)", link, parts[i])
    return "".join(parts)


def main():
    path = Path(sys.argv[1]).resolve()
    text = path.read_text()
    sys.stdout.write(page(text, path) if path.suffix == ".md" else header(text, path))


main()
