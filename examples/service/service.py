#!/usr/bin/python3
"""usage: service.py FOLDER
A service that keeps notes, as docs/protocol.md wants it. FOLDER is where it meets its notary."""
import http.server
import ipaddress
import json
import pathlib
import re
import ssl
import sys
import threading
import time

from cryptography import x509
from cryptography.hazmat.primitives.asymmetric import ec
from cryptography.x509.oid import ExtendedKeyUsageOID

from notary import LEAF, YEAR, Authority, key_pem, write

ADDRESS = ipaddress.IPv4Address("127.0.0.1")
PATIENCE, PULSE = 60, 15  # seconds of silence, and between signs of life in a stream
STARTED = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime())
FORM = {"id": "add", "action": "/notes", "inputs": [{"name": "text", "value": "Milk"}]}
MENU = {"menu": [
    {"type": "item", "text": "Milk", "icon": "/icon", "form": FORM, "subtext": "since %start",
     "locale": [{"find": "%start", "type": "date time", "date": STARTED}]}]}
ICON = b'<svg xmlns="http://www.w3.org/2000/svg" width="16" height="16"><path d="M3 2h10v12H3z"/></svg>'


class Notes:
    def __init__(self):
        self.changed, self.notes = threading.Condition(), []

    def add(self, text):
        with self.changed:
            self.notes.append({"id": f"{STARTED}/{len(self.notes) + 1}", "text": text})
            self.changed.notify_all()
            return self.notes[-1]

    def follow(self, seen):
        """An event for each note behind the one that was seen, and a comment now and then."""
        with self.changed:
            position = 1 + next((i for i, note in enumerate(self.notes) if note["id"] == seen), -1)
        yield b":\n"
        while True:
            with self.changed:
                if position == len(self.notes):
                    self.changed.wait(PULSE)
                news, position = self.notes[position:], len(self.notes)
            yield "".join(f"event: notes\nid: {note['id']}\ndata: {json.dumps(note)}\n\n"
                          for note in news).encode() or b":\n"


def form_inputs(content_type, body):
    """The texts of a form by name."""
    edge = b"\n--" + content_type.partition("boundary=")[2].encode()
    if not body.startswith(edge[1:] + b"\n") or not body.endswith(edge + b"--\n"):
        raise ValueError("the form is of another dialect")
    inputs = {}
    for part in body[len(edge):-len(edge) - 3].split(edge + b"\n"):
        head, _, content = part.partition(b"\n\n")
        name = re.match(rb'Content-Disposition: form-data; name="([^"]*)"', head)
        inputs[name and name[1].decode()] = content.decode()
    return inputs


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def setup(self):
        self.request.settimeout(PATIENCE)
        self.request.do_handshake()  # on this connection's own thread
        super().setup()

    def answer(self, content, status=200, content_type="application/json"):
        body = content if isinstance(content, bytes) else json.dumps(content).encode()
        self.send_response(status)
        self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def do_GET(self):
        notes = self.server.notes
        documents = {"/status": {"started": STARTED}, "/menu": MENU,
                     "/notes": {"notes": notes.notes, "form": FORM}}
        if self.path == "/feed":
            self.stream(notes.follow(self.headers.get("Last-Event-ID")))
        elif self.path == "/icon":
            self.answer(ICON, content_type="image/svg+xml; role=template")
        else:
            found = documents.get(self.path)
            self.answer(found or {"error": "There is nothing here."}, 200 if found else 404)

    def do_POST(self):
        length = self.headers.get("Content-Length", "")
        if not length.isdecimal() or int(length) > 1 << 20:
            self.close_connection = True
            return self.answer({"error": "The body has no length, or is too long."}, 413)
        body, kind = self.rfile.read(int(length)), self.headers.get("Content-Type", "")
        try:
            inputs = form_inputs(kind, body) if kind.startswith("multipart/") else json.loads(body)
            self.answer(self.server.notes.add(str(inputs["text"])), 201)
        except (KeyError, TypeError, ValueError) as fault:
            self.answer({"error": f"This is no note: {fault}"}, 400)

    def stream(self, pieces):
        self.send_response(200)
        self.send_header("Content-Type", "text/event-stream")
        self.send_header("Transfer-Encoding", "chunked")
        self.end_headers()
        for piece in pieces:
            self.wfile.write(b"%x\r\n%b\r\n" % (len(piece), piece))


class Server(http.server.ThreadingHTTPServer):
    def __init__(self, folder):
        super().__init__((str(ADDRESS), 0), Handler)
        self.notes, authority, key = Notes(), Authority(folder), ec.generate_private_key(ec.SECP256R1())
        own = authority.issue("Notes service", key.public_key(), YEAR, *LEAF,
                              x509.ExtendedKeyUsage([ExtendedKeyUsageOID.SERVER_AUTH]),
                              x509.SubjectAlternativeName([x509.IPAddress(ADDRESS)]))
        write(folder / "service.pem", key_pem(key) + own)
        self.tls = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH, cadata=authority.pem)
        self.tls.load_cert_chain(folder / "service.pem")
        self.tls.verify_mode = ssl.CERT_REQUIRED
        self.tls.options |= ssl.OP_NO_TICKET
        self.tls.num_tickets = 0
        write(folder / "url", f"https://{ADDRESS}:{self.server_port}/".encode())

    def get_request(self):
        connection, peer = super().get_request()
        return self.tls.wrap_socket(connection, True, do_handshake_on_connect=False), peer

    def handle_error(self, request, client_address):
        print(f"a connection ended: {sys.exc_info()[1]}", file=sys.stderr)


if __name__ == "__main__":
    Server(pathlib.Path(sys.argv[1])).serve_forever()
