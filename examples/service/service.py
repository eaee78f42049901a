#!/usr/bin/python3
"""usage: service.py FOLDER
A service that keeps notes, as docs/protocol.md wants it. FOLDER is where it meets its notary."""
import atexit
import http.server
import ipaddress
import json
import pathlib
import re
import signal
import ssl
import sys
import threading
import time

from cryptography import x509
from cryptography.hazmat.primitives.asymmetric import ec

from notary import SERVER, YEAR, Authority, key_pem, write

ADDRESS = ipaddress.IPv4Address("127.0.0.1")
PATIENCE, PULSE = 60, 15  # seconds of silence, and between signs of life in a stream
STARTED = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime())
FORM = {"id": "add", "action": "/notes", "inputs": [{"name": "text", "value": "Milk"}]}
LOCALE = [{"find": "%start", "type": "date time", "date": STARTED}]
MENU = {"menu": [{"type": "item", "text": "Milk", "icon": "/icon", "form": FORM,
                  "subtext": "since %start", "locale": LOCALE}]}
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
        position = 1 + next((i for i, note in enumerate(self.notes) if note["id"] == seen), -1)
        while True:
            with self.changed:
                if position == len(self.notes):
                    self.changed.wait(PULSE)
                news, position = self.notes[position:], len(self.notes)
            yield "".join(f"event: notes\nid: {note['id']}\ndata: {json.dumps(note)}\n\n"
                          for note in news).encode() or b":\n"


def form_inputs(headers, body):
    """The texts of a form by name."""
    edge = b"\n--" + headers.get_boundary("").encode()
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
    error_content_type, error_message_format = "application/json", '{"error": "%(explain)s"}'

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
        documents = {"/status": {"started": STARTED}, "/menu": MENU,
                     "/notes": {"notes": self.server.notes.notes, "form": FORM}}
        if self.path == "/feed":
            self.stream(self.server.notes.follow(self.headers.get("Last-Event-ID")))
        elif self.path == "/icon":
            self.answer(ICON, content_type="image/svg+xml; role=template")
        elif self.path in documents:
            self.answer(documents[self.path])
        else:
            self.send_error(404, explain="There is nothing here.")

    def do_POST(self):
        length, kind = self.headers.get("Content-Length", ""), self.headers.get_content_type()
        if not length.isdecimal() or int(length) > 1 << 20:
            return self.send_error(413, explain="The body has no length, or is too long.")
        body = self.rfile.read(int(length))
        if self.path != "/notes" or "Origin" in self.headers:  # pages have that field, hosts do not
            return self.send_error(403, explain="Notes are for /notes, and not from pages.")
        if kind not in ("application/json", "multipart/form-data"):
            return self.send_error(415, explain="A note is JSON or a form.")
        try:
            inputs = form_inputs(self.headers, body) if "form" in kind else json.loads(body)
            self.answer(self.server.notes.add(str(inputs["text"])), 201)
        except (KeyError, TypeError, ValueError):
            self.send_error(400, explain="This is no note.")

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
        own = authority.issue("Notes service", key.public_key(), YEAR, *SERVER,
                              x509.SubjectAlternativeName([x509.IPAddress(ADDRESS)]))
        write(folder / "service.pem", key_pem(key) + own)
        tls = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH, cadata=authority.pem)
        tls.load_cert_chain(folder / "service.pem")
        tls.verify_mode = ssl.CERT_REQUIRED
        tls.options, tls.num_tickets = tls.options | ssl.OP_NO_TICKET, 0
        self.socket = tls.wrap_socket(self.socket, True, do_handshake_on_connect=False)
        write(folder / "url", f"https://{ADDRESS}:{self.server_port}/".encode())
        atexit.register((folder / "url").unlink)  # so that the notary knows that nobody serves

    def handle_error(self, request, client_address):
        print(f"a connection ended: {sys.exc_info()[1]}", file=sys.stderr)


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, lambda *_: sys.exit())
    Server(pathlib.Path(sys.argv[1])).serve_forever()
