"""Starts and ends a worker process, prints its output and decodes audio.

A worker imports this module first, so that later imports find no packages of other software.
"""

import surroundings

surroundings.ignore_pythonpath()
surroundings.trust_the_system()

import contextlib
import ctypes
import errno
import os
import re
import select
import signal
import sys
import threading
from collections.abc import Callable, Iterator
from fractions import Fraction
from itertools import chain, groupby
from pathlib import Path
from typing import TYPE_CHECKING, NoReturn

if TYPE_CHECKING:
    import av
    import numpy as np
    from av.container import InputContainer

# The program reads in blocks of this many bytes, and sees no line until a block is full.
_BLOCK_SIZE = 8192

# Accepted sample rates, in Hz. At other rates, a file of a few kilobytes could fill the disk or memory.
_LOWEST_RATE, _HIGHEST_RATE = 1000, 768_000

# Formats that refer to other files, which may be endless.
_PLAYLISTS = {"concat", "dash", "hls", "imf", "rtsp", "sdp", "webm_dash_manifest"}


class WorkerError(Exception):
    """A failure to show to the user, as one plain sentence that says what to do.

    details, such as the output of another program, are printed before it.
    """

    def __init__(self, sentence: str, details: str = "") -> None:
        super().__init__(sentence)
        self.details = details


def run(main: Callable[[list[str]], None]) -> NoReturn:
    """Calls main with the command-line arguments and ends the process.

    The exit status is 0, or 1 if main raises an exception. In that case, the last line printed is one plain sentence.
    """
    for stream in (sys.stdout, sys.stderr):
        stream.reconfigure(encoding="utf-8", errors="replace")  # type: ignore[union-attr]

    sys.dont_write_bytecode = False  # cache the bytecode of packages, which are imported from here on
    try:
        main(sys.argv[1:])
    except WorkerError as error:
        _print_plainly(*error.details.splitlines())
        _end(1, str(error))
    except ImportError as error:
        _print_plainly(*str(error).splitlines())
        _end(1, _missing((error.name or "A package").partition(".")[0]))
    except MemoryError:
        _end(1, "There is not enough memory for this song: close other programs and try again.")
    except OSError as error:
        if error.errno == errno.ENOSPC:
            _end(1, "The disk is full: free some space and try again.")
        place = error.filename or "A file or folder"
        reason = error.strerror or error
        _end(1, f"{place} could not be used ({reason}): check that it exists and that you can write to it.")
    except Exception as error:  # even now, the last line has to be a sentence
        reason = " ".join(str(error).split())[:300]
        _end(1, f"Something unexpected went wrong ({type(error).__name__}: {reason}).")
    _end(0)


@contextlib.contextmanager
def without_bytecode() -> Iterator[None]:
    """Leaves no __pycache__ beside the scripts when their modules are imported within main."""
    sys.dont_write_bytecode = True
    try:
        yield
    finally:
        sys.dont_write_bytecode = False


def damaged(environment: str) -> str:
    """Returns the message for an environment whose packages are damaged."""
    return f"The installed packages are damaged: delete the folder {environment} and try again."


def _missing(package: str) -> str:
    """Returns the message for a package that cannot be imported."""
    if surroundings.is_in_own_environment():
        return damaged(sys.prefix)
    return f"{package} could not be loaded by {sys.executable}: install it there, or unset KELVANE_UV and try again."


def cache_folder() -> Path:
    """Returns Kelvane's folder in the user's cache, creating it if necessary.

    Raises WorkerError if there is no home folder, or no permission to write there.
    """
    advice = "set HOME or XDG_CACHE_HOME to a folder that you can write to."
    try:
        folder = _users_cache() / "kelvane"
        folder.mkdir(parents=True, exist_ok=True)
    except RuntimeError as error:
        raise WorkerError(f"You have no home folder to install packages in: {advice}") from error
    except OSError as error:
        if error.errno == errno.ENOSPC:
            raise
        raise WorkerError(f"{folder} could not be created ({error.strerror}): {advice}") from error
    if not os.access(folder, os.W_OK | os.X_OK):
        raise WorkerError(f"{folder} is not writable: make yourself its owner, or {advice}")
    return folder


def _users_cache() -> Path:
    """Returns the user's cache folder. Raises RuntimeError if no variable names it and there is no home folder."""
    cache = os.environ.get("LOCALAPPDATA" if sys.platform == "win32" else "XDG_CACHE_HOME", "")
    return Path(cache) if os.path.isabs(cache) else Path.home() / ".cache"


def _end(status: int, last_line: str = "") -> NoReturn:
    """Ends the process without shutting down libraries, which could take long or print after the last line."""
    try:
        if last_line:
            _print_plainly(last_line)
        sys.stdout.flush()
        sys.stderr.flush()
    finally:
        os._exit(status)


def say(*lines: str) -> None:
    """Prints lines that the program shows immediately. Spaces after them fill the block that the program reads."""
    padding = "" if sys.stdout.isatty() else " " * _BLOCK_SIZE + "\n"
    _print_plainly(*lines)
    print(end=padding, flush=True)


def _print_plainly(*lines: str) -> None:
    """Prints each text on one line, even if it contains line breaks or control characters."""
    for line in lines:
        print(re.sub(r"[\0-\x1f\x7f-\x9f\u2028\u2029]", " ", line))


def bar(fraction: float) -> str:
    """Returns a progress line for the program to read. fraction is from 0 to 1."""
    percent = int(100 * fraction)
    return f"{percent:3}%|{'#' * (percent // 10):<10}|"


# Cancelling gives no warning: the program kills uv, the parent of this process, and nothing else.


def end_with_uv() -> None:
    """Makes this process end as soon as its parent, uv, ends or nothing reads this process's output any more.

    Call this before anything else: importing a library takes a while, and uv may be killed in the meantime.
    """
    signal.signal(signal.SIGINT, signal.SIG_DFL)
    parent = os.getppid()
    die_with_parent()
    if _has_lost_uv(parent):
        os._exit(1)
    wait = _wait_for_windows_parent if sys.platform == "win32" else _wait_for_posix_parent

    def watch() -> None:
        wait(parent)
        os._exit(1)

    threading.Thread(target=watch, daemon=True).start()


def _has_lost_uv(parent: int) -> bool:
    """Returns True if uv, whose path is in the variable UV, ended before this process could ask to end with it.

    Returns False if /proc cannot be read.
    """
    if sys.platform != "linux" or "UV" not in os.environ:
        return False
    try:
        with open(f"/proc/{parent}/comm") as file:
            name = file.read().strip()
    except OSError:
        return False
    if name == os.path.basename(os.environ["UV"])[:15]:
        return False
    with contextlib.suppress(OSError):
        return not os.path.samefile(f"/proc/{parent}/exe", os.environ["UV"])  # a link to uv may have another name
    return True


def die_with_parent() -> None:
    """Asks Linux to kill this process when its parent ends, even while a library is busy.

    Does nothing on other systems. Children do not inherit the request: start them with begin_child as preexec_fn.
    """
    if _prctl is not None:
        set_parent_death_signal = 1
        _prctl(set_parent_death_signal, signal.SIGKILL)


def begin_child(parent: int) -> None:
    """Makes a child process end with its parent, whose process ID is given. For use as preexec_fn."""
    die_with_parent()
    if os.getppid() != parent:  # the parent has already ended
        os._exit(1)


_prctl = ctypes.CDLL(None).prctl if sys.platform == "linux" else None


def _wait_for_posix_parent(parent: int) -> None:
    poll_milliseconds = 250
    output = select.poll()
    output.register(sys.stdout.fileno(), 0)  # poll always reports errors, such as a closed reader

    while os.getppid() == parent:
        if any(event & select.POLLERR for _, event in output.poll(poll_milliseconds)):
            return


def _wait_for_windows_parent(parent: int) -> None:
    synchronize, for_ever = 0x00100000, 0xFFFFFFFF
    kernel = ctypes.WinDLL("kernel32")  # type: ignore[attr-defined]
    kernel.OpenProcess.restype = ctypes.c_void_p
    kernel.WaitForSingleObject(ctypes.c_void_p(kernel.OpenProcess(synchronize, False, parent)), for_ever)


def audio_frames(path: str) -> Iterator["av.AudioFrame"]:
    """Decodes the main audio stream of a file, frame by frame, in the stream's own format.

    Damaged parts become silence. Raises WorkerError if nothing can be decoded.
    """
    import av

    name = os.path.basename(path)
    size = os.path.getsize(path) if os.path.exists(path) else 0
    if os.path.exists(path) and not os.path.isfile(path):  # opening a pipe could wait forever
        raise WorkerError(f"{name} is not a file: choose another one.")
    try:
        container = av.open(path, metadata_errors="replace", options={"format_whitelist": _formats()})
    except av.error.FFmpegError as error:
        raise WorkerError(f"{name} could not be read as audio ({error.strerror}): choose another file.") from error

    with container:
        if container.streams.best("audio") is None:
            raise WorkerError(f"There is no audio in {name}: choose another file.")
        anything = False
        for frame in _within_duration(container):
            if not _LOWEST_RATE <= frame.sample_rate <= _HIGHEST_RATE:
                reason = f"a sample rate of {frame.sample_rate} Hz"
                raise WorkerError(f"{name} could not be read as audio ({reason}): choose another file.")
            anything = True
            yield frame
        if os.path.exists(path) and os.path.getsize(path) < size:
            raise WorkerError(f"{name} became shorter while it was read: try again when it is complete.")
        if not anything:
            raise WorkerError(f"No audio could be decoded from {name}, which is empty or damaged: choose another file.")


def _formats() -> str:
    import av

    return ",".join(av.formats_available - _PLAYLISTS)


def _within_duration(container: "InputContainer") -> Iterator["av.AudioFrame"]:
    """Yields the decoded frames without the padding that MP4 encoders append after the stated duration."""
    seconds = stated_seconds(container)
    num_passed = 0

    for frame in _decoded(container):
        if seconds is not None:
            num_left = round(seconds * frame.sample_rate) - num_passed
            if num_left <= 0:
                return
            frame = _first_samples(frame, num_left)
        num_passed += frame.samples
        yield frame


def stated_seconds(container: "InputContainer") -> Fraction | None:
    """Returns the duration that an MP4 file states, or None for other formats, where FFmpeg may have to guess it."""
    stream = container.streams.best("audio")
    if "mp4" not in container.format.name or stream.duration is None:
        return None
    return stream.duration * stream.time_base


def _first_samples(frame: "av.AudioFrame", count: int) -> "av.AudioFrame":
    import av

    if frame.samples <= count:
        return frame
    fifo = av.AudioFifo()
    frame.pts = None
    fifo.write(frame)
    return fifo.read(count)


def _decoded(container: "InputContainer") -> Iterator["av.AudioFrame"]:
    import av

    anything = False
    for packet in _packets(container):
        try:
            for frame in packet.decode():
                anything = True
                yield frame
        except av.error.EOFError:
            return
        except av.error.MemoryError:
            raise
        except av.error.FFmpegError:
            if anything:
                yield from _silence(packet)


def _packets(container: "InputContainer") -> Iterator["av.Packet"]:
    """Yields the packets of the main audio stream, as far as a damaged container can be read."""
    import av

    try:
        yield from container.demux(container.streams.best("audio"))
    except av.error.OSError:  # the disk failed
        raise
    except av.error.FFmpegError:
        return


def _silence(packet: "av.Packet") -> Iterator["av.AudioFrame"]:
    """Yields silence in place of a packet that cannot be decoded, so that later packets stay in place."""
    import av

    codec = packet.stream.codec_context
    frames_at_most = 4  # a damaged packet may claim any length
    count = min(round((packet.duration or 0) * packet.time_base * codec.sample_rate), frames_at_most * codec.frame_size)
    if count > 0:
        frame = av.AudioFrame(format=codec.format.name, layout=codec.layout.name, samples=count)
        frame.sample_rate = codec.sample_rate
        for plane in frame.planes:
            plane.update(bytes(plane.buffer_size))
        yield frame


def read_audio(path: str, rate: int, layout: str, max_seconds: float | None = None) -> "np.ndarray":
    """Decodes a file to floats of shape (channels, samples); the layout is "mono" or "stereo".

    Full scale is 1. Samples beyond it are kept. Raises WorkerError if nothing can be decoded.
    """
    import numpy as np

    blocks, num_samples = [], 0
    max_samples = sys.maxsize if max_seconds is None else round(max_seconds * rate)

    for frame in resampled_frames(path, rate, layout, "fltp"):
        blocks.append(frame.to_ndarray())
        num_samples += frame.samples
        if num_samples >= max_samples:
            break
    return np.concatenate(blocks, axis=1)[:, :max_samples]


def resampled_frames(path: str, rate: int, layout: str, sample_format: str) -> Iterator["av.AudioFrame"]:
    """Decodes a file, frame by frame, to a fixed rate, layout and format, even if they change within the file.

    Raises WorkerError if nothing can be decoded.
    """
    import av

    anything = False
    for _, frames in groupby(audio_frames(path), lambda frame: (frame.format.name, frame.layout.name, frame.rate)):
        resampler = av.AudioResampler(format=sample_format, layout=layout, rate=rate)
        for frame in chain(frames, [None]):  # None flushes the resampler
            if frame is not None:
                frame.pts = None
            try:
                converted = resampler.resample(frame)
            except av.error.ArgumentError as error:  # too many channels, or a layout that FFmpeg cannot mix
                reason = f"{os.path.basename(path)} has channels that FFmpeg cannot mix"
                raise WorkerError(f"{reason}: choose another file, or mix it to stereo.") from error
            anything = anything or bool(converted)
            yield from converted
    if not anything:
        raise WorkerError(f"{os.path.basename(path)} is too short to use: choose another file.")
