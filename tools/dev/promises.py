"""Refuses pages that name a test which does not exist, and promises without one."""
import pathlib
import re
import subprocess
import sys

PAGES = ("docs/security.md", "docs/reliability.md", "docs/protocol.md", "docs/guides/suspend.md")
NAMED = re.compile(r"`(?:\w+/)?([A-Z]\w+|package|protocol)\.([A-Z]\w+)(?:/\w+)?`")
DEFINED = re.compile(r"\bTEST(?:_[FP])?\(\s*(\w+),\s*(\w+)\s*\)|\bNAME (package|protocol)\.(\w+)")


def defined_tests():
    listed = subprocess.run(
        ["git", "-c", f"safe.directory={pathlib.Path.cwd()}", "ls-files", "--cached", "--others",
         "--exclude-standard", "--", "tests"], check=True, capture_output=True, text=True).stdout
    for name in listed.split():
        path = pathlib.Path(name)
        if path.suffix in (".cpp", ".h", ".txt") and path.exists():
            for match in DEFINED.finditer(path.read_text()):
                yield match.group(1) or match.group(3), match.group(2) or match.group(4)


def faults(tests):
    for page in PAGES:
        path = pathlib.Path(page)
        if not path.exists():
            continue
        promised = False
        for number, line in enumerate(path.read_text().splitlines(), 1):
            named = NAMED.findall(line)
            for test in set(named) - tests:
                yield f"{page}:{number}: there is no test {'.'.join(test)}"
            # The rows of a table of promises begin behind its head.
            if line.startswith("| promise"):
                promised = True
            elif not line.startswith("|"):
                promised = False
            elif promised and not line.startswith("|--") and not named:
                yield f"{page}:{number}: no test shows this"


if __name__ == "__main__":
    found = list(faults(set(defined_tests())))
    print(*found, sep="\n", end="\n" if found else "")
    sys.exit(1 if found else 0)
