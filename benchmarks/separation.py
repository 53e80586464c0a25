"""Compares separate.py with Demucs' own command, in alternating runs with the same WAV, weights, device and options.

Then times a second run of the same song, and measures the memory that a separation takes for each length in --minutes.
The model has its full size, but is untrained.
"""

import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time
import wave
from contextlib import ExitStack
from dataclasses import dataclass
from pathlib import Path

import numpy as np

_ROOT = Path(__file__).parents[1]
_SCRIPT = _ROOT / "Resources" / "python" / "separate.py"
_STEMS = ["drums", "bass", "vocals", "other"]
_UV = os.environ.get("KELVANE_UV") or shutil.which("uv") or "uv"


@dataclass
class _Run:
    start: float  # seconds to the first progress line
    wall: float  # seconds
    cpu: float  # seconds
    peak: float  # megabytes


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("song", type=Path, help="16-bit PCM, of any length")
    parser.add_argument("turns", type=int)
    parser.add_argument("--minutes", type=int, nargs="*", default=[], help="lengths at which to measure memory")
    options = parser.parse_args()
    song = options.song.absolute()
    environment = {**os.environ, "HF_HUB_OFFLINE": "1", "UV_FIND_LINKS": os.environ.get("PIP_FIND_LINKS", "")}
    python = _interpreter(environment)

    with tempfile.TemporaryDirectory() as folder:
        environment |= {"HF_HOME": folder, **_empty_cache(Path(folder, "cache"), Path(python))}
        make = _ROOT / "tests" / "support" / "make_checkpoint.py"
        subprocess.run([python, make, folder, "--full"], env=environment, check=True)
        if options.turns:
            _compare(song, options.turns, Path(folder), python, {**environment, "KELVANE_STEM_CACHE": "0"})
            _print_second_run(song, Path(folder), environment)
        for minutes in options.minutes:
            _print_peak(song, minutes, Path(folder), environment)


def _empty_cache(cache: Path, python: Path) -> dict[str, str]:
    """Makes a cache that has the workers' packages, but no stems. Returns the variables that select it."""
    (cache / "kelvane").mkdir(parents=True)
    if sys.platform == "linux":
        for item in python.parents[2].iterdir():
            if item.name != "stems":
                (cache / "kelvane" / item.name).symlink_to(item)
    uv_cache = subprocess.run([_UV, "cache", "dir"], check=True, capture_output=True, text=True).stdout.strip()
    return {"XDG_CACHE_HOME": str(cache), "UV_CACHE_DIR": uv_cache}


def _ours(song: Path, out: Path) -> list[str | Path]:
    return [_UV, "run", _SCRIPT, song, out, "--model", "htdemucs", "--stems", ",".join(_STEMS)]


def _compare(song: Path, num_turns: int, folder: Path, python: str, environment: dict[str, str]) -> None:
    ours = _ours(song, folder / "stems")
    unchanged = ["--shifts", "0", "--float32", "--clip-mode", "none"]  # without random shifts or scaling
    theirs = [python, "-m", "demucs.separate", "-n", "htdemucs", *unchanged, "-o", folder, song]

    for load in ("idle", "busy"):
        with ExitStack() as stack:
            for _ in range(os.cpu_count() or 1 if load == "busy" else 0):
                spinner = stack.enter_context(subprocess.Popen([sys.executable, "-c", "while True: pass"]))
                stack.callback(spinner.kill)
            turns = [(_run(ours, environment), _run(theirs, environment)) for _ in range(num_turns)]
        _print_turns(load, turns)
    for stem in _STEMS:
        distance = _distance(folder / "stems" / f"{stem}.wav", folder / "htdemucs" / song.stem / f"{stem}.wav")
        print(f"{stem}: {distance:.0f} dB")


def _print_second_run(song: Path, folder: Path, environment: dict[str, str]) -> None:
    first, *later = [_run(_ours(song, folder / "again"), environment) for _ in range(4)]
    second = min(later, key=lambda run: run.wall)
    print(f"first run {first.wall:.1f} s, second {second.wall:.2f} s ({second.cpu:.2f} s of CPU time)")


def _print_peak(song: Path, minutes: int, folder: Path, environment: dict[str, str]) -> None:
    """Repeats the song until it lasts this many minutes, and prints the peak memory of its separation."""
    long_song = folder / "long.wav"
    with wave.open(str(song)) as source, wave.open(str(long_song), "wb") as target:
        target.setparams(source.getparams())
        samples = source.readframes(source.getnframes())
        num_bytes = minutes * 60 * source.getframerate() * source.getnchannels() * source.getsampwidth()
        while num_bytes > 0:
            target.writeframes(samples[:num_bytes])
            num_bytes -= len(samples)
    run = _run(_ours(long_song, folder / "long"), environment)
    print(f"{minutes} minutes: {run.peak:.0f} MB, {run.wall:.0f} s")


def _interpreter(environment: dict[str, str]) -> str:
    """Installs the packages of separate.py if necessary, and returns the interpreter that has them."""
    subprocess.run([_UV, "sync", "--quiet", "--script", _SCRIPT], env=environment, check=True)
    find = [_UV, "python", "find", "--script", _SCRIPT]
    if sys.platform == "linux":
        find = [_UV, "run", "--quiet", _SCRIPT.with_name("prepare.py"), _SCRIPT]
    return subprocess.run(find, env=environment, check=True, capture_output=True, text=True).stdout.split("\n")[-2]


def _run(command: list[str | Path], environment: dict[str, str]) -> _Run:
    begin = time.monotonic()
    process = subprocess.Popen(command, env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    output, start = b"", 0.0
    while block := process.stdout.read1():
        output += block
        if not start and re.search(rb"\d%\|", output):
            start = time.monotonic() - begin
    _, status, usage = os.wait4(process.pid, 0)
    if status:
        sys.exit(output.decode())
    peak = usage.ru_maxrss / (1024 if sys.platform == "linux" else 1024**2)
    return _Run(start, time.monotonic() - begin, usage.ru_utime + usage.ru_stime, peak)


def _print_turns(load: str, turns: list[tuple[_Run, _Run]]) -> None:
    for ours, theirs in turns:
        print(
            f"{load}: {theirs.wall / ours.wall:.2f} times as fast, {theirs.cpu / ours.cpu:.2f} by CPU time;"
            f" start {ours.start:.1f} s, theirs {theirs.start:.1f} s;"
            f" {ours.wall:.0f} s, theirs {theirs.wall:.0f} s; {ours.peak:.0f} MB, theirs {theirs.peak:.0f} MB"
        )


def _distance(ours: Path, theirs: Path) -> float:
    """Returns the signal-to-difference ratio in dB. Differences count only where theirs is below full scale."""
    expected, actual = _samples(theirs), _samples(ours)
    error = np.where(np.abs(expected) < 1, actual - expected, 0)
    return 10 * np.log10(np.sum(expected**2) / max(np.sum(error**2), 1e-300))


def _samples(path: Path) -> np.ndarray:
    raw = path.read_bytes()
    return np.frombuffer(raw[raw.index(b"data") + 8 :], "<f4").astype(np.float64)


if __name__ == "__main__":
    main()
