#!/usr/bin/env python3
"""Measures, and writes the figures of docs/performance.md and README.md; run it on an idle machine.

usage: performance.py          builds and measures all, and renews bench/instructions.txt: some minutes
       performance.py --size   the figures of size and the instructions of bench/instructions.txt alone
       performance.py --check  fails when these are not what the texts say; needs build/size, as
                               ./dt size makes it

A text keeps figures between a line "<!-- NAME: ... -->" and "<!-- end -->".
"""
import argparse
import os
import pathlib
import platform
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
TEXTS = [ROOT / 'docs/performance.md', ROOT / 'README.md']
COUNTS = ROOT / 'bench/instructions.txt'
COUNT = re.compile(r'^([^#\n].*?)\s+([\d.]+)$', re.M)

# What an application does, the work that stands for it, and the bytes that it keeps or sends: these
# follow from the layouts in docs/formats.md, and a list's element is of 32-bit ARM.
COSTS = [
    ('a line of a log: stamp and 40 characters', 'logger line', '67'),
    ('a counter or register of a fault', 'fault counter', '13'),
    ('a record of 100 bytes into a full store', 'store append, 100 bytes', '105'),
    ('the same with traces on, as they are at first', 'store append, 100 bytes, traced', '105'),
    ('a record read back, in a walk', 'store walk', ''),
    ('a record of five fields packed', 'pack BIIII', '17'),
    ('the same unpacked', 'unpack BIIII', ''),
    ('a number put into a collection', 'int frame', '17'),
    ('60 such numbers sent and answered, the server on the same core', 'collection message', '1,032'),
    ('a fault log file of 100,000 entries', 'fault log file', ''),
    ('the time as text, again in the same second', 'time format', ''),
    ('the time as text, in another second', 'time format, another time', ''),
    ('a line printed, without the console itself', 'console line', ''),
    ('a cell of a table printed', 'table cell, 20 x 5', ''),
    ('a hex dump of 1 KiB', 'hex dump of 1 KiB', ''),
    ('a block of memory taken and given back', 'tracked allocation', '4'),
    ('a piece of the static pool', 'pool piece', ''),
    ('a look-up among 1000 keys of 16 bytes', 'hash get, default hash, 16 bytes', ''),
    ('the same with a simple hash of your own', 'hash get, cheap hash, 16 bytes', ''),
    ('a value appended to a list of 100', 'list append, 100 values', '12'),
]

# What is measured beside something else, the work that stands for it, and whom beside.
PEERS = [
    ('a line of a log', 'logger line', ['spdlog ring', 'spdlog ring, time text']),
    ('a record of 8 bytes into a full store', 'store append, 8 bytes', ['circular_buffer', 'libqb', 'libqb unlocked']),
    ('a record of 100 bytes', 'store append, 100 bytes', ['circular_buffer', 'libqb', 'libqb unlocked']),
    ('a record of 1000 bytes', 'store append, 1000 bytes', ['circular_buffer', 'libqb', 'libqb unlocked']),
    ('100 bytes, with traces on', 'store append, 100 bytes, traced', ['libqb']),
    ('a record read back in a walk', 'store walk', ['GQueue']),
    ('the same, only those of one key', 'store walk by key', ['GQueue']),
    ('five numbers packed', 'pack BIIII', ['msgpack']),
    ('five numbers and 100 bytes packed', 'pack BIIIH100s', ['msgpack']),
    ('five numbers unpacked', 'unpack BIIII', ['protobuf-lite']),
    ('five numbers and 100 bytes unpacked', 'unpack BIIIH100s', ['protobuf-lite']),
    ('a look-up among 1000 keys', 'hash get, cheap hash, 16 bytes', ['unordered_map', 'uthash']),
    ('a value appended to a list of 100', 'list append, 100 values', ['GSList']),
    ('a value pushed into a full list of 100', 'list push, 100 values', ['GSList']),
    ('a block of memory taken and given back', 'tracked allocation', ['malloc', 'talloc']),
    ('a piece of the static pool', 'pool piece', ['malloc']),
    ('a cell of a table of 20 x 5', 'table cell, 20 x 5', ['libsmartcols']),
    ('a cell of a table of 10,000 x 10', 'table cell, 10000 x 10', ['libsmartcols']),
    ('60 numbers sent and answered', 'collection message', ['ZeroMQ']),
    ('a fault log file of 100,000 entries', 'fault log file', ['spdlog']),
    ('the time as text, again in the same second', 'time format', ['strftime']),
    ('the time as text, in another second', 'time format, another time', ['strftime']),
    ('a hex dump of 1 KiB', 'hex dump of 1 KiB', ['snprintf']),
]


# Where protections of the compiler can show, in instructions.
PROTECTED = ['logger line', 'store append, 100 bytes', 'pack BIIII', 'int frame', 'table cell, 20 x 5',
             'console line']


def run(*command):
    environment = {**os.environ, 'CCACHE_DISABLE': '1'} # it would not keep the call graphs
    return subprocess.run([str(part) for part in command], check=True, cwd=ROOT, text=True,
                          stdout=subprocess.PIPE, env=environment).stdout


def duration(nanoseconds):
    for unit, size in (('ms', 1e6), ('µs', 1e3)):
        if nanoseconds >= 10 * size:
            return f'{nanoseconds / size:.0f} {unit}'
        if nanoseconds >= size:
            return f'{nanoseconds / size:.1f} {unit}'
    return f'{nanoseconds:.0f} ns' if nanoseconds >= 10 else f'{nanoseconds:.1f} ns'


def rounded(count):
    """Two or three digits are enough, and a small change need not show."""
    return f'{round(count, -1 if count < 1000 else -2):,.0f}' if count >= 100 else f'{count:.0f}'


def counts(text=None):
    return {work: float(count) for work, count in COUNT.findall(text or COUNTS.read_text())}


def table(columns, rows):
    lines = [columns, ['---'] + ['--:'] * (len(columns) - 1)] + rows
    return '\n'.join(f'| {" | ".join(line)} |' for line in lines)


def block(name):
    """The text that holds a block, and the block in three parts: mark, content, mark."""
    for path in TEXTS:
        found = re.search(rf'(?s)(.*<!-- {name}: [^\n]*-->\n)(.*?)\n(<!-- end -->.*)', path.read_text())
        if found:
            return path, found.groups()
    raise KeyError(f'no text has a block "{name}"')


def changed(blocks):
    """The names of the blocks that are not what the texts hold."""
    return [name for name, text in blocks.items() if block(name)[1][1] != text]


def write(blocks):
    for name in changed(blocks):
        path, (before, _, after) = block(name)
        path.write_text(f'{before}{blocks[name]}\n{after}')


def costs(times):
    found = counts()
    return table(['what you do', 'takes', 'instructions', 'bytes'],
                 [[what, times[what], rounded(found[work]) if work in found else '', size]
                  for what, work, size in COSTS])


def same_anywhere():
    """The blocks that are the same on every machine with these compilers; times as they stand there."""
    times = dict(re.findall(r'^\| (.*?) \| (.*?) \|', block('costs')[1][1], re.M))
    sizes = run(sys.executable, 'bench/size.py', 'build/size', '--markdown').strip('\n')
    code = int(re.search(r'code and constants \|\s*([\d,]+)', sizes)[1].replace(',', ''))
    return {'size': sizes,
            'costs': costs({what: times.get(what, '?') for what, _, _ in COSTS}),
            'small': f'- **Small**: {code / 1000:.1f} kB of code and constants on 32-bit ARM. It needs libc and '
                     'nothing else: no\n  threads, no locks, nothing to set up.'}


def machine():
    model = re.search(r'^model name\s*: (.*)$', pathlib.Path('/proc/cpuinfo').read_text(), re.M)
    return (f'Measured on {model[1] if model else "a processor without a name"} ({platform.machine()}), with '
            f'GCC {run("c++", "-dumpfullversion").strip()} and `-O2`.')


def measured():
    """The blocks that only an idle machine can write."""
    times = {}
    for line in run('build/bench/bench/dt_bench', '--times').splitlines():
        work, who, time = line.split('\t')
        times[work, who] = float(time)

    def of(work, who='libdt'):
        return duration(times[work, who])

    def others(work, names):
        return ', '.join(f'{name} {of(work, name)}' for name in names if (work, name) in times)

    return {'machine': machine(),
            'costs': costs({what: of(work) for what, work, _ in COSTS}),
            'peers': table(['what you do', 'libdt', 'others'],
                           [[what, of(work), others(work, names)] for what, work, names in PEERS]),
            'fast': f'- **Fast**: {of("logger line")} on {platform.machine()} for a line of a log, with its time '
                    f'stamp; a usual logger\n  (spdlog) takes {of("logger line", "spdlog ring")}.'}


def counted(build):
    return run(sys.executable, 'bench/instructions.py', f'{build}/bench/dt_instructions',
               f'{build}/instructions')


def renew_counts():
    comments = re.findall(r'^#.*\n', COUNTS.read_text(), re.M)
    COUNTS.write_text(''.join(comments) + counted('build/bench'))


def built(preset, harden, *targets):
    """A build like the preset's, with the compiler's protections or without."""
    build = f'build/{preset}-{"hardened" if harden else "plain"}'
    run('cmake', '--preset', preset, '-B', build, '-D', f'DT_HARDEN={"ON" if harden else "OFF"}')
    run('cmake', '--build', build, *targets)
    return build


def sizes(build):
    """Bytes by what they are, as size.py tells them."""
    lines = run(sys.executable, 'bench/size.py', build, '--markdown')
    return dict(re.findall(r'^\| ([\w ]+?)(?::.*)? \| ([\d,]+) \|', lines, re.M))


def protections():
    plain, protected = sizes(built('size', False)), sizes('build/size')
    rows = [[f'{what}, 32-bit ARM, bytes', plain[what], protected[what]]
            for what in ('code and constants', 'largest stack frame', 'deepest chain of calls')]
    before, after = counts(), counts(counted(built('bench', True, '--target', 'dt_instructions')))
    rows += [[f'{work}, instructions', f'{before[work]:.0f}', f'{after[work]:.0f}'] for work in PROTECTED]
    return {'protections': table(['', 'without', 'with'], rows)}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('--size', action='store_true')
    parser.add_argument('--check', action='store_true')
    arguments = parser.parse_args()
    if arguments.check:
        drifted = changed(same_anywhere())
        if drifted:
            print(f'figures have drifted: {", ".join(drifted)}; bench/performance.py --size renews them',
                  file=sys.stderr)
        return len(drifted)
    run('./dt', 'size')
    if not arguments.size:
        run('./dt', 'setup', 'bench')
        run('./dt', 'build', 'bench')
        renew_counts()
        write(protections())
        write(measured())
    write(same_anywhere())
    return 0


if __name__ == '__main__':
    sys.exit(main())
