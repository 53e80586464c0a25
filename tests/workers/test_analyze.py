"""Tests analyze.py on synthesized songs, on the demo song, and on odd and damaged files."""

import json
from itertools import pairwise
from pathlib import Path

import numpy as np
import pytest
from wav import write_wav
from workers import DEMO_SONG, SCRIPTS, run_each, run_worker, write_script

SCRIPT = SCRIPTS / "analyze.py"
RATE = 22050
NOISE = np.random.default_rng(1).normal(0, 0.1, RATE)
MAJOR, MINOR = [(0, 4), (9, 3), (5, 4), (7, 4), (0, 4)], [(0, 3), (8, 4), (5, 3), (7, 4), (0, 3)]


def drums(times: np.ndarray, kicks: tuple[int, ...] = (0, 2), rate: int = RATE) -> np.ndarray:
    """Synthesizes drums: kicks on the given beats of a bar, snares on the second and fourth, cymbals on the eighths."""
    samples = np.zeros(round(rate * times[-1]))
    time = np.arange(round(0.1 * rate)) / rate
    hiss = np.random.default_rng(1).standard_normal(len(time))
    kick, snare = np.exp(-40 * time) * np.sin(2 * np.pi * 55 * time), 0.3 * np.exp(-60 * time) * hiss
    cymbal = 0.1 * np.exp(-200 * time) * hiss

    for beat, (start, end) in enumerate(pairwise(times)):
        hits = [(cymbal, start), (cymbal, (start + end) / 2)]
        hits += [(kick, start)] * (beat % 4 in kicks) + [(snare, start)] * (beat % 2)
        for sound, at in hits:
            place = samples[round(at * rate) :][: len(sound)]
            place += sound[: len(place)]
    return 0.5 * samples


def even(bpm: float, beats: int) -> np.ndarray:
    return np.arange(beats + 1) * 60 / bpm


def triads(roots_and_thirds: list[tuple[int, int]], cents: float = 0) -> np.ndarray:
    """Synthesizes one second of each triad, with its root in the bass. The notes are slightly out of tune."""
    time = np.arange(RATE) / RATE

    def tone(pitch: int) -> np.ndarray:
        hertz = 440 * 2 ** ((pitch - 69 + (cents + 20 * (-1) ** pitch) / 100) / 12)
        return sum(np.sin(2 * np.pi * n * hertz * time) / n for n in range(1, 6)) * np.exp(-2 * time)

    sounds = [sum(map(tone, (36 + r, 60 + r, 60 + r + third, 67 + r))) for r, third in roots_and_thirds]
    return 0.05 * np.concatenate(sounds)


def cadence(chords: list[tuple[int, int]], tonic: int, cents: float) -> np.ndarray:
    return triads([((root + tonic) % 12, third) for root, third in chords] * 2, cents)


def tempo(bpm: float, tolerance: float = 0.1) -> dict[str, object]:
    return {"bpm": pytest.approx(bpm, abs=tolerance)}


def test_detects_tempo_and_key(tmp_path: Path) -> None:
    song = drums(even(120, 24)) + triads([(4, 3), (0, 4), (9, 3), (11, 4), (4, 3), (4, 3)] * 2)
    song_result = tempo(120, 0.2) | {"key_index": 4}
    damaged = song.copy()
    damaged[1000:1100], damaged[5000], damaged[70000], damaged[90000] = np.nan, np.inf, -np.inf, 3e38
    drift = np.concatenate([[0], np.cumsum(60 / (104 + 8 * np.linspace(0, 1, 108) ** 3))])
    steady = {124.37: (0, 1, 2, 3), 92.5: (0, 2), 109.8: (0, 2), 171.2: (0,)}
    variants = {
        "damaged": damaged,
        "loud": song * 1e4,
        "quiet": song * 1e-3,
        "opposite channels": np.stack([song, -song], axis=1),
        "right only": np.stack([0 * song, song], axis=1),
        "six channels": np.repeat(song[:, None], 6, axis=1),
        "late": np.concatenate([np.zeros(8 * RATE), song]),
    }
    cases = {
        **{f"{bpm} BPM": (drums(even(bpm, 80), kicks), RATE, tempo(bpm)) for bpm, kicks in steady.items()},
        "a loop of whole bars": (drums(even(97.3, 8)), RATE, tempo(97.3, 0.002)),
        "a drift, which gives its mean": (drums(drift), RATE, tempo(60 * 108 / drift[-1], 0.3)),
        "8 kHz, longer than what is read": (np.tile(drums(even(120, 20), rate=8000), 30), 8000, tempo(120)),
        "192 kHz": (drums(even(120, 20), rate=192000), 192000, tempo(120)),
        **{name: (samples, RATE, song_result) for name, samples in variants.items()},
    }
    for tonic, cents in ((0, 0), (3, 38), (8, -38), (11, 0)):
        for name, chords in (("major", MAJOR), ("minor", MINOR)):
            cases[f"{name} {tonic}"] = cadence(chords, tonic, cents), RATE, {"key_index": tonic}

    songs = {name: write_wav(tmp_path / f"{name}.wav", *song) for name, (*song, _) in cases.items()}
    expected = {name: result for name, (_, _, result) in cases.items()}
    songs["demo"], expected["demo"] = DEMO_SONG, tempo(112) | {"key_index": 2}

    flags = {"bpm": "--bpm", "key_index": "--key"}
    calls = [[path, *(flags[part] for part in expected[name])] for name, path in songs.items()]
    lines = [line for (line,) in run_each(SCRIPT, tmp_path, calls)]
    results = [json.loads(line.removeprefix("RESULT::")) for line in lines]
    assert dict(zip(songs, results, strict=True)) == expected


def test_explains_why_a_song_is_refused(tmp_path: Path) -> None:
    signals = {
        "is silent": np.zeros(5 * RATE),
        "silent": np.full(5 * RATE, np.nan),
        "at least a second": NOISE[:-1],
        "empty or damaged": NOISE[:0],
    }
    songs = {reason: write_wav(tmp_path / f"{len(reason)}.wav", samples, RATE) for reason, samples in signals.items()}
    songs["is not a file: choose another one."] = Path("/dev/zero")
    printed = run_each(SCRIPT, tmp_path, [[song, "--bpm", "--key"] for song in songs.values()])
    for (reason, song), (last_line,) in zip(songs.items(), printed, strict=True):
        assert song.name in last_line
        assert reason in last_line
    assert run_worker(SCRIPT, songs["is silent"], "--bpm", status=1) == printed[0]


def test_reports_a_song_that_is_cut_off_while_it_is_read(tmp_path: Path) -> None:
    song = str(write_wav(tmp_path / "song.wav", np.tile(NOISE, 30), RATE))
    read = f"for _ in worker.audio_frames({song!r}): os.truncate({song!r}, 9999)"
    script = write_script(SCRIPT, tmp_path / "read.py", f"import os, worker\nworker.run(lambda _: exec({read!r}))")
    *_, last_line = run_worker(script, status=1)
    assert last_line == "song.wav became shorter while it was read: try again when it is complete."
