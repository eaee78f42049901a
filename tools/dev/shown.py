"""Refuses pages whose code differs from the files that are compiled.

A block names its file behind the language: ```cpp examples/minimal/main.cpp has all of the file, and
```cpp from examples/minimal/main.cpp has lines of it that follow each other. In a guide every block of
code does so; commands (sh) and what they print (text) are looked at when tests/guides runs the guide."""
import pathlib
import re
import sys
import typing

GUIDES = "docs/guides"
# What a page shows first needs no mark.
FIRST = {"README.md": ("cpp", "examples/minimal/main.cpp")}
NOT_CODE = ("sh", "text")
FENCE = re.compile(r"^(`{3,})(.*)$")


class Block(typing.NamedTuple):
    line: int
    language: str
    words: tuple  # behind the language
    text: str


def blocks(page):
    """The fenced blocks of a page, a text."""
    fence, begin, head, lines = None, 0, [], []
    for number, line in enumerate(page.splitlines(), 1):
        match = FENCE.match(line)
        if fence is None and match:
            fence, begin, head, lines = match.group(1), number, match.group(2).split(), []
        elif fence is not None and line.rstrip() == fence:
            yield Block(begin, head[0] if head else "", tuple(head[1:]),
                        "".join(each + "\n" for each in lines))
            fence = None
        else:
            lines.append(line)
    if fence is not None:
        yield Block(begin, "", (), "")  # has no end, so no language either


def is_part(part, whole):
    """Whether the lines stand in the file one after the other, indented by as much, or more alike."""
    wanted, lines = part.splitlines(), whole.splitlines()
    if not part.strip():
        return False
    for start in range(len(lines) - len(wanted) + 1):
        found = lines[start:start + len(wanted)]
        indent = found[0][:len(found[0]) - len(wanted[0])]
        if not indent.strip() and found == [indent + line if line else line for line in wanted]:
            return True
    return False


def file_of(block):
    """The file that a block is, or is of, and whether it is all of it; none without."""
    if len(block.words) == 2 and block.words[0] == "from":
        return block.words[1], False
    if len(block.words) == 1 and "/" in block.words[0]:
        return block.words[0], True
    return None, False


def fault(block, must_name, root):
    """What is wrong with a block, if anything."""
    name, is_whole = file_of(block)
    if name is None:
        return "the block names no file" if must_name and block.language not in NOT_CODE else None
    path = root / name
    if not path.is_file():
        return f"there is no {name}"
    text = path.read_text()
    if is_whole and block.text != text:
        return f"the block differs from {name}"
    if not is_whole and not is_part(block.text, text):
        return f"the block is no part of {name}"
    return None


def faults(name, page, root):
    found = list(blocks(page))
    if name in FIRST:
        language, file = FIRST[name]
        first = next((each for each in found if each.language == language), Block(1, "", (), ""))
        found = [first._replace(words=(file,))] + [each for each in found if each is not first]
    for block in found:
        what = fault(block, name.startswith(GUIDES), root)
        if what:
            yield f"{name}:{block.line}: {what}"


def main(root=pathlib.Path(".")):
    pages = [root / "README.md", *sorted((root / "docs").rglob("*.md"))]
    found = [each for page in pages
             for each in faults(str(page.relative_to(root)), page.read_text(), root)]
    if not any((root / GUIDES).glob("*.md")):
        found.append(f"there are no guides in {GUIDES}")
    print(*found, sep="\n", end="\n" if found else "")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
