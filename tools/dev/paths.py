"""Refuses a path in backticks, in the pages for people, at which the tree has nothing."""
import itertools
import pathlib
import re
import subprocess
import sys

# A name with one of these is a file, with or without a folder; the rest begins with a folder of the tree.
SOURCE = re.compile(r"[\w.+…*/-]+\.(?:cpp|h|in|py|sh|md|txt|cmake|qml|js|map|svg|png|patch|supp|yml|po|pot)")
PATH = re.compile(r"[\w.+-]+/[\w.+…*/-]*")
# What programs make, and what belongs to a host or an installation.
ELSEWHERE = re.compile(r"build/|dist/|local/|kvlocal/|main\.cpp$|KVLocalConfig")


def pages():
    listed = ["README.md", "CONTRIBUTING.md", "SECURITY.md", "LICENSE.md"]
    return [path for path in map(pathlib.Path, listed) if path.exists()] + sorted(pathlib.Path("docs").rglob("*.md"))


def tree():
    listed = subprocess.run(
        ["git", "-c", f"safe.directory={pathlib.Path.cwd()}", "ls-files", "--cached", "--others",
         "--exclude-standard"], check=True, capture_output=True, text=True).stdout.split("\n")
    return {name for name in listed if name and pathlib.Path(name).exists()}


def spread(path):
    """`a.{h,cpp}` as a.h and a.cpp."""
    parts = re.split(r"\{([^}]*)\}", path)
    choices = [part.split(",") if at % 2 else [part] for at, part in enumerate(parts)]
    return ["".join(choice) for choice in itertools.product(*choices)]


def pattern(path):
    """At the root or below any folder; … and * stand for anything."""
    body = re.escape(path).replace("…", "[^/]*").replace(r"\*", "[^/]*")
    return re.compile(rf"(?:.*/)?{body}{'.*' if path.endswith('/') else '(?:/.*)?'}$")


def named_paths(page, folders):
    fenced = False
    for number, line in enumerate(page.read_text().splitlines(), 1):
        fenced ^= line.lstrip().startswith("```")
        quoted = [] if fenced else re.findall(r"(?<!`)`([^`]+)`(?!`)", line)
        for path in itertools.chain.from_iterable(map(spread, quoted)):
            is_path = SOURCE.fullmatch(path) or (PATH.fullmatch(path) and path.split("/")[0] in folders)
            if is_path and not ELSEWHERE.match(path):
                yield number, path


def faults(names):
    folders = {name.split("/")[0] for name in names if "/" in name}
    known = {}
    for page in pages():
        for number, path in named_paths(page, folders):
            if path not in known:
                known[path] = any(map(pattern(path).match, names))
            if not known[path]:
                yield f"{page}:{number}: there is no {path}"


if __name__ == "__main__":
    found = list(faults(tree()))
    print(*found, sep="\n", end="\n" if found else "")
    sys.exit(1 if found else 0)
