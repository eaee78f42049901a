"""usage: hardening.py look COMPILE-COMMANDS FILE...
       hardening.py release SOURCE-DIRECTORY WORK-DIRECTORY [CMAKE-OPTION...]
       hardening.py try COMPILER WORK-DIRECTORY

`look` refuses built libraries and programs that lack a stack protector, full RELRO, a stack that is
not executable, a place of their own choosing, or (on x86) a landing mark at the beginning of each of
the framework's functions, and sources that were compiled without the flags. `release` configures an
optimised build and looks at its commands, where checked copies of the C library's functions are
asked for: without optimisation there are none. `try` makes small libraries that lack one thing each
and sees `look` refuse them.
"""

import json
import pathlib
import re
import struct
import subprocess
import sys

X86_64 = 62
LANDING_MARK = b"\xf3\x0f\x1e\xfa"  # endbr64
FLAGS = ["-fstack-protector-strong"]
FORTIFY = "-D_FORTIFY_SOURCE=2"
# Own functions that other sources may call. The compiler leaves marks out where it sees all callers:
# in unnamed namespaces, for local types and in parts of functions.
OWN = re.compile(r"_ZNK?(3kvl|\d+KVL)(?!.*(_GLOBAL__N_|\.|IZ))")


def read(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def segments(image):
    """(virtual address, size in the file, place in the file) of what is loaded."""
    offset, = struct.unpack_from("<Q", image, 32)
    size, count = struct.unpack_from("<HH", image, 54)
    for i in range(count):
        kind, _, place, address, _, length = struct.unpack_from("<IIQQQQ", image, offset + i * size)
        if kind == 1:
            yield address, length, place


def unmarked(path):
    """Own functions without a landing mark."""
    image = pathlib.Path(path).read_bytes()
    if struct.unpack_from("<H", image, 18)[0] != X86_64:
        return
    loaded = list(segments(image))
    for line in read("readelf", "--wide", "--symbols", path).splitlines():
        fields = line.split()
        if len(fields) < 8 or fields[3] != "FUNC" or fields[6] == "UND" or not OWN.match(fields[7]):
            continue
        address = int(fields[1], 16)
        for start, length, place in loaded:
            at = place + address - start
            if start <= address < start + length and image[at:at + 4] != LANDING_MARK:
                yield fields[7]


def faults_of(path):
    headers = read("readelf", "--wide", "--file-header", "--program-headers", "--dynamic", path)
    if not re.search(r"Type:\s+DYN", headers):
        yield "always lies at the same addresses"
    if "GNU_RELRO" not in headers or not re.search(r"\(FLAGS(_1)?\).*\b(BIND_)?NOW\b", headers):
        yield "leaves its tables of addresses writable"
    stack = re.search(r"GNU_STACK(\s+0x\w+){5}\s+(\w+)", headers)
    if not stack or "E" in stack[2]:
        yield "has an executable stack"
    if "__stack_chk_fail" not in read("readelf", "--wide", "--dyn-syms", path):
        yield "does not guard its stack"
    marks = list(unmarked(path))
    if marks:
        yield f"has {len(marks)} functions without a landing mark, such as {marks[0]}"


def missing_flags(database, flags):
    """Sources that were compiled without one of the flags."""
    for entry in json.loads(pathlib.Path(database).read_text()):
        words = entry["command"].split()
        for flag in flags:
            if flag not in words:
                yield f"{entry['file']} is compiled without {flag}"


def verdict(faults):
    faults = list(faults)
    for fault in faults[:20]:
        print(fault)
    return 1 if faults else 0


def all_flags():
    machine = read("uname", "-m").strip()
    return FLAGS + (["-fcf-protection=full"] if machine == "x86_64" else [])


def look(database, *files):
    yield from missing_flags(database, all_flags())
    for path in files:
        for fault in faults_of(path):
            yield f"{path} {fault}"


def release(source, work, *options):
    read("cmake", "-G", "Ninja", "-S", source, "-B", work, "-DCMAKE_BUILD_TYPE=Release",
         "-DKVL_BUILD_TESTS=OFF", *options)
    database = pathlib.Path(work) / "compile_commands.json"
    return missing_flags(database, all_flags() + [FORTIFY])


def attempt(compiler, work):
    """What is not noticed."""
    folder = pathlib.Path(work)
    folder.mkdir(parents=True, exist_ok=True)
    source = folder / "library.cpp"
    source.write_text('extern "C" void fill(char*);\n'
                      "namespace kvl { int own() { char a[64]; fill(a); return a[7]; } }\n")
    library = str(folder / "library.so")
    relro, lazy = ["-Wl,-z,relro,-z,now"], ["-Wl,-z,lazy"]
    protector, stack, marks = all_flags()[:1], ["-Wl,-z,noexecstack"], all_flags()[1:]
    cases = {"nothing": protector + relro + stack + marks,
             "a stack protector": ["-fno-stack-protector"] + relro + stack + marks,
             "RELRO": protector + ["-Wl,-z,norelro"] + stack + marks,
             "immediate binding": protector + ["-Wl,-z,relro"] + lazy + stack + marks,
             "a plain stack": protector + relro + ["-Wl,-z,execstack"] + marks}
    if marks:
        cases["landing marks"] = protector + relro + stack + ["-fcf-protection=none"]
    for lack, flags in cases.items():
        subprocess.run([compiler, "-O1", "-shared", "-fPIC", str(source), "-o", library, *flags],
                       check=True)
        if bool(list(faults_of(library))) == (lack == "nothing"):
            yield f"a library that lacks {lack} is judged wrongly"


if __name__ == "__main__":
    modes = {"look": look, "release": release, "try": attempt}
    sys.exit(verdict(modes[sys.argv[1]](*sys.argv[2:])))
