"""Writes and reads WAV files, with samples of shape (frames, channels)."""

import struct
import subprocess
from pathlib import Path

import numpy as np


def write_wav(path: Path, samples: np.ndarray, rate: int) -> Path:
    """Writes floats as 16-bit WAV."""
    return _write(path, (samples * 32767).astype("<i2"), rate)


def write_float_wav(path: Path, samples: np.ndarray, rate: int) -> Path:
    """Writes 32-bit floats unchanged, even NaN and infinity."""
    return _write(path, samples.astype("<f4"), rate)


def _write(path: Path, samples: np.ndarray, rate: int) -> Path:
    code, channels, size = 3 if samples.dtype.kind == "f" else 1, samples.shape[1], samples.itemsize
    content = struct.pack(
        "<4s4sIHHIIHH", b"WAVE", b"fmt ", 16, code, channels, rate, channels * size * rate, channels * size, 8 * size
    )
    content += struct.pack("<4sI", b"data", samples.nbytes) + samples.tobytes()
    path.write_bytes(struct.pack("<4sI", b"RIFF", len(content)) + content)
    return path


def read_wav(path: Path) -> tuple[np.ndarray, int]:
    """Reads a file by another program, as floats, with its rate. Louder samples than full scale are kept."""
    probe = ["ffprobe", "-v", "error", "-show_entries", "stream=sample_rate,channels", "-of", "csv=p=0", path]
    rate, channels = map(int, subprocess.run(probe, capture_output=True, check=True).stdout.split(b","))
    decode = ["ffmpeg", "-v", "error", "-i", path, "-f", "f32le", "-"]
    raw = subprocess.run(decode, capture_output=True, check=True).stdout
    return np.frombuffer(raw, "<f4").reshape(-1, channels), rate
