"""The translators' files in po/: `write` brings them up to date with the sources, `check` tells what
is missing. A placeholder of a text must stand in its translation as often, in whatever order."""
import collections
import pathlib
import re
import subprocess
import sys
import tempfile

TEMPLATE = pathlib.Path('po/kvlocal.pot')
FOLDERS = ('platform', 'notary', 'eventstream', 'session', 'encoding', 'presentation', 'qt', 'tools/kvlocal')
KEYWORDS = ('translatable', 'translated', 'translatedForCount:1,2', 'counted:2,3', 'tr')
PLACEHOLDER = re.compile(r'%(?:\d\$)?@|%\d')
# Where a text runs from right to left, what is put into it stands in an isolate, as in "\u2068%@\u2069".
RIGHT_TO_LEFT = ('ar', 'dv', 'fa', 'he', 'ps', 'sd', 'ug', 'ur', 'yi')
ISOLATED = re.compile('\u2068(?:' + PLACEHOLDER.pattern + ')\u2069')


def template():
    listed = subprocess.run(['git', 'ls-files', '-co', '--exclude-standard', *FOLDERS], check=True,
                            capture_output=True, text=True).stdout.split()
    sources = sorted(path for path in listed if path.endswith(('.cpp', '.h')) and pathlib.Path(path).exists())
    text = subprocess.run(
        ['xgettext', '--language=C++', '--from-code=UTF-8', '--add-location=file', '--no-wrap',
         '--keyword', *['--keyword=' + word for word in KEYWORDS], '--output=-', *sources],
        check=True, capture_output=True, text=True).stdout
    text = text[text.index('\n\n') + 2:]
    # It takes "%@" and the like for C's own when it likes to.
    text = re.sub(r', c-format$', '', text, flags=re.M)
    text = re.sub(r'^#\n', '', re.sub(r'^#, c-format\n', '', text, flags=re.M), flags=re.M)
    head = ('# Texts of libkvlocal, its Qt binding and kvlocal.\nmsgid ""\nmsgstr ""\n'
            '"Project-Id-Version: kvlocal\\n"\n"MIME-Version: 1.0\\n"\n'
            '"Content-Type: text/plain; charset=UTF-8\\n"\n"Content-Transfer-Encoding: 8bit\\n"\n'
            '"Plural-Forms: nplurals=INTEGER; plural=EXPRESSION;\\n"\n\n')
    return head + text


def languages():
    return sorted(TEMPLATE.parent.glob('*.po'))


def write():
    TEMPLATE.write_text(template())
    for path in languages():
        subprocess.run(['msgmerge', '--quiet', '--update', '--backup=none', '--no-wrap', '--no-fuzzy-matching',
                        path, TEMPLATE], check=True)


def unquoted(line):
    text = line[line.index('"') + 1:line.rindex('"')]
    return re.sub(r'\\(.)', lambda found: {'n': '\n', 't': '\t'}.get(found[1], found[1]), text)


def entries(text):
    """Each text as a list of (field, value), such as ('msgid', 'File')."""
    found = []
    for line in text.split('\n'):
        if line.startswith('"'):
            found[-1][-1][1] += unquoted(line)
        elif line.startswith('msg'):
            if line.startswith(('msgctxt', 'msgid ')) and (not found or found[-1][-1][0].startswith('msgstr')):
                found.append([])
            found[-1].append([line.split(' ')[0], unquoted(line)])
    return [entry for entry in found if dict(entry)['msgid']]


def placeholders(text):
    """How often each argument is used: "%@" takes the next one, "%2$@" the second."""
    numbers = iter(range(1, 100))
    names = [name if name != '%@' else '%' + str(next(numbers)) + '$@' for name in PLACEHOLDER.findall(text)]
    return collections.Counter(names)


def faults(path):
    for entry in entries(path.read_text()):
        fields = dict(entry)
        wanted = {frozenset(placeholders(fields[name]).items()) for name in ('msgid', 'msgid_plural')
                  if name in fields}
        for name, text in entry:
            if not name.startswith('msgstr'):
                continue
            if frozenset(placeholders(text).items()) not in wanted:
                yield f'{path}: other placeholders than in {fields["msgid"]!r}: {text!r}'
            if path.stem.split('_')[0] in RIGHT_TO_LEFT and PLACEHOLDER.search(ISOLATED.sub('', text)):
                yield f'{path}: a placeholder without an isolate: {text!r}'


def check():
    found = []
    made, there = [sorted(entries(text)) for text in (template(), TEMPLATE.read_text())]
    if made != there:  # where a text stands, and in which order, is no matter
        found.append(f'{TEMPLATE} differs from the sources; run: python3 tools/dev/texts.py write')
    built = pathlib.Path('po/CMakeLists.txt').read_text()
    named = re.search(r'set\(languages (.*)\)', built)[1].split()
    if named != [path.stem for path in languages()]:
        found.append('po/CMakeLists.txt names other languages than there are')
    for path in languages():
        with tempfile.NamedTemporaryFile() as catalogue:
            done = subprocess.run(['msgfmt', '--check-format', '--check-domain', '--statistics', '-o', catalogue.name, path],
                                  capture_output=True, text=True, env={'LC_ALL': 'C', 'PATH': '/usr/bin'})
        if done.returncode or not re.fullmatch(r'\d+ translated messages?\.\n', done.stderr):
            found.append(f'{path}: {done.stderr.strip()}')
        compared = subprocess.run(['msgcmp', path, TEMPLATE], capture_output=True, text=True)
        if compared.returncode:
            found.append(f'{path} lacks texts of {TEMPLATE}: {compared.stderr.strip().splitlines()[0]}')
        found.extend(faults(path))
    print('\n'.join('   ' + fault for fault in found), end='\n' if found else '')
    return 1 if found else 0


if __name__ == '__main__':
    sys.exit(check() if sys.argv[1:] == ['check'] else write())
