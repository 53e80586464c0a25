"""Keeps the stems of separated songs in the user's cache.

Each entry is a folder with all stems of a song and a receipt. It is written under a temporary name, so it is either
complete or missing. Failing to read or write an entry never makes a separation fail.
"""

import contextlib
import json
import os
import re
import secrets
import shutil
import sys
import zlib
from collections.abc import Iterator
from concurrent.futures import ThreadPoolExecutor
from contextlib import contextmanager
from dataclasses import dataclass
from pathlib import Path
from typing import IO, TYPE_CHECKING

import file_lock
import worker

from separation.stem_file import StemFile

if TYPE_CHECKING:
    import numpy as np

_GIGABYTE = 10**9
_DEFAULT_LIMIT = 4 * _GIGABYTE
_RESERVED = 2 * _GIGABYTE  # always left free on the disk

_RECEIPT = "stems.json"  # the checksum of each stem
_UNFINISHED = ".part"

# Read-only, because writing to a hard link would damage the entry. Windows cannot delete read-only files.
_MODE = 0o600 if sys.platform == "win32" else 0o400


class StemCache:
    """Manages the entries, whose total size KELVANE_STEM_CACHE limits.

    Keeps no entries if the limit is 0 or the folder is unusable.

    Raises WorkerError if the limit is not a number, or if the user has no cache folder.
    """

    def __init__(self) -> None:
        self._limit = _limit()
        self._folder = worker.cache_folder() / "stems"
        try:
            if self._limit > 0:
                self._folder.mkdir(mode=0o700, parents=True, exist_ok=True)
            self._remove_unfinished()
            self._make_room(0)
        except OSError as error:
            worker.say(f"Stems cannot be cached in {self._folder} ({error.strerror})")
            self._limit = 0

    def scratch_folder(self, other: Path) -> Path:
        """Returns the cache's folder or other, whichever has more free space. Without a cache, returns other."""
        folders = [other] if self._limit == 0 else [self._folder, other]
        return max(folders, key=lambda folder: shutil.disk_usage(folder).free)

    def place(self, key: str | None, stems: list[str], folder: Path) -> bool:
        """Puts an entry's stems into the folder, as links where possible. Returns False if they are not available.

        Removes the entry if it is damaged.
        """
        if key is None or self._limit == 0 or not (self._folder / key).is_dir():
            return False
        entry = self._folder / key
        try:
            checksums = _read_receipt(entry)
            if not checksums.keys() >= set(stems):
                return False
            _place(entry, {stem: checksums[stem] for stem in stems}, folder)
            os.utime(entry)
        except _DamagedError:
            worker.say("The cached stems are damaged: separating the song again")
            self._remove(entry)
            return False
        except OSError as error:
            worker.say(f"The cached stems cannot be used ({error.strerror})")
            return False
        return True

    @contextmanager
    def new_entry(self, key: str | None, size: int) -> "Iterator[NewEntry]":
        """Provides a new entry of size bytes, and discards it unless it is finished.

        If there is no room, the entry stores nothing.
        """
        has_room = False
        with contextlib.suppress(OSError):
            has_room = key is not None and self._make_room(size)
        entry = NewEntry(self._folder / key if key and has_room else None)
        try:
            yield entry
        finally:
            entry.abandon()
        with contextlib.suppress(OSError):
            self._make_room(0)  # another separation may have added an entry

    def _make_room(self, size: int) -> bool:
        """Removes the least recently used entries until size bytes fit. Returns False if they cannot fit at all."""
        if not self._folder.is_dir():
            return False
        entries = sorted(self._entries(), key=lambda entry: entry.last_use)
        kept = sum(entry.size for entry in entries)
        free = shutil.disk_usage(self._folder).free
        fits = size <= self._limit and size + _RESERVED <= free + kept
        needed = size if fits else 0
        for entry in entries:
            if kept + needed <= self._limit and needed + _RESERVED <= free:
                break
            self._remove(entry.folder)
            kept -= entry.size
            free += entry.size
        return fits

    def _entries(self) -> "Iterator[_Entry]":
        for folder in self._folder.iterdir():
            if folder.suffix != _UNFINISHED:
                with contextlib.suppress(OSError):  # another process is removing it
                    size = sum(file.stat().st_size for file in folder.iterdir())
                    yield _Entry(folder, size, folder.stat().st_mtime)

    def _remove(self, folder: Path) -> None:
        """Removes a folder. Renames it first, so that a partly deleted folder is never taken for an entry."""
        with contextlib.suppress(OSError):
            shutil.rmtree(folder.rename(_unfinished(folder)), ignore_errors=True)

    def _remove_unfinished(self) -> None:
        """Removes the unfinished entries of killed processes. Running processes keep their entries' receipts locked."""
        for folder in self._folder.glob(f"*{_UNFINISHED}"):
            is_in_use = False
            with contextlib.suppress(OSError), (folder / _RECEIPT).open("r+b") as receipt:
                is_in_use = not file_lock.lock(receipt)
            if not is_in_use:
                self._remove(folder)


@dataclass
class _Entry:
    folder: Path
    size: int  # bytes
    last_use: float  # seconds since the epoch


class NewEntry:
    """Collects the stems of one song, and becomes an entry when finished. If writing fails, only the entry is lost."""

    def __init__(self, target: Path | None) -> None:
        """Creates a folder beside target, which is the finished entry's folder. Without a target, stores nothing."""
        self._target = target
        self._folder: Path | None = None
        self._files: dict[str, StemFile] = {}
        self._receipt: IO[bytes] | None = None
        if target is not None:
            with self._or_abandon():
                folder = _unfinished(target)
                folder.mkdir(mode=0o700)
                self._folder = folder
                self._receipt = (folder / _RECEIPT).open("xb")
                file_lock.lock(self._receipt)

    def write(self, stem: str, samples: "np.ndarray", num_samples: int) -> None:
        """Appends floats of shape (2, samples) to a stem that is num_samples long in total."""
        if self._folder is None:
            return
        with self._or_abandon():
            if stem not in self._files:
                self._files[stem] = StemFile(self._folder / f"{stem}.wav", num_samples)
            self._files[stem].write(samples)

    def finish(self, others: dict[str, StemFile]) -> None:
        """Adds the stems that were written elsewhere, as links where possible, and publishes the entry."""
        if self._folder is None:
            return
        with self._or_abandon():
            for stem, file in others.items():
                _link_or_copy(file.path, self._folder / f"{stem}.wav")
            for file in self._files.values():
                file.close()
            files = self._files | others
            self._receipt.write(json.dumps({stem: file.checksum for stem, file in files.items()}).encode())
            self._receipt.close()
            for path in self._folder.iterdir():
                path.chmod(_MODE)
            self._folder.rename(self._target)
            self._folder = None

    def abandon(self) -> None:
        folder, self._folder = self._folder, None
        if folder is not None:
            for file in filter(None, (self._receipt, *self._files.values())):
                with contextlib.suppress(OSError):  # closing flushes buffered data, which may fail
                    file.close()
            shutil.rmtree(folder, ignore_errors=True)

    @contextmanager
    def _or_abandon(self) -> Iterator[None]:
        try:
            yield
        except OSError as error:
            if not self._target.is_dir():  # if it is, another process has stored the same stems
                worker.say(f"The stems will not be cached ({error.strerror})")
            self.abandon()


class _DamagedError(Exception):
    pass


def _read_receipt(entry: Path) -> dict[str, int]:
    try:
        checksums = json.loads((entry / _RECEIPT).read_bytes())
    except (OSError, ValueError, RecursionError) as error:
        raise _DamagedError from error
    stems = {file.stem for file in entry.glob("*.wav")}
    if not isinstance(checksums, dict) or not stems or checksums.keys() != stems:
        raise _DamagedError
    return checksums


def _place(entry: Path, checksums: dict[str, int], folder: Path) -> None:
    """Places all stems. If one is damaged, raises _DamagedError and places no stems."""
    placed = {stem: folder / f"{stem}.kept" for stem in checksums}
    try:
        with ThreadPoolExecutor() as pool:
            checks = [
                pool.submit(_place_intact, entry / f"{stem}.wav", path, checksums[stem])
                for stem, path in placed.items()
            ]
        for check in checks:
            check.result()
        for stem, path in placed.items():
            path.replace(folder / f"{stem}.wav")
    finally:
        for path in placed.values():
            path.unlink(missing_ok=True)


def _place_intact(source: Path, target: Path, checksum: int) -> None:
    """Places a stem, and only then checks it, because another process may remove the entry at any time."""
    if not source.is_file():
        raise _DamagedError
    try:
        target.unlink(missing_ok=True)
        _link_or_copy(source, target)
    except FileNotFoundError as error:
        raise _DamagedError from error
    if _checksum(target) != checksum:
        raise _DamagedError


def _checksum(file: Path) -> int:
    checksum = 0
    with file.open("rb") as opened:
        while block := opened.read(1 << 20):
            checksum = zlib.crc32(block, checksum)
    return checksum


def _link_or_copy(source: Path, target: Path) -> None:
    """Makes target a hard link to source, or a copy of it if the file systems do not allow a link."""
    try:
        target.hardlink_to(source)
    except OSError:
        shutil.copy(source, target)


def _unfinished(folder: Path) -> Path:
    return folder.with_name(f"{folder.stem}-{secrets.token_hex(4)}{_UNFINISHED}")


def _limit() -> int:
    """Returns the total size that the user allows, in bytes."""
    text = os.environ.get("KELVANE_STEM_CACHE", "").strip()
    if not text:
        return _DEFAULT_LIMIT
    gigabytes = re.fullmatch(r"(\d{1,9}(?:\.\d+)?) ?(?:GB?)?", text, re.IGNORECASE)
    if gigabytes is None:
        raise worker.WorkerError(
            f'KELVANE_STEM_CACHE is "{text}": set it to a number of gigabytes, or to 0 to cache no stems.'
        )
    return round(float(gigabytes[1]) * _GIGABYTE)
