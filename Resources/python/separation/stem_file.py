"""Writes stems as WAV files."""

import os
import struct
import zlib
from pathlib import Path
from typing import TYPE_CHECKING

from separation.decoded_song import RATE

if TYPE_CHECKING:
    import numpy as np

_FLOAT = 3  # WAV's format code
_CHANNELS = 2
_FRAME_SIZE = 4 * _CHANNELS  # bytes
_UNKNOWN = 0xFFFFFFFF  # fills RF64's 32-bit size fields; its ds64 chunk has the sizes


class StemFile:
    """A stereo WAV file of 32-bit floats, written from start to end and readable by its owner alone.

    checksum is the CRC-32 of everything written so far.
    """

    def __init__(self, path: Path, num_samples: int) -> None:
        """Writes the header, which fixes the length at num_samples."""
        self.path = path
        self.checksum = 0
        self._file = open(path, "wb", opener=_open_private)  # noqa: SIM115  # closed in close()
        self._put(_header(num_samples))

    def write(self, samples: "np.ndarray") -> None:
        """Appends floats of shape (2, samples)."""
        self._put(samples.T.tobytes())

    def close(self) -> None:
        self._file.close()

    def rename(self, path: Path) -> None:
        self.path = self.path.replace(path)

    def _put(self, data: bytes) -> None:
        self._file.write(data)
        self.checksum = zlib.crc32(data, self.checksum)


def file_size(num_samples: int) -> int:
    """Returns the size of a stem of this length, in bytes."""
    return len(_header(num_samples)) + num_samples * _FRAME_SIZE


def _open_private(path: str, flags: int) -> int:
    return os.open(path, flags, 0o600)


def _header(num_samples: int) -> bytes:
    """Returns a WAV header, or an RF64 header if the sizes exceed 32 bits."""
    data_size = num_samples * _FRAME_SIZE
    form = struct.pack("<4sIHHIIHH", b"fmt ", 16, _FLOAT, _CHANNELS, RATE, RATE * _FRAME_SIZE, _FRAME_SIZE, 32)
    riff_size = 4 + len(form) + 8 + data_size
    if riff_size < _UNKNOWN:
        return struct.pack("<4sI4s", b"RIFF", riff_size, b"WAVE") + form + struct.pack("<4sI", b"data", data_size)
    sizes = struct.pack("<4sIQQQI", b"ds64", 28, riff_size + 36, data_size, num_samples, 0)
    start = struct.pack("<4sI4s", b"RF64", _UNKNOWN, b"WAVE")
    return start + sizes + form + struct.pack("<4sI", b"data", _UNKNOWN)
