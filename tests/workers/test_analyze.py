"""analyze.py as the program runs it: on songs made here, on the demo song, on odd files, and on what is no song."""

import json
from collections.abc import Callable
from itertools import pairwise
from pathlib import Path

import numpy as np
import pytest
from wav import write_float_wav
from workers import DEMO_SONG, SCRIPTS, provide, run_worker

SCRIPT = SCRIPTS / "analyze.py"
RATE = 22050
NOISE = np.random.default_rng(1).normal(0, 0.1, 3 * RATE)


@pytest.fixture(scope="module", autouse=True)
def packages() -> None:
    """Installs them before the tests, since a worker prints how that goes on."""
    provide("analyze.py")


def detect(path: Path, *flags: str) -> dict[str, float]:
    (line,) = run_worker(SCRIPT, path, *(flags or ("--bpm", "--key")), status=0)
    return json.loads(line.removeprefix("RESULT::"))


def save(path: Path, samples: np.ndarray, rate: int = RATE) -> Path:
    return write_float_wav(path, samples[:, None] if samples.ndim == 1 else samples, rate)


def drums(times: np.ndarray, kicks: tuple[int, ...] = (0, 2), rate: int = RATE) -> np.ndarray:
    """Bass drums on the given beats of a bar, snares on the second and fourth, cymbals on eighths."""
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
    """A second of each triad, over its root in the bass; not every note is quite in tune."""
    time = np.arange(RATE) / RATE

    def tone(pitch: int) -> np.ndarray:
        hertz = 440 * 2 ** ((pitch - 69 + (cents + 20 * (-1) ** pitch) / 100) / 12)
        return sum(np.sin(2 * np.pi * n * hertz * time) / n for n in range(1, 6)) * np.exp(-2 * time)

    sounds = [sum(map(tone, (36 + r, 60 + r, 60 + r + third, 67 + r))) for r, third in roots_and_thirds]
    return 0.05 * np.concatenate(sounds)


@pytest.fixture
def song() -> np.ndarray:
    """Twelve seconds at 120 BPM in E minor."""
    return drums(even(120, 24)) + triads([(4, 3), (0, 4), (9, 3), (11, 4), (4, 3), (4, 3)] * 2)


def test_demo_song() -> None:
    assert detect(DEMO_SONG) == {"bpm": pytest.approx(112, abs=0.1), "key_index": 2}


@pytest.mark.parametrize(("bpm", "kicks"), [(124.37, (0, 1, 2, 3)), (92.5, (0, 2)), (109.8, (0, 2)), (171.2, (0,))])
def test_measures_a_constant_tempo(tmp_path: Path, bpm: float, kicks: tuple[int, ...]) -> None:
    path = save(tmp_path / "song.wav", drums(even(bpm, 80), kicks))
    assert detect(path, "--bpm") == {"bpm": pytest.approx(bpm, abs=0.1)}


def test_a_device_is_refused() -> None:
    *_, last_line = run_worker(SCRIPT, "/dev/zero", "--bpm", status=1)
    assert last_line == "zero is not a file: choose another one."


def test_a_song_that_is_cut_off_while_it_is_read(tmp_path: Path) -> None:
    song = str(save(tmp_path / "song.wav", np.tile(NOISE, 10)))
    (tmp_path / "read.py").write_text(
        f"import os, sys\nsys.path.insert(0, {str(SCRIPTS)!r})\nimport worker\n"
        f"worker.run(lambda _: [os.truncate({song!r}, 9999) for _ in worker.audio_frames({song!r})])"
    )
    *_, last_line = run_worker("--python", provide("analyze.py"), tmp_path / "read.py", status=1)
    assert last_line == "song.wav became shorter while it was read: try again when it is complete."


def test_a_loop_has_whole_bars(tmp_path: Path) -> None:
    path = save(tmp_path / "loop.wav", drums(even(97.3, 8)))
    assert detect(path)["bpm"] == pytest.approx(97.3, abs=0.002)


def test_a_drifting_tempo_gives_its_mean(tmp_path: Path) -> None:
    times = np.concatenate([[0], np.cumsum(60 / (104 + 8 * np.linspace(0, 1, 108) ** 3))])
    path = save(tmp_path / "song.wav", drums(times))
    assert detect(path)["bpm"] == pytest.approx(60 * 108 / times[-1], rel=0.003)


@pytest.mark.parametrize(("tonic", "cents"), [(0, 0), (3, 38), (8, -38), (11, 0)])
@pytest.mark.parametrize(
    "cadence", [[(0, 4), (9, 3), (5, 4), (7, 4), (0, 4)], [(0, 3), (8, 4), (5, 3), (7, 4), (0, 3)]]
)
def test_finds_the_tonic(tmp_path: Path, cadence: list[tuple[int, int]], tonic: int, cents: float) -> None:
    turned = [((root + tonic) % 12, third) for root, third in cadence]
    path = save(tmp_path / "song.wav", triads(turned * 2, cents))
    assert detect(path, "--key") == {"key_index": tonic}


def damaged(song: np.ndarray) -> np.ndarray:
    song[1000:1100], song[5000], song[70000], song[90000] = np.nan, np.inf, -np.inf, 3e38
    return song


@pytest.mark.parametrize(
    "change",
    [
        damaged,
        lambda song: song * 1e4,
        lambda song: song * 1e-3,
        lambda song: np.stack([song, -song], axis=1),
        lambda song: np.stack([0 * song, song], axis=1),
        lambda song: np.repeat(song[:, None], 6, axis=1),
        lambda song: np.concatenate([np.zeros(8 * RATE), song]),
    ],
    ids=["damaged", "loud", "quiet", "opposite channels", "right only", "six channels", "late"],
)
def test_odd_signals(tmp_path: Path, song: np.ndarray, change: Callable[[np.ndarray], np.ndarray]) -> None:
    assert detect(save(tmp_path / "song.wav", change(song))) == {"bpm": pytest.approx(120, abs=0.2), "key_index": 4}


@pytest.mark.parametrize(("rate", "minutes"), [(8000, 60), (192000, 1 / 4)])
def test_odd_rates_and_lengths(tmp_path: Path, rate: int, minutes: float) -> None:
    samples = np.tile(drums(even(120, 20), rate=rate), round(6 * minutes))
    assert detect(save(tmp_path / "song.wav", samples, rate))["bpm"] == pytest.approx(120, abs=0.1)


@pytest.mark.parametrize(
    ("samples", "reason"),
    [
        (np.zeros(5 * RATE), "is silent"),
        (np.full(5 * RATE, np.nan), "is silent"),
        (NOISE[: RATE - 1], "at least a second"),
        (NOISE[:0], "empty or damaged"),
    ],
)
def test_says_what_is_wrong(tmp_path: Path, samples: np.ndarray, reason: str) -> None:
    *_, last_line = run_worker(SCRIPT, save(tmp_path / "a song.wav", samples), "--bpm", "--key", status=1)
    assert "a song.wav" in last_line
    assert reason in last_line
