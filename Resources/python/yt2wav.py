# /// script
# requires-python = ">=3.11,<3.15"
# dependencies = [
#   "av==18.1.0; sys_platform != 'linux'",
#   "certifi==2026.10.18; sys_platform != 'linux'",
#   "deno==2.9.8; sys_platform != 'linux'",
#   "pycryptodomex==3.24.1; sys_platform != 'linux'",
#   "yt-dlp==2026.10.26; sys_platform != 'linux'",
#   "yt-dlp-ejs==0.8.0; sys_platform != 'linux'",
# ]
# [tool.uv]
# exclude-newer = "2026-11-15T00:00:00Z"
# ///
"""Downloads the song at a link and converts it to WAV. Arguments: URL FOLDER. Prints WAV_PATH:: and the file's path."""

import os
import sys
import tempfile
import threading
import time
from pathlib import Path
from typing import Self

sys.dont_write_bytecode = True  # keeps __pycache__ out of this folder; worker.run turns bytecode back on
import worker

worker.end_with_uv()
from download.downloader import Downloader, Record
from download.filename import safe_name
from installation import environment
from installation.setup_progress import SetupProgress

CONVERTED = "converted"  # without an extension, unlike the name of any download


def main(arguments: list[str]) -> None:
    environment.enter(Path(__file__), SetupProgress("[download]"))
    url, folder = arguments
    folder = os.path.abspath(folder)
    os.makedirs(folder, exist_ok=True)

    with tempfile.TemporaryDirectory(dir=folder, prefix="download-") as scratch:
        os.chdir(scratch)
        try:
            wav = os.path.join(folder, _download_wav(url))
            os.replace(CONVERTED, wav)
        finally:
            os.chdir(folder)  # Windows cannot delete the working folder
    print(f"WAV_PATH::{wav}")


def _download_wav(url: str) -> str:
    """Downloads a song, converts it to the file CONVERTED in the working folder, and returns the WAV's final name."""
    with Status("Looking at the page") as status:
        downloader = Downloader(lambda progress: status.update(_amount(progress), _speed(progress)))
        song = downloader.find(url)
        name = safe_name(song.get("title") or "")

        status.begin("Starting the download")
        path = downloader.fetch(song)

        status.begin("Converting to WAV")
        named = name + os.path.splitext(path)[1]  # so that error messages name the song
        os.rename(path, named)
        num_seconds = _write_wav(named, CONVERTED, status)
        _check_length(num_seconds, max(_stated_seconds(named), song.get("duration") or 0))
    return f"{name}.wav"


class Status:
    """Prints the progress line every half second, so that a wait does not look like a hang."""

    _INTERVAL_SECONDS = 0.5
    _SILENCE_SECONDS = 2

    def __init__(self, text: str) -> None:
        self._ended = threading.Event()
        self._lock = threading.Lock()
        self._thread = threading.Thread(target=self._repeat, daemon=True)
        self.begin(text)

    def begin(self, text: str) -> None:
        """Shows the next step immediately."""
        self.update(text)
        self._say()

    def update(self, text: str, detail: str = "") -> None:
        """Changes the line, which the next repetition prints."""
        self._text, self._detail, self._updated = text, detail, time.monotonic()

    def __enter__(self) -> Self:
        self._thread.start()
        return self

    def __exit__(self, *error: object) -> None:
        self._ended.set()
        self._thread.join()

    def _repeat(self) -> None:
        while not self._ended.wait(self._INTERVAL_SECONDS):
            self._say()

    def _say(self) -> None:
        is_silent = time.monotonic() - self._updated > self._SILENCE_SECONDS
        detail = "waiting for the server" if is_silent else self._detail
        with self._lock:
            worker.say(f"[download] {', '.join(filter(None, (self._text, detail)))}")


def _amount(progress: Record) -> str:
    done, total = progress.get("downloaded_bytes") or 0, progress.get("total_bytes")
    estimate = total or progress.get("total_bytes_estimate")
    if not estimate:
        return _size(done)
    return f"{100 * min(done / estimate, 1):.1f} % of {'' if total else 'about '}{_size(estimate)}"


def _speed(progress: Record) -> str:
    return f"{_size(progress['speed'])}/s" if progress.get("speed") else ""


def _size(num_bytes: float) -> str:
    return f"{num_bytes / 1e6:.1f} MB" if num_bytes >= 1e6 else f"{num_bytes / 1e3:.0f} kB"


def _write_wav(source: str, wav: str, status: Status) -> float:
    """Decodes to 32-bit floats at the source's rate, in mono or stereo. Returns the length in seconds.

    Samples beyond full scale are kept. A file larger than 4 GB becomes RF64.
    """
    import av

    first = next(worker.audio_frames(source))
    rate, layout = first.sample_rate, "mono" if first.layout.nb_channels == 1 else "stereo"
    num_samples = 0

    with av.open(wav, "w", format="wav", options={"rf64": "auto"}) as container:
        stream = container.add_stream("pcm_f32le", rate=rate, layout=layout)
        for frame in worker.resampled_frames(source, rate, layout, "flt"):
            frame.pts = None
            container.mux(stream.encode(frame))
            num_samples += frame.samples
            seconds = num_samples // rate
            status.update("Converting to WAV", f"{seconds // 60}:{seconds % 60:02} done")
        container.mux(stream.encode(None))
    return num_samples / rate


def _stated_seconds(path: str) -> float:
    """Returns the length that the file's header states, or 0 if it is only an estimate, as in MP3."""
    import av

    with av.open(path, metadata_errors="replace") as container:
        if (seconds := worker.stated_seconds(container)) is not None:
            return float(seconds)
        if container.duration is not None and "webm" in container.format.name and len(container.streams) == 1:
            return container.duration / av.time_base
    return 0


def _check_length(num_seconds: float, expected: float) -> None:
    """Rejects a download that is too short for rounding and trimming to explain."""
    if num_seconds < 0.98 * expected - 1:
        raise worker.WorkerError(
            f"The download is incomplete, {num_seconds:.0f} of {expected:.0f} seconds: try again, or try another link."
        )


if __name__ == "__main__":
    worker.run(main)
