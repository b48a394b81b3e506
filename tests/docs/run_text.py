#!/usr/bin/env python3
"""Does what a text tells its reader to do, and compares what is printed: run_text.py TEXT

- A block marked ```console holds commands behind "$ ", which run one after the other in one shell,
  and what each prints. "..." stands for any text, on a line of its own for any lines; a date and
  time for any other. A command that fails, or prints anything else, is a failure.
- Any other block is a file; the line before it names it in backquotes and ends with a colon.
- ```text is shown only. A block behind <!-- not run: why --> is passed over.
"""

import re
import signal
import subprocess
import sys
from pathlib import Path

END_MARK = "-- end of a command --"


def blocks(text):
    """Every block that counts: line number, language, file name, lines."""
    before, lines, at = "", text.split("\n"), 0
    while at < len(lines):
        line = lines[at]
        if not line.startswith("```"):
            before = line.strip() or before
            at += 1
            continue
        end = lines.index("```", at + 1)
        name = re.search(r"`([^` ]+)`[^`]*:$", before)
        if not before.startswith("<!-- not run: ") and line != "```text":
            yield at + 1, line[3:], name and name[1], lines[at + 1:end]
        before, at = "", end + 1


def commands(lines):
    """Splits a console block into commands and what each prints."""
    found = []
    for line in lines:
        if line.startswith("$ "):
            found.append((line[2:], []))
        elif found and not found[-1][1] and found[-1][0].endswith("\\"):
            found[-1] = (found[-1][0] + "\n" + line, [])
        else:
            found[-1][1].append(line)
    return found


def pattern(expected):
    """A regular expression for what should be printed."""
    def one(line):
        if line == "...":
            return r"(?:.*\n)*?"
        text = ".*".join(map(re.escape, line.rstrip().split("...")))
        time = re.compile(r"(\d\d/)+\d\d\\ \d\d:\d\d:\d\d")
        return time.sub(lambda found: re.sub(r"\d", r"\\d", found[0]), text) + r" *\n"
    return re.compile("".join(map(one, expected)))


class Shell:
    """One shell for the whole text, so that directories, variables and jobs stay."""

    def __init__(self):
        self.process = subprocess.Popen(["bash"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.STDOUT, text=True, errors="replace")
        self.directory = Path.cwd()

    def run(self, command):
        """Returns the status and the output of a command."""
        self.process.stdin.write(f"{{ {command}\n}} </dev/null\n"
                                 f'printf "\\n{END_MARK} %d %s\\n" $? "$PWD"\n')
        self.process.stdin.flush()
        output = ""
        for line in self.process.stdout:
            if line.startswith(END_MARK):
                status, directory = line[len(END_MARK):].split(maxsplit=1)
                self.directory = Path(directory.rstrip("\n"))
                return int(status), output[:-1]
            output += re.sub(r"\x1b\[[0-9;]*m", "", line) # colours
        return 1, output + "(the shell ended)\n"

    def close(self):
        self.process.stdin.write("kill $(jobs -p) 2>/dev/null\n")
        self.process.stdin.close()
        self.process.wait()


def main():
    path = Path(sys.argv[1])
    signal.alarm(1800) # a command that never ends ends all
    shell, ran = Shell(), 0
    for number, language, name, lines in blocks(path.read_text()):
        if language != "console":
            if not name:
                sys.exit(f"{path}:{number}: a file without a name")
            (shell.directory / name).write_text("\n".join(lines) + "\n")
            continue
        for command, expected in commands(lines):
            status, output = shell.run(command)
            output = output if output.endswith("\n") or not output else output + "\n"
            ran += 1
            if status != 0 or not pattern(expected).fullmatch(output):
                shell.close()
                sys.exit(f"{path}:{number}: {command}\nended with {status} and printed\n{output}"
                         "and not\n" + "\n".join(expected))
    shell.close()
    if ran == 0:
        sys.exit(f"{path}: nothing to run")
    print(f"{path}: {ran} commands did and printed what the text says")


main()
