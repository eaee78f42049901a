#!/usr/bin/env python3
"""A page for doxygen 1.9.4, which knows no anchors of its own: each heading gets one that is unique among
all pages, and links lead to it."""
import os
import pathlib
import re
import sys

sys.dont_write_bytecode = True
from links import LINK, anchors, lines  # noqa: E402


def label(page, anchor):
    name = re.sub(r"\W", "-", os.path.relpath(page.with_suffix("")))
    return f"{name}--{anchor}"


def redirected(page, link):
    """To a page from the root of the tree, where doxygen looks first of all. The first heading is the page."""
    path, _, anchor = link.partition("#")
    target = page.parent / path if path else page
    if target.suffix != ".md" or not target.exists():
        return link
    levels = {name: level for _, level, name in anchors(target.read_text())} if anchor else {}
    return f"#{label(target, anchor)}" if levels.get(anchor, 1) > 1 else os.path.relpath(target)


def filtered(page):
    text = page.read_text()
    headings = {number: label(page, name) for number, level, name in anchors(text) if level > 1}
    result = text.splitlines()
    for number, line in lines(text):
        line = LINK.sub(lambda found: found[0].replace(found[1], redirected(page, found[1])), line)
        result[number - 1] = f"{line} {{#{headings[number]}}}" if number in headings else line
    return "\n".join(result)


if __name__ == "__main__":
    print(filtered(pathlib.Path(sys.argv[1])))
