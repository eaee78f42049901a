"""Refuses a file that uses what Linux alone has and is not in docs/porting.md, one that is there for nothing,
and one beside which the page does not name its portable sibling."""
import pathlib
import re
import subprocess
import sys

from promises import defined_tests

PAGE = pathlib.Path("docs/porting.md")
FOLDERS = ("platform", "session", "notary", "eventstream", "encoding", "presentation", "qt", "tools/kvlocal", "devservice")
# Headers, calls and names that POSIX does not have. What is written in comments does not count.
LINUX = re.compile("|".join((
    r"#include <(?:sys/(?:timerfd|eventfd|epoll|inotify|prctl|syscall|sendfile|random)\.h|linux/|seccomp\.h|keyutils\.h"
    r"|malloc\.h|libsecret/)",
    r"\b(?:memfd_create|madvise|getrandom|close_range|prctl|renameat2|pthread_setname_np|g_log_writer_journald)\(",
    r"\b(?:CLOCK_BOOTTIME|SO_PEERCRED|O_TMPFILE|O_PATH|SIOCINQ|F_ADD_SEALS|SYS_\w+|RENAME_\w+)\b",
    r"\"/proc/")))
NAMED = re.compile(r"`((?:[\w-]+/)+[\w{},-]+\.(?:cpp|h))`")


def sources():
    return subprocess.run(
        ["git", "-c", f"safe.directory={pathlib.Path.cwd()}", "ls-files", "--cached", "--others",
         "--exclude-standard", "--", *FOLDERS], check=True, capture_output=True, text=True).stdout.split()


def uses_linux(path):
    text = path.read_text()
    if "/portable/" in str(path):
        text = text.replace("pthread_setname_np(", "")  # for debuggers alone, where the C library has it
    return any(LINUX.search(re.sub(r"(?<!:)//.*", "", line)) for line in text.splitlines())


def faults(page, files, suites):
    """`files` by their paths: whether each uses what Linux alone has."""
    named = set(NAMED.findall(page))
    own = {path for path in files if "/portable/" not in path}
    yield from (f"{path} uses what Linux alone has, and {PAGE} does not name it"
                for path in sorted(own) if files[path] and path not in named)
    linux = page.partition("## What else")[0]
    yield from (f"{PAGE} names {path}, which uses nothing that Linux alone has"
                for path in sorted(set(re.findall(r"^\| [^|]*\| `([^`]+\.cpp)`", linux, re.M)) & own) if not files[path])
    yield from (f"{PAGE} does not name {path}" for path in sorted(set(files) - own) if path not in named)
    yield from (f"{PAGE}: there are no tests {suite}"
                for cell in re.findall(r"^\|.*\| ([^|]*) \|$", page, re.M) for suite in re.findall(r"`(\w+)`", cell)
                if suite not in suites)
    yield from (f"{path} may use POSIX alone" for path in sorted(set(files) - own) if files[path])


if __name__ == "__main__":
    present = [path for path in map(pathlib.Path, sources()) if path.suffix in (".cpp", ".h") and path.exists()]
    tested = {suite for suite, _ in defined_tests()} | {"modules"}
    found = list(faults(PAGE.read_text(), {str(path): uses_linux(path) for path in present}, tested))
    print(*found, sep="\n", end="\n" if found else "")
    sys.exit(1 if found else 0)
