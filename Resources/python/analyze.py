# /// script
# requires-python = ">=3.11,<3.15"
# dependencies = ["av==18.1.0; sys_platform != 'linux'", "numpy==2.4.6; sys_platform != 'linux'"]
# [tool.uv]
# exclude-newer = "2026-11-15T00:00:00Z"
# ///
"""Detects a song's tempo and key.

Arguments: AUDIO [--bpm] [--key]. Prints RESULT:: followed by a JSON object with "bpm", "key_index" (0 for C to
11 for B), or both.
"""

import json
import os
import sys
from pathlib import Path
from typing import TYPE_CHECKING

sys.dont_write_bytecode = True  # keeps __pycache__ out of this folder; worker.run turns bytecode back on
import worker

worker.end_with_uv()
from installation import environment

if TYPE_CHECKING:
    import numpy as np

# Four minutes are enough to detect tempo and key; an hour of audio would take a minute to read.
_MAX_SECONDS = 240
_SILENCE = 1e-4  # -80 dBFS
_HIGHEST_CEILING = 1e15  # above it, sums of squares overflow 32-bit floats


def main(arguments: list[str]) -> None:
    environment.enter(Path(__file__))
    path, *wanted = arguments
    os.environ["OPENBLAS_NUM_THREADS"] = "1"  # set before NumPy loads; OpenBLAS's idle threads only cost time
    import numpy  # noqa: F401  # imported before without_bytecode(), so that its bytecode is cached

    with worker.without_bytecode():
        from detection.key import detect_key
        from detection.tempo import detect_tempo

    samples = _samples(path)
    result: dict[str, float | int] = {}
    if "--bpm" in wanted:
        result["bpm"] = round(detect_tempo(samples), 3)
    if "--key" in wanted:
        result["key_index"] = detect_key(samples)
    print("RESULT::" + json.dumps(result))


def _samples(path: str) -> "np.ndarray":
    """Reads the song in mono, scaled to a peak of 1."""
    import numpy as np
    from detection.spectrum import RATE

    channels = np.nan_to_num(worker.read_audio(path, RATE, "stereo", _MAX_SECONDS), posinf=0, neginf=0)
    # Clip: otherwise a single damaged sample could drown out all others.
    common = float(np.quantile(np.abs(channels[:, ::16]), 0.99)) if channels.size else 0
    ceiling = min(100 * common or _HIGHEST_CEILING, _HIGHEST_CEILING)
    left, right = channels.clip(-ceiling, ceiling)
    middle = (left + right) / 2
    samples = middle if np.std(middle) > 0.1 * np.std(left) else left  # channels of opposite polarity cancel out
    name = os.path.basename(path)

    if len(samples) < RATE:
        raise worker.WorkerError(f"{name} is too short: choose a song or a loop of at least a second.")
    peak = np.abs(samples).max()
    if peak < _SILENCE:
        raise worker.WorkerError(f"{name} is silent: choose another song.")
    return samples / peak


if __name__ == "__main__":
    worker.run(main)
