"""usage: page_filter.py FOLDER PAGE...

Copies pages into FOLDER as doxygen 1.9.4 wants them, which knows no anchors of its own: each heading gets
one that is unique among all pages, and links lead to it."""
import functools
import os
import pathlib
import re
import sys

from links import LINK, anchors, lines


@functools.cache
def levels(page):
    return {name: level for _, level, name in anchors(page.read_text())}


def label(page, anchor):
    name = re.sub(r"\W", "-", os.path.relpath(page.with_suffix("")))
    return f"{name}--{anchor}"


def redirected(page, link, folder):
    """To a copy by its path from the root of the tree, where doxygen looks first of all. The first heading is
    the page."""
    path, _, anchor = link.partition("#")
    target = pathlib.Path(os.path.relpath(page.parent / path if path else page))
    if target.suffix in (".png", ".svg"):
        return target.name  # doxygen knows the folder
    if target.suffix != ".md" or not target.exists():
        return link
    level = levels(target).get(anchor, 1) if anchor else 1
    return f"#{label(target, anchor)}" if level > 1 else str(folder / target)


def filtered(page, folder):
    text = page.read_text()
    headings = {number: label(page, name) for number, level, name in anchors(text) if level > 1}
    result = text.splitlines()
    for number, line in lines(text):
        line = LINK.sub(lambda found: found[0].replace(found[1], redirected(page, found[1], folder)), line)
        result[number - 1] = f"{line} {{#{headings[number]}}}" if number in headings else line
    return "\n".join(result) + "\n"


def copy(folder, names):
    for name in names:
        target = folder / name
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_text(filtered(pathlib.Path(name), folder))


if __name__ == "__main__":
    copy(pathlib.Path(sys.argv[1]), sys.argv[2:])
