"""Refuses a link of a page to a file, a folder or a heading that is not there."""
import pathlib
import re
import subprocess
import sys

LINK = re.compile(r"\[[^\]]*\]\(<?([^)\s>]+)>?(?:\s+\"[^\"]*\")?\)")
HEADING = re.compile(r"(#{1,6})\s+(.*?)\s*#*$")
ELSEWHERE = re.compile(r"[a-z][a-z0-9+.-]*:|//")


def lines(text):
    """The lines of a page with their numbers, without blocks of code."""
    fence = None
    for number, line in enumerate(text.splitlines(), 1):
        mark = re.match(r"\s*(```+|~~~+)", line)
        if mark and (fence is None or mark[1].startswith(fence)):
            fence = mark[1] if fence is None else None
        elif fence is None:
            yield number, line


def links(line):
    """What a line leads to; code leads nowhere."""
    return LINK.findall(re.sub(r"`[^`]*`", "``", line))


def slug(title, taken):
    """A heading's anchor as a forge makes it; `taken` counts those of the page so far."""
    title = re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", title)
    plain = re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-")
    count = taken.get(plain, 0)
    taken[plain] = count + 1
    return f"{plain}-{count}" if count else plain


def anchors(text):
    """The headings of a page: line number, level and anchor."""
    taken = {}
    for number, line in lines(text):
        if heading := HEADING.match(line):
            yield number, len(heading[1]), slug(heading[2], taken)


def pages():
    return map(pathlib.Path, subprocess.run(
        ["git", "-c", f"safe.directory={pathlib.Path.cwd()}", "ls-files", "--cached", "--others",
         "--exclude-standard", "--", "*.md"], check=True, capture_output=True, text=True).stdout.split())


def fault(page, link):
    path, _, anchor = link.partition("#")
    target = page.parent / path if path else page
    if not target.exists():
        return f"there is no {path}"
    if not anchor or target.suffix != ".md":
        return None
    if anchor in {name for _, _, name in anchors(target.read_text())}:
        return None
    return f"{target} has no heading #{anchor}"


def faults():
    for page in pages():
        for number, line in lines(page.read_text()) if page.exists() else ():
            for link in links(line):
                if not ELSEWHERE.match(link) and (wrong := fault(page, link)):
                    yield f"{page}:{number}: {wrong}"


if __name__ == "__main__":
    found = list(faults())
    print(*found, sep="\n", end="\n" if found else "")
    sys.exit(1 if found else 0)
