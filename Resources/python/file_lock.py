"""Locks between processes, by files. For POSIX systems."""

import os
from pathlib import Path
from typing import BinaryIO, Literal, overload


@overload
def take(path: Path, *, shared: bool = False, wait: Literal[True] = True) -> BinaryIO: ...
@overload
def take(path: Path, *, shared: bool = False, wait: bool) -> BinaryIO | None: ...


def take(path: Path, *, shared: bool = False, wait: bool = True) -> BinaryIO | None:
    """Locks a file, which is made if it is missing, and returns it; closing it gives up the lock.

    Returns None if another process holds the lock and there is to be no wait. Whoever holds the lock alone may delete
    the file. Raises OSError if the file cannot be opened.
    """
    import fcntl  # not on Windows, which imports this file as well

    kind = (fcntl.LOCK_SH if shared else fcntl.LOCK_EX) | (0 if wait else fcntl.LOCK_NB)
    while True:
        file = path.open("ab")
        try:
            fcntl.flock(file, kind)
        except BlockingIOError:
            file.close()
            return None
        if _is_at(path, file):
            return file
        file.close()  # the last holder has deleted it


def _is_at(path: Path, file: BinaryIO) -> bool:
    try:
        return os.path.samestat(os.fstat(file.fileno()), path.stat())
    except FileNotFoundError:
        return False
