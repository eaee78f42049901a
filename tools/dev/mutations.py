"""Where one small fault can be put into a C++ source, and which: what `./dev mutants` applies.

The sources are formatted by clang-format, so that a grammar of the style is enough: a binary operator
stands between blanks, and a statement begins behind `;`, `{` or `}`. What does not compile in the end
is no fault and is left out by whoever applies it.
"""

import dataclasses
import hashlib
import re


@dataclasses.dataclass(frozen=True)
class Mutation:
    """One fault: `text` takes the place of the characters [begin, end) of the file `path`."""

    path: str
    begin: int
    end: int
    text: str
    kind: str
    line: int
    before: str  # the line as it is
    after: str  # the line as it would be, or what takes its place
    nth: int = 1  # among equal faults of equal lines of the file

    def order(self, seed):
        """A number that stays the same while the line does, so that a sample hardly changes with the tree."""
        key = f"{seed}|{self.path}|{self.kind}|{self.before}|{self.after}"
        return hashlib.sha256((key if self.nth == 1 else f"{key}|{self.nth}").encode()).hexdigest()

    def __str__(self):
        return f"{self.path}:{self.line}: [{self.kind}] {self.before}  ->  {self.after}"


OPERATORS = {
    "<": ["<=", ">="],
    ">": [">=", "<="],
    "<=": ["<", ">"],
    ">=": [">", "<"],
    "==": ["!="],
    "!=": ["=="],
    "&&": ["||"],
    "||": ["&&"],
    "+": ["-"],
    "-": ["+"],
    "*": ["+"],
    "/": ["*"],
    "%": ["*"],
    "+=": ["-="],
    "-=": ["+="],
    "|=": ["&="],
    "&=": ["|="],
}
KIND_OF_OPERATOR = {"<": "boundary", ">": "boundary", "<=": "boundary", ">=": "boundary"}
LOCKS = r"(?:MutexLocker|RecursiveMutexLocker|std::(?:lock_guard|scoped_lock|unique_lock)(?:<[^>]*>)?|\w*Section|\w*Lock(?:er)?)"


def blanked(source):
    """The source with comments, texts and preprocessor lines blanked, of the same length."""
    pattern = re.compile(
        r'//[^\n]*|/\*.*?\*/|R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|(?<![\w\'])\'(?:\\.|[^\'\\\n])+\'', re.S
    )

    def blank(found):
        text = found.group(0)
        filler = "_" if text[0] in "\"'R" else " "
        if filler == "_":
            return '"' + re.sub(r"[^\n]", "_", text[1:-1]) + '"' if len(text) > 1 else text
        return re.sub(r"[^\n]", " ", text)

    code = pattern.sub(blank, source)
    return re.sub(r"^#(?:[^\n]*\\\n)*[^\n]*", lambda m: re.sub(r"[^\n]", " ", m.group(0)), code, flags=re.M)


def closing(code, start):
    """The index of the bracket that closes the one at `start`, or -1."""
    depth = 0
    for index in range(start, len(code)):
        if code[index] in "([{":
            depth += 1
        elif code[index] in ")]}":
            depth -= 1
            if depth == 0:
                return index
    return -1


def statement_end(code, start):
    """Behind the `;` that ends the statement at `start`, or -1."""
    index = start
    while index < len(code):
        if code[index] in "([{":
            index = closing(code, index)
            if index < 0:
                return -1
        elif code[index] in ")]}":
            return -1
        elif code[index] == ";":
            return index + 1
        index += 1
    return -1


class Finder:
    """Collects the faults of one file."""

    def __init__(self, path, source):
        self.path, self.source, self.code = path, source, blanked(source)
        self.found = []

    def add(self, kind, begin, end, text):
        line_begin = self.source.rfind("\n", 0, begin) + 1
        line_end = self.source.find("\n", begin)
        line = self.source.count("\n", 0, begin) + 1
        before = self.source[line_begin:line_end].strip()
        inside = self.source[line_begin:begin] + text + (self.source[end:line_end] if end <= line_end else "")
        after = " ".join(inside.split()) or "(nothing)"
        self.found.append(Mutation(self.path, begin, end, text, kind, line, before, after))

    def operators(self):
        alternatives = "|".join(re.escape(each) for each in sorted(OPERATORS, key=len, reverse=True))
        for match in re.finditer(rf"(?<=\s)({alternatives})(?=\s)", self.code):
            before = self.code[: match.start()].rstrip()
            if before.endswith("template") or before.endswith("operator") or before.endswith("="):
                continue
            for text in OPERATORS[match.group(1)]:
                self.add(KIND_OF_OPERATOR.get(match.group(1), "operator"), match.start(), match.end(), text)

    def conditions(self):
        for match in re.finditer(r"\b(?:if|while) \(", self.code):
            end = closing(self.code, match.end() - 1)
            condition = self.code[match.end() : end]
            if end < 0 or ";" in condition or re.search(r"[^=!<>]=[^=]", condition):
                continue
            self.add("condition", match.end(), end, f"!({self.source[match.end():end]})")
        for match in re.finditer(r"(?<=[\s(])!(?=[\w(*])", self.code):
            self.add("negation", match.start(), match.end(), "")

    def statements(self):
        # A statement that is an expression: no type stands before a name.
        start = re.compile(r"(?<=[;{}:)])\s*\n\s*(?=(?:\+\+|--|\*|\()?(?:this->)?[\w:<>]*\w[\w:]*(?:\(|\.|->|\[| [-+|&]?= |<))")
        words = re.compile(r"(?:return|throw|using|namespace|struct|class|enum|if|for|while|switch|do|else|try|co_return|template|static_assert|KVL_\w+|public|private|protected|case|default)\b")
        for match in start.finditer(self.code):
            begin = match.end()
            if words.match(self.code, begin) or not self.inside_function(begin):
                continue
            end = statement_end(self.code, begin)
            text = self.code[begin:end]
            if end < 0 or re.search(r"= (?:delete|default);$", text) or re.match(r"[\w:<>,* &]+>? [\w]+(?:\(|\{|;| = )", text):
                continue
            self.add("dropped statement", begin, end, ";")
        for match in re.finditer(r"\n\s+(break|continue);", self.code):
            self.add("dropped statement", match.start(1), match.end(), ";")
        for match in re.finditer(rf"\n\s+((?:const )?(?:kvl::)?{LOCKS} \w+[({{][^;]*;)", self.code):
            self.add("dropped lock", match.start(1), match.end(1), "")

    def inside_function(self, begin):
        line_begin = self.code.rfind("\n", 0, begin) + 1
        return self.code[line_begin:begin].strip() == "" and begin - line_begin >= 2

    def returns(self):
        for match in re.finditer(r"\breturn ([^;{}]+);", self.code):
            value = match.group(1)
            if value not in ("true", "false", "nullptr", "std::nullopt") and not value.isdigit():
                self.add("early return", match.start(1), match.end(1), "{}")
        # A function that returns nothing does nothing.
        for match in re.finditer(r"^(?:static )?void [^;{}=]+\{\n", self.code, re.M):
            self.add("early return", match.end(), match.end(), "  return;\n")

    def constants(self):
        for match in re.finditer(r"(?<![\w.\"'])(\d[\d']*)(?![\w.'])", self.code):
            line = self.code[self.code.rfind("\n", 0, match.start()) + 1 : match.start()]
            if "static_assert" in line or "case " in line:
                continue
            value = int(match.group(1).replace("'", ""))
            self.add("constant", match.start(), match.end(), str(value + 1))
        for match in re.finditer(r"(?<![\w\"])(true|false)(?![\w\"])", self.code):
            line = self.code[self.code.rfind("\n", 0, match.start()) + 1 : match.start()]
            if "static_assert" not in line:
                self.add("constant", match.start(), match.end(), "false" if match.group(1) == "true" else "true")

    def arguments(self):
        simple = r"[\w.:>\-]+(?:\(\))?"
        for match in re.finditer(rf"(?<=[\w>])\(({simple}), ({simple})\)", self.code):
            first, second = match.group(1), match.group(2)
            before = self.code[: match.start()]
            declared = re.search(r"(?:^|\n)[^\n]*$", before).group(0)
            if first != second and not declared.startswith("\n#"):
                swapped = f"({self.source[match.start(2):match.end(2)]}, {self.source[match.start(1):match.end(1)]})"
                self.add("swapped arguments", match.start(), match.end(), swapped)

    def all(self):
        for find in (self.operators, self.conditions, self.statements, self.returns, self.constants, self.arguments):
            find()
        # Whatever is in the parameters of a template or in an attribute never runs.
        return numbered(each for each in self.found if not re.match(r"(template|\[\[|KVL_GUARDED|namespace|using )", each.before))


def numbered(mutations):
    """Tells equal faults of equal lines apart; of faults in one place that are equal one is left."""
    lines, result = {}, []
    for each in sorted(mutations, key=lambda mutation: mutation.begin):
        places = lines.setdefault((each.kind, each.before, each.after), [])
        if each.line not in places:
            places.append(each.line)
            result.append(dataclasses.replace(each, nth=len(places)))
    return result


def mutations_of(path, source):
    return Finder(path, source).all()
