"""usage: python_service.py EXAMPLES SCHEMA-FOLDER KVLOCAL-PROGRAM
The notary and the service in examples/service are short, refuse whom they have to refuse, and kvlocal
works with them, across a renewal as well."""
import contextlib
import http.client
import json
import pathlib
import re
import ssl
import stat
import subprocess
import sys
import unittest
import urllib.parse

from cryptography import x509
from cryptography.hazmat.primitives.asymmetric import ed25519, rsa
from gi.repository import GLib

import parts
import schemas

MOST_LINES = 250
LIFETIME = 5  # seconds; a renewal comes after some three
ENOENT, EINVAL = 2, 22
FOLLOWER = "org.example.follower"  # keeps its keys where the commands beside it do not


class Scene:
    """The two programs on a bus of their own, and what they have written."""

    def __init__(self, examples, kvlocal):
        self.kvlocal = kvlocal
        self.stack = contextlib.ExitStack()
        self.folder, self.environment = self.stack.enter_context(parts.private_bus())
        self.state = self.folder / "state"
        self.state.mkdir()
        self.state.chmod(0o755)  # as somebody made it who did not think of that
        self.start(examples / "notary.py", self.state, LIFETIME)
        parts.wait_for_name(parts.NOTARY, self.environment)
        self.before = parts.notarised(self.environment)
        serving = self.start(examples / "service.py", self.state)
        parts.wait_until((self.state / "url").exists, "the service", serving)

    def start(self, program, *arguments):
        log = self.stack.enter_context(open(self.folder / f"{program.name}.log", "w"))
        command = [sys.executable, "-B", program, *arguments]
        return self.stack.enter_context(
            parts.running(command, env=self.environment, stdout=log, stderr=log))

    def log(self, name):
        return (self.folder / f"{name}.log").read_text()

    def run(self, *arguments, **options):
        return subprocess.run([self.kvlocal, *arguments], env=self.environment, text=True,
                              capture_output=True, timeout=parts.PATIENCE, **options)


def usage_of(certificate):
    """Whether the usage is critical, and whether it is to sign and to issue."""
    usage = certificate.extensions.get_extension_for_class(x509.KeyUsage)
    return usage.critical, usage.value.digital_signature, usage.value.key_cert_sign


class PythonServiceTest(unittest.TestCase):
    scene = examples = validators = None

    def output(self, *arguments, **options):
        done = self.scene.run(*arguments, **options)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout

    def test_both_are_short(self):
        lines = [len((self.examples / name).read_text().splitlines())
                 for name in ("notary.py", "service.py")]
        self.assertLessEqual(sum(lines), MOST_LINES)

    def test_without_a_service_the_notary_says_so(self):
        replies, [(domain, code, information)] = self.scene.before
        self.assertEqual((replies, domain, code), ([], "NSPOSIXErrorDomain", ENOENT))
        self.assertIn(str(self.scene.state / "url"), information["NSLocalizedFailureReason"])

    def test_whoever_sends_no_request_gets_no_certificate(self):
        (reply,), errors = parts.notarised(self.scene.environment, path=["anything"])
        self.assertEqual((sorted(reply), errors), (["anchor", "url"], []))

    def test_requests_that_prove_nothing_are_refused(self):
        good = parts.signing_request(rsa.generate_private_key(65537, 2048))
        lines = good.split("\n")
        lines[6] = lines[6][::-1]
        for csr in ("rubbish", "\n".join(lines), good[:-40],
                    parts.signing_request(rsa.generate_private_key(65537, 1024)),
                    parts.signing_request(ed25519.Ed25519PrivateKey.generate(), None),
                    GLib.Variant("as", ["no text"])):
            replies, [(domain, code, _)] = parts.notarised(self.scene.environment, csr=csr)
            self.assertEqual((replies, domain, code), ([], "NSPOSIXErrorDomain", EINVAL), csr)

    def test_requests_have_a_longest_size_and_an_end(self):
        good = parts.signing_request(rsa.generate_private_key(65537, 2048))
        longest = good + "\n" * (16384 - len(good))
        for csr in (good.replace("\n", "\r\n"), longest):
            (reply,), errors = parts.notarised(self.scene.environment, csr=csr)
            self.assertEqual((errors, "certificate" in reply), ([], True))
        for csr in (longest + "\n", good + "more", good + good):
            replies, [(domain, code, information)] = parts.notarised(self.scene.environment, csr=csr)
            self.assertEqual((replies, domain, code), ([], "NSPOSIXErrorDomain", EINVAL), csr)
            self.assertIn("follows it", information["NSLocalizedFailureReason"])

    def test_nobody_else_sees_the_folder(self):
        self.assertEqual(stat.S_IMODE(self.scene.state.stat().st_mode), 0o700)
        for file in self.scene.state.iterdir():
            if file.name != "lock":
                self.assertEqual(stat.S_IMODE(file.stat().st_mode), 0o600, file)

    def test_certificates_say_what_they_are_for_and_whose(self):
        csr = parts.signing_request(rsa.generate_private_key(65537, 2048))
        (reply,), _ = parts.notarised(self.scene.environment, csr=csr)
        anchor = x509.load_pem_x509_certificate(reply["anchor"].encode())
        issued = reply["certificate"].encode() + (self.scene.state / "service.pem").read_bytes()
        usages = [usage_of(anchor)]
        key = anchor.extensions.get_extension_for_class(x509.SubjectKeyIdentifier).value.digest
        for pem in re.findall(b"-----BEGIN CERT.*?-----END CERTIFICATE-----", issued, re.DOTALL):
            certificate = x509.load_pem_x509_certificate(pem)
            usages.append(usage_of(certificate))
            identifier = certificate.extensions.get_extension_for_class(x509.AuthorityKeyIdentifier)
            self.assertEqual(identifier.value.key_identifier, key)
        self.assertEqual(usages, [(True, False, True), (True, True, False), (True, True, False)])

    def test_strangers_are_not_served(self):
        (reply,), _ = parts.notarised(self.scene.environment)
        address = urllib.parse.urlsplit(reply["url"][0])
        context = ssl.create_default_context(cadata=reply["anchor"])
        stranger = http.client.HTTPSConnection(address.hostname, address.port, context=context)
        with contextlib.closing(stranger), self.assertRaises((OSError, http.client.HTTPException)):
            stranger.request("GET", "/status")
            stranger.getresponse()

    def test_bodies_that_are_no_notes_are_refused(self):
        with contextlib.closing(parts.Client(self.scene.folder, self.scene.environment)) as client:
            form = f'--abcDEF012345\nContent-Disposition: form-data; name="text"\n\n{"a" * 40}\n'
            kind = "multipart/form-data; boundary=abcDEF012345"
            usual = (form + "--abcDEF012345--\n").replace("\n", "\r\n")
            whole = f"what a mail begins with\n{form}--abcDEF012345--\n"
            for body, content_type in ((usual, kind), (form, kind), ("", kind), (whole, kind),
                                       ("{", "application/json"), ("[]", "application/json")):
                status, answer = client.request("POST", "/notes", body, Content_Type=content_type)
                self.assertEqual(status, 400, body)
                self.assertIn("error", json.loads(answer))

    def test_refusals_are_documents(self):
        with contextlib.closing(parts.Client(self.scene.folder, self.scene.environment)) as client:
            note, kind = '{"text":"refused"}', {"Content_Type": "application/json"}
            for expected, method, path, body, fields in (
                    (404, "GET", "/nothing", None, {}), (501, "PUT", "/notes", note, kind),
                    (403, "POST", "/nothing", note, kind),
                    (403, "POST", "/notes", note, dict(kind, Origin="https://127.0.0.1:1")),
                    (415, "POST", "/notes", note, {"Content_Type": "application/x-plist"}),
                    (415, "POST", "/notes", note, {}),
                    # By their heads alone: the service is gone before such a body comes.
                    (413, "POST", "/notes", None, dict(kind, Transfer_Encoding="chunked")),
                    (413, "POST", "/notes", None, dict(kind, Content_Length=str((1 << 20) + 1)))):
                status, answer = client.request(method, path, body, **fields)
                self.assertEqual((status, [*json.loads(answer)]), (expected, ["error"]), path)
            self.assertNotIn(b"refused", client.request("GET", "/notes")[1])

    def test_when_the_service_ends_the_notary_knows(self):
        state = self.scene.folder / "ended"
        with parts.running([sys.executable, "-B", self.examples / "service.py", state]) as serving:
            parts.wait_until((state / "url").exists, "the service", serving)
        self.assertFalse((state / "url").exists())

    def test_kvlocal_works_with_it(self):
        self.assertIn("CN=Notes client", self.output("status"))
        milk = json.loads(self.output("menu", "/menu", "--activate", "add"))
        tea = json.loads(self.output("submit", "/notes", "--data", "-", input='{"text":"tea"}'))
        form = json.loads(self.output("form", "/notes", "--input", "text=bread\u2026"))
        texts = ["Milk", "tea", "bread\u2026"]
        self.assertEqual([note["text"] for note in (milk, tea, form)], texts)
        notes = json.loads(self.output("get", "/notes"))
        self.assertEqual([note for note in notes["notes"] if note in (milk, tea, form)],
                         [milk, tea, form])
        menu = json.loads(self.output("get", "/menu"))
        for name, value in (("value", notes), ("form", notes["form"]), ("menu", menu)):
            self.assertEqual([error.message for error in self.validators[name].iter_errors(value)], [])
        self.assertIn("since ", self.output("menu", "/menu"))
        self.assertRegex(self.output("image", "/icon"), r"size +16 x 16\n(.*\n)*template +yes")
        seen = self.output("events", "/feed", "--count", "1", "--last-event-id", tea["id"])
        self.assertIn(form["id"], seen)
        failed = self.scene.run("get", "/nothing")
        self.assertEqual((failed.returncode, json.loads(failed.stdout)),
                         (1, {"error": "There is nothing here."}))

    def test_a_renewal_loses_no_event(self):
        file = self.scene.folder / "events"
        command = [self.scene.kvlocal, "--identifier", FOLLOWER, "events", "/feed"]
        with open(file, "w") as output, \
                parts.running(command, env=self.scene.environment, stdout=output) as following:
            def openings():
                return self.scene.log("service.py").count("GET /feed")

            def add(text):
                note = json.dumps({"text": text})
                added = json.loads(self.output("submit", "/notes", "--data", "-", input=note))
                parts.wait_until(lambda: added["id"] in file.read_text(), text, following)

            for text in ("before", "after"):
                before = openings()
                parts.wait_until(lambda: openings() > before, "a stream", following)
                add(f"{text} the renewal")
            for text in ("before", "after"):
                self.assertEqual(file.read_text().count(f"{text} the renewal"), 1)


def main(examples, schema_folder, kvlocal):
    PythonServiceTest.examples = pathlib.Path(examples)
    PythonServiceTest.validators = schemas.validators(pathlib.Path(schema_folder))
    scene = PythonServiceTest.scene = Scene(PythonServiceTest.examples, kvlocal)
    with scene.stack:
        program = unittest.main(argv=sys.argv[:1], exit=False, verbosity=2)
        if not program.result.wasSuccessful():
            print(scene.log("notary.py"), scene.log("service.py"), sep="\n", file=sys.stderr)
    return 0 if program.result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
