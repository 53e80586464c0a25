"""Runs uv for a worker, reports the progress of its downloads and explains its failures."""

import codecs
import errno
import os
import re
import shutil
import subprocess
import sys
from collections.abc import Callable
from contextlib import suppress
from enum import Enum
from functools import partial
from pathlib import Path

import worker

# Called with the number of bytes that have arrived and the number known to be needed.
OnProgress = Callable[[int, int], None]


class Cause(Enum):
    """The causes of uv's failures that call for different actions, each with the sentence for the user."""

    DISK_FULL = "The disk is full: free some space and try again. Finished downloads are kept."
    NOT_WRITABLE = "uv could not write to the path named above: make it writable and try again."
    CERTIFICATE = (
        "The package server could not prove its identity: check this computer's date, or install the certificate "
        "authority of your network."
    )
    NETWORK = (
        "The packages could not be fetched: check your internet connection and try again. Finished downloads are kept."
    )
    OTHER = "uv could not install the packages, for the reason given above: update uv and try again."


class UvError(worker.WorkerError):
    """A failure of uv, with the sentence for its cause, and uv's output as details."""

    def __init__(self, words: str) -> None:
        self.cause = _cause(words)
        super().__init__(self.cause.value, words.strip())


def path() -> str:
    """Returns the path of the uv that started this process, or else of an installed uv.

    Raises WorkerError if no uv is found.
    """
    if named := os.environ.get("UV"):
        return named
    with suppress(OSError):  # uv before 0.6 does not set UV; /proc may be unreadable
        parent = os.readlink(f"/proc/{os.getppid()}/exe")
        if os.path.basename(parent).startswith("uv"):
            return parent
    if found := os.environ.get("KELVANE_UV") or shutil.which("uv"):
        return found
    raise worker.WorkerError("uv was not found: set the environment variable KELVANE_UV to its path.")


class Uv:
    """Runs uv with the configuration beside the scripts instead of one in the working folder.

    On Linux, each uv process ends when this process ends, and inherits the given file descriptors.
    """

    def __init__(self, scripts: Path, descriptors: tuple[int, ...] = ()) -> None:
        self._uv = path()
        self._scripts = scripts
        self._descriptors = descriptors

    def run(self, *arguments: str | Path, text: str = "", environment: dict[str, str] | None = None) -> str:
        """Runs uv with text as its input and returns its output. Raises UvError if it fails."""
        done = subprocess.run(
            self._command(arguments),
            input=text,
            capture_output=True,
            encoding="utf-8",
            errors="replace",
            env=os.environ | (environment or {}),
            **self._options(),
        )
        if done.returncode != 0:
            raise UvError(done.stderr)
        return done.stdout

    def fetch(self, *arguments: str | Path, on_progress: OnProgress) -> None:
        """Runs a uv command that downloads, and reports its progress. Raises UvError if it fails."""
        # uv draws progress bars only on a terminal.
        environment = os.environ | {"NO_COLOR": "1", "TERM": "xterm", "COLUMNS": "120"}
        reader, writer = _terminal()
        process = subprocess.Popen(
            self._command(arguments),
            stdin=subprocess.DEVNULL,
            stdout=writer,
            stderr=writer,
            env=environment,
            **self._options(),
        )
        os.close(writer)
        screen = _Screen(on_progress)
        with os.fdopen(reader, "rb", buffering=0) as output:
            while data := _read(output.fileno()):
                screen.show(data)
        if process.wait() != 0:
            raise UvError(screen.words())
        screen.finish()

    def remove_leftovers(self) -> None:
        """On Linux, deletes the temporary folders of killed uv processes from uv's cache, unless another uv is running.

        uv itself never deletes them, and an interrupted installation leaves up to a gigabyte.
        """
        if sys.platform != "linux" or _is_other_uv_running():
            return
        for folder in Path(self.run("cache", "dir").strip()).glob(".tmp*"):
            shutil.rmtree(folder, ignore_errors=True)

    def _command(self, arguments: tuple[str | Path, ...]) -> list[str | Path]:
        return [self._uv, *arguments, "--project", self._scripts]

    def _options(self) -> dict[str, object]:
        if sys.platform != "linux":
            return {}
        return {"pass_fds": self._descriptors, "preexec_fn": partial(worker.begin_child, os.getpid())}


def _is_other_uv_running() -> bool:
    own = str(os.getppid())
    for name in Path("/proc").glob("[0-9]*/comm"):
        with suppress(OSError):  # the process has just ended
            if name.parent.name != own and name.read_text().strip() == "uv":
                return True
    return False


def _terminal() -> tuple[int, int]:
    """Opens a pseudoterminal, or a pipe if that is impossible. Returns the descriptors to read from and to write to."""
    try:
        import termios

        reader, writer = os.openpty()
        termios.tcsetwinsize(writer, (60, 120))
    except (ImportError, OSError):
        return os.pipe()
    return reader, writer


def _read(descriptor: int) -> bytes:
    try:
        return os.read(descriptor, 1 << 16)
    except OSError as error:
        if error.errno == errno.EIO:  # the other end of a pseudoterminal was closed
            return b""
        raise


_UNITS = {"B": 1, "KiB": 1 << 10, "MiB": 1 << 20, "GiB": 1 << 30}


class _Screen:
    """Parses uv's progress bars. uv draws them in frames: a heading, then one line for each running download."""

    _HEADING = "Preparing packages..."
    _BAR = re.compile(r"(?<!\S)(\S+)\s+-+\s+(\d{1,9}(?:\.\d+)?) (\w+)/(\d{1,9}(?:\.\d+)?) (\w+)")
    _SEQUENCE = re.compile(r"\x1b\[[0-9;?]*[A-Za-z]")
    _DRAWING = re.compile(r"[\u2800-\u28ff]|[█░]{4}|-{8}")
    _SPINNER_BEFORE_ERROR = re.compile(r"^[\u2800-\u28ff].*?(?=error: )")  # uv may print an error on the spinner's line

    def __init__(self, on_progress: OnProgress) -> None:
        self._decoder = codecs.getincrementaldecoder("utf-8")(errors="replace")
        self._on_progress = on_progress
        self._text = ""
        self._sizes: dict[str, int] = {}

    def show(self, data: bytes) -> None:
        self._text += self._decoder.decode(data)
        *_, frame, rest = ["", "", *self._text.split(self._HEADING)]
        bars = self._BAR.findall(frame)
        if not bars:
            return
        self._text = self._HEADING + rest
        under_way = {name: self._bytes(*amount) for name, *amount, _, _ in bars}
        self._sizes |= {name: self._bytes(*size) for name, _, _, *size in bars}
        arrived = sum(min(under_way.get(name, size), size) for name, size in self._sizes.items())
        self._on_progress(arrived, sum(self._sizes.values()))

    def finish(self) -> None:
        """Reports that everything has arrived, because uv removes a bar before it is full."""
        num_needed = sum(self._sizes.values())
        if num_needed:
            self._on_progress(num_needed, num_needed)

    def words(self) -> str:
        """Returns uv's messages since the last frame, without its spinners and progress bars."""
        lines = re.split(r"[\r\n]+", self._SEQUENCE.sub("\n", self._text))
        said = (self._SPINNER_BEFORE_ERROR.sub("", line).rstrip() for line in lines)
        kept = (line for line in said if line and not self._DRAWING.search(line))
        return "\n".join(line for line in kept if not line.startswith(self._HEADING))

    def _bytes(self, amount: str, unit: str) -> int:
        return int(float(amount) * _UNITS.get(unit, 0))


def _cause(words: str) -> Cause:
    words = " ".join(words.split())  # uv wraps lines at the terminal's width
    codes = {int(code) for code in re.findall(r"os error (\d{1,9})", words)}
    if codes & {errno.ENOSPC, errno.EDQUOT}:
        return Cause.DISK_FULL
    if codes & {errno.EACCES, errno.EPERM, errno.EROFS}:
        return Cause.NOT_WRITABLE
    if "invalid peer certificate" in words:
        return Cause.CERTIFICATE
    if re.search(r"Failed to (fetch|download)|error sending request|network|HTTP status|[Tt]imed? ?out", words):
        return Cause.NETWORK
    return Cause.OTHER
