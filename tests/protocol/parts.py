"""A private session bus, programs on it and a client that is none of the framework's, for the tests
of the protocol's other side."""
import contextlib
import http.client
import os
import pathlib
import ssl
import subprocess
import tempfile
import time
import urllib.parse

from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.hazmat.primitives.asymmetric import rsa
from gi.repository import Gio, GLib

PATIENCE = 60  # seconds; a loaded machine takes its time
NOTARY = "korvale.vandrel.local.notary"


@contextlib.contextmanager
def running(command, **options):
    """The program, ended when the block is left."""
    process = subprocess.Popen([str(word) for word in command], stdin=subprocess.DEVNULL, **options)
    try:
        yield process
    finally:
        process.terminate()
        try:
            process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()


# Starts no services, those of the user's key store among them.
BUS = """<busconfig><type>session</type><listen>unix:dir={folder}</listen><auth>EXTERNAL</auth>
<policy context="default"><allow send_destination="*"/><allow receive_sender="*"/><allow own="*"/>
</policy></busconfig>"""


@contextlib.contextmanager
def private_bus():
    """A folder of its own and an environment whose session bus nobody else uses."""
    with tempfile.TemporaryDirectory(prefix="kvl-protocol-") as folder:
        settings = pathlib.Path(folder, "bus.conf")
        settings.write_text(BUS.format(folder=folder))
        command = ["dbus-daemon", f"--config-file={settings}", "--nofork", "--print-address"]
        with running(command, stdout=subprocess.PIPE, text=True) as bus:
            environment = dict(os.environ, DBUS_SESSION_BUS_ADDRESS=bus.stdout.readline().strip(),
                               XDG_RUNTIME_DIR=folder, HOME=folder)
            yield pathlib.Path(folder), environment


def wait_until(condition, what, process=None):
    """What the condition returns, once that is something."""
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        result = condition()
        if result:
            return result
        if process is not None and process.poll() is not None:
            raise RuntimeError(f"{what}: the program ended with {process.returncode}")
        time.sleep(0.02)
    raise RuntimeError(f"{what}: not within {PATIENCE} s")


def wait_for_name(name, environment):
    subprocess.run(["gdbus", "wait", "--session", "--timeout", str(PATIENCE), name],
                   env=environment, check=True)


def signing_request(key, digest=hashes.SHA256()):
    builder = x509.CertificateSigningRequestBuilder(subject_name=x509.Name([]))
    request = builder.sign(key, digest)
    return request.public_bytes(serialization.Encoding.PEM).decode()


def notarised(environment, path=(), csr=None):
    """What the notary on that bus replies: its dictionary and its errors. The request is a text, or
    something of another type."""
    bus = Gio.DBusConnection.new_for_address_sync(
        environment["DBUS_SESSION_BUS_ADDRESS"],
        Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT |
        Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION, None, None)
    entries = {"csr": GLib.Variant("s", csr) if isinstance(csr, str) else csr} if csr else {}
    answer = bus.call_sync(
        NOTARY, "/" + NOTARY.replace(".", "/"), NOTARY + "Protocol", "SendNotary",
        GLib.Variant("(asa{sv})", (list(path), entries)), None, Gio.DBusCallFlags.NONE,
        PATIENCE * 1000, None)
    bus.close_sync(None)
    return answer.unpack()


class Client:
    """One connection to the service, with an identity from the notary."""

    def __init__(self, folder, environment):
        key = rsa.generate_private_key(public_exponent=65537, key_size=2048)
        (reply,), errors = notarised(environment, csr=signing_request(key))
        assert not errors, errors
        self.reply = reply
        files = {"certificate": reply["certificate"].encode(),
                 "key": key.private_bytes(serialization.Encoding.PEM,
                                          serialization.PrivateFormat.PKCS8,
                                          serialization.NoEncryption())}
        for name, content in files.items():
            (folder / name).write_bytes(content)
        context = ssl.create_default_context(cadata=reply["anchor"])
        context.load_cert_chain(folder / "certificate", folder / "key")
        address = urllib.parse.urlsplit(reply["url"][0])
        self.connection = http.client.HTTPSConnection(address.hostname, address.port,
                                                      context=context, timeout=PATIENCE)

    def request(self, method, path, body=None, **fields):
        """Status and body."""
        headers = {name.replace("_", "-"): value for name, value in fields.items()}
        self.connection.request(method, path, body, headers)
        answer = self.connection.getresponse()
        return answer.status, answer.read()

    def close(self):
        self.connection.close()
