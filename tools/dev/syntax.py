#!/usr/bin/env python3
"""Whether each source of a folder compiles by itself: syntax.py BUILD-TREE FOLDER

As the build tree compiles it, with nothing written and nothing built before.
"""
import concurrent.futures
import json
import os
import pathlib
import shlex
import subprocess
import sys


def command_of(entry):
    """The compiler's own words, without a cache before them and without an object behind them."""
    words = shlex.split(entry["command"])
    if os.path.basename(words[0]) == "ccache":
        words.pop(0)
    at = words.index("-o")
    del words[at:at + 2]
    words[words.index("-c")] = "-fsyntax-only"
    return words


def compiles(entry):
    done = subprocess.run(command_of(entry), cwd=entry["directory"], check=False)
    return done.returncode == 0


def main():
    tree, folder = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]).resolve()
    entries = [entry for entry in json.loads((tree / "compile_commands.json").read_text())
               if folder in pathlib.Path(entry["file"]).parents]
    if not entries:
        sys.exit(f"there are no sources in {sys.argv[2]}")
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        good = sum(pool.map(compiles, entries))
    print(f"{good} of {len(entries)} sources of {sys.argv[2]} compile by themselves")
    return 0 if good == len(entries) else 1


if __name__ == "__main__":
    sys.exit(main())
