#!/usr/bin/env python3
"""Makes images that are meant to take a decoder's time, its memory or the decoder itself.

hostile.py FOLDER writes them all, the same bytes each time, none longer than 16 MiB.
"""

import pathlib
import sys

import hostile_bitmaps
import hostile_pdf
import hostile_svg

LONGEST = 16 << 20

FILES = {**hostile_svg.FILES, **hostile_bitmaps.FILES, **hostile_pdf.FILES}


def main():
    folder = pathlib.Path(sys.argv[1])
    folder.mkdir(parents=True, exist_ok=True)
    for name, make in FILES.items():
        data = make()
        if len(data) > LONGEST:
            sys.exit(f"{name} has {len(data)} bytes")
        (folder / name).write_bytes(data)


if __name__ == "__main__":
    main()
