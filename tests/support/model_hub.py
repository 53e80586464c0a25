"""A local model hub."""

import json
import threading
from collections.abc import Iterator
from contextlib import contextmanager
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from pathlib import Path


@contextmanager
def serve(hub: Path) -> Iterator[str]:
    """Serves the model of a hub's cache, and yields the address."""
    files = {path.name: path.read_bytes() for path in hub.rglob("*") if path.suffix}
    handler = type("Handler", (_Handler,), {"files": files})
    with ThreadingHTTPServer(("127.0.0.1", 0), handler) as server:
        threading.Thread(target=server.serve_forever, daemon=True).start()
        yield f"http://127.0.0.1:{server.server_port}"
        server.shutdown()


class _Handler(BaseHTTPRequestHandler):
    """Implements the hub's interface for downloads. Refuses every token, as the hub refuses expired ones."""

    files: dict[str, bytes]

    def do_GET(self) -> None:
        name = self.path.rpartition("/")[2]
        listing = {"id": "adefossez/HTDemucs", "siblings": [{"rfilename": name} for name in self.files]}
        body = self.files.get(name) or json.dumps(listing).encode()
        self.send_response(401 if "Authorization" in self.headers else 200)
        for header, value in (("Content-Length", len(body)), ("ETag", f'"{name}"'), ("X-Repo-Commit", "1" * 40)):
            self.send_header(header, str(value))
        self.end_headers()
        if self.command == "GET":
            self.wfile.write(body)

    do_HEAD = do_GET  # named by the base class

    def log_message(self, *_: object) -> None:
        pass
