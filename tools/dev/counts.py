#!/usr/bin/env python3
"""Instructions of a request, an event, a document and an item of a menu, counted by valgrind: `./dev bench
--counts`. Unlike times they do not change with what else the machine does. More than FACTOR times what was
written down in counts.json fails; what makes them smaller is written down with --write."""

import argparse
import dataclasses
import json
import pathlib
import re
import subprocess
import sys
import tempfile

FACTOR = 1.3
WRITTEN = pathlib.Path("tools/dev/counts.json")


@dataclasses.dataclass(frozen=True)
class Kind:
    """What is counted. The difference of a short and a long run leaves out what is done once."""
    name: str
    command: tuple[str, ...]
    lengths: tuple[int, int]
    things: int = 1  # in one unit of a length
    server: tuple[str, ...] = ()


KINDS = (
    Kind("request of 1 KB over HTTP/1.1", ("kvl_request_probe", "--requests"), (300, 900), server=("kvl_with_server",)),
    Kind("request of 1 KB, bare libcurl", ("kvl_curl_probe", "--requests"), (300, 900), server=("kvl_with_server",)),
    Kind("event of 100 bytes", ("kvl_count_probe", "event"), (20, 60), things=500),
    Kind("document of 50 KB, read", ("kvl_count_probe", "read"), (10, 30)),
    Kind("document of 50 KB, written", ("kvl_count_probe", "write"), (10, 30)),
    Kind("text of a document, taken", ("kvl_count_probe", "text"), (1000, 3000)),
    Kind("item of a menu", ("kvl_count_probe", "menu"), (10, 30), things=100),
)


def total_of(profile):
    """All instructions of a profile that callgrind has written."""
    found = re.findall(r"^(?:totals|summary): (\d+)", profile, re.MULTILINE)
    if not found:
        raise RuntimeError("valgrind has counted nothing")
    return int(found[-1])


def run(kind, length, programs):
    with tempfile.TemporaryDirectory() as folder:
        profile = pathlib.Path(folder) / "profile"
        program, *arguments = kind.command
        command = [*(programs / name for name in kind.server), "valgrind", "--quiet", "--tool=callgrind",
                   f"--callgrind-out-file={profile}", programs / program, *arguments, str(length)]
        subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
        return total_of(profile.read_text(encoding="utf-8"))


def per_thing(kind, counted):
    short, long = kind.lengths
    return (counted(long) - counted(short)) / (long - short) / kind.things


def judged(counts, written):
    """A line for each, and whether none has grown too much."""
    lines, is_good = [], True
    for name, count in counts.items():
        before = written.get(name)
        share = f"{count / before:5.2f} of {before:,}" if before else "  new"
        grew = before is not None and count > FACTOR * before
        is_good = is_good and not grew
        lines.append(f"{name:32} {count:12,.0f}  {share}{'  more than is allowed' if grew else ''}")
    return lines, is_good


def main(arguments):
    parser = argparse.ArgumentParser(prog="./dev bench --counts", description=__doc__)
    parser.add_argument("--write", action="store_true", help="write the counts down")
    parser.add_argument("--programs", type=pathlib.Path, default=pathlib.Path("build/release/bin"))
    options = parser.parse_args(arguments)
    counts = {kind.name: per_thing(kind, lambda length, kind=kind: run(kind, length, options.programs)) for kind in KINDS}
    lines, is_good = judged(counts, json.loads(WRITTEN.read_text(encoding="utf-8")) if WRITTEN.exists() else {})
    print("instructions of one\n" + "\n".join(lines))
    if options.write:
        rounded = {name: round(count) for name, count in counts.items()}
        WRITTEN.write_text(json.dumps(rounded, indent=2) + "\n", encoding="utf-8")
        return 0
    return 0 if is_good else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
