"""Finds and downloads the song at a link with yt-dlp, and turns yt-dlp's errors into sentences for the user."""

import functools
import os
import re
import socket
import subprocess
import sys
from collections.abc import Callable, Iterator
from typing import Any

import worker

# How long a server may stay silent, and how often a broken connection is retried, before a download fails.
TIMEOUT_SECONDS = 15
RETRIES = 2

# Any further entries of a playlist are ignored.
_MAX_ENTRIES = 100

# yt-dlp's description of a song, or of a download's progress.
# yt-dlp itself is slow to import, so the functions that need it import it.
Record = dict[str, Any]

if sys.platform == "linux":
    # yt-dlp runs sites' scripts in a child process, which would otherwise outlive a worker that is killed.
    subprocess.Popen.__init__ = functools.partialmethod(  # type: ignore[method-assign,assignment]
        subprocess.Popen.__init__, preexec_fn=functools.partial(worker.begin_child, os.getpid())
    )


class Downloader:
    """Downloads into the working folder.

    In the path of another folder, yt-dlp would expand text that looks like a variable.

    Calls on_progress with yt-dlp's record of the progress. Raises WorkerError, or OSError if the disk fails.
    """

    def __init__(self, on_progress: Callable[[Record], None]) -> None:
        os.environ["YTDLP_NO_PLUGINS"] = "1"  # a user's plugins must not change the result
        from yt_dlp import YoutubeDL

        # On Linux surroundings.py sets these variables; on Windows, Python finds the system's certificates itself.
        names_certificates = "SSL_CERT_FILE" in os.environ or "SSL_CERT_DIR" in os.environ
        self._yt_dlp = YoutubeDL(
            {
                "compat_opts": {"no-certifi"} if names_certificates or sys.platform == "win32" else set(),
                "external_downloader": {"default": "native"},
                "extract_flat": "in_playlist",
                "fixup": "never",
                "format": "bestaudio/best/bestvideo",  # a video without sound is rejected later, with a reason
                "fragment_retries": RETRIES,
                "logger": _Silence(),
                "noplaylist": True,
                "outtmpl": "download.%(ext)s",
                "playlist_items": f":{_MAX_ENTRIES}",
                "progress_hooks": [on_progress],
                "retries": RETRIES,
                "skip_unavailable_fragments": False,
                "socket_timeout": TIMEOUT_SECONDS,
            }
        )

    def find(self, url: str) -> Record:
        """Returns the song on a page, or the only song in a playlist, without downloading it."""
        song = _explaining(self._yt_dlp.extract_info, url, download=False)
        while "entries" in song:
            song = _only_song(song["entries"])
            if song.get("_type") in ("url", "url_transparent"):
                song = _explaining(self._yt_dlp.process_ie_result, song, download=False)

        if song.get("is_live"):
            raise worker.WorkerError("This is a live stream, which has no end: give a link to a finished recording.")
        if not _may_have_audio(song):
            raise worker.WorkerError("The video at this link has no sound: give a link to another one.")
        if song.get("extractor_key") == "HTML5MediaEmbed":
            song["title"] = re.sub(r" \(\d+\)$", "", song["title"])  # yt-dlp numbers even a page's only player
        return song

    def fetch(self, song: Record) -> str:
        """Downloads a song returned by find(), and returns the file's path."""
        from yt_dlp.utils import MEDIA_EXTENSIONS

        if song["ext"] not in (*MEDIA_EXTENSIONS.audio, *MEDIA_EXTENSIONS.video):
            song["ext"] = "unknown_video"  # yt-dlp refuses extensions such as php
        _explaining(self._yt_dlp.process_info, song)
        return song["filepath"]


class _Silence:
    """Discards yt-dlp's log: its errors arrive as exceptions."""

    def debug(self, message: str) -> None: ...

    warning = error = debug


def _only_song(entries: list[Record]) -> Record:
    songs = [entry for entry in entries if entry and _may_have_audio(entry)]
    if len(songs) == 1:
        return songs[0]
    if not songs:
        raise worker.WorkerError("No song was found at this link: give a link to a page that plays one.")
    number = len(songs) if len(entries) < _MAX_ENTRIES else f"{_MAX_ENTRIES} or more"
    raise worker.WorkerError(f"There are {number} songs at this link: give a link to one of them.")


def _may_have_audio(song: Record) -> bool:
    return song.get("acodec") != "none"


def _explaining(action: Callable[..., Record], *arguments: object, **options: object) -> Record:
    from yt_dlp.utils import YoutubeDLError

    try:
        return action(*arguments, **options)
    except YoutubeDLError as error:
        raise _explained(error) from error
    except ValueError as error:  # yt-dlp parses a server's numbers without checking them
        raise worker.WorkerError(f"The server's answer could not be read ({error}): try another link.") from error


def _explained(error: Exception) -> Exception:
    """Returns the error to raise: a sentence for a cause's type, a cause that is an OSError, or yt-dlp's message."""
    from yt_dlp.networking.exceptions import CertificateVerifyError, HTTPError, IncompleteRead, TransportError
    from yt_dlp.utils import ExtractorError, GeoRestrictedError, UnsupportedError

    sentences = {
        UnsupportedError: "No song was found at this link: give a link to a page or a file that plays one.",
        GeoRestrictedError: "The site does not offer this song in your country: look for it on another site.",
        CertificateVerifyError: "The site could not prove its identity: check the link, and this computer's date.",
        TimeoutError: "The server did not answer in time: check your connection and try again.",
        socket.gaierror: "The server was not found: check the link and your connection.",
        IncompleteRead: "The server closed the connection too early: try again.",
        TransportError: "The server could not be reached: check the link and your connection.",
    }
    causes = list(_causes(error))
    for cause in causes:
        if isinstance(cause, HTTPError):
            return worker.WorkerError(_http_sentence(cause.status))
    for kind, sentence in sentences.items():
        if any(isinstance(cause, kind) for cause in causes):
            return worker.WorkerError(sentence)

    for cause in causes:
        if isinstance(cause, OSError):
            return cause
        if isinstance(cause, ExtractorError) and cause.expected:
            return worker.WorkerError(f'The site says "{_gist(cause.orig_msg)}".')
        if isinstance(cause, ExtractorError):
            return worker.WorkerError(f"The page could not be read ({_gist(cause.orig_msg)}): try another link.")
    return worker.WorkerError(f"The download failed ({_gist(str(error))}): check your connection and try again.")


def _causes(error: BaseException) -> Iterator[BaseException]:
    """Yields the error, then the causes that yt-dlp and urllib have chained to it, down to the root cause."""
    from yt_dlp.utils import DownloadError, UnavailableVideoError

    cause: object = error
    while isinstance(cause, BaseException):
        yield cause
        if isinstance(cause, DownloadError | UnavailableVideoError):
            cause = cause.__context__
        else:
            cause = getattr(cause, "cause", None) or getattr(cause, "reason", None)


def _http_sentence(status: int) -> str:
    sentences = {
        401: "The site requires a login for this song (HTTP 401): look for it on another site.",
        403: "The site refuses access to this song (HTTP 403): try again later, or look for it on another site.",
        404: "There is nothing at this link (HTTP 404): check it for typos.",
        410: "The song is no longer at this link (HTTP 410): look for it on another site.",
        429: "The site has received too many requests (HTTP 429): wait a while and try again.",
    }
    return sentences.get(status, f"The server could not deliver this song (HTTP {status}): try again later.")


def _gist(message: str) -> str:
    """Returns yt-dlp's message without its prefixes, and without advice about options that the user does not have."""
    from yt_dlp.utils import remove_terminal_sequences

    text = " ".join(remove_terminal_sequences(message).split())
    text = re.sub(r"^(ERROR: |\[\w+\] |Got error: )+", "", text)
    sentences = re.split(r"(?<=[.;!?]) ", text)
    kept = [sentence for sentence in sentences if not re.search(r"yt-dlp|https?:|--\w|\bGiving up\b", sentence)]
    return " ".join(kept or sentences[:1])[:300].rstrip(".; ")
