"""Refuses an include that points where the table of allowed arrows does not."""
import os
import re
import subprocess
import sys

PLATFORM = ('core', 'dispatch', 'security', 'ipc', 'serialisation', 'formatting', 'interface', 'urlloading',
            'environment')
# What a folder may include besides itself: the folders of platform/ by their own name.
ALLOWED = {
    'core': (),
    'dispatch': ('core',),
    'security': ('core',),
    'ipc': ('core', 'dispatch'),
    'serialisation': ('core',),
    'formatting': ('core',),
    'interface': ('core', 'dispatch'),
    'urlloading': ('core', 'dispatch', 'security'),
    'environment': ('core', 'dispatch', 'security', 'ipc', 'urlloading'),
    'modules': ('core', 'security', 'ipc', 'formatting', 'interface'),
    'notary': PLATFORM,
    'eventstream': PLATFORM,
    'session': PLATFORM + ('notary', 'eventstream'),
    'encoding': PLATFORM + ('session',),
    'presentation': PLATFORM + ('encoding',),
    # Libraries and programs on top: all public headers, which nobody else may include as a whole, and
    # what the table says besides.
    'qt': ('public', 'core', 'interface'),
    'qt/qml': ('public',),
    'qt/web': ('public',),
    'tools': ('public',),
    'devservice': ('public', 'core', 'security', 'ipc'),
    'examples': ('public',),
}
# Which folder implements a public header.
OWNERS = (
    (r'platform/Security\.h|platform/Credential\.h', 'security'),
    (r'platform/(URLSession|URLRequest|BodySource|Exchange)\.h', 'urlloading'),
    (r'platform/(DispatchQueue|Progress|Task)\.h', 'dispatch'),
    (r'platform/(DateFormatter|UpdateCount)\.h', 'formatting'),
    (r'platform/(FontMeasurement|Image|Menu|MenuItem|MenuAction|SegmentedControl|Workspace)\.h', 'interface'),
    (r'platform/', 'core'),
    (r'KVLSession\.h|KVLEventStreamState\.h', 'session'),
    (r'KVLEvent\.h', 'eventstream'),
    (r'KVLNotary|KVLCertificateRequest\.h', 'notary'),
    (r'KVLEncodingMenus\.h|KVLEncodingLocale\.h', 'presentation'),
    (r'KVLConstants\.h', 'core'),
    (r'KVL', 'encoding'),
)


def room_of(path):
    parts = path.split('/')
    if parts[0] == 'platform' and len(parts) > 2:
        return parts[1]
    if '/'.join(parts[:2]) in ALLOWED:
        return '/'.join(parts[:2])
    return parts[0] if parts[0] in ALLOWED else None


def target_of(name, line):
    """The folder that an include line of the file `name` points to, or None."""
    match = re.match(r'\s*#\s*include\s*[<"]([^>"]+)[>"]', line)
    if not match:
        return None
    path = match[1]
    beside = os.path.normpath(os.path.join(os.path.dirname(name), path))
    if path.startswith('local/'):
        header = path.removeprefix('local/')
        return next((owner for pattern, owner in OWNERS if re.match(pattern, header)), 'everything')
    if path.startswith('.') or os.path.isfile(beside):
        return room_of(beside)
    return room_of(path)


def listed():
    command = ['git', '-c', 'safe.directory=' + os.getcwd(), 'ls-files', '--cached', '--others',
               '--exclude-standard', '--', '*.h', '*.cpp']
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.split()


def wrong_arrows(names):
    for name in sorted(set(names)):
        room = room_of(name)
        if room is None or not os.path.isfile(name):
            continue
        allowed = ALLOWED[room]
        with open(name, encoding='utf-8') as file:
            for number, line in enumerate(file, 1):
                target = target_of(name, line)
                if target is None or target == room or target in allowed:
                    continue
                if 'public' in allowed and 'local/' in line:
                    continue
                yield f'   {name}:{number}: {room} may not use {target}: {line.strip()}'


found = list(wrong_arrows(listed()))
print('\n'.join(found), end='\n' if found else '')
sys.exit(bool(found))
