"""Serves package indexes with small made-up wheels, as a local proxy that answers for every host."""

import io
import json
import ssl
import subprocess
import threading
import zipfile
from functools import cache
from hashlib import sha256
from pathlib import Path

from loopback import Loopback


class PackageIndexes(Loopback):
    """Serves an ordinary index under /simple, and one like PyTorch's, without upload times, under /whl/BACKEND.

    authority is the path of the certificate authority's certificate. Paths that begin with a prefix in missing do not
    exist.
    """

    def __init__(self, folder: Path) -> None:
        self.missing: tuple[str, ...] = ()
        self._answers: dict[str, bytes] = {}
        self._listings: dict[str, list[dict[str, object]]] = {}
        self._folder, self.authority = folder, folder / "authority.pem"
        self._certify("authority", "authority", "-addext", "keyUsage=keyCertSign")
        lock, certificate = threading.Lock(), cache(self._certificate)

        def tls(host: str) -> ssl.SSLContext:
            with lock:
                return certificate(host)

        super().__init__(lambda path: None if path.startswith(self.missing) else self._answers.get(path), tls)

    def add(
        self, page: str, version: str, uploaded: str | None = None, requires: tuple[str, ...] = (), size: int = 0
    ) -> None:
        """Adds a wheel to a page: a module that states its version, and size bytes of data."""
        name = page.rpartition("/")[2].replace("-", "_")
        metadata = f"Metadata-Version: 2.1\nName: {name}\nVersion: {version}\n"
        metadata += "".join(f"Requires-Dist: {one}\n" for one in requires)
        record, wheel = f"{name}-{version}.dist-info", io.BytesIO()
        with zipfile.ZipFile(wheel, "w") as archive:
            archive.writestr(f"{name}/__init__.py", f'__version__ = "{version}"\n')
            archive.writestr(f"{name}/data", bytes(size))
            archive.writestr(f"{record}/METADATA", metadata)
            archive.writestr(f"{record}/WHEEL", "Wheel-Version: 1.0\nRoot-Is-Purelib: true\nTag: py3-none-any\n")
            archive.writestr(f"{record}/RECORD", "")

        content, file = wheel.getvalue(), f"{name}-{version}-py3-none-any.whl"
        url = f"{page}/{file.replace('+', '%2B')}"
        listing = {"filename": file, "url": url, "hashes": {"sha256": sha256(content).hexdigest()}}
        listing |= {"core-metadata": True} | ({"upload-time": uploaded} if uploaded else {})
        self._listings[page] = files = [*self._listings.get(page, []), listing]
        index = {"meta": {"api-version": "1.1"}, "name": name, "files": files}
        self._answers |= {url: content, f"{url}.metadata": metadata.encode(), f"{page}/": json.dumps(index).encode()}

    def _certificate(self, host: str) -> ssl.SSLContext:
        signed = ["-CA", "authority.pem", "-CAkey", "authority.key"]
        self._certify("host", host, *signed, "-addext", "basicConstraints=CA:FALSE")
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(self._folder / "host.pem", self._folder / "host.key")
        return context

    def _certify(self, file: str, host: str, *options: str) -> None:
        key = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout", f"{file}.key"]
        names = ["-subj", "/CN=Test", "-addext", f"subjectAltName=DNS:{host}"]
        command = ["openssl", "req", "-x509", "-days", "1", *key, "-out", f"{file}.pem", *names, *options]
        subprocess.run(command, cwd=self._folder, check=True, capture_output=True)
