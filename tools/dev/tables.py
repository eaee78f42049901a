"""Refuses a row of a table, in the pages for people, that a reader's program would not take for one."""
import re
import sys

from paths import pages


def cells(line):
    """How many cells a row has; a pipe in a code span or behind a backslash divides nothing."""
    return len(re.sub(r"`[^`]*`|\\\|", "", line.strip()).strip("|").split("|"))


def tables(text):
    """Rows that follow each other, with the number of the first."""
    fenced, rows = False, []
    for number, line in enumerate([*text.splitlines(), ""], 1):
        fenced ^= line.lstrip().startswith("```")
        if line.startswith("|") and not fenced:
            rows.append(line)
        elif rows:
            yield number - len(rows), rows
            rows = []


def faults(text):
    for first, rows in tables(text):
        if len(rows) < 2 or not re.fullmatch(r"\|[\s:|-]+\|", rows[1]):
            yield first, "the rows belong to no table"
        else:
            yield from ((first + at, "the row has another number of cells than the head")
                        for at, row in enumerate(rows) if cells(row) != cells(rows[0]))


if __name__ == "__main__":
    found = [f"{page}:{number}: {what}" for page in pages() for number, what in faults(page.read_text())]
    print(*found, sep="\n", end="\n" if found else "")
    sys.exit(1 if found else 0)
