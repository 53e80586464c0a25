"""Writes and reads WAV files, with samples of shape (frames, channels)."""

import struct
import wave
from pathlib import Path

import numpy as np


def write_wav(path: Path, samples: np.ndarray, rate: int) -> Path:
    """Writes floats as 16-bit WAV."""
    with wave.open(str(path), "wb") as file:
        file.setnchannels(samples.shape[1])
        file.setsampwidth(2)
        file.setframerate(rate)
        file.writeframes((samples * 32767).astype("<i2").tobytes())
    return path


IEEE_FLOAT = 3


def write_float_wav(path: Path, samples: np.ndarray, rate: int) -> Path:
    """Writes 32-bit floats unchanged, even NaN and infinity."""
    data = samples.astype("<f4").tobytes()
    channels = samples.shape[1]
    header = struct.pack("<4sIHHIIHH", b"fmt ", 16, IEEE_FLOAT, channels, rate, 4 * channels * rate, 4 * channels, 32)
    content = b"WAVE" + header + struct.pack("<4sI", b"data", len(data)) + data
    path.write_bytes(struct.pack("<4sI", b"RIFF", len(content)) + content)
    return path


def read_float_wav(path: Path) -> tuple[np.ndarray, int]:
    """Reads 32-bit floats and the rate, following the format's definition without a library."""
    content = path.read_bytes()
    assert content[:4] + content[8:12] == b"RIFFWAVE"
    chunks, position = {}, 12
    while position < len(content):
        size = int.from_bytes(content[position + 4 : position + 8], "little")
        chunks[content[position : position + 4]] = content[position + 8 : position + 8 + size]
        position += 8 + size + size % 2
    code, channels, rate = struct.unpack("<HHI", chunks[b"fmt "][:8])
    assert code == IEEE_FLOAT
    return np.frombuffer(chunks[b"data"], "<f4").reshape(-1, channels), rate
