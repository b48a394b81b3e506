#!/usr/bin/env python3
"""What the library costs a device: bytes by module, stack frames, the deepest chain of calls.

usage: size.py BUILD_FOLDER [--limits FILE] [--markdown]

The folder holds a build with -fcallgraph-info=su. With limits, a total above its line there fails;
with --markdown the totals alone are printed, as a table for a document.
"""
import argparse
import collections
import contextlib
import io
import pathlib
import re
import subprocess
import sys

NODE = re.compile(r'node: { title: "([^"]+)" label: "([^"]*)"')
EDGE = re.compile(r'edge: { sourcename: "([^"]+)" targetname: "([^"]+)"')
FRAME = re.compile(r'(\d+) bytes')
CODE = ('.text', '.plt', '.init', '.fini')
INDIRECT = '__indirect_call'


def sections(path):
    """Sizes of the loaded sections of an object or a library, by name."""
    out = subprocess.run(['arm-linux-gnueabi-size', '-A', path], capture_output=True, text=True,
                         check=True).stdout
    rows = [line.split() for line in out.splitlines()]
    return {row[0]: int(row[1]) for row in rows if len(row) == 3 and row[1].isdigit()}


def grouped(sizes):
    """Code and constants, data, bss, and what the dynamic linker reads to find 200 functions."""
    total = collections.Counter()
    for name, size in sizes.items():
        if name.startswith(CODE + ('.rodata',)):
            total['text'] += size
        elif name.startswith(('.data', '.got', '.dynamic', '.init_array', '.fini_array')):
            total['data'] += size
        elif name.startswith('.bss'):
            total['bss'] += size
        elif name.startswith(('.dyn', '.gnu', '.rel', '.hash', '.note', '.ARM.ex', '.eh')):
            total['linking'] += size
    return total


class Calls:
    """Frames of all functions, and who calls whom."""

    def __init__(self, files):
        self.frames, self.names, self.edges = {}, {}, collections.defaultdict(set)
        for file in files:
            text = file.read_text()
            for title, label in NODE.findall(text):
                frame = FRAME.search(label)
                if frame:
                    self.frames[title] = int(frame.group(1))
                    self.names[title] = label.split('\\n')[0]
            for caller, callee in EDGE.findall(text):
                self.edges[caller].add(callee)
        called = {callee for callees in self.edges.values() for callee in callees}
        # What nobody calls by name and what no application sees is called by its address.
        self.edges[INDIRECT] = {title for title in self.frames
                                if title not in called and (':' in title or '_Z' in title)}
        self.known = {}

    def name(self, title):
        """A function as it was declared; of one with "..." the compiler tells its title alone."""
        name = self.names[title]
        return name if '(' in name else title.split(':')[-1] + '(...)'

    def deepest(self, title, above=()):
        """Bytes and titles of the deepest chain that begins with a function."""
        if title in above:
            return 0, []
        if title not in self.known:
            below = [self.deepest(callee, above + (title,)) for callee in self.edges[title]
                     if callee in self.frames or callee == INDIRECT]
            size, chain = max(below, key=lambda found: found[0], default=(0, []))
            found = size + self.frames.get(title, 0), [title] + chain
            if above:
                return found
            self.known[title] = found
        return self.known[title]


def module_of(path, root):
    return str(path.relative_to(root)).removesuffix('.cpp.o').removesuffix('.cpp.ci')


def show(build):
    root = build / 'CMakeFiles' / 'dt.dir'
    print(f'{"module":28}{"text":>7}{"data":>7}{"bss":>7}  largest frame')
    for path in sorted(root.rglob('*.o')):
        size = grouped(sections(path))
        calls = Calls([path.with_suffix('.ci')])
        frame, name = max((frame, calls.name(title)) for title, frame in calls.frames.items())
        print(f'{module_of(path, root):28}{size["text"]:7}{size["data"]:7}{size["bss"]:7}'
              f'  {frame:5} {name.split("(anonymous namespace)::")[-1]}')

    calls = Calls(root.rglob('*.ci'))
    public = [title for title in calls.frames if ':' not in title and '_Z' not in title]
    depth, chain = max((calls.deepest(title) for title in public), key=lambda found: found[0])
    total = grouped(sections(build / 'libdt.so'))
    total.update(frame=max(calls.frames.values()), chain=depth)
    print('\nlibdt.so: ' + ', '.join(f'{name} {total[name]}' for name in ('text', 'data', 'bss')) +
          f'; {total["linking"]} for the dynamic linker')
    print(f'deepest chain of calls inside the library: {depth} bytes')
    for title in chain:
        if title != INDIRECT:
            print(f'  {calls.frames[title]:5} {calls.name(title)}')
    return total, [plain_name(calls.name(title)) for title in chain if title != INDIRECT]


def plain_name(declaration):
    """A function's name alone, of its whole declaration."""
    return re.search(r'([A-Za-z_]\w*)\(', declaration.split('}::')[-1]).group(1)


def markdown(total, chain):
    """The totals as a table for docs/performance.md."""
    rows = [('code and constants', total['text']),
            ('initialised data', total['data']),
            ('zeroed data: formatting buffers, accounts of 256 owners, the console\'s line', total['bss']),
            ('for the dynamic linker, to find the functions by name; a static `libdt.a` has none of it',
             total['linking']),
            ('largest stack frame', total['frame']),
            ('deepest chain of calls: ' + ', '.join(f'`{name}`' for name in chain), total['chain'])]
    return '\n'.join(['| | bytes |', '| --- | --: |'] + [f'| {what} | {size:,} |' for what, size in rows])


def exceeded(total, limits):
    lines = [line.split() for line in limits.read_text().splitlines() if line[:1].isalpha()]
    above = [(name, total[name], int(limit)) for name, limit in lines if total[name] > int(limit)]
    for name, size, limit in above:
        print(f'{name}: {size} bytes, above the {limit} of {limits}', file=sys.stderr)
    return above


if __name__ == '__main__':
    parser = argparse.ArgumentParser()
    parser.add_argument('build', type=pathlib.Path)
    parser.add_argument('--limits', type=pathlib.Path)
    parser.add_argument('--markdown', action='store_true')
    arguments = parser.parse_args()
    with contextlib.redirect_stdout(io.StringIO() if arguments.markdown else sys.stdout):
        totals, deepest = show(arguments.build)
    if arguments.markdown:
        print(markdown(totals, deepest))
    if arguments.limits and exceeded(totals, arguments.limits):
        sys.exit(1)
