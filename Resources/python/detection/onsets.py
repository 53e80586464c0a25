"""Computes onset-strength envelopes, which rise where notes and drum hits begin."""

import numpy as np

from detection.spectrum import RATE, power_spectra

SIZE, HOP = 1024, 256
FRAME_RATE = RATE / HOP

# Power is averaged over third-octave bands, whose edges are FFT bins. The bands' flux is then averaged over each of
# these ranges, in Hz: bass drum, bass, voices and chords, snare, cymbals.
_RANGES = ((0, 130), (130, 500), (500, 2000), (2000, 5000), (5000, RATE / 2))
_EDGES = np.array([1, 3, 6, 8, 10, 12, 15, 19, 24, 30, 38, 48, 60, 76, 96, 121, 152, 192, 242, 305, 384, 484, 512])


def onset_envelopes(samples: np.ndarray) -> np.ndarray:
    """Returns the spectral flux in five frequency ranges, of shape (5, frames), with slow changes in level evened out.

    Compresses logarithmically before taking differences, as in Klapuri, Eronen and Astola, "Analysis of the meter of
    acoustic musical signals" (2006).
    """
    widths = np.diff(_EDGES)
    bands = np.concatenate(
        [np.add.reduceat(power, _EDGES[:-1], axis=1) / widths for power in power_spectra(samples, SIZE, HOP)]
    )
    usual_level = (np.quantile(bands, 0.95, axis=0) + bands.mean()) / 2
    loudness = np.log1p(100 * np.sqrt(bands / (usual_level + 1e-20)))
    flux = np.pad(np.maximum(0, loudness[2:] - loudness[:-2]), ((1, 1), (0, 0)))

    centers = (_EDGES[:-1] + _EDGES[1:]) / 2 * RATE / SIZE
    envelopes = np.stack([flux[:, (low <= centers) & (centers < high)].mean(axis=1) for low, high in _RANGES])
    envelopes = np.maximum(0, envelopes - 0.5 * _smoothed(envelopes, seconds=1))
    level = _smoothed(_smoothed(envelopes.sum(axis=0), seconds=3), seconds=3)
    return envelopes / np.maximum(level, 0.1 * level.mean() + 1e-12)


def _smoothed(values: np.ndarray, seconds: float) -> np.ndarray:
    """Returns the moving average along the last axis."""
    before = after = round(seconds * FRAME_RATE / 2)
    edges = [(0, 0)] * (values.ndim - 1) + [(before + 1, after)]
    sums = np.cumsum(np.pad(values, edges, mode="edge"), axis=-1, dtype=np.float64)
    return (sums[..., before + after + 1 :] - sums[..., : -(before + after + 1)]) / (before + after + 1)
