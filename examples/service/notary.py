#!/usr/bin/python3
"""usage: notary.py FOLDER [SECONDS]
A notary for the service of this folder, as docs/protocol.md wants it. Certificates last SECONDS."""
import datetime
import errno
import fcntl
import os
import pathlib
import sys
import tempfile

from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.hazmat.primitives.asymmetric import ec, rsa
from cryptography.x509.oid import ExtendedKeyUsageOID as EKU, NameOID
from gi.repository import Gio, GLib

NAME = "korvale.vandrel.local.notary"
INTERFACE = Gio.DBusNodeInfo.new_for_xml(f"""<node><interface name="{NAME}Protocol">
<method name="SendNotary"><arg type="as" direction="in"/><arg type="a{{sv}}" direction="in"/>
<arg type="aa{{sv}}" direction="out"/><arg type="a(sxa{{sv}})" direction="out"/></method>
</interface></node>""")
YEAR, SLACK = 365 * 24 * 3600, datetime.timedelta(seconds=60)  # certificates begin in the past
CLIENT, SERVER = ((x509.BasicConstraints(False, None), x509.KeyUsage(True, *[False] * 8),
                   x509.ExtendedKeyUsage([purpose])) for purpose in (EKU.CLIENT_AUTH, EKU.SERVER_AUTH))
ROOT = x509.BasicConstraints(True, 0), x509.KeyUsage(*[False] * 5, True, *[False] * 3)


def write(file, content):
    """In one step, readable by the user only."""
    with tempfile.NamedTemporaryFile(dir=file.parent, delete=False) as draft:
        draft.write(content)
    os.replace(draft.name, file)


def key_pem(key):
    return key.private_bytes(serialization.Encoding.PEM, serialization.PrivateFormat.PKCS8,
                             serialization.NoEncryption())


class Authority:
    """Kept in a folder, made by whoever needs it first."""
    def __init__(self, folder):
        folder.mkdir(parents=True, exist_ok=True)
        folder.chmod(0o700)
        file = folder / "authority.pem"
        with open(folder / "lock", "w") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            if not file.exists():
                self.key, self.name = ec.generate_private_key(ec.SECP256R1()), None
                own = self.issue("Notes authority", self.key.public_key(), 10 * YEAR, *ROOT)
                write(file, key_pem(self.key) + own)
        self.key = serialization.load_pem_private_key(file.read_bytes(), None)
        self.name = x509.load_pem_x509_certificate(file.read_bytes()).subject
        self.pem = file.read_text().partition("-----END PRIVATE KEY-----\n")[2]

    def issue(self, name, public_key, seconds, *extensions):
        subject = x509.Name([x509.NameAttribute(NameOID.COMMON_NAME, name)])
        now, own_key = datetime.datetime.utcnow(), self.key.public_key()
        builder = x509.CertificateBuilder(self.name or subject, subject, public_key,
            x509.random_serial_number(), now - SLACK, now + datetime.timedelta(seconds=seconds))
        extensions += (x509.SubjectKeyIdentifier.from_public_key(public_key),
                       x509.AuthorityKeyIdentifier.from_issuer_public_key(own_key))
        for index, extension in enumerate(extensions):
            builder = builder.add_extension(extension, index < 2)  # constraints and usage are critical
        return builder.sign(self.key, hashes.SHA256()).public_bytes(serialization.Encoding.PEM)


def key_of(text):
    if len(text) > 16384 or text.partition("-----END CERTIFICATE REQUEST-----")[2].strip():
        raise ValueError("The signing request is too long, or something follows it.")
    request = x509.load_pem_x509_csr(text.replace("\r\n", "\n").encode())
    key = request.public_key()
    if not request.is_signature_valid or not isinstance(key, rsa.RSAPublicKey) or key.key_size < 2048:
        raise ValueError("The signing request is not of an RSA key of 2048 bits.")
    return key


def reply_to(request, folder, seconds):
    authority = Authority(folder)
    reply = {"url": GLib.Variant("as", [(folder / "url").read_text()]),
             "anchor": GLib.Variant("s", authority.pem)}
    if "csr" in request:
        issued = authority.issue("Notes client", key_of(request["csr"]), seconds, *CLIENT)
        reply["certificate"] = GLib.Variant("s", issued.decode())
        print("issued a certificate", flush=True)
    return reply


def main(folder, seconds="3600"):
    def called(_bus, _sender, _object, _interface, _method, arguments, invocation):
        replies, errors = [], []
        try:
            replies.append(reply_to(arguments.unpack()[1], pathlib.Path(folder), int(seconds)))
        except Exception as fault:  # whatever it is, the host gets an answer
            errors.append(("NSPOSIXErrorDomain", getattr(fault, "errno", None) or errno.EINVAL,
                           {"NSLocalizedFailureReason": GLib.Variant("s", str(fault))}))
        invocation.return_value(GLib.Variant("(aa{sv}a(sxa{sv}))", (replies, errors)))

    loop = GLib.MainLoop()
    bus = Gio.bus_get_sync(Gio.BusType.SESSION)
    bus.register_object("/" + NAME.replace(".", "/"), INTERFACE.interfaces[0], called, None, None)
    Gio.bus_own_name_on_connection(bus, NAME, Gio.BusNameOwnerFlags.DO_NOT_QUEUE, None,
                                   lambda *_: loop.quit())
    loop.run()
    return "The name is somebody else's."


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
