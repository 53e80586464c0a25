"""Disturbs kelvane-render and its workers, and counts what goes wrong: see "Faults" in docs/benchmarks.md.

After every fault, the program must end with the right exit status and last line, and leave no process and no partial
result behind. The next run must succeed. Mounts small disks in a separate mount namespace, which needs Linux, and
either root or user namespaces.
"""

import argparse
import json
import os
import random
import resource
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time
from collections.abc import Callable, Iterator
from contextlib import contextmanager, suppress
from functools import partial
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from pathlib import Path

from fault_lab import (
    DEMO_SONG,
    ROOT,
    Disturb,
    Lab,
    Loopback,
    PackageIndexes,
    dies,
    either,
    mount,
    names,
    says,
    succeeds,
)

_IN_NAMESPACE = "KELVANE_FAULTS_IN_NAMESPACE"
_FULL = says("The disk is full", "No space left")
_TARGETS = ["program", "uv", "worker"]  # each process is the child of the previous one


def disks(lab: Lab, _: argparse.Namespace, __: random.Random) -> None:
    """Fills disks at points from the start of a run to just before its end, by limiting bytes or inodes."""
    sizes = [f"size={kilobytes}k" for kilobytes in (32, 64, 256, 512, 1024, 1536)]
    for size in [*sizes, "nr_inodes=6"]:
        with mount(lab.out, size) as unmount:
            lab.attempt("full disk: results", _FULL, restore=unmount)
    sizes = [f"size={kilobytes}k" for kilobytes in (4, 256, 1024, 1536, 2048)]
    for size in [*sizes, *(f"nr_inodes={number}" for number in range(1, 7))]:
        with mount(lab.temporary, size) as unmount:
            lab.attempt("full disk: temporary files", _FULL, restore=unmount)
    with serve(_Site) as site:
        link: list[str | Path] = [f"{site}/tune.ogg", "--full-song"]
        for size in ("4k", "64k", "256k", "1m", "4m"):
            with mount(lab.temporary, f"size={size}") as unmount:
                lab.attempt("full disk: a link's download", _FULL, link, restore=unmount, next_arguments=link)
        with mount(lab.temporary, "size=8m") as unmount:
            endless: list[str | Path] = [f"{site}/endless/tune.ogg", "--full-song"]
            lab.attempt("full disk: a link's download", _FULL, endless, restore=unmount, next_arguments=link)

    for number in range(1, 8):
        with mount(lab.stems, f"nr_inodes={number}") as unmount:
            lab.attempt("full disk: kept stems", succeeds, restore=unmount)
    for room in (0, 64, 512, 1024, 2048):
        with mount(lab.stems, "size=2200m") as unmount:
            lab.attempt("full disk: kept stems", succeeds, disturb=_shrinking(lab.stems, room), restore=unmount)
    with _model_hub(lab.hub) as hub:
        for size in ("4k", "16k", "64k", "128k", "192k"):
            with mount(lab.folder / "small", f"size={size}") as unmount:
                online = {"HF_HOME": str(lab.folder / "small"), "HF_HUB_OFFLINE": "0", "HF_ENDPOINT": hub.address}
                lab.attempt("full disk: model", _FULL, restore=unmount, **online)


def installations(lab: Lab, _: argparse.Namespace, __: random.Random) -> None:
    """Fills disks while packages are installed."""
    with package_indexes(lab) as variables:
        for place, variable in (("environments", "XDG_CACHE_HOME"), ("uv's cache", "UV_CACHE_DIR")):
            for size in ("4k", "32k", "256k", "1m", "2m", "4m"):
                with mount(lab.folder / "small", f"size={size}") as unmount:
                    full = variables | {variable: str(lab.folder / "small")}
                    analyze: list[str | Path] = [lab.song, "--analyze"]
                    kind = f"full disk: {place}"
                    lab.attempt(kind, _FULL, analyze, restore=unmount, next_arguments=analyze, **full)


def _shrinking(folder: Path, kilobytes: int) -> Disturb:
    """Shrinks the disk, as soon as a cache entry is begun, until only this many kilobytes are free."""

    def disturb(program: subprocess.Popen[bytes]) -> bool:
        while not list(folder.glob("*.part/*")):
            if program.poll() is not None:
                return False
            time.sleep(0.001)
        used = os.statvfs(folder)
        size = (used.f_blocks - used.f_bfree) * used.f_frsize // 1024 + kilobytes
        subprocess.run(["mount", "-o", f"remount,size={size}k", folder], check=True)
        return True

    return disturb


def _model_hub(folder: Path) -> Loopback:
    files = {path.name: path.read_bytes() for path in folder.rglob("*") if path.suffix}
    listing = json.dumps({"id": "adefossez/HTDemucs", "siblings": [{"rfilename": name} for name in files]})
    return Loopback(lambda path: files.get(path.rpartition("/")[2]) or listing.encode())


@contextmanager
def package_indexes(lab: Lab) -> Iterator[dict[str, str]]:
    """Yields variables that select empty caches, and an index with small dummies of the packages for detection."""
    with tempfile.TemporaryDirectory(dir=lab.folder) as folder, PackageIndexes(Path(folder)) as indexes:
        for package, version in (("av", "18.1.0"), ("numpy", "2.4.6")):
            indexes.add(f"/simple/{package}", version, "2025-01-01T00:00:00Z", size=3_000_000)
        caches = {"XDG_CACHE_HOME": f"{folder}/cache", "UV_CACHE_DIR": f"{folder}/uv", "UV_FIND_LINKS": ""}
        proxy = {"HTTPS_PROXY": indexes.address, "SSL_CERT_FILE": str(indexes.authority)}
        yield caches | proxy | {"UV_HTTP_RETRIES": "0"}


def kills(target: str, lab: Lab, options: argparse.Namespace, dice: random.Random) -> None:
    """Sends SIGKILL to the target at random moments of the usual run."""
    judge = dies if target == "program" else either(says(), succeeds)
    for _ in range(options.kills):
        while not lab.attempt(f"kill: {target}", judge, disturb=_killing(lab, target, dice)):
            pass


def _killing(lab: Lab, target: str, dice: random.Random) -> Disturb:
    def disturb(program: subprocess.Popen[bytes]) -> bool:
        time.sleep(dice.uniform(0, lab.seconds))
        pid = lab.descendant(program.pid, _TARGETS.index(target))
        if pid == 0 or program.poll() is not None:
            return False
        with suppress(ProcessLookupError):
            os.kill(pid, signal.SIGKILL)
            return True
        return False

    return disturb


def clocks(lab: Lab, options: argparse.Namespace, dice: random.Random) -> None:
    """Sets the clock up to ten years behind the files' times with libfaketime, before or during a run."""
    (library,) = Path("/usr/lib").glob("*/faketime/libfaketime.so.1")
    offset = lab.folder / "offset"
    fake = {"LD_PRELOAD": str(library), "FAKETIME_TIMESTAMP_FILE": str(offset), "FAKETIME_NO_CACHE": "1"}
    fake |= {"FAKETIME_DONT_FAKE_MONOTONIC": "1", "NO_FAKE_STAT": "1"}
    past = ("-1h", "-30d", "-3650d")
    for shift in past:
        offset.write_text(shift)
        lab.attempt("clock: behind", succeeds, **fake)
        lab.end(lab.start(lab.usual))
        lab.attempt("clock: behind, with kept stems", succeeds, **fake)
    for _ in range(options.kills // 10):

        def set_back(program: subprocess.Popen[bytes]) -> bool:
            offset.write_text("+0")
            time.sleep(dice.uniform(0, lab.seconds))
            offset.write_text(dice.choice(past))
            return program.poll() is None

        lab.attempt("clock: set back", succeeds, disturb=set_back, **fake)
    offset.write_text("-3650d")
    with package_indexes(lab) as variables:
        lab.attempt("clock: before certificates", says("date"), [lab.song, "--analyze"], **fake, **variables)


def odd_inputs(lab: Lab, _: argparse.Namespace, __: random.Random) -> None:
    """Gives the program pipes, folders, devices and sparse files as songs."""
    os.mkfifo(lab.folder / "pipe.wav")
    (lab.folder / "folder.wav").mkdir()
    size = 3_000_000_000
    form = struct.pack("<4sIHHIIHH4sI", b"fmt ", 16, 1, 2, 44100, 176400, 4, 16, b"data", size - 44)
    for name, header in (
        ("sparse.wav", struct.pack("<4sI4s", b"RIFF", size - 8, b"WAVE") + form),
        ("sparse.aiff", b""),
        ("sparse.flac", b"fLaC"),
        ("sparse.ogg", b"OggS"),
        ("sparse.mp3", b""),
        ("sparse", b""),
    ):
        (lab.folder / name).write_bytes(header)
        os.truncate(lab.folder / name, size)
    paths = [lab.folder / name for name in ("pipe.wav", "folder.wav")]
    paths += [Path(device) for device in ("/dev/zero", "/dev/null", "/dev/full", "/dev/tty")]
    for path in [*paths, *lab.folder.glob("sparse*")]:
        for mode in (["--full-song"], ["--analyze"], ["--stems", "drums,vocals"]):
            if path.name != "sparse.wav" or "--stems" not in mode:  # separating sparse.wav would take hours
                kind = f"input: {'sparse' if path.stem == 'sparse' else 'no file'}"
                judge = either(says(), names(str(path)), says_memory)
                lab.attempt(kind, judge, [path, *mode], disturb=_confine, next_arguments=lab.plain)


def says_memory(status: int, line: str) -> bool:
    return status == 1 and line == "Unexpected error: std::bad_alloc"


def _confine(program: subprocess.Popen[bytes]) -> bool:
    """Limits the program's memory, but not that of processes it has already started."""
    resource.prlimit(program.pid, resource.RLIMIT_AS, (2**31, 2**31))
    return True


def changing_inputs(lab: Lab, options: argparse.Namespace, dice: random.Random) -> None:
    """Changes songs at a random moment of a run, or continually.

    Unless the song changes continually, a result must match one state of the song, not a mixture of its states.
    """
    encoded = ROOT / "tests" / "audio" / "encoded"
    for original in (lab.song, DEMO_SONG, encoded / "untagged.mp3", encoded / "alac.m4a"):
        song = lab.folder / f"changing{original.suffix}"
        content = original.read_bytes()
        seconds = 0.0
        for state in (content, content[: len(content) // 3], content + content):
            song.write_bytes(state)
            begin = time.monotonic()
            lab.end(lab.start([song, "--full-song"]))
            seconds = max(seconds, time.monotonic() - begin)
            lab.expect_results()
        for change, kind in ((_shrink, "shrinks"), (_grow, "grows"), (_vanish, "vanishes"), (_flap, "flaps")):
            if change is _flap:
                song = song.with_stem("flapping")
            for mode in ("--full-song", "--analyze"):
                for _ in range(max(1, options.kills // 20)):
                    song.write_bytes(content)
                    lab.attempt(
                        f"input: {kind}",
                        either(succeeds, says(), names(song.name)),
                        [song, mode],
                        disturb=_at(dice.uniform(0, seconds), change, song, content),
                        next_arguments=lab.plain,
                    )


def _at(moment: float, change: Callable[..., None], song: Path, content: bytes) -> Disturb:
    def disturb(program: subprocess.Popen[bytes]) -> bool:
        time.sleep(moment)
        change(song, content, program)
        return True

    return disturb


def _shrink(song: Path, content: bytes, _: subprocess.Popen[bytes]) -> None:
    os.truncate(song, len(content) // 3)


def _grow(song: Path, content: bytes, _: subprocess.Popen[bytes]) -> None:
    with song.open("ab") as file:
        file.write(content)


def _vanish(song: Path, _: bytes, __: subprocess.Popen[bytes]) -> None:
    song.unlink()


def _flap(song: Path, content: bytes, program: subprocess.Popen[bytes]) -> None:
    """Shrinks and restores the song until the program has ended."""
    while program.poll() is None:
        os.truncate(song, len(content) // 3)
        time.sleep(0.0005)
        song.write_bytes(content)
        time.sleep(0.0005)


def sites(lab: Lab, _: argparse.Namespace, __: random.Random) -> None:
    """Runs a site that stalls, breaks off, states wrong lengths or redirects forever."""
    with serve(_Site) as site:
        link: list[str | Path] = [f"{site}/tune.ogg", "--full-song"]
        for fault, judge in _SITES_FAULTS.items():
            faulty: list[str | Path] = [f"{site}/{fault}/tune.ogg", "--full-song"]
            lab.attempt("site", judge, faulty, next_arguments=link)


_SITES_FAULTS = {
    "stalls-at-once": says("did not answer in time"),
    "stalls": says("download failed", "did not answer in time"),
    "breaks-off": says("download failed", "too early"),
    "resets": says("download failed", "could not be reached"),
    "states-too-much": says("download failed", "too early"),
    "states-too-little": either(says(), succeeds),
    "states-nonsense": either(says(), succeeds),
    "states-less-than-nothing": either(says(), succeeds),
    "empty": says(),
    "no-http": says("could not be reached", "download failed"),
    "redirects-to-itself": says(),
    "redirects-further": says(),
}


class _Site(BaseHTTPRequestHandler):
    """Delivers /tune.ogg without a fault, and /FAULT/tune.ogg with the fault of that name."""

    protocol_version = "HTTP/1.1"
    song = DEMO_SONG.read_bytes()
    released = threading.Event()

    def do_GET(self) -> None:
        fault = self.path.split("/")[1]
        if fault == "no-http":
            self.wfile.write(b"220 ready for mail\r\n")
            self.close_connection = True
        elif fault == "stalls-at-once":
            self.released.wait()
        elif fault.startswith("redirects"):
            step = len(self.path) if fault == "redirects-further" else ""
            self._begin(302, 0, Location=f"{self.path}{step}")
        elif fault == "endless":
            self._begin(200, "", Connection="close")
            while self.command == "GET":
                self.wfile.write(self.song)
        else:
            length = len(self.song)
            lengths = {"states-too-much": 2 * length, "states-too-little": length // 2, "empty": 0}
            lies = {"states-nonsense": "many", "states-less-than-nothing": -5}
            self._begin(200, (lengths | lies).get(fault, length))
            if self.command == "GET":
                self._send(fault)

    do_HEAD = do_GET  # the name that the base class looks for

    def _begin(self, status: int, length: int | str, **headers: str) -> None:
        self.send_response(status)
        for name, value in (("Content-Type", "audio/ogg"), ("Content-Length", length), *headers.items()):
            if value != "":
                self.send_header(name, str(value))
        self.end_headers()

    def _send(self, fault: str) -> None:
        half = len(self.song) // 2
        if fault == "empty":
            return
        self.wfile.write(self.song[:half])
        if fault == "stalls":
            self.released.wait()
        if fault == "resets":
            self.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.close_connection = bool(fault != "tune.ogg")
        if fault not in ("breaks-off", "resets", "stalls"):
            self.wfile.write(self.song[half:])

    def handle(self) -> None:
        with suppress(ConnectionError):
            super().handle()

    def log_message(self, *_: object) -> None:
        pass


@contextmanager
def serve(handler: type[_Site]) -> Iterator[str]:
    with ThreadingHTTPServer(("127.0.0.1", 0), handler) as server:
        server.block_on_close = False
        threading.Thread(target=server.serve_forever, daemon=True).start()
        yield f"http://127.0.0.1:{server.server_port}"
        server.shutdown()


CLASSES: dict[str, Callable[[Lab, argparse.Namespace, random.Random], None]] = {
    "disks": disks,
    "installations": installations,
    "odd-inputs": odd_inputs,
    "changing-inputs": changing_inputs,
    "sites": sites,
    "clocks": clocks,
    **{f"kill-{target}": partial(kills, target) for target in _TARGETS},
}


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("classes", nargs="*", metavar="CLASS", help=f"one of {', '.join(CLASSES)}; all by default")
    parser.add_argument("--kills", type=int, default=200, help="of each process; fewer of other faults (%(default)s)")
    parser.add_argument("--seed", type=int, default=1, help="of the random moments (%(default)s)")
    parser.add_argument("--grace", type=float, default=1, help="seconds that processes may take to end (%(default)s)")
    parser.add_argument("--verbose", action="store_true", help="print how each run has ended")
    options = parser.parse_args()
    if unknown := set(options.classes) - set(CLASSES):
        parser.error(f"there is no class {', '.join(unknown)}")
    if _IN_NAMESPACE not in os.environ:
        os.environ[_IN_NAMESPACE] = "1"
        become_root = [] if os.geteuid() == 0 else ["--map-root-user"]
        os.execvp("unshare", ["unshare", "--mount", *become_root, sys.executable, *sys.orig_argv[1:]])

    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # SystemExit, so that the table is still printed
    with tempfile.TemporaryDirectory() as folder:
        lab = Lab(Path(folder), options.grace, options.verbose)
        print(f"The usual run takes {lab.seconds:.1f} s.", flush=True)
        try:
            for name in options.classes or CLASSES:
                CLASSES[name](lab, options, random.Random(options.seed))
        finally:
            lab.print_table()
    sys.exit(any(not tally.is_good() for tally in lab.tallies.values()))


if __name__ == "__main__":
    main()
