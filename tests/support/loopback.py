"""Runs a server on the loopback interface: a site, a model hub, or the proxy of package indexes."""

import re
import ssl
import threading
from collections.abc import Callable
from contextlib import suppress
from hashlib import sha256
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

# Faults of an answer, all of which stop it halfway. A stalled answer waits until released is set, and then continues.
# The others close the connection: a broken answer has stated its full length, a cut one no length, and a lying one the
# length "many".
STALLED, BROKEN, CUT, LYING = "stalled", "broken", "cut", "lying"


class Loopback(ThreadingHTTPServer):
    """Answers a request with the content that find returns for its path, or with status 404 if find returns None.

    requests lists the paths requested so far. troubles maps patterns to faults: a path that matches a pattern fails in
    that way. If the server is a proxy, tls returns the context with a host's certificate. Requests with a token are
    refused, as a model hub refuses requests with an expired one.
    """

    def __init__(self, find: Callable[[str], bytes | None], tls: Callable[[str], ssl.SSLContext] | None = None) -> None:
        super().__init__(("127.0.0.1", 0), _Handler)
        self.find, self.tls = find, tls
        self.requests: list[str] = []
        self.troubles: dict[str, str] = {}
        self.released = threading.Event()
        self.address = f"http://127.0.0.1:{self.server_port}"
        threading.Thread(target=self.serve_forever, args=(0.05,), daemon=True).start()

    def __exit__(self, *_: object) -> None:
        self.released.set()
        self.shutdown()
        self.server_close()


class _Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    server: Loopback

    def handle(self) -> None:
        with suppress(ConnectionError):  # the client may be killed
            super().handle()

    def do_CONNECT(self) -> None:
        self.send_response(200)
        self.end_headers()
        tls = self.server.tls(self.path.rpartition(":")[0])
        self.connection = tls.wrap_socket(self.connection, server_side=True)
        self.rfile, self.wfile = self.connection.makefile("rb"), self.connection.makefile("wb", buffering=0)
        self.close_connection = False

    def do_GET(self) -> None:
        self.server.requests.append(self.path)
        found = self.server.find(self.path)
        body, troubles = found or b"", self.server.troubles
        trouble = next((kind for pattern, kind in troubles.items() if re.search(pattern, self.path)), None)
        length = {CUT: [], LYING: [("Content-Length", "many")]}.get(trouble, [("Content-Length", str(len(body)))])

        self.send_response(401 if "Authorization" in self.headers else 404 if found is None else 200)
        hub = [("ETag", f'"{sha256(body).hexdigest()}"'), ("X-Repo-Commit", "1" * 40)]
        index = [("Content-Type", "application/vnd.pypi.simple.v1+json")] if self.path.endswith("/") else []
        for name, value in hub + index + length:
            self.send_header(name, value)
        self.end_headers()
        if self.command == "GET":
            self.wfile.write(body[: len(body) // 2])
            if trouble == STALLED:
                self.server.released.wait()
            if trouble in (BROKEN, CUT, LYING):
                self.close_connection = True
            else:
                self.wfile.write(body[len(body) // 2 :])

    do_HEAD = do_GET  # the name that the base class looks for

    def log_message(self, *_: object) -> None:
        pass
