"""Detects the tempo of a recording."""

import numpy as np

from detection.logit_model import learned_weights, utilities
from detection.onsets import onset_envelopes
from detection.rhythm import Periodicity, balanced_sum, features
from detection.spectrum import RATE
from detection.tempo_refinement import refined_rate, snapped_to_loop

_SLOWEST, _FASTEST = 40 / 60, 220 / 60  # beats per second; rhythm._PRIOR_BPM and the learned weights depend on them
_SEARCHED = np.log2(6)  # octaves above _SLOWEST, up to 240 BPM: a peak at 220 needs a neighbour on each side
_RELATED = (2, 1 / 2, 3 / 2, 2 / 3, 3, 1 / 3, 4 / 3, 3 / 4)


def detect_tempo(samples: np.ndarray) -> float:
    """Returns the tempo of mono samples at spectrum.RATE, in beats per minute. A drifting tempo is averaged.

    The candidates are rates at which onsets repeat. A logit model chooses one, which is then measured precisely.
    """
    envelopes = onset_envelopes(samples)
    periodicity = Periodicity.of(envelopes)
    beats = candidates(periodicity)
    beat = beats[np.argmax(utilities(features(periodicity, beats), learned_weights("tempo")))]
    beat = refined_rate(balanced_sum(envelopes), beat)
    return 60 * snapped_to_loop(beat, len(samples) / RATE)


def candidates(periodicity: Periodicity) -> np.ndarray:
    """Returns possible beat rates in Hz.

    These are the rates at which single beats, pairs and groups of four repeat most strongly, and rates in simple ratios
    to the strongest three.
    """
    rates = _SLOWEST * 2 ** np.arange(0, _SEARCHED, 1 / 70)
    repetition = periodicity.at_lags(np.array([1, 2, 4]) / rates[:, None])[-1].mean(axis=-1)
    salience = np.maximum(0, repetition) + periodicity.at_rates(rates)[-1]
    is_peak = (salience[1:-1] >= salience[:-2]) & (salience[1:-1] > salience[2:])
    peaks = np.flatnonzero(is_peak) + 1
    strongest = [_nearby_maximum(periodicity, rates[i]) for i in peaks[np.argsort(-salience[peaks])][:10]]

    result: list[float] = []
    for rate in strongest + [rate * factor for rate in strongest[:3] for factor in _RELATED]:
        if _SLOWEST <= rate <= _FASTEST and all(abs(rate / other - 1) > 0.02 for other in result):
            result.append(rate)
    return np.array(result or [2.0])


def _nearby_maximum(periodicity: Periodicity, rate: float) -> float:
    rates = rate * np.linspace(0.98, 1.02, 33)
    return float(rates[np.argmax(periodicity.at_rates(rates[:, None] * (1, 2, 4))[-1].sum(axis=-1))])
