"""Names what doxygen's XML has without a comment and doxygen itself says nothing of: values of enumerations,
namespaces and default constructors."""
import pathlib
import sys
import xml.etree.ElementTree as ElementTree


def is_documented(node):
    return any("".join(node.find(part).itertext()).strip()
               for part in ("briefdescription", "detaileddescription") if node.find(part) is not None)


def is_explained_by_itself(member):
    """Destructors, and what is `= default` or `= delete`."""
    arguments = member.findtext("argsstring", "")
    return member.findtext("name", "").startswith("~") or "=default" in arguments or "=delete" in arguments


def faults(compound):
    name = compound.findtext("compoundname")
    if compound.get("kind") == "namespace" and compound.find(".//memberdef") is not None and not is_documented(compound):
        yield f"{name} is not documented"
    for member in compound.iter("memberdef"):
        if member.get("prot") == "private" or member.get("kind") == "friend" or is_explained_by_itself(member):
            continue
        own = f"{name}::{member.findtext('name')}"
        if not is_documented(member):
            yield f"{own} is not documented"
        yield from (f"{own}::{value.findtext('name')} is not documented"
                    for value in member.iter("enumvalue") if not is_documented(value))


def compounds(folder):
    for path in sorted(folder.glob("*.xml")):
        yield from (each for each in ElementTree.parse(path).getroot().iter("compounddef")
                    if each.get("prot") != "private" and each.get("kind") in ("class", "struct", "namespace", "union"))


if __name__ == "__main__":
    found = sorted({fault for compound in compounds(pathlib.Path(sys.argv[1])) for fault in faults(compound)})
    print(*found, sep="\n", end="\n" if found else "")
    sys.exit(1 if found else 0)
