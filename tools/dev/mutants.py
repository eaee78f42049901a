"""Puts faults into copies of the tree, one at a time, and tells which of them no test notices.

Each job works in a copy of its own (build/mutants/N): it changes one file, builds the test programs of
the file's folder, runs them until one fails, and takes the change back. A test that fails because it
waited for too long may have met a busy machine: the program has to pass without the fault then.
"""

import argparse
import concurrent.futures
import dataclasses
import json
import os
import pathlib
import queue
import re
import shutil
import signal
import subprocess
import sys
import threading
import time

from mutations import mutations_of

# The test programs of a folder, the quickest first; FILTER stands behind a colon.
PROGRAMS = {
    "session": ["kvl_session_tests"],
    "notary": ["kvl_notary_tests", "kvl_session_tests:SessionKeys*"],
    "eventstream": ["kvl_eventstream_tests", "kvl_session_tests"],
    "encoding": ["kvl_encoding_tests"],
    "presentation": ["kvl_presentation_tests"],
    "platform/core": ["kvl_core_tests", "kvl_dispatch_tests", "kvl_serialisation_tests", "kvl_formatting_tests",
                      "kvl_encoding_tests:InputFile*", "kvl_urlloading_tests:FileBody*",
                      "kvl_system_log_tests"],
    "platform/dispatch": ["kvl_dispatch_tests", "kvl_session_tests", "kvl_encoding_tests:Await*"],
    "platform/environment": ["kvl_environment_tests"],
    "platform/formatting": ["kvl_formatting_tests"],
    "platform/interface": ["kvl_image_protocol_tests", "kvl_image_client_tests", "kvl_interface_tests", "kvl_binding_tests", "kvl_image_tests",
                           "kvl_decoder_tests", "kvl_picture_tests"],
    "platform/ipc": ["kvl_ipc_tests"],
    "platform/security": ["kvl_security_tests", "kvl_notary_tests"],
    "platform/serialisation": ["kvl_serialisation_tests"],
    "platform/urlloading": ["kvl_urlloading_tests"],
    "qt/web": ["kvl_qt_web_tests"],
    "tools/kvlocal": ["kvlocal_input_tests"],
}
NAMED_ONLY = {"qt/web", "tools/kvlocal"}  # these programs are slow, or not to notice just any fault there
NAMED = pathlib.Path("tests/mutants")
EQUIVALENT = NAMED / "equivalent.txt"
COPIES = pathlib.Path("build/mutants")
TEST_SECONDS = 40  # one test that takes longer hangs
WAITED_SECONDS = 5  # a test that fails after so long has waited for something


@dataclasses.dataclass
class Outcome:
    fault: str
    folder: str
    verdict: str  # "killed", "survived", "invalid"
    by: str = ""
    seconds: float = 0

    @property
    def killed(self):
        return self.verdict == "killed"


@dataclasses.dataclass
class Run:
    """What came of a test program."""

    passed: bool
    by: str = ""  # what failed first
    in_time: bool = True  # it did not wait for long
    begun: bool = True  # there was a program, and it ran a test
    seconds: float = 0


def judged(code, printed, program):
    """What a program's exit code (None when it was ended) and output say."""
    tests = re.findall(r"^\[ RUN      \] (\S+)", printed, re.M)
    if code == 0:
        return Run(bool(tests), "" if tests else "no test ran", begun=bool(tests))
    failed = re.search(r"^\[  FAILED  \] ([^ ,\n]+).*?(?:\((\d+) ms\))?$", printed, re.M)
    if failed:
        return Run(False, failed.group(1), int(failed.group(2) or 0) < WAITED_SECONDS * 1000)
    if code in (126, 127):
        return Run(False, f"{program} does not start", begun=False)
    if code is None or "This test took longer than" in printed:
        return Run(False, f"{tests[-1] if tests else program} (hangs)", in_time=False)
    return Run(False, f"{tests[-1] if tests else program} (ends with {code})", in_time=bool(tests))


class Unusable(Exception):
    """Nothing can be told of faults in this tree."""


def tree_files():
    command = ["git", "-c", f"safe.directory={os.getcwd()}", "ls-files", "--cached", "--others", "--exclude-standard"]
    listed = subprocess.run(command, check=True, capture_output=True, text=True).stdout.splitlines()
    return [each for each in listed if os.path.isfile(each)]


def folder_of(path):
    if "/portable/" in path:  # of another configuration
        return None
    matching = [each for each in PROGRAMS if each not in NAMED_ONLY and path.startswith(each + "/")]
    return max(matching, key=len) if matching else None


class Copy:
    """A copy of the tree with a build tree of its own."""

    def __init__(self, number):
        self.root = (COPIES / str(number)).resolve()
        self.build = self.root / "build" / "mutants"
        self.log = self.root / "build" / "mutants.log"
        self.time_limits = {}

    def refresh(self):
        """Takes over what has changed, and leaves the times of all other files as they are."""
        wanted = set(tree_files())
        for each in wanted:
            source, target = pathlib.Path(each), self.root / each
            if not target.is_file() or source.read_bytes() != target.read_bytes():
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(source, target)
        for each in self.root.rglob("*"):
            name = str(each.relative_to(self.root))
            if each.is_file() and not name.startswith("build/") and name not in wanted:
                each.unlink()

    def environment(self):
        return dict(os.environ, CCACHE_BASEDIR=str(self.root), CCACHE_NOHASHDIR="1", PATH=os.environ["PATH"] + ":/usr/sbin:/sbin")

    def run(self, command, seconds=900, extra=None):
        """The exit code, or None when it took too long; what it printed is in the log."""
        self.log.parent.mkdir(parents=True, exist_ok=True)
        with open(self.log, "wb") as log:
            process = subprocess.Popen(
                command, cwd=self.root, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                env=dict(self.environment(), **(extra or {})), start_new_session=True)
            try:
                return process.wait(seconds)
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, signal.SIGKILL)
                process.wait()
                return None
            finally:
                try:  # what a crashed test has left behind
                    os.killpg(process.pid, signal.SIGKILL)
                except ProcessLookupError:
                    pass

    def printed(self):
        return self.log.read_text(errors="replace")

    def configure(self):
        self.refresh()
        if self.run(["cmake", "--preset", "mutants"]) != 0:
            raise Unusable(f"configuring {self.root} failed:\n{self.printed()}")

    def builds(self, programs, jobs=1):
        targets = sorted({each.split(":")[0] for each in programs})
        return self.run(["ninja", "-C", str(self.build), f"-j{jobs}", *targets], 1800) == 0

    def tests(self, program, only=None):
        """Runs the program's tests, or those that `only` names."""
        name, _, tests = program.partition(":")
        filtered = only or tests
        arguments = ["--gtest_fail_fast"] + ([f"--gtest_filter={filtered}"] if filtered else [])
        binary = self.build / "bin" / name
        if not binary.is_file():
            return Run(False, f"there is no {name}", begun=False)
        began = time.monotonic()
        code = self.run([str(binary), *arguments], self.time_limits.get(program, 600), {"KVL_TEST_SECONDS": str(TEST_SECONDS)})
        run = judged(code, self.printed(), name)
        run.seconds = time.monotonic() - began
        return run

    def measure(self, program):
        """Its tests pass in the unchanged tree; a fault may make them slower, but not endless."""
        run = self.tests(program)
        if not run.passed:
            run = self.tests(program)
        if not run.passed:
            raise Unusable(f"{program} fails without any fault: {run.by}\n{self.printed()[-3000:]}")
        return 30 + 4 * run.seconds


class Mutant:
    """A generated fault."""

    def __init__(self, mutation, source):
        self.mutation, self.source = mutation, source
        self.folder, self.name, self.tests = folder_of(mutation.path), str(mutation), None

    def apply(self, copy):
        changed = self.source[: self.mutation.begin] + self.mutation.text + self.source[self.mutation.end :]
        (copy.root / self.mutation.path).write_text(changed)
        return True

    def take_back(self, copy):
        (copy.root / self.mutation.path).write_text(self.source)


class NamedFault:
    """A patch of tests/mutants, which says in its first lines which folder's tests notice it."""

    def __init__(self, path):
        head = path.read_text()
        found = re.search(r"^# folder: ([\w/]+); killed by: ([\w./*:]+)", head, re.M)
        if not found:
            sys.exit(f"{path}: no line '# folder: F; killed by: SUITE.TEST'")
        self.path, self.name = path, path.stem
        self.folder, self.tests = found.groups()
        if self.folder not in PROGRAMS:
            self.folder = next((each for each in PROGRAMS if each.endswith("/" + self.folder)), None)
        if self.folder is None:
            sys.exit(f"{path}: there is no folder {found.group(1)}")
        touched = re.findall(r"^\+\+\+ b/(\S+)", head, re.M)
        self.sources = {each: pathlib.Path(each).read_text() for each in touched}

    def apply(self, copy):
        return copy.run(["patch", "--strip=1", "--forward", f"--input={self.path.resolve()}"]) == 0

    def take_back(self, copy):
        for path, source in self.sources.items():
            (copy.root / path).write_text(source)


def failing(copy, fault):
    """The first test program that fails with the fault and how; of what cannot be tried, the verdict only."""
    programs = PROGRAMS[fault.folder]
    if not fault.apply(copy):
        return None, Run(True, "does not apply", begun=False)
    if not copy.builds(programs):
        return None, Run(True, "does not compile", begun=False)
    runs = [Run(True, "no test ran", begun=False)]
    for each in programs:
        runs.append(copy.tests(each, fault.tests))
        if runs[-1].begun and not runs[-1].passed:
            return each, runs[-1]
    return None, max(runs, key=lambda run: run.begun)


def tried(copy, fault):
    began = time.monotonic()
    outcome = Outcome(fault.name, fault.folder, "invalid")
    for _ in range(2):
        try:
            program, run = failing(copy, fault)
        finally:
            fault.take_back(copy)
        outcome.by = run.by
        if not run.begun:
            break
        if run.passed:
            outcome.verdict = "survived"
            break
        if run.in_time or (copy.builds([program]) and copy.tests(program, fault.tests).passed):
            outcome.verdict = "killed"
            break
        outcome.by = f"{run.by}, without the fault as well"
    outcome.seconds = time.monotonic() - began
    return outcome


def listed_equivalents():
    """What nobody can notice, with its reason: path, the line, what becomes of it.

    Of equal lines of a file the first is meant, unless `#2` and so on stand behind the path."""
    if not EQUIVALENT.is_file():
        return set()
    rows = [line.split(" | ") for line in EQUIVALENT.read_text().splitlines() if line and not line.startswith("#")]
    return {tuple(part.strip() for part in row[:3]) for row in rows if len(row) >= 4}


def candidates(folders, seed):
    equivalent = listed_equivalents()
    found = {}
    for path in tree_files():
        if not path.endswith((".cpp", ".h")) or path.startswith("include/"):
            continue
        if folder_of(path) is None or not any(path.startswith(each.rstrip("/") + "/") or path == each for each in folders):
            continue
        source = pathlib.Path(path).read_text()
        for each in mutations_of(path, source):
            place = f"{path}#{each.nth}" if each.nth > 1 else path
            if (place, each.before, each.after) not in equivalent:
                found.setdefault(each.order(seed), Mutant(each, source))
    return [found[key] for key in sorted(found)]


def report(outcome, counts, lock):
    with lock:
        counts[outcome.verdict] = counts.get(outcome.verdict, 0) + 1
        if outcome.verdict == "invalid":
            if outcome.by != "does not compile":
                print(f"invalid   {outcome.fault}: {outcome.by}", flush=True)
            return
        by = f"  (by {outcome.by})" if outcome.by else ""
        print(f"{outcome.verdict:9} {outcome.seconds:5.1f} s  {outcome.fault}{by}", flush=True)


def write_result(file, outcomes):
    """The outcomes so far, so that they are not lost with what comes later."""
    if file:
        whole = pathlib.Path(f"{file}.new")
        whole.write_text(json.dumps([dataclasses.asdict(each) for each in outcomes], indent=1))
        whole.replace(file)


def run_all(copies, faults, wanted, result, before=()):
    """Tries faults until `wanted` of them have been told apart; those that do not compile do not count."""
    waiting, outcomes, counts, lock = queue.SimpleQueue(), [], {}, threading.Lock()
    for each in faults:
        waiting.put(each)
    begun = [0]

    def work(copy):
        while True:
            with lock:
                if begun[0] >= wanted:
                    return
                begun[0] += 1
            try:
                fault = waiting.get_nowait()
            except queue.Empty:
                return
            outcome = tried(copy, fault)
            report(outcome, counts, lock)
            with lock:
                if outcome.verdict == "invalid":
                    begun[0] -= 1
                outcomes.append(outcome)
                write_result(result, [*before, *outcomes])

    with concurrent.futures.ThreadPoolExecutor(len(copies)) as pool:
        for each in [pool.submit(work, copy) for copy in copies]:
            each.result()
    return outcomes


def prepared(programs, jobs):
    copies = [Copy(number) for number in range(jobs)]
    for index, copy in enumerate(copies):
        copy.configure()
        if not copy.builds(programs, os.cpu_count() if index == 0 else jobs):
            raise Unusable(f"the unchanged tree does not build:\n{copy.printed()[-3000:]}")
    time_limits = measured(copies, programs)
    for copy in copies:
        copy.time_limits = time_limits
    return copies


def measured(copies, programs):
    """The time limit of each program. All copies measure, for the faults will run beside each other as well."""
    waiting, limits = queue.SimpleQueue(), {}
    for each in programs:
        waiting.put(each)

    def work(copy):
        while True:
            try:
                program = waiting.get_nowait()
            except queue.Empty:
                return
            limits[program] = copy.measure(program)

    with concurrent.futures.ThreadPoolExecutor(len(copies)) as pool:
        for each in [pool.submit(work, copy) for copy in copies]:
            each.result()
    return limits


def summary(outcomes, title):
    valid = [each for each in outcomes if each.verdict != "invalid"]
    print(f"\n{title}")
    for folder in sorted({each.folder for each in valid}):
        of_folder = [each for each in valid if each.folder == folder]
        print(f"  {folder:24} {sum(each.killed for each in of_folder):4} of {len(of_folder):4} killed")
    killed = sum(each.killed for each in valid)
    print(f"  {'all':24} {killed:4} of {len(valid):4} killed ({100 * killed / max(1, len(valid)):.1f} %)")
    survivors = [each.fault for each in valid if not each.killed]
    if survivors:
        print("\nSurvivors:")
        for each in sorted(survivors):
            print(f"  {each}")
    return killed, len(valid)


def arguments():
    parser = argparse.ArgumentParser(prog="./dev mutants", description="Which small faults does no test notice?")
    parser.add_argument("folders", nargs="*", metavar="FOLDER", help="session, platform/security, ... (default: all)")
    parser.add_argument("--sample", type=int, default=40, metavar="N", help="so many generated faults (default 40; 0: none)")
    parser.add_argument("--seed", default="1", help="another seed, another sample")
    parser.add_argument("--named", action="store_true", help="the faults of tests/mutants as well")
    parser.add_argument("--at-least", type=float, default=0, metavar="P", help="fail when fewer than P percent are killed")
    parser.add_argument("--jobs", type=int, default=(os.cpu_count() or 1) + 1, help="copies of the tree to work in; faults make tests wait")
    parser.add_argument("--list", action="store_true", help="only print the faults")
    parser.add_argument("--result", metavar="FILE", help="write what came of each fault, as JSON")
    return parser.parse_args()


def main():
    options = arguments()
    folders = options.folders or list(PROGRAMS)
    faults = candidates(folders, options.seed) if options.sample else []
    named = [NamedFault(each) for each in sorted(NAMED.glob("*.patch"))] if options.named else []
    named = [each for each in named if any(each.folder.startswith(folder.rstrip("/")) for folder in folders)]
    if options.list:
        for each in faults[: options.sample] + named:
            print(each.name)
        return 0
    if not faults and not named:
        sys.exit(f"there is nothing to change in {' '.join(folders)}")
    used = {each.folder for each in faults[: 2 * options.sample] + named}
    copies = prepared(sorted({program for folder in used for program in PROGRAMS[folder]}), options.jobs)

    failed = False
    outcomes = run_all(copies, faults, options.sample, options.result) if faults else []
    if faults:
        killed, tried_in_all = summary(outcomes, "Generated faults")
        failed = killed < tried_in_all * options.at_least / 100
    if named:
        of_named = run_all(copies, named, len(named) + 1, options.result, outcomes)
        killed, _ = summary(of_named, "Named faults")
        for each in of_named:
            if each.verdict == "invalid":
                print(f"  tests/mutants/{each.fault}.patch: {each.by}")
        failed = failed or killed < len(named)
    return 1 if failed else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Unusable as reason:
        sys.exit(str(reason))
