"""Finds the one song behind a link and downloads it, by yt-dlp, in words that a user understands."""

import functools
import os
import re
import socket
import subprocess
import sys
from collections.abc import Callable, Iterator
from typing import Any

import worker

# A server may be silent for this long, and a connection may break this often, before a download fails.
TIMEOUT_SECONDS = 15
RETRIES = 2

# More entries of a playlist are not looked at.
_MOST_ENTRIES = 100

# yt-dlp's record of a song, or of a download's progress. yt-dlp itself takes long to import: functions do it.
Record = dict[str, Any]

if sys.platform == "linux":
    # yt-dlp runs sites' scripts in a process of its own, which would outlive a worker that is killed.
    subprocess.Popen.__init__ = functools.partialmethod(  # type: ignore[method-assign,assignment]
        subprocess.Popen.__init__, preexec_fn=functools.partial(worker.begin_child, os.getpid())
    )


class Downloader:
    """Downloads into the working folder: in the path of any other, yt-dlp would replace what looks like a variable.

    on_progress is called with a record of each step. Every failure is a WorkerError, or an OSError of the disk's.
    """

    def __init__(self, on_progress: Callable[[Record], None]) -> None:
        os.environ["YTDLP_NO_PLUGINS"] = "1"  # no song may depend on what a user has installed for yt-dlp
        from yt_dlp import YoutubeDL

        # Those of Linux are named by surroundings.py, and those of Windows found by Python.
        names_certificates = "SSL_CERT_FILE" in os.environ or "SSL_CERT_DIR" in os.environ
        self._yt_dlp = YoutubeDL(
            {
                "compat_opts": {"no-certifi"} if names_certificates or sys.platform == "win32" else set(),
                "external_downloader": {"default": "native"},
                "extract_flat": "in_playlist",
                "fixup": "never",
                "format": "bestaudio/best/bestvideo",  # a video without sound is refused later, by a sentence
                "fragment_retries": RETRIES,
                "logger": _Silence(),
                "noplaylist": True,
                "outtmpl": "download.%(ext)s",
                "playlist_items": f":{_MOST_ENTRIES}",
                "progress_hooks": [on_progress],
                "retries": RETRIES,
                "skip_unavailable_fragments": False,
                "socket_timeout": TIMEOUT_SECONDS,
            }
        )

    def find(self, url: str) -> Record:
        """Returns the song of a page, or of a playlist that holds no other. Nothing is downloaded yet."""
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
            song["title"] = re.sub(r" \(\d+\)$", "", song["title"])  # players are numbered even if there is only one
        return song

    def fetch(self, song: Record) -> str:
        """Downloads what find has found, and returns the file's path."""
        from yt_dlp.utils import MEDIA_EXTENSIONS

        if song["ext"] not in (*MEDIA_EXTENSIONS.audio, *MEDIA_EXTENSIONS.video):
            song["ext"] = "unknown_video"  # a link may end in anything, such as php, which yt-dlp refuses
        _explaining(self._yt_dlp.process_info, song)
        return song["filepath"]


class _Silence:
    """Keeps yt-dlp's own lines from the program: its errors come as exceptions."""

    def debug(self, message: str) -> None: ...

    warning = error = debug


def _only_song(entries: list[Record]) -> Record:
    songs = [entry for entry in entries if entry and _may_have_audio(entry)]
    if len(songs) == 1:
        return songs[0]
    if not songs:
        raise worker.WorkerError("No song was found at this link: give a link to a page that plays one.")
    number = len(songs) if len(entries) < _MOST_ENTRIES else f"{_MOST_ENTRIES} or more"
    raise worker.WorkerError(f"There are {number} songs at this link: give a link to one of them.")


def _may_have_audio(song: Record) -> bool:
    return song.get("acodec") != "none"


def _explaining(action: Callable[..., Record], *arguments: object, **options: object) -> Record:
    from yt_dlp.utils import YoutubeDLError

    try:
        return action(*arguments, **options)
    except YoutubeDLError as error:
        raise _explained(error) from error


def _explained(error: Exception) -> Exception:
    """The sentence for the user, by the classes of the error and its causes, or else by what yt-dlp says."""
    from yt_dlp.networking.exceptions import CertificateVerifyError, HTTPError, IncompleteRead, TransportError
    from yt_dlp.utils import ExtractorError, GeoRestrictedError, UnsupportedError

    sentences = {
        UnsupportedError: "No song was found at this link: give a link to a page or a file that plays one.",
        GeoRestrictedError: "The site does not offer this song in your country: look for it on another site.",
        CertificateVerifyError: "The site could not prove who it is: check the link, and this computer's date.",
        TimeoutError: "The server did not answer in time: check your connection and try again.",
        socket.gaierror: "The server was not found: check the link and your connection.",
        IncompleteRead: "The server broke off in the middle: try again.",
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
            return worker.WorkerError(f"The page was not understood ({_gist(cause.orig_msg)}): try another link.")
    return worker.WorkerError(f"The download broke off ({_gist(str(error))}): check your connection and try again.")


def _causes(error: BaseException) -> Iterator[BaseException]:
    """The error and what has led to it, as yt-dlp and urllib hand it on: the root comes last."""
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
        401: "The site wants a login for this song (HTTP 401): look for it on another site.",
        403: "The site refuses access to this song (HTTP 403): try again later, or look for it on another site.",
        404: "There is nothing at this link (HTTP 404): check it for mistakes.",
        410: "The song is no longer at this link (HTTP 410): look for it on another site.",
        429: "The site was asked too often (HTTP 429): wait a while and try again.",
    }
    return sentences.get(status, f"The server could not deliver this song (HTTP {status}): try again later.")


def _gist(message: str) -> str:
    """A message of yt-dlp's without its marks, and without its advice on options that the user does not have."""
    from yt_dlp.utils import remove_terminal_sequences

    text = " ".join(remove_terminal_sequences(message).split())
    text = re.sub(r"^(ERROR: |\[\w+\] |Got error: )+", "", text)
    sentences = re.split(r"(?<=[.;!?]) ", text)
    kept = [sentence for sentence in sentences if not re.search(r"yt-dlp|https?:|--\w|\bGiving up\b", sentence)]
    return " ".join(kept or sentences[:1])[:300].rstrip(".; ")
