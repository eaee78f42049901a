"""usage: subproject.py TREE PROJECT WORK-DIRECTORY COMPILER STANDARD [OPTION...]

Builds PROJECT, which takes TREE in, as the standard says, and runs its hosts. Of the framework nothing
but the library is built; what the project asks of compilers holds for its own sources as if the
framework were not there, and the framework's warnings never end its build.
"""

import json
import pathlib
import shutil
import subprocess
import sys

FAULTS = []


def expect(condition, what):
    if not condition:
        FAULTS.append(what)


def run(*command):
    done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False)
    if done.returncode != 0:
        print(" ".join(str(word) for word in command), done.stdout[-6000:], sep="\n")
        sys.exit(1)
    return done.stdout


def has_standard(entry, standard):
    """Before 2023 ended, C++23 was 2b."""
    names = [standard, "2b"] if standard == "23" else [standard]
    return any(f"-std={kind}++{name}" in entry["command"].split()
               for kind in ("c", "gnu") for name in names)


def options(entry):
    """What is said to the compiler besides the names of files."""
    words = entry["command"].split()
    names = [words.index("-o"), words.index("-c")]
    return [word for place, word in enumerate(words)
            if not any(place in (name, name + 1) for name in names)]


def look_at_commands(database, tree, standard):
    entries = json.loads(pathlib.Path(database).read_text())
    of_target = {}
    library = []
    for entry in entries:
        words = entry["command"].split()
        target = words[words.index("-o") + 1]
        if target.startswith("CMakeFiles/"):
            of_target[target.split("/")[1].removesuffix(".dir")] = entry
        else:
            library.append(entry)
    for entry in library:
        words = options(entry)
        expect(has_standard(entry, standard),
               f"{entry['file']} is not compiled as C++{standard}")
        expect("-Wno-error" in words[words.index("-Werror"):],
               f"warnings are errors in {entry['file']}")
    expect(len(library) > 10, "the library's sources are not there")
    # Joined sources say whose they are in their own text.
    texts = "".join(pathlib.Path(entry["file"]).read_text() for entry in library
                    if "/Unity/" in entry["file"])
    for folder in ("tests", "bench", "fuzz", "tools", "devservice", "examples", "qt"):
        expect(f'"{tree}/{folder}/' not in texts and
               not any(entry["file"].startswith(f"{tree}/{folder}/") for entry in library),
               f"{folder}/ is built")
    plain = options(of_target["plain"])
    same = [word for word in options(of_target["same_with_the_framework"])
            if word != f"-I{tree}/include"]
    expect(plain == same, f"the project's own flags are changed: {plain} {same}")
    for host in ("20", "23"):
        expect(has_standard(of_target[f"host{host}"], host), f"host{host} has another standard")


def main():
    tree, project, work, compiler, standard, *others = sys.argv[1:]
    shutil.rmtree(work, ignore_errors=True)
    build = pathlib.Path(work) / "build"
    run("cmake", "-G", "Ninja", "-S", project, "-B", build, f"-DKVL_TREE={tree}",
        f"-DCMAKE_CXX_COMPILER={compiler}", f"-DCMAKE_CXX_STANDARD={standard}",
        "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O0", "-DCMAKE_UNITY_BUILD=ON",
        "-DCMAKE_UNITY_BUILD_BATCH_SIZE=0", *others)
    look_at_commands(build / "compile_commands.json", tree, standard)
    run("cmake", "--build", build, "--target", "plain", "host20", "host23")
    for host in ("host20", "host23"):
        print(host, run(build / "programs" / host), end="")
    parts = {path.name for path in (build / "libraries" / "kvlocal-0.1").iterdir()}
    expect(parts == {"kvlocal-bus.so", "kvlocal-texts.so", "kvlocal-image-decoder"},
           f"beside the library lie {parts}")
    run("cmake", "--install", build, "--prefix", pathlib.Path(work) / "prefix")
    installed = [path.name for path in (pathlib.Path(work) / "prefix").rglob("*") if path.is_file()]
    expect(installed == ["plain"], f"the project installs {installed}")
    for fault in FAULTS:
        print(fault)
    return 1 if FAULTS else 0


if __name__ == "__main__":
    sys.exit(main())
