"""Reads the binary property lists of a folder with Python's plistlib.

For each of 0.plist, 1.plist and so on prints one line: "same" if plistlib writes what it read as
the same bytes, else "other", and then the value in the notation that PropertyListOracleTest.cpp
writes too.
"""

import datetime
import pathlib
import plistlib
import struct
import sys

REFERENCE_DATE = datetime.datetime(2001, 1, 1)


def bits(number):
    return struct.pack(">d", number).hex()


def notation(value):
    if isinstance(value, bool):
        return "true" if value else "false"
    if isinstance(value, int):
        return f"i{value}"
    if isinstance(value, float):
        return "r" + bits(value)
    if isinstance(value, datetime.datetime):
        return "d" + bits((value - REFERENCE_DATE).total_seconds())
    if isinstance(value, str):
        return "s" + value.encode("utf-8").hex()
    if isinstance(value, bytes):
        return "b" + value.hex()
    if isinstance(value, list):
        return "[" + "".join(notation(element) + "," for element in value) + "]"
    entries = (notation(key) + ":" + notation(element) + "," for key, element in value.items())
    return "{" + "".join(entries) + "}"


def main():
    sys.setrecursionlimit(10000)
    folder = pathlib.Path(sys.argv[1])
    for number in range(len(list(folder.glob("*.plist")))):
        content = (folder / f"{number}.plist").read_bytes()
        value = plistlib.loads(content, fmt=plistlib.FMT_BINARY)
        again = plistlib.dumps(value, fmt=plistlib.FMT_BINARY, sort_keys=False)
        print("same" if again == content else "other", notation(value))


main()
