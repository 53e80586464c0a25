"""Measures the memory and other resources that a running program holds."""

import os
import re
from dataclasses import astuple, dataclass
from pathlib import Path

_ALLOWED_GROWTH = 5.0  # megabytes


@dataclass
class Footprint:
    rss: float  # megabytes, like the next two
    proportional: float
    private: float
    descriptors: int
    threads: int
    children: int  # processes, zombies included
    temporary: int  # files and folders

    @classmethod
    def take(cls, pid: int, temporary: Path) -> "Footprint":
        process = Path(f"/proc/{pid}")
        rollup = (process / "smaps_rollup").read_text()

        def megabytes(name: str) -> float:
            return sum(map(int, re.findall(rf"^{name}:\s+(\d+) kB", rollup, re.MULTILINE))) / 1024

        return cls(
            *(megabytes(name) for name in ("Rss", "Pss", "Private_(?:Clean|Dirty)")),
            *(len(os.listdir(process / kind)) for kind in ("fd", "task")),
            sum(len(path.read_text().split()) for path in process.glob("task/*/children")),
            count_files(temporary),
        )

    def stays(self, later: "Footprint") -> bool:
        """Returns True if no memory figure in later is more than _ALLOWED_GROWTH higher, and all counts are equal."""
        return all(
            after - before <= _ALLOWED_GROWTH if isinstance(before, float) else after == before
            for before, after in zip(astuple(self), astuple(later), strict=True)
        )

    def __str__(self) -> str:
        return "".join(f"{value:13.1f}" if isinstance(value, float) else f"{value:13}" for value in astuple(self))


HEADING = "".join(
    f"{name:>13}" for name in ("RSS, MB", "PSS, MB", "private", "descriptors", "threads", "children", "temporary")
)


def count_files(folder: Path) -> int:
    return sum(1 for _ in folder.rglob("*"))
