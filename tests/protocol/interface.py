"""usage: interface.py NOTARY-PROGRAM INTERFACE-FILE
The running notary describes itself to the bus as the file does, and the file is well formed."""
import subprocess
import sys
import xml.etree.ElementTree as ElementTree

import parts

OBJECT = "/korvale/vandrel/local/notary"


def interfaces(text):
    """By name, without those that every object has."""
    found = {}
    for interface in ElementTree.fromstring(text).findall("interface"):
        if not interface.get("name").startswith("org.freedesktop.DBus."):
            found[interface.get("name")] = [described(member) for member in interface]
    return found


def described(element):
    return element.tag, dict(element.attrib), [described(child) for child in element]


def introspection(program):
    with parts.private_bus() as (folder, environment):
        command = [program, "--state", folder / "state", "--url", "https://127.0.0.1:1/"]
        with parts.running(command, env=environment):
            parts.wait_for_name(parts.NOTARY, environment)
            return subprocess.run(
                ["gdbus", "introspect", "--session", "--xml", "--dest", parts.NOTARY,
                 "--object-path", OBJECT],
                env=environment, check=True, capture_output=True, text=True).stdout


def main(program, file):
    with open(file, encoding="utf-8") as stream:
        written = interfaces(stream.read())
    told = interfaces(introspection(program))
    if len(written) == 1 and told == written:
        return 0
    print(f"the file says\n{written}\nand the notary says\n{told}")
    return 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
