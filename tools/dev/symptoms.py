"""Refuses a log line of the library, a complaint of kvlocal or an error code that no page explains."""
import pathlib
import re
import sys

LIBRARY = ("encoding", "eventstream", "notary", "platform", "presentation", "qt", "session")
SYMPTOMS = pathlib.Path("docs/troubleshooting.md")
CODES = pathlib.Path("docs/error-codes.md")

LITERAL = r'"((?:[^"\\\n]|\\.)*)"'
# A raw text, a comment, a character or a row of literals, which are one text for the compiler.
TOKEN = re.compile(r'R"\((?s:.*?)\)"|//[^\n]*|\'(?:[^\'\\]|\\.)+\'|' + LITERAL + r"(?:\s*" + LITERAL + ")*")
PLACEHOLDER = re.compile(r"%(?:@|l?[du]|\.2lf|s|%)|\{\w*\}|\\[un]\w{0,4}|\\")
# Texts that a call does not show: a table, a parameter, a reason in words of the framework's own.
ELSEWHERE = {
    "encoding/KVLEncoding.cpp": r'(?<!\w)"(expect [^"]+)"',
    "encoding/KVLEncodingForm.cpp": r'"(error [^"]+: %@)"',
    "notary/KVLNotarySignature.cpp": r'format\("([^"]+)"',
    "platform/interface/client/Decoder.cpp": r'problem(?:\.text)? = \{?"([^"]+)"',
    "platform/interface/client/DecoderPool.cpp": r'"(images: [^"]+)"',
    "platform/interface/client/DecoderProgram.cpp": r'problem = (?:format\()?"([^"]+)"',
    "platform/interface/client/ImageDecoding.cpp": r'logRefusal\(\*?\w+, "([^"]+)"',
    "platform/interface/client/Refusal.cpp": r'return (?:format\()?"([^"%]{4}[^"]+)"',
}
# What is handed on as a pattern by a function whose callers are listed above.
HANDED_ON = {"diagnostic", "logPattern", "text", "kNoRFC3339Date"}
COMPLAINT = re.compile(r"\b(?:complain|fail|failure|systemFailure|reportUnusable)\(|\breturn(?! \{)|\bfault =")


# What the program writes when nothing is wrong.
NO_COMPLAINTS = {"waiting for the answer", "receiving the answer", "receiving", "(none: the notary issued no certificate)",
                 "# service:", "# state:", "unix:", "a file name"}


def source_files(folders):
    for folder in folders:
        for path in sorted(pathlib.Path(folder).rglob("*")):
            if path.suffix in (".cpp", ".h"):
                yield path.as_posix(), path.read_text()


def statement(text, begin):
    """What follows up to the end of the call or statement, and the texts in it."""
    depth, at, texts = 0, begin, []
    while at < len(text) and depth >= 0 and (depth or text[at] not in ";{"):
        token = TOKEN.match(text, at)
        if token:
            if text[at] == '"':
                texts.append("".join(re.findall(LITERAL, token.group(0))))
            at = token.end()
            continue
        depth += {"(": 1, ")": -1}.get(text[at], 0)
        at += 1
    return text[begin:at], texts


def fixed_part(pattern):
    """What stands in every such line: its beginning, or its longest part where that is filled in."""
    parts = [part.strip(" '") for part in PLACEHOLDER.split(pattern)]
    return parts[0] if len(parts[0]) > 3 else max(parts, key=len)


def is_sentence(text):
    return re.search(r"[A-Za-z]{2}.* [a-z]", text) or text.rstrip().endswith(":")


def log_lines():
    for name, text in source_files(LIBRARY):
        for call in re.finditer(r"\blog\((?=\s*(?:kvl::)?LogCategory)", text):
            shown, texts = statement(text, call.end())
            yield from ((name, line) for line in texts if is_sentence(PLACEHOLDER.sub("", line)))
            pattern = shown.split(",")[2].strip(" \n)") if shown.count(",") > 1 else ""
            if not texts and pattern not in HANDED_ON:
                yield name, f"the text behind {pattern}, of which tools/dev/symptoms.py does not know"
        if name in ELSEWHERE:
            found = re.findall(ELSEWHERE[name], text)
            yield from ((name, line) for line in found or ["what tools/dev/symptoms.py looks for here"])


def complaints():
    for name, text in source_files(["tools/kvlocal"]):
        for call in COMPLAINT.finditer(text):
            for line in statement(text, call.end())[1]:
                if is_sentence(line) and fixed_part(line) not in NO_COMPLAINTS:
                    yield name, line


def constant(name, text):
    found = re.search(rf"\b{name} = (-?\d+);", text)
    return found.group(1) if found else None


def own_codes():
    """Domain and code of each error of the framework's own domains, and of the program's."""
    domains = {name: value for _, text in source_files(LIBRARY + ("include",))
               for name, value in re.findall(r'(\w+ErrorDomain) = "(korvale[^"]+)"', text)}
    for _, text in source_files(LIBRARY):
        for domain, code in re.findall(r"(\w+ErrorDomain),\s*(-?\w+)", text):
            if domain not in domains:
                continue
            numbers = [code] if re.fullmatch(r"-?\d+", code) else [constant(code, text)]
            for number in numbers if numbers[0] else re.findall(r"makeError\((\d+)", text) or ["of which nobody knows"]:
                yield domains[domain], number
    statuses = pathlib.Path("tools/kvlocal/Output.h").read_text()
    for code in re.findall(r"^  \w+ = (\d+),", statuses, re.M):
        yield "kvlocal", code


def named_codes():
    """Domain, code and name of what the header has, and the codes of errno that are used by name."""
    domain = None
    for line in pathlib.Path("include/local/platform/Error.h").read_text().splitlines():
        if found := re.search(r"@name Codes of `(\w+)`", line):
            domain = found.group(1)
        if found := re.search(r"constexpr std::int64_t (\w+) = (-?\d+);", line):
            yield "NSPOSIXErrorDomain" if "POSIX" in found.group(1) else domain, found.group(2), found.group(1)
    for _, text in source_files(LIBRARY):
        for name in re.findall(r"(?:NSPOSIXErrorDomain, |systemError\()(E[A-Z]+)\b", text):
            yield "NSPOSIXErrorDomain", r"\d+", name


def faults():
    page = SYMPTOMS.read_text()
    for name, line in [*log_lines(), *complaints()]:
        if fixed_part(line) not in page:
            yield f"{name}: {SYMPTOMS} does not explain: {fixed_part(line)}"
    sections = dict(re.findall(r"^## `([\w.]+)`\n(.*?)(?=^## |\Z)", CODES.read_text(), re.M | re.S))
    for domain, code in own_codes():
        if f"\n| {code} |" not in sections.get(domain, ""):
            yield f"{CODES} does not explain the code {code} of {domain}"
    for domain, code, name in named_codes():
        if not re.search(rf"^\| {code} \| `{name}` \|", sections.get(domain, ""), re.M):
            yield f"{CODES} does not explain {name} ({code}) of {domain}"


if __name__ == "__main__":
    found = sorted(set(faults()))
    print(*found, sep="\n", end="\n" if found else "")
    sys.exit(1 if found else 0)
