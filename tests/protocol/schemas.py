"""usage: schemas.py PAGE SCHEMA-FOLDER NOTARY-PROGRAM SERVICE-PROGRAM
The page's examples and the development service's documents fit the schemas, what hosts do not take
does not, and the form in the page is read as the page says."""
import contextlib
import json
import pathlib
import re
import sys

import jsonschema

import parts

BLOCK = re.compile(r"^```(\S+)(?: (\S+))?\n(.*?)^```$", re.MULTILINE | re.DOTALL)
NAMES = ("menu", "form", "locale", "value")


def validators(folder):
    schemas = {name: json.loads((folder / f"{name}.schema.json").read_text()) for name in NAMES}
    store = {schema["$id"]: schema for schema in schemas.values()}
    made = {}
    for name, schema in schemas.items():
        jsonschema.Draft202012Validator.check_schema(schema)
        resolver = jsonschema.RefResolver(schema["$id"], schema, store=store)
        made[name] = jsonschema.Draft202012Validator(schema, resolver=resolver)
    return made


def item(**keys):
    return {"menu": [dict({"type": "item", "text": "a"}, **keys)]}


def entry(**keys):
    return [dict({"find": "%d"}, **keys)]


DATE = "2024-05-01T12:34:56Z"
TAKEN = (
    ("menu", {"menu": []}),
    ("menu", {"menu": [{"type": "divider"}], "status": 1}),
    ("menu", item(form={"id": "a"}, subitems=[{"type": "divider"}], own=1)),
    ("menu", item(updates=0, state="mixed")),
    ("form", {}),
    ("form", {"method": "delete", "inputs": [{"name": ""}, {"name": "a", "value": 1.5}]}),
    ("locale", []),
    ("locale", entry(type="time", seconds=0)),
    ("locale", entry(type="time", date="2024-05-01T12:34:56.123456789+05:30")),
    ("value", [None, True, -2**63, 2**63 - 1, 1.5, "", {"a": {}}]),
)
REFUSED = (
    ("menu", []),
    ("menu", {}),
    ("menu", {"menu": [{"text": "a"}]}),
    ("menu", {"menu": [{"type": "separator"}]}),
    ("menu", {"menu": [{"type": "title"}]}),
    ("menu", item(text=None)),
    ("menu", item(state="ON")),
    ("menu", item(updates="3")),
    ("menu", item(form={})),
    ("menu", item(form={"id": ""})),
    ("menu", item(form={"id": "a", "inputs": [{}]})),
    ("menu", item(locale=entry(type="date"))),
    ("menu", item(subitems=[{"type": "item", "text": 1}])),
    ("form", {"action": 1}),
    ("form", {"method": ""}),
    ("form", {"method": "a b"}),
    ("form", {"inputs": [{"value": "a"}]}),
    ("form", {"inputs": [{"name": 'a"b'}]}),
    ("form", {"inputs": [{"name": "a\nb"}]}),
    ("form", {"inputs": [{"name": "a", "value": None}]}),
    ("form", {"inputs": [{"name": "a", "value": [1]}]}),
    ("locale", {}),
    ("locale", [{"type": "date", "date": DATE}]),
    ("locale", [{"find": "", "type": "date", "date": DATE}]),
    ("locale", entry(type="Date", date=DATE)),
    ("locale", entry(type="date", date="2024-05-01")),
    ("locale", entry(type="date time", seconds=1)),
    ("locale", entry(type="time")),
    ("locale", entry(type="duration", seconds=1.5)),
    ("locale", entry(type="duration", seconds=1, date=DATE)),
    ("value", 2**63),
    ("value", {"a": [-2**63 - 1]}),
)


def example_faults(made):
    for name, value in TAKEN:
        for error in made[name].iter_errors(value):
            yield f"{name} is to take {value}: {error.message}"
    for name, value in REFUSED:
        if made[name].is_valid(value):
            yield f"{name} is to refuse {value}"


def page_faults(page, made):
    seen = set()
    for kind, name, text in BLOCK.findall(page):
        if kind != "json":
            continue
        if name not in made:
            yield f"a block of the page has no schema: {name or text}"
            continue
        seen.add(name)
        for error in made[name].iter_errors(json.loads(text)):
            yield f"{name} in the page: {error.message}"
    for name in set(NAMES) - seen:
        yield f"the page has no example of {name}"


def form_faults(page, client):
    body = next(text for kind, _, text in BLOCK.findall(page) if kind == "form-body")
    boundary = body[2:body.index("\n")]
    _, answer = client.request("POST", "/echo", body.encode(),
                               Content_Type=f"multipart/form-data; boundary={boundary}")
    keys = ("name", "filename", "contentType", "value")
    read = [tuple(part.get(key) for key in keys) for part in json.loads(answer).get("parts", ())]
    expected = [("text", None, "text/plain;charset=UTF-8", "milk"), ("done", None, None, ""),
                ("picture", "a-b.png", "image/png", "(its bytes)")]
    if read != expected:
        yield f"the form of the page is read as {answer.decode()}"


def service_faults(client, made):
    def document(path):
        return json.loads(client.request("GET", path)[1])

    client.request("POST", "/notes", '{"text":"milk"}', Content_Type="application/json")
    desktop = document("/desktop")
    notes = document("/notes")
    served = [("menu", document("/menu")), ("value", notes), ("form", notes["form"])]
    served += [("form", note["form"]) for note in notes["notes"]]
    served += [("menu", {"menu": desktop[key]}) for key in ("menu", "status", "segments")]
    for name, value in served:
        for error in made[name].iter_errors(value):
            yield f"{name} of the development service: {error.message}"


def main(page, schemas, notary, service):
    made = validators(pathlib.Path(schemas))
    page = pathlib.Path(page).read_text(encoding="utf-8")
    faults = [*example_faults(made), *page_faults(page, made)]
    with parts.private_bus() as (folder, environment):
        state = folder / "state"
        with parts.running([service, "--state", state], env=environment) as serving, \
                parts.running([notary, "--state", state], env=environment):
            parts.wait_until((state / "service.url").exists, "the service", serving)
            parts.wait_for_name(parts.NOTARY, environment)
            with contextlib.closing(parts.Client(folder, environment)) as client:
                faults += [*form_faults(page, client), *service_faults(client, made)]
    print(*faults, sep="\n", end="\n" if faults else "")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
