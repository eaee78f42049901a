"""Figures about the shape of the sources; `./dev measure` prints them.

Relies on the tree's formatting: a function at namespace level ends with a line that is one closing
brace, a class or an array with a brace and a semicolon.
"""
import os
import re
import subprocess
import sys

FOLDERS = ('include', 'platform', 'notary', 'eventstream', 'session', 'encoding', 'presentation', 'qt',
           'tools', 'devservice', 'examples')
LONGEST_FUNCTION = 40
FRAME = re.compile(r'^\s*(#\s*include\b.*|#pragma once|namespace\b.*\{|\}\s*// namespace.*|)\s*$')
ANONYMOUS = re.compile(r'^namespace \{')
FUNCTION_BEGIN = re.compile(r'^[\w~:<&*\[].*$')


def listed(*patterns):
    command = ['git', '-c', 'safe.directory=' + os.getcwd(), 'ls-files', '--cached', '--others',
               '--exclude-standard', '--', *patterns]
    names = subprocess.run(command, check=True, capture_output=True, text=True).stdout.split('\n')
    return sorted({name for name in names if name and os.path.isfile(name)})


def lines_of(name):
    with open(name, encoding='utf-8') as file:
        return file.read().split('\n')[:-1]


def functions(lines):
    """Yields (begin, end, whether in an anonymous namespace) of functions at namespace level."""
    anonymous, begin = False, None
    for number, line in enumerate(lines):
        if ANONYMOUS.match(line):
            anonymous, begin = True, None
        elif line.startswith('}  // namespace'):
            anonymous, begin = anonymous and line != '}  // namespace', None
        elif line == '}':
            yield (number if begin is None else begin), number, anonymous
            begin = None
        elif line.startswith('};') or line.endswith(';') and not line.startswith(' '):
            begin = None
        elif begin is None and FUNCTION_BEGIN.match(line) and not line.startswith(('#', '//', 'namespace')):
            begin = number


def header_users(headers, files):
    """The files that include each header, without the header's own source."""
    users = {header: set() for header in headers}
    for name in files:
        folder = os.path.dirname(name)
        for line in lines_of(name):
            match = re.match(r'\s*#include "([^"]+)"', line)
            if not match:
                continue
            for header in (match[1], os.path.normpath(os.path.join(folder, match[1]))):
                if header in users and os.path.splitext(name)[0] != os.path.splitext(header)[0]:
                    users[header].add(name)
    return users


def main():
    own = listed(*(folder + '/' + end for folder in FOLDERS for end in ('*.h', '*.cpp')))
    tests = listed('tests/*.h', 'tests/*.cpp', 'bench/*.cpp', 'fuzz/*.cpp')
    lines = {name: lines_of(name) for name in own}
    total = sum(map(len, lines.values()))
    frame = sum(bool(FRAME.match(line)) for text in lines.values() for line in text)
    local, long = 0, []
    for name, text in lines.items():
        for begin, end, anonymous in functions(text):
            local += anonymous
            if end - begin + 1 > LONGEST_FUNCTION:
                long.append(f'{name}:{begin + 1} ({end - begin + 1} lines)')
    private = [name for name in own if name.endswith('.h') and 'include/' not in name]
    users = header_users(private, own)
    tested = header_users(private, tests)
    lonely = [name for name in private if len(users[name]) <= 1]
    unearned = [name for name in lonely if not tested[name]]
    print(f'files                                              {len(own)}')
    print(f'lines                                              {total}')
    print(f'mean lines a file                                  {total / len(own):.0f}')
    print(f'includes, namespaces and blank lines               {100 * frame / total:.0f} %')
    print(f'private headers                                    {len(private)}')
    print(f'  with at most one user besides their source       {100 * len(lonely) / len(private):.0f} %')
    print(f'  and included by no test either                   {len(unearned)}')
    print(f'file-local functions per 1,000 lines               {1000 * local / total:.0f}')
    print(f'functions of more than {LONGEST_FUNCTION} lines                    {len(long)}')
    if '--list' in sys.argv:
        for name in unearned:
            print(f'   {name}: {", ".join(sorted(users[name])) or "nobody"}')
        for entry in long:
            print(f'   {entry}')


main()
