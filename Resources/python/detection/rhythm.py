"""Computes features of tempo candidates: how strongly onsets repeat at the beat, its fractions and its multiples."""

from dataclasses import dataclass

import numpy as np

from detection.onsets import FRAME_RATE

_FFT_SIZE = 16384
_WINDOW_SECONDS = 12
_MULTIPLES = np.array([1 / 4, 1 / 3, 1 / 2, 2 / 3, 3 / 4, 1, 4 / 3, 3 / 2, 2, 3, 4, 6, 8])  # of the beat's rate
_LAGS = np.array([1 / 4, 1 / 3, 1 / 2, 2 / 3, 3 / 4, 1, 3 / 2, 2, 3, 4, 6, 8])  # in beats
_PHASE_MULTIPLES = np.array([1 / 4, 1 / 3, 1 / 2, 1, 2])
_PAIRS = ((0, 2), (0, 4), (2, 4), (0, 1), (1, 4))  # of bands whose alternation shows the meter
_PRIOR_BPM = np.array([45, 60, 75, 90, 105, 120, 140, 160, 185, 210])
_NEARBY = np.linspace(0.985, 1.015, 5)


@dataclass
class Periodicity:
    """Measures how strongly onsets repeat at each rate and lag. The last band is the balanced sum of the others."""

    magnitudes: np.ndarray  # (bands, frequencies): mean Fourier magnitudes of the windows, relative to the band's mean
    cross_spectra: np.ndarray  # (pairs of bands, frequencies), summed over windows
    autocorrelation: np.ndarray  # (bands, lags), 1 at lag 0

    @classmethod
    def of(cls, envelopes: np.ndarray) -> "Periodicity":
        envelopes = np.vstack([envelopes, balanced_sum(envelopes)])
        return cls(*_average_spectra(envelopes), _autocorrelation(envelopes))

    def at_rates(self, hertz: np.ndarray) -> np.ndarray:
        """Returns the greatest magnitude near each rate, of shape (bands, *rates)."""
        return _interpolated(self.magnitudes, hertz[..., None] * _NEARBY * _FFT_SIZE / FRAME_RATE).max(axis=-1)

    def at_lags(self, seconds: np.ndarray) -> np.ndarray:
        """Returns the greatest autocorrelation near each lag, of shape (bands, *lags)."""
        return _interpolated(self.autocorrelation, seconds[..., None] * _NEARBY * FRAME_RATE).max(axis=-1)

    def alternation(self, hertz: np.ndarray) -> np.ndarray:
        """Returns how strongly pairs of bands pulse together (> 0) or alternate (< 0), of shape (pairs, *rates)."""
        index = hertz * _FFT_SIZE / FRAME_RATE
        cross = _interpolated(self.cross_spectra, index)
        magnitudes = _interpolated(self.magnitudes, index)
        strength = np.stack([np.sqrt(magnitudes[first] * magnitudes[second]) for first, second in _PAIRS])
        return cross.real / (np.abs(cross) + 1e-12) * strength


def balanced_sum(envelopes: np.ndarray) -> np.ndarray:
    """Returns the sum of all bands, each divided by its mean, of shape (frames,)."""
    means = envelopes.mean(axis=1, keepdims=True)
    return (envelopes / (means + 1e-3 * means.mean() + 1e-12)).sum(axis=0)


def features(periodicity: Periodicity, beats: np.ndarray) -> np.ndarray:
    """Returns the logit model's features for each beat rate (in Hz), of shape (rates, features)."""
    rates = beats[:, None]
    magnitudes = periodicity.at_rates(rates * _MULTIPLES)
    correlations = np.clip(periodicity.at_lags(_LAGS / rates), -0.5, 1)
    alternations = periodicity.alternation(rates * _PHASE_MULTIPLES)
    prior = np.exp(-0.5 * (np.log2(rates * 60 / _PRIOR_BPM) / 0.15) ** 2)
    by_rate = [np.swapaxes(values, 0, 1).reshape(len(beats), -1) for values in (magnitudes, correlations, alternations)]
    return np.hstack([*by_rate, prior])


def _average_spectra(envelopes: np.ndarray) -> tuple[np.ndarray, np.ndarray]:
    """Returns Periodicity's magnitudes and cross-spectra, from windows that overlap by at least half.

    The windows are short, so that a drifting tempo changes little within each one.
    """
    num_frames = envelopes.shape[1]
    length = min(num_frames, round(_WINDOW_SECONDS * FRAME_RATE))
    num_windows = 1 + -(-2 * (num_frames - length) // length)
    window = np.hanning(length + 2)[1:-1]
    magnitudes = weights = cross = 0

    for start in np.linspace(0, num_frames - length, num_windows).astype(int):
        part = envelopes[:, start : start + length]
        mean = part @ window / window.sum()
        spectra = np.fft.rfft((part - mean[:, None]) * window, _FFT_SIZE)
        magnitudes = magnitudes + np.abs(spectra)
        weights = weights + mean * window.sum()
        cross = cross + np.stack([spectra[first] * spectra[second].conj() for first, second in _PAIRS])
    return magnitudes / (weights + 1e-9 * weights.sum() + 1e-12)[:, None], cross


def _autocorrelation(envelopes: np.ndarray) -> np.ndarray:
    num_frames = envelopes.shape[1]
    fft_size = 1 << (2 * num_frames - 1).bit_length()
    spectra = np.fft.rfft(envelopes - envelopes.mean(axis=1, keepdims=True), fft_size)
    sums = np.fft.irfft(np.abs(spectra) ** 2)[:, :num_frames]
    powers = sums[:, :1] + 1e-9 * sums[:, 0].sum() + 1e-12
    num_terms = num_frames - np.arange(num_frames)
    return sums / powers * num_frames / np.maximum(num_terms, num_frames / 4)


def _interpolated(table: np.ndarray, index: np.ndarray) -> np.ndarray:
    """Interpolates a table linearly at fractional indices along its last axis, clamped to its ends."""
    index = np.clip(index, 0, table.shape[-1] - 1.001)
    whole = index.astype(int)
    fraction = index - whole
    return table[..., whole] * (1 - fraction) + table[..., whole + 1] * fraction
