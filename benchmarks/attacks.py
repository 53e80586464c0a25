"""Measures how the stretch treats attacks: how far they move, how many soften, and how many sound twice.

    attacks.py [RENDER]

Renders drum-like hits, half a second apart over a sustained chord, at several speeds, and searches for each hit near
its expected place. RENDER is the kelvane-render to test; the default is the release build.
"""

import subprocess
import sys
import tempfile
import wave
from pathlib import Path

import numpy as np

_RENDER = Path(__file__).parents[1] / "build" / "release" / "bin" / "kelvane-render"
_RATE = 44100
_PERIOD = 0.5  # seconds
_STARTS = _PERIOD * np.arange(1, 199)
_SPEEDS = (0.25, 0.5, 0.75, 0.875, 1.125, 1.25, 1.5, 2, 3, 4)  # the analysis hop is a whole number of samples at each
_COMPARED = 2000  # samples at the start of a hit, which are searched for
_COPY_DISTANCE = 0.02  # seconds: a match further than this from the best one is a repeated hit


def main() -> None:
    render = Path(sys.argv[1] if len(sys.argv) > 1 else _RENDER).absolute()
    hit = _hit()
    pattern = hit[:_COMPARED]

    with tempfile.TemporaryDirectory() as folder:
        song = Path(folder, "hits.wav")
        _write(song, _song(hit))
        print("speed   moved, ms: median   most   softer by over 6 dB   twice")
        for speed in _SPEEDS:
            options = ["--full-song", "--percent", str(100 * speed - 100), "--bits", "16", "--out", folder]
            subprocess.run([render, song, *options], check=True, stdout=subprocess.DEVNULL)
            samples = _read(Path(folder, "hits - Stems", "hits - full mix.wav"))
            found = [_find(samples, pattern, start / speed, _search_radius(speed)) for start in _STARTS]
            moved, level, twice = map(np.array, zip(*filter(None, found), strict=True))
            print(
                f"{speed:5}{1000 * np.median(np.abs(moved)):19.0f}{1000 * np.abs(moved).max():7.0f}"
                f"{100 * np.mean(level < 0.5):20.0f} %{100 * np.mean(twice):6.0f} %"
            )


def _hit() -> np.ndarray:
    time = np.arange(round(0.08 * _RATE)) / _RATE
    noise = np.random.default_rng(1).standard_normal(len(time))
    return 0.7 * (np.exp(-80 * time) * np.sin(2 * np.pi * 180 * time) + 0.3 * np.exp(-300 * time) * noise)


def _song(hit: np.ndarray) -> np.ndarray:
    time = np.arange(round(_RATE * _PERIOD * (len(_STARTS) + 2))) / _RATE
    samples = 0.05 * np.sum([np.sin(2 * np.pi * frequency * time) for frequency in (220, 277, 330)], axis=0)
    for start in np.round(_STARTS * _RATE).astype(int):
        samples[start : start + len(hit)] += hit
    return samples


def _search_radius(speed: float) -> float:
    """Returns how far from its expected place a hit is searched for, in seconds. This is less than half a period."""
    return min(0.2, 0.4 * _PERIOD / speed)


def _find(samples: np.ndarray, pattern: np.ndarray, place: float, radius: float) -> tuple[float, float, bool] | None:
    """Returns the best match's distance from place in seconds, its relative level, and True if there is a second match.

    Returns None if the song ends too early.
    """
    first, last = round((place - radius) * _RATE), round((place + radius) * _RATE)
    if last + len(pattern) > len(samples):
        return None
    levels = np.correlate(samples[first : last + len(pattern)], pattern, "valid") / np.dot(pattern, pattern)
    best = int(np.argmax(levels))
    apart = np.abs(np.arange(len(levels)) - best) > _COPY_DISTANCE * _RATE
    return (first + best) / _RATE - place, float(levels[best]), bool(np.any(levels[apart] > 0.5))


def _write(path: Path, samples: np.ndarray) -> None:
    with wave.open(str(path), "wb") as file:
        file.setparams((1, 2, _RATE, 0, "NONE", ""))
        file.writeframes((32767 * samples.clip(-1, 1)).astype("<i2").tobytes())


def _read(path: Path) -> np.ndarray:
    with wave.open(str(path)) as file:
        return np.frombuffer(file.readframes(file.getnframes()), "<i2") / 32768


if __name__ == "__main__":
    main()
