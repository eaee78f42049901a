#!/usr/bin/env python3
"""Prints the images of installed packages, or those below folders, a path a line.

corpus.py PACKAGE|FOLDER...: each content once, in an order that has nothing to do with names and hardly
changes with the packages; formats take turns, so that the first hundred have some of each.
"""

import hashlib
import itertools
import pathlib
import subprocess
import sys

FORMATS = {".svg": "svg", ".svgz": "svg", ".png": "png", ".jpg": "jpeg", ".jpeg": "jpeg", ".gif": "gif",
           ".tif": "tiff", ".tiff": "tiff", ".webp": "webp", ".bmp": "bmp", ".ico": "ico", ".pdf": "pdf"}
LONGEST = 16 << 20
EACH_TURN = {"svg": 12}  # most of what there is


def files_of(source):
    if source.startswith("/"):
        return pathlib.Path(source).rglob("*")
    listed = subprocess.run(["dpkg-query", "-L", source], check=True, capture_output=True, text=True)
    return map(pathlib.Path, listed.stdout.splitlines())


def main():
    formats = {}
    for path in itertools.chain.from_iterable(map(files_of, sys.argv[1:])):
        kind = FORMATS.get(path.suffix.lower())
        if not kind or path.is_symlink() or not path.is_file() or path.stat().st_size > LONGEST:
            continue
        digest = hashlib.sha256(path.read_bytes()).digest()
        formats.setdefault(kind, {}).setdefault(digest, path)
    turns = {kind: iter([path for _, path in sorted(paths.items())]) for kind, paths in sorted(formats.items())}
    while turns:
        for kind in list(turns):
            turn = list(itertools.islice(turns[kind], EACH_TURN.get(kind, 1)))
            if not turn:
                del turns[kind]
            for path in turn:
                print(path)


if __name__ == "__main__":
    main()
