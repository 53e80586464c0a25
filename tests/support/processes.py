"""Looks at processes, by Linux' own account."""

import os
import signal
import time
from pathlib import Path


def descendants(pid: int) -> list[int]:
    """The living processes below one."""
    try:
        children = " ".join(path.read_text() for path in Path(f"/proc/{pid}/task").glob("*/children")).split()
    except (FileNotFoundError, ProcessLookupError):  # it has ended meanwhile
        return []
    return [one for child in map(int, children) for one in [child, *descendants(child)] if is_alive(one)]


def is_alive(pid: int) -> bool:
    try:
        return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] not in "ZX"
    except (FileNotFoundError, ProcessLookupError):
        return False


def gone(family: list[int], seconds: float) -> bool:
    """Whether processes are gone within a time. Ends those that are not."""
    deadline = time.monotonic() + seconds
    while (alive := [pid for pid in family if is_alive(pid)]) and time.monotonic() < deadline:
        time.sleep(0.02)
    for pid in alive:
        os.kill(pid, signal.SIGKILL)
    return not alive
