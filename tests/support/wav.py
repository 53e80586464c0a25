"""Writes and reads audio files, with samples of shape (frames, channels)."""

import struct
import subprocess
from pathlib import Path

import numpy as np


def write_wav(path: Path, samples: np.ndarray, rate: int) -> Path:
    """Writes samples as 32-bit floats, including NaN and infinity. A one-dimensional array is mono."""
    channels = samples.shape[1] if samples.ndim == 2 else 1
    data, frame_size = samples.astype("<f4").tobytes(), 4 * channels
    form = struct.pack("<HHIIHH", 3, channels, rate, frame_size * rate, frame_size, 32)
    chunks = b"WAVEfmt " + struct.pack("<I", len(form)) + form + b"data" + struct.pack("<I", len(data)) + data
    path.write_bytes(b"RIFF" + struct.pack("<I", len(chunks)) + chunks)
    return path


def read_wav(path: Path) -> tuple[np.ndarray, int]:
    """Reads a file with ffmpeg. Returns its samples as floats, unclipped, and its sample rate."""
    command = ["ffmpeg", "-v", "error", "-i", path, "-c:a", "pcm_f32be", "-f", "au", "-"]
    content = subprocess.run(command, capture_output=True, check=True).stdout
    start, _, _, rate, channels = struct.unpack(">5I", content[4:24])
    return np.frombuffer(content, ">f4", offset=start).astype("f4").reshape(-1, channels), rate
