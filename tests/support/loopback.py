"""A server on the loopback interface: a site, a model hub, or the proxy of package indexes."""

import re
import ssl
import threading
from collections.abc import Callable
from contextlib import suppress
from hashlib import sha256
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

# What goes wrong halfway through an answer: a pause until the server closes, a connection that breaks, or a file that
# is shorter than it was. A lying server says that the length is "many".
STALLED, BROKEN, CUT, LYING = "stalled", "broken", "cut", "lying"


class Loopback:
    """Answers requests for paths with what find returns, or with status 404 for None.

    requests has the paths requested so far. Paths that match a key of troubles fail as its value says. tls returns
    the certificate of a host for which the server is a proxy. Tokens are refused, as a model hub refuses expired ones.
    """

    def __init__(self, find: Callable[[str], bytes | None], tls: Callable[[str], ssl.SSLContext] | None = None) -> None:
        self.find, self.tls = find, tls
        self.requests: list[str] = []
        self.troubles: dict[str, str] = {}
        self.released = threading.Event()
        self._server = ThreadingHTTPServer(("127.0.0.1", 0), type("Handler", (_Handler,), {"loopback": self}))
        self.address = f"http://127.0.0.1:{self._server.server_port}"
        threading.Thread(target=self._server.serve_forever, args=(0.05,), daemon=True).start()

    def __enter__(self) -> "Loopback":
        return self

    def __exit__(self, *_: object) -> None:
        self.released.set()
        self._server.shutdown()
        self._server.server_close()


class _Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    loopback: Loopback

    def handle(self) -> None:
        with suppress(ConnectionError):  # when a client is killed
            super().handle()

    def do_CONNECT(self) -> None:
        self.send_response(200)
        self.end_headers()
        tls = self.loopback.tls(self.path.rpartition(":")[0])
        self.connection = tls.wrap_socket(self.connection, server_side=True)
        self.rfile, self.wfile = self.connection.makefile("rb"), self.connection.makefile("wb", buffering=0)
        self.close_connection = False

    def do_GET(self) -> None:
        self.loopback.requests.append(self.path)
        body = self.loopback.find(self.path)
        trouble = next(
            (kind for pattern, kind in self.loopback.troubles.items() if re.search(pattern, self.path)), None
        )
        self.send_response(401 if "Authorization" in self.headers else 404 if body is None else 200)
        for name, value in self._headers(body or b"", trouble):
            self.send_header(name, value)
        self.end_headers()
        if self.command == "GET" and body:
            self._send(body, trouble)

    do_HEAD = do_GET  # named by the base class

    def _headers(self, body: bytes, trouble: str | None) -> list[tuple[str, str]]:
        headers = [("ETag", f'"{sha256(body).hexdigest()}"'), ("X-Repo-Commit", "1" * 40)]  # for the hub's client
        if self.path.endswith("/"):
            headers.append(("Content-Type", "application/vnd.pypi.simple.v1+json"))
        if trouble == CUT:
            return [*headers, ("Connection", "close")]
        return [*headers, ("Content-Length", "many" if trouble == LYING else str(len(body)))]

    def _send(self, body: bytes, trouble: str | None) -> None:
        middle = len(body) // 2
        self.wfile.write(body[:middle])
        self.close_connection = trouble in (BROKEN, CUT, LYING)
        if trouble == STALLED:
            self.loopback.released.wait()
        if not self.close_connection:
            self.wfile.write(body[middle:])

    def log_message(self, *_: object) -> None:
        pass
