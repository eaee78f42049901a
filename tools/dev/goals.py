#!/usr/bin/env python3
"""The goals of speed, each a ratio of one run of a benchmark: `./dev bench --goals`. What is measured is
printed beside what is allowed; the exit status tells whether all are met."""

import argparse
import dataclasses
import json
import math
import pathlib
import re
import subprocess
import sys
import tempfile
import time

import goals_page

CELLS = {(version, kilobytes, in_flight): f"requests/HTTP{version}/{kilobytes}KB/{in_flight}/ours"
         for version in (1, 2) for kilobytes in (1, 100) for in_flight in (1, 16, 256)}


@dataclasses.dataclass(frozen=True)
class Goal:
    subject: str
    name: str
    bench: str
    benchmarks: tuple[str, ...]
    counter: str
    limit: float
    at_least: bool = False

    def is_met(self, value):
        return value >= self.limit if self.at_least else value <= self.limit

    def allowed(self):
        return f"at {'least' if self.at_least else 'most'} {self.limit:g}"


def cells(versions=(1, 2), kilobytes=(1, 100), in_flight=(1, 16, 256)):
    return tuple(CELLS[v, k, n] for v in versions for k in kilobytes for n in in_flight)


def request(name, cells_, counter, limit, at_least=False):
    return Goal("Requests", name, "requests", cells_, counter, limit, at_least)


GOALS = (
    request("latency of 1 KB, one at a time, of curl's", cells(kilobytes=(1,), in_flight=(1,)), "p50_of_curl", 1.08),
    request("latency of 100 KB, one at a time, of curl's", cells(kilobytes=(100,), in_flight=(1,)), "p50_of_curl", 1.05),
    request("rate at 16 and 256 over HTTP/1.1, of curl's", cells((1,), in_flight=(16, 256)), "rate_of_curl", 0.95, True),
    request("rate at 16 and 256 over HTTP/2, of curl's", cells((2,), in_flight=(16, 256)), "rate_of_curl", 0.9, True),
    request("processor time of a request, of curl's", cells(), "cpu_of_curl", 1.15),
    request("99th percentile of the latency, of curl's", cells(), "p99_of_curl", 1.5),
    request("rate, of libsoup's", cells(), "rate_of_libsoup", 1, True),
    request("rate, of Qt's", cells(), "rate_of_Qt", 1, True),
    request("processor time with 10,000 waiting, of that with 100", ("requests/waiting/10000",), "cpu_of_100", 1.2),
    request("time with 10,000 waiting, of that with 100", ("requests/waiting/10000",), "time_of_100", 1.2),
    request("connections of eleven bursts, of what one needs", tuple(f"requests/bursts/{n}" for n in (2, 6, 30)),
            "connections_of_limit", 1),
    Goal("Events", "from write to delegate, 200 and 1,000 a second, of curl's", "feed",
         ("feed/200/ours", "feed/1000/ours"), "p50_of_curl", 1.1),
    Goal("Events", "processor time of an event, of curl's", "feed", ("feed/200/ours", "feed/1000/ours"), "cpu_of_curl", 1.2),
    Goal("Events", "events of 100 bytes, whole or cut, of memchr", "eventstream",
         ("events/100", "cutEvents/100/1460", "cutEvents/100/16384"), "times_floor", 4.5),
    Goal("Events", "events of 4 KiB cut at 1,460 bytes, of memchr", "eventstream", ("cutEvents/4096/1460",), "times_floor", 2),
    Goal("Documents", "reading JSON, of simdjson's DOM", "documents",
         tuple(f"readJSONBesidesimdjson/{n}" for n in (2000, 50000, 5000000)), "times_peer", 1.4),
    Goal("Documents", "checking and writing JSON, of RapidJSON's writer", "documents",
         tuple(f"submitJSONBesideRapidJSON/{n}" for n in (50000, 5000000)), "times_peer", 0.9),
    Goal("Documents", "writing JSON, of Boost's", "documents",
         tuple(f"writeJSONBesideBoost.JSON/{n}" for n in (50000, 5000000)), "times_peer", 1),
    Goal("Documents", "property lists of 50 KB and 1 MB, of libplist", "documents",
         ("writePropertyList/76000", "writePropertyList/1520000"), "times_peer", 0.1),
    Goal("Start", "exec to main, of a program with libcurl alone", "loading", ("loading/ours",), "time_of_curl", 1.15),
    Goal("Start", "MiB of the library, stripped", "loading", ("library",), "stripped_MiB", 1),
    Goal("Start", "milliseconds to the first document, without keys", "startup",
         ("processStartToFirstDocument",), "everything_else_ms", 30),
    Goal("Being there", "MiB of a session with a silent stream", "feed", ("idleSession",), "own_MiB", 4),
    Goal("Being there", "threads of a session with a silent stream", "feed", ("idleSession",), "threads", 6),
    Goal("Menus", "building 1,000 items, of reading their JSON", "presentation", ("menuBesideItsJSON",), "times_reading", 4),
    Goal("Menus", "first opening of a full menu, of Qt's plain one", "menuview", ("buildEverything",), "times_plain", 2),
)


@dataclasses.dataclass(frozen=True)
class Verdict:
    goal: Goal
    value: float | None = None
    where: str = ""  # the benchmark that is furthest from the goal

    @property
    def is_met(self):
        return self.value is not None and self.goal.is_met(self.value)

    def text(self):
        return "met" if self.is_met else "missed" if self.value is not None else "not measured"

    def measured(self):
        return "–" if self.value is None else f"{self.value:.3g}"


def plain_name(name):
    """A benchmark's name without how it was measured."""
    return re.sub(r"/(iterations:\d+|manual_time|real_time|min_time:[\d.]+)", "", name)


def pattern(benchmarks):
    """Finds the benchmarks, and whoever is measured together with them."""
    parts = sorted({re.escape(name.removesuffix("/ours")) for name in benchmarks})
    return "^(" + "|".join(parts) + ")(/|$)"


def judge(goal, figures):
    """The verdict by the benchmark that is furthest from the goal; none if one of them is missing."""
    values = [(figures.get(name, {}).get(goal.counter), name) for name in goal.benchmarks]
    if any(value is None or not math.isfinite(value) for value, _ in values):
        return Verdict(goal)
    value, where = min(values) if goal.at_least else max(values)
    return Verdict(goal, value, where if len(values) > 1 else "")


def figures_of(report):
    """Counters by the benchmarks' plain names."""
    return {plain_name(run["name"]): run for run in report["benchmarks"] if not run.get("error_occurred")}


def measure(bench, goals, programs):
    program = programs / f"kvl_{bench}_bench"
    if not program.exists():
        return {}
    with tempfile.NamedTemporaryFile(suffix=".json") as out:
        names = [name for goal in goals for name in goal.benchmarks]
        command = [program, f"--benchmark_filter={pattern(names)}", f"--benchmark_out={out.name}",
                   "--benchmark_out_format=json"]
        begin = time.monotonic()
        status = subprocess.run(command, stdout=subprocess.DEVNULL, check=False).returncode
        print(f"   {bench}: {time.monotonic() - begin:.0f} s" + (f", failed ({status})" if status else ""), file=sys.stderr)
        try:
            return figures_of(json.load(out))
        except ValueError:
            return {}


def chosen(only):
    return [goal for goal in GOALS if only.lower() in f"{goal.subject} {goal.name} {goal.bench}".lower()]


def benches_of(goals):
    return list(dict.fromkeys(goal.bench for goal in goals))


def table(verdicts):
    rows = [("", "goal", "allowed", "measured", "verdict")]
    for verdict in verdicts:
        goal = verdict.goal
        where = f" ({verdict.where})" if verdict.where else ""
        rows.append((goal.subject, goal.name, goal.allowed(), verdict.measured(), verdict.text() + where))
    widths = [max(len(row[i]) for row in rows) for i in range(4)]
    return "\n".join("  ".join(text.ljust(width) for text, width in zip(row, widths)) + "  " + row[4] for row in rows)


def main(arguments):
    parser = argparse.ArgumentParser(prog="./dev bench --goals", description=__doc__)
    parser.add_argument("--only", default="", metavar="FILTER", help="goals with this text in subject, name or benchmark")
    parser.add_argument("--write", action="store_true", help="keep table and plot in docs/performance.md")
    parser.add_argument("--benches", action="store_true", help="only print which benchmarks are needed")
    parser.add_argument("--programs", type=pathlib.Path, default=pathlib.Path("build/release/bin"))
    options = parser.parse_args(arguments)
    goals = chosen(options.only)
    if not goals:
        parser.error("no goal has that in it")
    if options.write and options.only:
        parser.error("what is kept is all of it: --write goes without --only")
    if options.benches:
        print("\n".join(benches_of(goals)))
        return 0
    figures = {}
    for bench in benches_of(goals):
        figures |= measure(bench, [goal for goal in goals if goal.bench == bench], options.programs)
    verdicts = [judge(goal, figures) for goal in goals]
    print(table(verdicts))
    if options.write:
        goals_page.write(verdicts, figures)
    return 0 if all(verdict.is_met for verdict in verdicts) else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
