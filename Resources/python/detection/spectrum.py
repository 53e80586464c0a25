"""Computes the short-time spectra from which tempo and key are detected."""

from collections.abc import Iterator

import numpy as np

RATE = 22050  # Hz, of all audio that is analysed

_SAMPLES_PER_BLOCK = 1 << 20


def power_spectra(samples: np.ndarray, size: int, hop: int) -> Iterator[np.ndarray]:
    """Yields power spectra of Hann-windowed frames, hop samples apart, in blocks of shape (frames, size / 2 + 1)."""
    window = np.hanning(size + 1)[:-1].astype(np.float32)
    frames = np.lib.stride_tricks.sliding_window_view(np.pad(samples, size // 2), size)[::hop]
    step = _SAMPLES_PER_BLOCK // size

    for first in range(0, len(frames), step):
        spectra = np.fft.rfft(frames[first : first + step] * window)
        yield spectra.real**2 + spectra.imag**2
