"""usage: uses.py CLANG COMPILER TEMPLATE-USES NAMES WORK-DIRECTORY LIBRARY... -- [OPTION...]

Uses every function, class and constant of the public headers from outside: finds them in the syntax
tree that CLANG makes of TEMPLATE-USES, which includes the headers, and has COMPILER make a program
that refers to each and is linked with the LIBRARIES alone. g++ compiles the inline functions, too,
whether anybody calls them or not. A template without a use in TEMPLATE-USES is an error. NAMES are
the namespaces to look at and parts of other names, with commas between them; OPTIONs go to both
compilers.
"""

import json
import pathlib
import subprocess
import sys

FUNCTIONS = {"FunctionDecl", "CXXMethodDecl", "CXXConstructorDecl", "CXXDestructorDecl",
             "CXXConversionDecl"}
TEMPLATES = {"FunctionTemplateDecl", "ClassTemplateDecl", "VarTemplateDecl"}
SCOPES = {"NamespaceDecl", "CXXRecordDecl", "ClassTemplateSpecializationDecl"}


def declarations(clang, source, names, options):
    """The outermost declarations with such names, and what stands around them."""
    decoder = json.JSONDecoder()
    for name in names:
        tree = subprocess.run(
            [clang, "-std=c++20", "-fsyntax-only", *options, "-Xclang", "-ast-dump=json", "-Xclang",
             f"-ast-dump-filter={name}", source], check=True, stdout=subprocess.PIPE,
            text=True).stdout.strip()
        while tree:
            declaration, end = decoder.raw_decode(tree)
            yield declaration, tuple(name.split("::")[:-1])
            tree = tree[end:].lstrip()


def inner(declaration, kind):
    return [child for child in declaration.get("inner", []) if child["kind"] == kind]


def is_hidden(declaration):
    return any(attribute.get("visibility") == "hidden"
               for attribute in inner(declaration, "VisibilityAttr"))


def has_body(declaration):
    return bool(inner(declaration, "CompoundStmt")) or any(
        declaration.get(key) for key in ("explicitlyDefaulted", "explicitlyDeleted"))


def mangled(scope):
    """The name of a class within others, as it stands in symbols."""
    parts = "".join(f"{len(name)}{name}" for name in scope)
    return parts if len(scope) == 1 else f"N{parts}E"


class Uses:
    """What there is to refer to, by symbol, and the templates that nobody has used."""

    def __init__(self):
        self.symbols = {}
        self.unused_templates = []

    def take(self, declaration, scope):
        # A macro of Qt declares the latter and defines it nowhere.
        if (declaration.get("isImplicit") or is_hidden(declaration) or
                declaration.get("name", "").startswith("qt_check_for_")):
            return
        kind = declaration["kind"]
        name = declaration.get("name", "")
        if kind in SCOPES:
            if name != "detail":
                self.take_scope(declaration, (*scope, name))
        elif kind in TEMPLATES:
            self.take_template(declaration, scope)
        elif kind in FUNCTIONS:
            self.take_function(declaration, scope)
        elif kind == "VarDecl":
            if not declaration.get("inline") and not declaration.get("constexpr"):
                self.refer(declaration["mangledName"], scope, name)
        elif kind == "FriendDecl":
            for friend in declaration.get("inner", []):
                if friend["kind"] in FUNCTIONS:
                    self.take_function(friend, scope)

    def refer(self, symbol, scope, name):
        self.symbols[symbol] = "::".join((*scope, name))

    def take_scope(self, declaration, scope):
        access = "private" if declaration.get("tagUsed") == "class" else "public"
        for member in declaration.get("inner", []):
            if member["kind"] == "AccessSpecDecl":
                access = member["access"]
            elif access != "private" or member["kind"] == "FriendDecl":
                self.take(member, scope)
        if declaration.get("definitionData", {}).get("isPolymorphic"):
            self.take_virtual_table(declaration, scope)

    # A class without a virtual function that the library defines has its table in every host.
    def take_virtual_table(self, declaration, scope):
        if any(member.get("virtual") and not member.get("pure") and not has_body(member)
               for member in declaration.get("inner", []) if member["kind"] in FUNCTIONS):
            self.refer("_ZTI" + mangled(scope), scope, "(type information)")
            self.refer("_ZTV" + mangled(scope), scope, "(virtual functions)")

    def take_template(self, declaration, scope):
        pattern, *instances = [child for child in declaration["inner"]
                               if child["kind"] in FUNCTIONS | SCOPES | {"VarDecl"}]
        if pattern["kind"] in FUNCTIONS and has_body(pattern):
            # Those without one were only considered.
            instances = [instance for instance in instances if has_body(instance)]
        elif pattern["kind"] in FUNCTIONS:
            # The library has a definition for each type.
            for instance in instances:
                self.take_function(instance, scope)
        # Guides for deducing a class's arguments have brackets in their names.
        if not instances and "<" not in declaration["name"]:
            self.unused_templates.append("::".join((*scope, declaration["name"])))

    def take_function(self, declaration, scope):
        symbol = declaration.get("mangledName")
        if not symbol or declaration.get("pure") or has_body(declaration):
            return
        name = declaration["name"]
        self.refer(symbol, scope, name)
        # Derived classes of a host's call these.
        if declaration["kind"] == "CXXConstructorDecl":
            self.refer(symbol.replace(f"{name}C1", f"{name}C2", 1), scope, name)
        elif declaration["kind"] == "CXXDestructorDecl":
            self.refer(symbol.replace("D1Ev", "D2Ev"), scope, name)


def program(source, symbols):
    lines = [f'#include "{source}"', 'extern "C" {']
    for number, symbol in enumerate(symbols):
        lines.append(f'extern const char use{number} __asm__("{symbol}");')
    lines += ["}", "const char* volatile const uses[] = {"]
    lines += [f"    &use{number},  // {name}" for number, name in enumerate(symbols.values())]
    lines += ["};", "int main() {", "  for (const char* use : uses) {",
              "    if (use == nullptr) return 1;", "  }", "}"]
    return "\n".join(lines) + "\n"


def main():
    clang, compiler, source, names, work, *others = sys.argv[1:]
    libraries, options = others[:others.index("--")], others[others.index("--") + 1:]
    uses = Uses()
    for declaration, scope in declarations(clang, source, names.split(","), options):
        uses.take(declaration, scope)
    for template in uses.unused_templates:
        print(f"{template} is a template without a use in {source}", flush=True)
    directory = pathlib.Path(work)
    directory.mkdir(parents=True, exist_ok=True)
    host = directory / "uses.cpp"
    host.write_text(program(source, uses.symbols))
    command = [compiler, "-std=c++20", *options, host, *libraries, "-o", directory / "uses"]
    command += [f"-Wl,-rpath,{pathlib.Path(library).parent}" for library in libraries]
    if "clang" not in pathlib.Path(compiler).name:
        command.append("-fkeep-inline-functions")
        # g++ 12's own headers declare this one inline and define it nowhere.
        command.append("-Wl,--defsym=_ZNSt10filesystem7__cxx114path5_List4typeENS1_5_TypeE=0")
    linked = subprocess.run(command, check=False).returncode == 0
    if linked:
        subprocess.run([directory / "uses"], check=True, env={"LD_BIND_NOW": "1"})
    print(f"{len(uses.symbols)} symbols are used")
    # So many say that the tree was read at all.
    return 0 if linked and not uses.unused_templates and len(uses.symbols) > 20 else 1


if __name__ == "__main__":
    sys.exit(main())
