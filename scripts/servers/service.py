"""The service behind the servers: accepts uploads and remembers their dSYMs."""

import http.server
import io
import socket
import sys
import threading
import time
import zipfile


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True

    def handle_error(self, request, client_address):
        if not isinstance(sys.exc_info()[1], ConnectionError):  # the peer may end a connection at any time
            super().handle_error(request, client_address)


class Service:
    """Runs until the process ends. An attribute of the class says how it answers."""

    def __init__(self, status=201, interim=False, seconds_per_read=0.0):
        self.received = {}  # the bytes of the DWARF file by the API key
        service = self

        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def setup(self):
                if seconds_per_read:  # a small buffer, so that the client notices how slowly it is read
                    self.request.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 64 * 1024)
                super().setup()

            def do_POST(self):
                body = self.read_body(int(self.headers["Content-Length"]))
                archive = body[body.find(b"PK\3\4"):]
                if archive[:4] == b"PK\3\4":
                    service.received[self.headers["X-Tarnwhistle-API-Key"]] = dwarf_in(archive)
                if interim:
                    self.wfile.write(b"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early Hints\r\nLink: <x>\r\n\r\n")
                answer = b'{"accepted": true}' * 100
                self.send_response(status)
                self.send_header("Content-Type", "application/json")
                self.send_header("Content-Length", str(len(answer)))
                self.end_headers()
                self.wfile.write(answer)

            def read_body(self, left):
                pieces = []
                while left > 0:
                    pieces.append(self.rfile.read(min(left, 256 * 1024)))
                    left -= len(pieces[-1])
                    if len(pieces[-1]) == 256 * 1024:
                        time.sleep(seconds_per_read)
                return b"".join(pieces)

            def log_message(self, *_):
                pass

        server = Server(("127.0.0.1", 0), Handler)
        self.port = server.server_port
        threading.Thread(target=server.serve_forever, daemon=True).start()


def dwarf_in(archive):
    """The DWARF file of the dSYM in `archive`, which a form's last boundary follows."""
    with zipfile.ZipFile(io.BytesIO(archive[:archive.rfind(b"\r\n--")])) as unpacked:
        return unpacked.read(next(name for name in unpacked.namelist() if "/DWARF/" in name and not name.endswith("/")))
