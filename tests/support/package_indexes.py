"""Local package indexes: a proxy that answers for every host, with small wheels of its own."""

import hashlib
import io
import json
import ssl
import subprocess
import threading
import zipfile
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from pathlib import Path


class PackageIndexes:
    """An index with upload times under /simple, and PyTorch's, without them, under /whl/BACKEND.

    authority is the file with the certificate of their authority, and requests the paths requested so far. Paths that
    begin with out_of_order are missing. Downloads whose paths end with stalled pause in the middle until released is
    set, and those that end with cut break off there.
    """

    def __init__(self, folder: Path) -> None:
        self.requests: list[str] = []
        self.out_of_order: tuple[str, ...] = ()
        self.stalled: tuple[str, ...] = ()
        self.cut: tuple[str, ...] = ()
        self.released = threading.Event()
        self._answers: dict[str, bytes] = {}
        self._files: dict[str, list[dict[str, object]]] = {}
        self._folder = folder
        self._contexts: dict[str, ssl.SSLContext] = {}
        self._lock = threading.Lock()
        self._certify("authority", "authority", "-addext", "keyUsage=keyCertSign")
        self._server = ThreadingHTTPServer(("127.0.0.1", 0), type("Handler", (_Handler,), {"indexes": self}))
        self.proxy = f"http://127.0.0.1:{self._server.server_port}"
        self.authority = folder / "authority.pem"
        threading.Thread(target=self._server.serve_forever, daemon=True).start()

    def close(self) -> None:
        self.released.set()
        self._server.shutdown()
        self._server.server_close()

    def add(
        self, page: str, version: str, uploaded: str | None = None, requires: tuple[str, ...] = (), size: int = 0
    ) -> None:
        """Adds a package to its page: a module with its version, and size bytes of data."""
        name = page.rpartition("/")[2].replace("-", "_")
        record = f"{name}-{version}.dist-info"
        metadata = f"Metadata-Version: 2.1\nName: {name}\nVersion: {version}\n"
        metadata += "".join(f"Requires-Dist: {one}\n" for one in requires)
        wheel = io.BytesIO()
        with zipfile.ZipFile(wheel, "w") as archive:
            archive.writestr(f"{name}/__init__.py", f'__version__ = "{version}"\n')
            archive.writestr(f"{name}/data", bytes(size))
            archive.writestr(f"{record}/METADATA", metadata)
            archive.writestr(f"{record}/WHEEL", "Wheel-Version: 1.0\nRoot-Is-Purelib: true\nTag: py3-none-any\n")
            archive.writestr(f"{record}/RECORD", "")

        file = f"{name}-{version}-py3-none-any.whl"
        url = f"{page}/{file.replace('+', '%2B')}"
        self._answers |= {url: wheel.getvalue(), f"{url}.metadata": metadata.encode()}
        hashes = {"sha256": hashlib.sha256(wheel.getvalue()).hexdigest()}
        files = self._files.setdefault(page, [])
        files.append({"filename": file, "url": url, "hashes": hashes, "core-metadata": True})
        if uploaded:
            files[-1]["upload-time"] = uploaded
        listing = {"meta": {"api-version": "1.1"}, "name": name, "files": files}
        self._answers[f"{page}/"] = json.dumps(listing).encode()

    def answer(self, path: str) -> bytes | None:
        self.requests.append(path)
        return None if path.startswith(self.out_of_order) else self._answers.get(path)

    def context(self, host: str) -> ssl.SSLContext:
        """Returns a context with a certificate for the host."""
        with self._lock:
            if host not in self._contexts:
                signed = ["-CA", "authority.pem", "-CAkey", "authority.key"]
                self._certify("host", host, *signed, "-addext", "basicConstraints=CA:FALSE")
                self._contexts[host] = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
                self._contexts[host].load_cert_chain(self._folder / "host.pem", self._folder / "host.key")
            return self._contexts[host]

    def _certify(self, file: str, host: str, *options: str) -> None:
        key = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout", f"{file}.key"]
        names = ["-subj", "/CN=Test", "-addext", f"subjectAltName=DNS:{host}"]
        command = ["openssl", "req", "-x509", "-days", "1", *key, "-out", f"{file}.pem", *names, *options]
        subprocess.run(command, cwd=self._folder, check=True, capture_output=True)


class _Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    indexes: PackageIndexes

    def do_CONNECT(self) -> None:
        self.send_response(200)
        self.end_headers()
        self.connection = self.indexes.context(self.path.rpartition(":")[0]).wrap_socket(
            self.connection, server_side=True
        )
        self.rfile, self.wfile = self.connection.makefile("rb"), self.connection.makefile("wb", buffering=0)
        self.close_connection = False

    def do_GET(self) -> None:
        body = self.indexes.answer(self.path)
        self.send_response(404 if body is None else 200)
        self.send_header("Content-Length", str(len(body or b"")))
        kind = "application/vnd.pypi.simple.v1+json" if self.path.endswith("/") else "application/octet-stream"
        self.send_header("Content-Type", kind)
        self.end_headers()
        if self.command == "GET" and body:
            self._send(body)

    def _send(self, body: bytes) -> None:
        middle = len(body) // 2
        self.wfile.write(body[:middle])
        if self.path.endswith(self.indexes.cut):
            self.close_connection = True
            return
        if self.path.endswith(self.indexes.stalled):
            self.indexes.released.wait()
        self.wfile.write(body[middle:])

    do_HEAD = do_GET  # named by the base class

    def log_message(self, *_: object) -> None:
        pass
