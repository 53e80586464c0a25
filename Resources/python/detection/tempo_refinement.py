"""Refines a tempo that is known approximately."""

import numpy as np

from detection.onsets import FRAME_RATE

_MULTIPLES = np.array([1 / 2, 1, 2, 4])  # onsets repeat at these multiples of the beat's rate
_WINDOW_SECONDS = 12
_COHERENT = 0.85  # least ratio of the song's strength to its windows' mean: constant tempi gave at least 0.89
_LONGEST_LOOP_SECONDS = 30
_LOOP_TOLERANCE = 0.05  # beats


def refined_rate(envelope: np.ndarray, beat: float) -> float:
    """Returns the rate near beat, in Hz, at which the onset envelope repeats. Averages a drifting rate over windows."""
    rate, strength = _strongest_rate(envelope, beat, 0.02)
    num_frames = round(_WINDOW_SECONDS * FRAME_RATE)
    if len(envelope) < 2 * num_frames:
        return rate

    starts = np.linspace(0, len(envelope) - num_frames, 2 * len(envelope) // num_frames).astype(int)
    windows = [_strongest_rate(envelope[start : start + num_frames], beat, 0.06) for start in starts]
    rates, strengths = np.array(windows).T
    if strength * len(starts) >= _COHERENT * strengths.sum():
        return rate
    return float(np.average(rates, weights=strengths + 1e-12))


def snapped_to_loop(beat: float, seconds: float) -> float:
    """Returns the rate, in Hz, at which a loop of this length has a whole number of four-beat bars.

    Returns the given rate if the song is probably not a loop.
    """
    num_beats = 4 * round(beat * seconds / 4)
    is_loop = seconds < _LONGEST_LOOP_SECONDS and abs(beat * seconds - num_beats) < _LOOP_TOLERANCE
    return num_beats / seconds if is_loop and num_beats > 0 else beat


def _strongest_rate(envelope: np.ndarray, beat: float, span: float) -> tuple[float, float]:
    """Returns the rate between beat * (1 - span) and beat * (1 + span) with the greatest sum of Fourier magnitudes.

    Also returns the strength: this sum divided by the sum of the windowed envelope.
    """
    window = np.hanning(len(envelope) + 2)[1:-1]
    fft_size = 16 << len(envelope).bit_length()
    magnitudes = np.abs(np.fft.rfft((envelope - np.average(envelope, weights=window)) * window, fft_size))
    rates = beat * np.linspace(1 - span, 1 + span, 4001)
    index = rates[:, None] * _MULTIPLES * fft_size / FRAME_RATE
    sums = np.interp(index, np.arange(len(magnitudes)), magnitudes).sum(axis=1)
    best = np.argmax(sums)
    return float(rates[best]), float(sums[best] / ((envelope * window).sum() + 1e-12))
