# /// script
# requires-python = ">=3.11"
# dependencies = ["numpy>=2,<3", "soundfile>=0.13,<1"]
# ///
"""Composes the demo song: twelve bars in D minor at 112 BPM for drums, bass, pad and lead.

The noise is seeded, so every run produces the same song.

    uv run Resources/demo/compose.py Resources/demo/kelvane-demo.ogg
"""

import sys
from collections.abc import Iterator
from pathlib import Path

import numpy as np
import soundfile

RATE = 44100
BPM = 112.0
BEAT = 60.0 / BPM
BEATS_PER_BAR = 4
BARS = 12
TAIL_SECONDS = 1.5

Signal = np.ndarray

# Each chord is a bass note and the pad's notes, as MIDI note numbers. The C sharp in A7 resolves to D.
D_MINOR = (38, (62, 65, 69))
G_MINOR = (43, (62, 67, 70))
B_FLAT = (34, (62, 65, 70))
A_SEVEN = (33, (61, 64, 67))
CHORDS = [D_MINOR, D_MINOR, G_MINOR, D_MINOR, B_FLAT, G_MINOR, A_SEVEN, D_MINOR, D_MINOR, G_MINOR, A_SEVEN, D_MINOR]

# The lead plays phrases of two bars. A note is (beat, length in beats, MIDI note number).
PHRASE_CALL = [(0, 1, 74), (1, 0.5, 77), (1.5, 0.5, 76), (2, 1.5, 74), (4, 0.5, 74), (4.5, 0.5, 72), (5, 2, 69)]
PHRASE_ANSWER = [(0, 1, 70), (1, 0.5, 74), (1.5, 1.5, 79), (3.5, 0.5, 77), (4, 1, 77), (5, 0.5, 76), (5.5, 2, 74)]
PHRASE_CLOSE = [(0, 1, 76), (1, 0.5, 73), (1.5, 0.5, 76), (2, 1.5, 79), (4, 0.5, 77), (4.5, 0.5, 76), (5, 3, 74)]
PHRASES = {2: PHRASE_CALL, 4: PHRASE_ANSWER, 6: PHRASE_CLOSE, 8: PHRASE_CALL, 10: PHRASE_CLOSE}

BASS_RHYTHM = [(0, 0.75, 0), (0.75, 0.25, 0), (1.5, 0.5, 12), (2, 0.75, 0), (2.75, 0.25, 7), (3.5, 0.5, 12)]


def frequency(note: float) -> float:
    return 440.0 * 2.0 ** ((note - 69.0) / 12.0)


def times(seconds: float) -> Signal:
    return np.arange(int(seconds * RATE)) / RATE


def envelope(seconds: float, attack: float, release: float) -> Signal:
    t = times(seconds)
    return np.minimum(1.0, t / attack) * np.minimum(1.0, (seconds - t) / release)


def harmonics(note: float, seconds: float, count: int, slope: float) -> Signal:
    """Sums the first count harmonics of a note, except any above 0.4 * RATE. Harmonic n has amplitude 1 / n**slope."""
    t, base = times(seconds), frequency(note)
    numbers = [n for n in range(1, count + 1) if n * base < 0.4 * RATE]
    return sum(np.sin(2 * np.pi * n * base * t) / n**slope for n in numbers)


def kick() -> Signal:
    t = times(0.35)
    sweep = 48.0 * t + 4.0 * (1.0 - np.exp(-t * 30.0))
    return np.sin(2 * np.pi * sweep) * np.exp(-t * 11.0)


def snare(noise: np.random.Generator) -> Signal:
    t = times(0.22)
    rattle = np.diff(noise.standard_normal(t.size + 1)) * 0.35
    return (rattle + 0.6 * np.sin(2 * np.pi * 190.0 * t)) * np.exp(-t * 20.0)


def hat(noise: np.random.Generator, decay: float) -> Signal:
    t = times(0.12)
    hiss = np.diff(noise.standard_normal(t.size + 2), n=2)
    return 0.25 * hiss * np.exp(-t * decay)


def bass(note: int, beats: float) -> Signal:
    seconds = beats * BEAT * 0.95
    return harmonics(note, seconds, 8, 1.4) * envelope(seconds, 0.006, 0.03)


def pad(notes: tuple[int, ...]) -> Signal:
    seconds = BEATS_PER_BAR * BEAT
    return sum(harmonics(note, seconds, 5, 1.8) for note in notes) * envelope(seconds, 0.15, 0.25) / len(notes)


def lead(note: int, beats: float) -> Signal:
    seconds = beats * BEAT * 0.92
    vibrato = 1.0 + 0.15 * np.sin(2 * np.pi * 5.5 * times(seconds))
    return harmonics(note, seconds, 9, 1.2) * envelope(seconds, 0.012, 0.06) * vibrato


def drum_hits() -> Iterator[tuple[float, Signal, float, float]]:
    """Yields the beat, sound, gain and pan position of each hit. The position is from -1 (left) to 1 (right)."""
    noise = np.random.default_rng(112)
    for bar in range(BARS):
        first = bar * BEATS_PER_BAR
        for beat in (0, 2, 2.5) if bar % 2 else (0, 2):
            yield first + beat, kick(), 0.9, 0.0
        for beat in (1, 3):
            yield first + beat, snare(noise), 0.5, 0.05
        for eighth in range(8):
            yield first + eighth / 2, hat(noise, 18.0 if eighth % 4 == 3 else 60.0), 0.35, 0.3


def tones() -> Iterator[tuple[float, Signal, float, float]]:
    for bar, (root, notes) in enumerate(CHORDS):
        first = bar * BEATS_PER_BAR
        yield first, pad(notes), 0.16, -0.35
        for beat, length, interval in BASS_RHYTHM:
            yield first + beat, bass(root + interval, length), 0.26, 0.0
        for beat, length, note in PHRASES.get(bar, []):
            yield first + beat, lead(note, length), 0.17, 0.2


def mix() -> Signal:
    """Returns the song in stereo, with its peak at -1 dBFS."""
    song = np.zeros((int((BARS * BEATS_PER_BAR * BEAT + TAIL_SECONDS) * RATE), 2))
    for beat, sound, gain, place in [*drum_hits(), *tones()]:
        start = round(beat * BEAT * RATE)
        angle = (place + 1.0) * np.pi / 4.0
        song[start : start + sound.size] += gain * np.outer(sound, (np.cos(angle), np.sin(angle)))
    return song * (10.0 ** (-1.0 / 20.0) / np.abs(song).max())


def main() -> None:
    target = Path(sys.argv[1])
    soundfile.write(target, mix().astype(np.float32), RATE, format="OGG", subtype="VORBIS", compression_level=0.5)


if __name__ == "__main__":
    main()
