"""Measures the accuracy and speed of analyze.py on labelled clips, and compares them with targets.

    detection.py FOLDER

FOLDER holds wav/ and labels.csv, which has the columns file, bpm and key_index. The last two may be empty. Runs the uv
that KELVANE_UV names, or else finds uv on the PATH.
"""

import csv
import json
import os
import resource
import subprocess
import sys
import time
import wave
from collections.abc import Iterable
from pathlib import Path

WORKER = Path(__file__).resolve().parents[1] / "Resources" / "python" / "analyze.py"
UV = os.environ.get("KELVANE_UV") or "uv"


def main() -> None:
    folder = Path(sys.argv[1])
    with open(folder / "labels.csv", newline="") as file:
        labels = [row for row in csv.DictReader(file) if (folder / "wav" / f"{row['file']}.wav").exists()]
    clips = [folder / "wav" / f"{row['file']}.wav" for row in labels]
    analyze(clips[0])  # installs the packages before the measurement

    cpu_before = children_cpu_seconds()
    results = [analyze(clip) for clip in clips]
    cpu_seconds = children_cpu_seconds() - cpu_before

    tempos = [(result["bpm"], float(row["bpm"])) for result, row in zip(results, labels, strict=True) if row["bpm"]]
    keys = [
        (result["key_index"], int(row["key_index"]))
        for result, row in zip(results, labels, strict=True)
        if row["key_index"]
    ]
    print(f"{len(clips)} clips, {sum(map(seconds_of, clips)) / 60:.0f} min{'':20}measured  target  ratio")
    show("tempo within 4 %", share(abs(found / true - 1) <= 0.04 for found, true in tempos), 0.88)
    show("tempo within 0.1 BPM", share(abs(found - true) <= 0.1 for found, true in tempos), 0.85)
    show("right tonic", share(found == true for found, true in keys), 0.90)
    show("CPU seconds per minute of audio", cpu_seconds / sum(map(seconds_of, clips)) * 60, 1)
    show("seconds to start, warm", min(seconds_to_start() for _ in range(5)), 1.5)
    show("megabytes installed", installed_megabytes(), 120)


def analyze(clip: Path) -> dict[str, float]:
    command = [UV, "run", str(WORKER), str(clip.resolve()), "--bpm", "--key"]
    output = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    return json.loads(output.rpartition("RESULT::")[2])


def children_cpu_seconds() -> float:
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def seconds_of(clip: Path) -> float:
    with wave.open(str(clip)) as file:
        return file.getnframes() / file.getframerate()


def share(hits: Iterable[bool]) -> float:
    hits = list(hits)
    return sum(hits) / len(hits)


def show(name: str, measured: float, target: float) -> None:
    print(f"{name:34}{measured:10.3f}{target:8.2f}{measured / target:7.2f}")


def seconds_to_start() -> float:
    """Returns the time until analyze.py reports that a song does not exist."""
    start = time.perf_counter()
    subprocess.run([UV, "run", str(WORKER), "/nothing.wav", "--bpm", "--key"], capture_output=True)
    return time.perf_counter() - start


def installed_megabytes() -> float:
    """Returns the size of the worker's packages, without Python's compiled bytecode."""
    command = [UV, "run", "--quiet", str(WORKER.with_name("prepare.py")), str(WORKER)]
    python = subprocess.run(command, check=True, capture_output=True, text=True).stdout.splitlines()[-1]
    environment = Path(python).parents[1]
    files = (file for file in environment.rglob("*") if file.is_file() and "__pycache__" not in file.parts)
    return sum(file.stat().st_size for file in files if not file.is_symlink()) / 1e6


if __name__ == "__main__":
    main()
