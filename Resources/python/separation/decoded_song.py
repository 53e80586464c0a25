"""Decodes a song of any length, and stores it on disk while it is separated."""

import hashlib
import tempfile
from collections.abc import Iterator
from pathlib import Path
from typing import TYPE_CHECKING

import worker

from separation.background import Background

if TYPE_CHECKING:
    import numpy as np

RATE = 44100  # Hz, of every Demucs model

_FRAME_SIZE = 2 * 4  # bytes: one 32-bit float for each channel
_BATCH = 1 << 18  # frames


class DecodedSong:
    """Stereo floats at 44.1 kHz, in an unnamed file that disappears when the process ends, even if it is killed.

    digest depends only on the samples, not on the file that they come from.
    """

    def __init__(self, path: str, folder: Path) -> None:
        """Decodes a file into a temporary file in folder. Raises WorkerError if nothing can be decoded."""
        self._file = tempfile.TemporaryFile(dir=folder)  # noqa: SIM115  # open as long as this object exists
        digest = hashlib.sha256()

        def store(samples: bytes) -> None:
            digest.update(samples)
            self._file.write(samples)

        with Background() as background:
            for samples in _batches(path):
                background.run(store, samples)
        self._file.flush()
        self.digest = digest.hexdigest()
        self.num_samples = self._file.tell() // _FRAME_SIZE

    def read(self, start: int, end: int) -> "np.ndarray":
        """Returns samples of shape (2, end - start)."""
        import numpy as np

        self._file.seek(start * _FRAME_SIZE)
        interleaved = np.frombuffer(self._file.read((end - start) * _FRAME_SIZE), np.float32)
        return np.array(interleaved.reshape(-1, 2).T, order="C")

    def normalization(self) -> "tuple[np.float32, np.float32]":
        """Returns the mean and standard deviation of the whole song in mono, as Demucs computes them."""
        import numpy as np

        total = squares = 0.0
        for start in range(0, self.num_samples, _BATCH):
            mono = self.read(start, min(start + _BATCH, self.num_samples)).mean(0, dtype=np.float64)
            total += mono.sum()
            squares += mono @ mono
        mean = total / self.num_samples
        variance = max(squares - total * mean, 0) / max(self.num_samples - 1, 1)
        return np.float32(mean), np.float32(variance**0.5) + np.float32(1e-8)


def _batches(path: str) -> Iterator[bytes]:
    """Yields interleaved samples, with silence in place of NaN and infinity."""
    import numpy as np

    blocks, num_samples = [], 0
    for frame in worker.resampled_frames(path, RATE, "stereo", "flt"):
        block = frame.to_ndarray()
        is_finite = np.isfinite(block)
        if not is_finite.all():
            block = np.where(is_finite, block, np.float32(0))
        blocks.append(block)
        num_samples += frame.samples
        if num_samples >= _BATCH:
            yield b"".join(blocks)
            blocks, num_samples = [], 0
    yield b"".join(blocks)
