"""Detects the key of a recording."""

import numpy as np

from detection.logit_model import learned_weights, utilities
from detection.spectrum import RATE, power_spectra

_SIZE, _HOP = 8192, 4096
_LOWEST, _NUM_NOTES = 21, 88  # a piano's lowest MIDI note, and its number of notes
_BASS, _TREBLE = slice(28 - _LOWEST, 48 - _LOWEST), slice(52 - _LOWEST, 90 - _LOWEST)
_END_FRAMES = 16  # about 3 s


def detect_key(samples: np.ndarray) -> int:
    """Returns the tonic, 0 (C) to 11 (B), of mono samples at spectrum.RATE.

    Rates each major and minor key by the pitch-class profiles, rotated to its tonic. The rotation follows Krumhansl,
    "Cognitive Foundations of Musical Pitch" (1990); the weights were learned from songs.
    """
    return int(np.argmax(utilities(key_features(profiles(samples)), learned_weights("key")))) % 12


def key_features(pitch_classes: np.ndarray) -> np.ndarray:
    """Returns the profiles relative to each key's tonic, of shape (24, features): major keys first, then minor keys."""
    relative = np.stack([np.roll(pitch_classes, -tonic, axis=1).ravel() for tonic in range(12)])
    unused, is_major = np.zeros_like(relative), np.ones((12, 1))
    return np.vstack([np.hstack([relative, unused, is_major]), np.hstack([unused, relative, 1 - is_major])])


def profiles(samples: np.ndarray) -> np.ndarray:
    """Returns the strengths of the pitch classes, of shape (7, 12). Each row adds up to 10.

    Rows 0 to 2 are the treble, the bass and each frame's strongest bass note, over the whole recording. Rows 3 and 4
    are the treble and the bass of its beginning, and rows 5 and 6 the treble and the bass of its end.
    """
    notes = _note_magnitudes(samples)
    loudness = np.sqrt((notes**2).sum(axis=1))
    notes = notes[loudness > 1e-3 * loudness.max()] if loudness.max() > 0 else notes
    notes = np.sqrt(notes / (notes.max(axis=1, keepdims=True) + 0.05 * notes.max() + 1e-12))

    bass = notes[:, _BASS]
    strongest = np.where(bass == bass.max(axis=1, keepdims=True), bass, 0)
    parts = (notes, notes[:_END_FRAMES], notes[-_END_FRAMES:])
    whole, start, end = ((_folded(part[:, _TREBLE], _TREBLE), _folded(part[:, _BASS], _BASS)) for part in parts)
    rows = np.array([*whole, _folded(strongest, _BASS), *start, *end])
    return 10 * rows / (rows.sum(axis=1, keepdims=True) + 1e-12)


def _folded(notes: np.ndarray, pitches: slice) -> np.ndarray:
    """Sums the notes of all frames by pitch class, from C to B."""
    classes = (np.arange(_NUM_NOTES)[pitches] + _LOWEST) % 12
    return np.bincount(classes, weights=notes.sum(axis=0), minlength=12)


def _note_magnitudes(samples: np.ndarray) -> np.ndarray:
    """Returns the magnitude of the highest spectral peak at each note, of shape (frames, 88).

    The notes are relative to the recording's tuning, which is estimated first. Peaks that are out of tune count less.
    """
    frames, pitches, magnitudes, num_frames = _spectral_peaks(samples)
    loudest = np.zeros(num_frames)
    np.maximum.at(loudest, frames, magnitudes)
    is_strong = (magnitudes > 0.1 * loudest[frames]) & (np.abs(pitches - 72) < 24)
    tuning = np.angle(np.sum(magnitudes[is_strong] * np.exp(2j * np.pi * pitches[is_strong]))) / (2 * np.pi)

    offsets = pitches - tuning
    nearest = np.round(offsets).astype(int)
    in_tune = np.cos(np.pi * (offsets - nearest)) ** 2
    note = nearest - _LOWEST
    is_heard = (magnitudes > 0.003 * loudest[frames]) & (note >= 0) & (note < _NUM_NOTES)
    result = np.zeros((num_frames, _NUM_NOTES))
    np.maximum.at(result, (frames[is_heard], note[is_heard]), (magnitudes * in_tune)[is_heard])
    return result


def _spectral_peaks(samples: np.ndarray) -> tuple[np.ndarray, np.ndarray, np.ndarray, int]:
    """Returns each peak's frame, pitch (a fractional MIDI number) and magnitude, then the number of frames.

    Interpolates each peak with a parabola, as in Smith and Serra, "PARSHL: an analysis/synthesis program for
    non-harmonic sounds based on a sinusoidal representation" (1987).
    """
    lowest, highest = round(27 * _SIZE / RATE), round(4200 * _SIZE / RATE)
    frames, pitches, magnitudes, num_frames = [], [], [], 0

    for power in power_spectra(samples, _SIZE, _HOP):
        levels = np.log(power[:, lowest - 1 : highest + 2] + 1e-20)
        left, middle, right = levels[:, :-2], levels[:, 1:-1], levels[:, 2:]
        frame, index = np.nonzero((middle > left) & (middle >= right))
        before, peak, after = left[frame, index], middle[frame, index], right[frame, index]
        shift = np.clip((before - after) / (2 * (before - 2 * peak + after - 1e-12)), -0.5, 0.5)
        frames.append(frame + num_frames)
        pitches.append(69 + 12 * np.log2((index + lowest + shift) * RATE / _SIZE / 440))
        magnitudes.append(np.exp((peak - (before - after) * shift / 4) / 2))
        num_frames += len(power)
    return np.concatenate(frames), np.concatenate(pitches), np.concatenate(magnitudes), num_frames
