"""Length, pitch and tempo of what comes out, measured from outside."""

import subprocess
from pathlib import Path

import numpy as np
import pytest
from conftest import DEMO_SONG, Run, read_wav, rendered, write_wav

RATE = 44100
TONE = 440.0
CLICK_SECONDS = 0.25


def tone_and_clicks(seconds: float) -> np.ndarray:
    """A steady tone on the left, four clicks a second on the right."""
    t = np.arange(int(seconds * RATE)) / RATE
    clicks = np.exp(-(t % CLICK_SECONDS) * 400.0) * np.sin(2 * np.pi * 1000.0 * t)
    return np.stack([0.4 * np.sin(2 * np.pi * TONE * t), 0.4 * clicks], axis=1)


def pitch_of(signal: np.ndarray, rate: int) -> float:
    """The strongest frequency, by the spectrum's highest peak."""
    middle = signal[signal.size // 4 : signal.size * 3 // 4]
    spectrum = np.abs(np.fft.rfft(middle * np.hanning(middle.size), 4 * middle.size))
    return float(np.argmax(spectrum) * rate / (4 * middle.size))


def click_seconds_of(signal: np.ndarray, rate: int, expected: float) -> float:
    """The time between clicks, by the envelope's autocorrelation over eight of them."""
    width = rate // 500
    envelope = np.convolve(np.abs(signal), np.ones(width) / width)[::width]
    envelope = envelope - envelope.mean()
    correlation = np.correlate(envelope, envelope, "full")[envelope.size - 1 :]
    first, last = (int(expected * 8 * factor * rate / width) for factor in (0.95, 1.05))
    return float(first + np.argmax(correlation[first:last])) * width / rate / 8


CHANGES = [
    # arguments, speed, pitch factor
    (["--percent", "25"], 1.25, 1.0),
    (["--percent", "-20", "--resample"], 0.8, 0.8),
    (["--bpm", "120:90"], 0.75, 1.0),
    (["--bpm", "120:90", "--resample"], 0.75, 0.75),
    (["--key", "C:D"], 1.0, 2 ** (2 / 12)),
    (["--key", "a:G"], 1.0, 2 ** (-2 / 12)),
    (["--key", "C:D", "--resample"], 2 ** (2 / 12), 2 ** (2 / 12)),
    (["--percent=10", "--rate", "48000"], 1.1, 1.0),
]


@pytest.mark.parametrize(("arguments", "speed", "pitch"), CHANGES, ids=lambda value: str(value))
def test_tempo_and_pitch_change_as_asked(
    render: Run, tmp_path: Path, arguments: list[str], speed: float, pitch: float
) -> None:
    seconds = 12.0
    song = write_wav(tmp_path / "song.wav", tone_and_clicks(seconds), RATE)

    result = render(song, "--out", "out", "--full-song", "--bits", "16", *arguments)
    assert result.returncode == 0, result.stderr

    samples, rate = read_wav(rendered(tmp_path / "out", "song"))
    assert rate == (48000 if "--rate" in arguments else RATE)
    assert samples.shape[0] / rate == pytest.approx(seconds / speed, rel=0.01)
    assert pitch_of(samples[:, 0], rate) == pytest.approx(TONE * pitch, rel=0.002)
    assert click_seconds_of(samples[:, 1], rate, CLICK_SECONDS / speed) == pytest.approx(
        CLICK_SECONDS / speed, rel=0.015
    )


def sox_value(path: Path, flag: str) -> str:
    return subprocess.run(["soxi", flag, path], capture_output=True, text=True, check=True).stdout.strip()


@pytest.mark.parametrize(
    ("bits", "encoding"), [("16", "Signed Integer PCM"), ("24", "Signed Integer PCM"), ("32", "Floating Point PCM")]
)
def test_another_program_reads_the_demo_song(render: Run, tmp_path: Path, bits: str, encoding: str) -> None:
    assert render(DEMO_SONG, "--out", "out", "--full-song", "--bits", bits).returncode == 0

    output = rendered(tmp_path / "out", "kelvane-demo")
    assert sox_value(output, "-b") == bits
    assert sox_value(output, "-e") == encoding
    assert sox_value(output, "-c") == "2"
    assert sox_value(output, "-s") == sox_value(DEMO_SONG, "-s")


@pytest.mark.parametrize(
    ("suffix", "options"), [("flac", []), ("ogg", ["-C", "6"]), ("aiff", []), ("wav", ["-b", "24"])]
)
@pytest.mark.parametrize(("rate", "channels"), [(8000, 1), (44100, 2), (96000, 6)])
def test_source_formats_keep_length_rate_and_channels(
    render: Run, tmp_path: Path, suffix: str, options: list[str], rate: int, channels: int
) -> None:
    noise = np.random.default_rng(1).uniform(-0.5, 0.5, (rate // 2, channels))
    write_wav(tmp_path / "source.wav", noise, rate)
    song = tmp_path / f"song.{suffix}"
    subprocess.run(["sox", tmp_path / "source.wav", *options, song], check=True)

    result = render(song, "--out", "out", "--full-song", "--bits", "16")
    assert result.returncode == 0, result.stderr

    samples, output_rate = read_wav(rendered(tmp_path / "out", "song"))
    assert (samples.shape, output_rate) == (noise.shape, rate)
    if suffix != "ogg":
        assert np.abs(samples - noise).max() < 1e-3


def test_a_flac_that_was_cut_off_gives_what_is_there(render: Run, tmp_path: Path) -> None:
    noise = np.random.default_rng(1).uniform(-0.5, 0.5, (44100, 2))
    write_wav(tmp_path / "source.wav", noise, 44100)
    subprocess.run(["flac", "--silent", "-o", tmp_path / "song.flac", tmp_path / "source.wav"], check=True)
    whole = (tmp_path / "song.flac").read_bytes()
    (tmp_path / "song.flac").write_bytes(whole[: len(whole) // 2])

    assert render("song.flac", "--out", "out", "--full-song", "--bits", "16").returncode == 0

    samples, _ = read_wav(rendered(tmp_path / "out", "song"))
    assert np.abs(samples[:15000] - noise[:15000]).max() < 1e-3
    assert not samples[-15000:].any()
