"""Table and plot of docs/performance.md, made of what was measured."""

import datetime
import html
import pathlib
import re

PAGE = pathlib.Path("docs/performance.md")
PLOT = pathlib.Path("docs/images/goals.svg")
BEGIN = "<!-- written by ./dev bench --goals --write: begin -->"
END = "<!-- end -->"


def machine():
    try:
        text = pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8")
    except OSError:
        return "an unknown machine"
    names = re.findall(r"^model name\s*:\s*(.*)$", text, re.MULTILINE)
    return f"{len(names)} cores of {names[0]}" if names else "an unknown machine"


def goal_rows(verdicts):
    yield "| | goal | allowed | measured | |"
    yield "|---|---|---|---|---|"
    for verdict in verdicts:
        goal = verdict.goal
        where = f" ({verdict.where.removeprefix('requests/').removesuffix('/ours')})" if verdict.where else ""
        measured = verdict.measured() if verdict.is_met else f"**{verdict.measured()}**"
        yield f"| {goal.subject} | {goal.name} | {goal.allowed()} | {measured}{where} | {verdict.text()} |"


REQUEST_COLUMNS = (("rate of curl", "rate_of_curl", "{:.2f}"), ("p50 of curl", "p50_of_curl", "{:.2f}"),
                   ("p99 of curl", "p99_of_curl", "{:.2f}"), ("processor time of curl", "cpu_of_curl", "{:.2f}"),
                   ("per second", "per_second", "{:,.0f}"), ("p50 µs", "p50_us", "{:,.0f}"),
                   ("connections", "connections", "{:.0f}"))


def request_rows(figures):
    names = [name for name in figures if re.match(r"requests/HTTP\d/", name)]
    if not names:
        return
    yield "| | | " + " | ".join(title for title, _, _ in REQUEST_COLUMNS) + " |"
    yield "|---|---|" + "---|" * len(REQUEST_COLUMNS)
    shown = ""
    for name in names:
        _, version, size, in_flight, contestant = name.split("/")
        cell = f"HTTP/{'1.1' if version == 'HTTP1' else '2'}, {size.replace('KB', ' KB')}, {in_flight} in flight"
        values = " | ".join(form.format(figures[name][counter]) for _, counter, form in REQUEST_COLUMNS)
        yield f"| {cell if cell != shown else ''} | {contestant} | {values} |"
        shown = cell


def shares(verdicts):
    """How much of what is allowed each goal takes: above 1 it is missed."""
    for verdict in verdicts:
        if verdict.value:
            goal = verdict.goal
            share = goal.limit / verdict.value if goal.at_least else verdict.value / goal.limit
            yield f"{goal.subject}: {goal.name}", share, verdict.is_met


def plot(verdicts):
    bars = list(shares(verdicts))
    left, unit, step, most = 430, 200, 22, 2.4
    height = 40 + step * len(bars)
    lines = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{left + int(unit * most) + 60}" height="{height}" '
             'font-family="sans-serif" font-size="12">', '<rect width="100%" height="100%" fill="#fff"/>']
    for i, (text, share, is_met) in enumerate(bars):
        y = 26 + step * i
        width = unit * min(share, most)
        lines += [f'<text x="{left - 8}" y="{y + 12}" text-anchor="end">{html.escape(text)}</text>',
                  f'<rect x="{left}" y="{y}" width="{width:.0f}" height="15" fill="{"#4a8" if is_met else "#d64"}"/>',
                  f'<text x="{left + width + 5:.0f}" y="{y + 12}">{share:.2f}</text>']
    lines += [f'<line x1="{left + unit}" y1="18" x2="{left + unit}" y2="{height - 8}" stroke="#333"/>',
              f'<text x="{left + unit}" y="13" text-anchor="middle">allowed</text>', "</svg>"]
    return "\n".join(lines) + "\n"


def replaced(page, text):
    begin, end = page.index(BEGIN), page.index(END)
    return page[:begin] + BEGIN + "\n" + text + page[end:]


def write(verdicts, figures):
    met = sum(verdict.is_met for verdict in verdicts)
    parts = [f"{met} of {len(verdicts)} goals are met; measured on {datetime.date.today()}, {machine()}.", "",
             *goal_rows(verdicts), "", "Requests, each cell's contestants in turns:", "", *request_rows(figures), ""]
    PAGE.write_text(replaced(PAGE.read_text(encoding="utf-8"), "\n".join(parts)), encoding="utf-8")
    PLOT.write_text(plot(verdicts), encoding="utf-8")
