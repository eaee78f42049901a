#!/usr/bin/env python3
"""The packages' files say what the build says: agree.py TREE

The version, the names that come from it, and what a build needs.
"""
import re
import sys
from pathlib import Path

# Groups of packaging/debian-packages.txt that a build of the packages needs. What only runs is no part.
GROUPS = {"build", "qt", "qml", "webengine"}
RUN_TIME = re.compile(r"qml6-module-")


def paragraphs(text):
    """Those of a control file, each as a dictionary."""
    for block in re.split(r"\n\s*\n", text.strip()):
        fields = re.findall(r"^([\w-]+):((?:.*\n?)(?:[ \t].*\n?)*)", block, re.M)
        yield {name: value.strip() for name, value in fields}


def names(field):
    """The packages of a field such as Depends, without versions and without debhelper's own."""
    entries = (entry.strip() for entry in field.split(","))
    return {re.split(r"[ (]", entry)[0] for entry in entries if entry} - {"debhelper-compat"}


def listed(text):
    """The packages of the groups that a build needs."""
    group, found = None, set()
    for line in text.splitlines():
        if line.startswith("["):
            group = line[1:].split("]")[0]
        elif line.strip() and not line.startswith("#") and group in GROUPS:
            found.add(line.strip())
    return {package for package in found if not RUN_TIME.match(package)}


def version_of(header):
    """What the build takes it from."""
    return ".".join(re.search(rf"^#define KVL_VERSION_{part} (\d+)$", header, re.M)[1]
                    for part in ("MAJOR", "MINOR", "PATCH"))


def disagreements(tree):
    """One line for each thing that two files say differently."""
    version = version_of((tree / "include/local/platform/Version.h").read_text())
    changelog = (tree / "debian/changelog").read_text()
    packaged = re.match(r"\S+ \(([^)]+)-[^-)]+\)", changelog)[1]
    if packaged != version:
        yield f"debian/changelog is of {packaged}, Version.h of {version}"
    source, *binaries = paragraphs((tree / "debian/control").read_text())
    soname = ".".join(version.split(".")[:2])
    made = {binary["Package"] for binary in binaries}
    for library in ("libkvlocal", "libkvlocal-qt6-", "libkvlocal-qt6web"):
        if library + soname not in made:
            yield f"debian/control has no package {library}{soname}"
    needed = listed((tree / "packaging/debian-packages.txt").read_text())
    stated = names(source["Build-Depends"])
    for package in sorted(needed ^ stated):
        place = "debian/control" if package in needed else "packaging/debian-packages.txt"
        yield f"{package} is missing in {place}"


def main():
    bad = list(disagreements(Path(sys.argv[1])))
    for line in bad:
        print("   " + line)
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
