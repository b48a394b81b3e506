#!/usr/bin/env python3
"""Instructions that an operation of libdt takes, the C library's included.

usage: instructions.py PROGRAM FOLDER [--table FILE]

Runs PROGRAM under valgrind's callgrind, with its files in FOLDER, and prints a line for each kind of
work. With a table of such lines, work that costs more than a tenth above its line fails.
"""
import argparse
import os
import pathlib
import re
import subprocess
import sys

SLOWER = 1.10
FASTER = 0.90
DUMP = re.compile(r'^desc: Trigger: Client Request: (\d+) (.*)$', re.M)
TOTAL = re.compile(r'^(?:totals|summary): (\d+)', re.M)
LINE = re.compile(r'^([^#].*?)\s+([\d.]+)$', re.M)
# The C library chooses its copying functions by the processor; here it is to choose the same anywhere.
PLAIN = 'glibc.cpu.hwcaps=-AVX,-AVX2,-AVX512F,-AVX512VL,-AVX_Fast_Unaligned_Load,-ERMS,-FSRM,-SSSE3,-SSE4_2'


def run(program, folder):
    """Instructions of one operation, by work."""
    folder.mkdir(parents=True, exist_ok=True)
    for old in folder.glob('dump*'):
        old.unlink()
    subprocess.run(['valgrind', '--tool=callgrind', '--instr-atstart=no', '--collect-atstart=no',
                    f'--callgrind-out-file={folder}/dump', f'--log-file={folder}/log', program],
                   check=True, env={'PATH': os.environ['PATH'], 'GLIBC_TUNABLES': PLAIN})
    return counts(folder)


def counts(folder):
    found = {}
    for dump in sorted(folder.glob('dump.*'), key=lambda path: int(path.suffix[1:])):
        text = dump.read_text()
        name = DUMP.search(text)
        if name:
            found[name.group(2)] = int(TOTAL.search(text).group(1)) / int(name.group(1))
    return found


def read(table):
    return {work: float(count) for work, count in LINE.findall(table.read_text())}


def compare(now, before):
    """Says what has changed; whether nothing got slower."""
    good = True
    for work in sorted(now.keys() | before.keys()):
        if work not in now or work not in before:
            print(f'{work}: {"not measured any more" if work in before else "not in the table"}')
            good = False
            continue
        change = now[work] / before[work]
        if change > SLOWER:
            print(f'{work}: {now[work]:.1f} instructions, {(change - 1) * 100:.0f} % more than in the table')
            good = False
        elif change < FASTER:
            print(f'{work}: {now[work]:.1f} instructions, {(1 - change) * 100:.0f} % less: lower the table')
    return good


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('program')
    parser.add_argument('folder', type=pathlib.Path)
    parser.add_argument('--table', type=pathlib.Path)
    arguments = parser.parse_args()
    now = run(arguments.program, arguments.folder)
    if arguments.table:
        return 0 if compare(now, read(arguments.table)) else 1
    for work, count in now.items():
        print(f'{work:<40}{count:9.1f}')
    return 0


if __name__ == '__main__':
    sys.exit(main())
