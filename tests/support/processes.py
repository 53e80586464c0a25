"""Inspects processes through /proc, and runs commands with a separate disk."""

import os
import signal
import subprocess
import time
from contextlib import suppress
from pathlib import Path

import pytest


def descendants(pid: int) -> list[int]:
    """Returns the living descendants of a process."""
    children: list[str] = []
    with suppress(FileNotFoundError, ProcessLookupError):  # the process has just ended
        children = " ".join(path.read_text() for path in Path(f"/proc/{pid}/task").glob("*/children")).split()
    return [one for child in map(int, children) for one in [child, *descendants(child)] if is_alive(one)]


def is_alive(pid: int) -> bool:
    with suppress(FileNotFoundError, ProcessLookupError):
        return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] not in "ZX"
    return False


def gone(family: list[int], seconds: float = 10) -> bool:
    """Waits for the processes to end. Returns True if all of them end in time, and otherwise kills the rest."""
    deadline = time.monotonic() + seconds
    while (alive := [pid for pid in family if is_alive(pid)]) and time.monotonic() < deadline:
        time.sleep(0.02)
    for pid in alive:
        os.kill(pid, signal.SIGKILL)
    return not alive


def with_disk(folder: Path, options: str, *command: str | Path) -> list[str | Path]:
    """Returns a command that runs with a separate disk mounted at folder. Skips the test if that is not permitted."""
    mount = f'mount -t tmpfs -o {options} tmpfs "{folder}"'
    in_namespace = ["unshare", "--mount", "--map-root-user", "sh", "-c"]
    if subprocess.run([*in_namespace, mount], capture_output=True).returncode != 0:
        pytest.skip("No disk can be mounted here")
    return [*in_namespace, f'{mount} && exec "$@"', "sh", *command]
