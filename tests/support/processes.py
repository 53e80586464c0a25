"""Inspects processes through /proc."""

import os
import signal
import time
from pathlib import Path


def descendants(pid: int) -> list[int]:
    """Returns the living descendants of a process."""
    try:
        children = " ".join(path.read_text() for path in Path(f"/proc/{pid}/task").glob("*/children")).split()
    except (FileNotFoundError, ProcessLookupError):  # it has just ended
        return []
    return [one for child in map(int, children) for one in [child, *descendants(child)] if is_alive(one)]


def is_alive(pid: int) -> bool:
    try:
        return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] not in "ZX"
    except (FileNotFoundError, ProcessLookupError):
        return False


def gone(family: list[int], seconds: float) -> bool:
    """Returns True if all processes end in time, and kills those that do not."""
    deadline = time.monotonic() + seconds
    while (alive := [pid for pid in family if is_alive(pid)]) and time.monotonic() < deadline:
        time.sleep(0.02)
    for pid in alive:
        os.kill(pid, signal.SIGKILL)
    return not alive
