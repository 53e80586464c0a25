"""Locks files against other processes. The system releases a lock when the process that holds it ends or crashes."""

import os
import sys
import time
from collections.abc import Callable
from pathlib import Path
from typing import IO


def take(path: Path, *, shared: bool = False, on_wait: Callable[[], None] = lambda: None) -> IO[bytes]:
    """Locks a file, creating it if necessary, and returns it. Closing it releases the lock.

    Calls on_wait once if another process holds the lock. The holder of an exclusive lock may delete the file. Raises
    OSError if the file cannot be opened.
    """
    if file := try_to_take(path, shared=shared):
        return file
    on_wait()
    while (file := try_to_take(path, shared=shared)) is None:
        time.sleep(0.1)
    return file


def try_to_take(path: Path, *, shared: bool = False) -> IO[bytes] | None:
    """Locks a file as take does, but returns None if another process holds the lock."""
    while True:
        file = path.open("ab")
        if not lock(file, shared=shared):
            file.close()
            return None
        if _is_at(path, file):
            return file
        file.close()  # the previous holder has deleted it


def lock(file: IO[bytes], *, shared: bool = False) -> bool:
    """Locks a file until it is closed. Returns False if another process has locked it.

    On Windows all locks are exclusive.
    """
    try:
        if sys.platform == "win32":
            import msvcrt

            msvcrt.locking(file.fileno(), msvcrt.LK_NBLCK, 1)
        else:
            import fcntl

            fcntl.flock(file, (fcntl.LOCK_SH if shared else fcntl.LOCK_EX) | fcntl.LOCK_NB)
    except OSError:
        return False
    return True


def _is_at(path: Path, file: IO[bytes]) -> bool:
    try:
        return os.path.samestat(os.fstat(file.fileno()), path.stat())
    except FileNotFoundError:
        return False
