"""usage: guide.py PAGE PREFIX WORK-FOLDER
Does what a guide tells its reader to do: puts its files into an empty folder, runs its commands there
one after the other, and compares what they print with what it shows. The library is found in PREFIX.

```sh run      is run; it has to end with 0
```text        behind it is what it prints to its standard output; … stands for anything in a line
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tools/dev"))
import shown  # noqa: E402 (found by the line before)

PATIENCE = 120  # seconds for one block
# Whatever the user's session has, which nothing may need.
NOT_KEPT = ("DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR", "DISPLAY", "WAYLAND_DISPLAY", "LANGUAGE",
            "korvale_vandrel_notary", "korvale_vandrel_notary_minimum")


class Wrong(Exception):
    pass


def environment(prefix, home):
    library = next(prefix.glob("**/libkvlocal.so")).parent
    own = {"PATH": f"{prefix}/bin:{os.environ['PATH']}", "HOME": str(home), "LC_ALL": "C.UTF-8",
           "CMAKE_PREFIX_PATH": str(prefix), "CMAKE_GENERATOR": "Ninja",
           "PKG_CONFIG_PATH": f"{library}/pkgconfig", "LD_LIBRARY_PATH": str(library),
           "QT_QPA_PLATFORM": "offscreen", "QT_QUICK_BACKEND": "software",
           "QML_IMPORT_PATH": f"{library}/qt6/qml"}
    return {**{name: value for name, value in os.environ.items() if name not in NOT_KEPT}, **own}


def pattern(text):
    return ".*".join(re.escape(part) for part in text.split("…"))


def write(block, folder):
    """The file keeps its place below the guide's own folder; one from elsewhere keeps its name."""
    name, is_whole = shown.file_of(block)
    if not is_whole:
        return
    path = pathlib.PurePath(name)
    inside = path.parts[3:] if path.parts[:2] == ("examples", "guides") else path.parts[-1:]
    target = folder.joinpath(*inside)
    target.parent.mkdir(parents=True, exist_ok=True)
    target.write_text(block.text)
    target.chmod((ROOT / name).stat().st_mode & 0o777)


def run(block, wanted, folder, variables):
    result = subprocess.run(["bash", "-eu", "-c", block.text], cwd=folder, env=variables,
                            stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=PATIENCE)
    print(block.text + result.stdout + result.stderr, flush=True)
    if result.returncode:
        raise Wrong(f"line {block.line}: the commands end with {result.returncode}")
    if wanted and not re.fullmatch(pattern(wanted.text), result.stdout):
        raise Wrong(f"line {wanted.line}: what is printed is not what the guide shows:\n{wanted.text}")


def follow(page, folder, variables):
    blocks = list(shown.blocks(page.read_text()))
    followers = blocks[1:] + [None]
    compared = 0
    for block in blocks:
        write(block, folder)
    for block, follower in zip(blocks, followers):
        if (block.language, block.words) != ("sh", ("run",)):
            continue
        wanted = follower if follower and follower.language == "text" else None
        run(block, wanted, folder, variables)
        compared += wanted is not None and any(line.strip("… ") for line in wanted.text.splitlines())
    if not compared:
        raise Wrong("the guide shows nothing that a command of it prints")


def main(page, prefix, work):
    folder = pathlib.Path(work)
    shutil.rmtree(folder, ignore_errors=True)
    (folder / "project").mkdir(parents=True)
    with tempfile.TemporaryDirectory() as home:
        try:
            follow(pathlib.Path(page), folder / "project", environment(pathlib.Path(prefix).resolve(), home))
        except (Wrong, subprocess.TimeoutExpired) as error:
            return f"{page}: {error}"
    return 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
