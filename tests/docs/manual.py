#!/usr/bin/env python3
"""The manual agrees with the headers and the programs: manual.py LIBRARY PROGRAM...

Every exported name stands in the synopsis of exactly one page of section 3, as its header declares
it, and in that page's list of names; no page names anything that is not there; every example
compiles and links. A program's page describes its commands, and each of their options.
"""

import re
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
ROOMS = "platform foundation containers records fault table net timer collect".split()
EXPORTS = set(re.findall(r"^[A-Za-z]\w+", (ROOT / "cmake/exports.txt").read_text(), re.M))
HEADERS = "\n".join(path.read_text() for room in ROOMS for path in (ROOT / room).glob("*.h"))
PUBLIC_NAME = re.compile(r"\b(?:DT(?!FLEET_)[A-Za-z0-9]+|Collect(?:Client)?|VRK|TMB|g|COLLECT)_\w+")


def tokens(text):
    return re.findall(r"\w+|\.\.\.|[^\w\s]", text)


def declarations():
    """Every exported name, with the tokens of its declaration."""
    text = re.sub(r"/\*.*?\*/", "", HEADERS, flags=re.S)
    text = re.sub(r"DT_PRINTF_LIKE\(.*?\)|^#(?:.*\\\n)*.*|\bextern\b", "", text, flags=re.M)
    found = {}
    for declaration in re.split(r"[;{}]", text):
        for name in set(tokens(declaration.split("(")[0])[-1:]) & EXPORTS:
            found[name] = tokens(declaration)
    return found


def synopsis(page):
    """Every name in a page's synopsis, with the tokens of its declaration."""
    part = re.search(r"^\.Sh SYNOPSIS\n(.*?)^\.Sh", page, re.M | re.S)[1]
    for result, name, arguments in re.findall(r"^\.Ft (.*)\n\.Fn (\w+) ?(.*)$", part, re.M):
        arguments = ",".join(quoted or plain for quoted, plain in
                             re.findall(r'"([^"]*)"|(\S+)', arguments))
        yield name, tokens(f"{result} {name}({arguments})")
    for kind, name in re.findall(r"^\.Vt extern (.*?) (?:Ns )?Va (\w+) ;$", part, re.M):
        yield name, tokens(f"{kind} {name}")


def examples(page):
    part = re.search(r"^\.Sh EXAMPLES\n(.*?)^\.Sh", page, re.M | re.S)
    code = re.findall(r"^\.Bd -literal.*?\n(.*?)^\.Ed$", part[1] if part else "", re.M | re.S)
    return [text.replace(r"\e", "\\") for text in code if "#include" in text]


def compiles(code, library):
    with tempfile.NamedTemporaryFile("w", suffix=".c") as source:
        source.write(code)
        source.flush()
        return not subprocess.run(
            ["cc", "-std=c11", "-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Werror",
             f"-I{ROOT}", f"-I{ROOT}/include", source.name, library, "-o", "/dev/null"]).returncode


def help_of(*command):
    return subprocess.run([*command, "--help"], check=True, capture_output=True, text=True).stdout


def options_in(text):
    return set(re.findall(r"Fl -([\w-]+)", text))


def applies(title, command):
    """Whether a part "Options of a, b and c" or "Options of all commands but d" is about one."""
    names = re.findall(r"[\w-]+", title)
    return title.startswith("Options of ") and (command in names) != ("all" in names)


def check_options(program):
    """What differs between a program's page and what it says of itself."""
    name = Path(program).name
    page = (ROOT / f"man/man1/{name}.1").read_text()
    parts = dict(re.findall(r"^\.Ss (.*)\n((?:(?!\.S[sh] ).*\n)*)", page, re.M))
    listed = help_of(program).partition("Subcommands:")[2].partition("\n\n")[0]
    commands = re.findall(r"^  ([\w-]+)", listed, re.M)
    for command in {title[8:] for title in parts if title.startswith("Command ")} - set(commands):
        yield f"{name}.1: there is no command {command}"
    for command in commands:
        offered = set(re.findall(r"^  --([\w-]+)", help_of(program, command), re.M))
        described = options_in(parts.get(f"Command {command}", ""))
        for title in parts:
            described |= options_in(parts[title]) if applies(title, command) else set()
        for option in sorted(offered ^ described):
            yield f"{name}.1: {command} --{option}"


def main():
    library, declared, home, problems = sys.argv[1], declarations(), {}, []
    for path in sorted((ROOT / "man").glob("man?/*")):
        page = path.read_text()
        named = set(re.findall(r"^\.Nm (\w+)", page, re.M))
        for name, declaration in synopsis(page) if path.suffix == ".3" else ():
            if name in home:
                problems.append(f"{path.name}: {name} stands in {home[name]}, too")
            home[name] = path.name
            if declaration != declared.get(name):
                problems.append(f"{path.name}: {name} is declared otherwise")
            if name not in named:
                problems.append(f"{path.name}: {name} is not in the list of names")
        for name in sorted(set(PUBLIC_NAME.findall(page))):
            if not re.search(rf"\b{name}\b", HEADERS):
                problems.append(f"{path.name}: there is no {name}")
        texts = examples(page)
        if path.suffix != ".1" and not texts:
            problems.append(f"{path.name}: no example")
        problems += [f"{path.name}: the example does not compile" for text in texts
                     if not compiles(text, library)]
    for program in sys.argv[2:]:
        problems += check_options(program)
    problems += [f"no page for {name}" for name in sorted(EXPORTS - set(home))]
    sys.exit("\n".join(problems) or 0)


main()
