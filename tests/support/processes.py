"""Looks at processes, by Linux' own account."""

from pathlib import Path


def descendants(pid: int) -> list[int]:
    """The living processes below one."""
    children = " ".join(path.read_text() for path in Path(f"/proc/{pid}/task").glob("*/children")).split()
    return [one for child in map(int, children) for one in [child, *descendants(child)] if is_alive(one)]


def is_alive(pid: int) -> bool:
    try:
        return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] not in "ZX"
    except (FileNotFoundError, ProcessLookupError):
        return False
