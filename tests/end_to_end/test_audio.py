"""Measures the length, pitch, tempo and format of kelvane-render's output independently of Kelvane's own code."""

import subprocess
from pathlib import Path

import numpy as np
import pytest
from conftest import Run, rendered
from wav import read_wav, write_wav

RATE = 44100
TONE = 440.0
CLICK_SECONDS = 0.25
NOISE = np.random.default_rng(1).uniform(-0.5, 0.5, (30000, 2))
OUT = ("--out", "out", "--full-song")


def convert(source: Path, target: Path, *options: str) -> Path:
    subprocess.run(["sox", "-D", source, *options, target], check=True)
    return target


def pitch_of(signal: np.ndarray, rate: int) -> float:
    """Returns the strongest frequency in Hz, from the highest peak of the spectrum."""
    middle = signal[signal.size // 4 : signal.size * 3 // 4]
    spectrum = np.abs(np.fft.rfft(middle * np.hanning(middle.size), 4 * middle.size))
    return float(np.argmax(spectrum) * rate / (4 * middle.size))


def click_seconds_of(signal: np.ndarray, rate: int, expected: float) -> float:
    """Returns the time between clicks, from the autocorrelation of the envelope at a lag of about eight clicks."""
    width = rate // 500
    envelope = np.convolve(np.abs(signal), np.ones(width) / width)[::width]
    envelope = envelope - envelope.mean()
    correlation = np.correlate(envelope, envelope, "full")[envelope.size - 1 :]
    first, last = (int(expected * 8 * factor * rate / width) for factor in (0.95, 1.05))
    return float(first + np.argmax(correlation[first:last])) * width / rate / 8


def test_changes_tempo_and_pitch_as_requested(render: Run) -> None:
    """Renders a song with a steady tone on the left, and four clicks a second on the right."""
    seconds = 12.0
    t = np.arange(int(seconds * RATE)) / RATE
    clicks = np.exp(-(t % CLICK_SECONDS) * 400.0) * np.sin(2 * np.pi * 1000.0 * t)
    song = write_wav(Path("song.wav"), 0.4 * np.stack([np.sin(2 * np.pi * TONE * t), clicks], axis=1), RATE)
    for arguments, rate, speed, pitch in (
        ("--percent 25", RATE, 1.25, 1.0),
        ("--percent -20 --resample", RATE, 0.8, 0.8),
        ("--bpm 120:90", RATE, 0.75, 1.0),
        ("--bpm 120:90 --resample", RATE, 0.75, 0.75),
        ("--key C:D", RATE, 1.0, 2 ** (2 / 12)),
        ("--key a:G", RATE, 1.0, 2 ** (-2 / 12)),
        ("--key C:D --resample", RATE, 2 ** (2 / 12), 2 ** (2 / 12)),
        ("--percent=10 --rate 48000", 48000, 1.1, 1.0),
    ):
        assert render(song, *OUT, "--bits", "16", *arguments.split()).returncode == 0
        samples, output_rate = read_wav(rendered("song"))
        click_seconds = CLICK_SECONDS / speed
        found = len(samples) / rate, pitch_of(samples[:, 0], rate), click_seconds_of(samples[:, 1], rate, click_seconds)
        assert (arguments, output_rate) == (arguments, rate)
        assert found[0] == pytest.approx(seconds / speed, rel=0.01), arguments
        assert found[1] == pytest.approx(TONE * pitch, rel=0.002), arguments
        assert found[2] == pytest.approx(click_seconds, rel=0.015), arguments


@pytest.mark.parametrize(
    ("suffix", "options", "rate", "channels", "bits"),
    [
        ("flac", ["-b", "24"], 96000, 6, 16),
        ("flac", ["-b", "16"], 8000, 1, 16),
        ("ogg", ["-C", "6"], 48000, 6, 24),
        ("aiff", ["-b", "16"], 44100, 2, 32),
        ("aiff", ["-b", "24"], 8000, 1, 16),
        ("wav", ["-b", "24"], 96000, 6, 24),
        ("wav", ["-b", "8"], 11025, 1, 16),
    ],
)
def test_keeps_length_rate_and_channels(
    render: Run, suffix: str, options: list[str], rate: int, channels: int, bits: int
) -> None:
    noise = NOISE.repeat(3, axis=1)[:, :channels]
    song = convert(write_wav(Path("source.wav"), noise, rate), Path(f"song.{suffix}"), *options)
    assert render(song, *OUT, "--bits", str(bits)).returncode == 0
    samples, output_rate = read_wav(rendered("song"))
    assert (samples.shape, output_rate) == (noise.shape, rate)
    if suffix != "ogg":
        assert np.abs(samples - noise).max() < (0.02 if "8" in options else 1e-3)
    kind = ["soxi", "-b"], ["soxi", "-e"]
    written = [subprocess.run([*flag, rendered("song")], capture_output=True, text=True).stdout for flag in kind]
    assert written == [f"{bits}\n", "Floating Point PCM\n" if bits == 32 else "Signed Integer PCM\n"]


def test_reads_the_available_part_of_an_incomplete_flac(render: Run) -> None:
    flac = bytearray(convert(write_wav(Path("source.wav"), NOISE, RATE), Path("source.flac")).read_bytes())
    Path("cut.flac").write_bytes(flac[: len(flac) // 2])
    flac[21:26] = bytes([flac[21] | 0x0F, 0xFF, 0xFF, 0xFF, 0xFF])  # sets all 36 bits of the stated length
    Path("endless.flac").write_bytes(flac)

    assert render("cut.flac", "endless.flac", *OUT, "--bits", "16").returncode == 0
    cut, endless = (read_wav(rendered(name))[0] for name in ("cut", "endless"))
    third = len(NOISE) // 3
    assert third < len(cut) < 2 * third
    assert np.abs(cut[:third] - NOISE[:third]).max() < 1e-3
    assert np.abs(endless - NOISE).max() < 1e-3


def test_reads_a_chained_ogg_only_if_its_links_have_the_same_format(render: Run, tmp_path: Path) -> None:
    sources = (write_wav(Path("source.wav"), NOISE[:, :channels], RATE) for channels in (2, 1))
    stereo, mono = (convert(source, Path("link.ogg")).read_bytes() for source in sources)
    Path("mixed.ogg").write_bytes(stereo + mono)
    Path("alike.ogg").write_bytes(stereo + stereo)
    result = render("mixed.ogg", "alike.ogg", *OUT)
    assert result.returncode == 1
    assert result.stderr.endswith(f"mixed.ogg: Could not read audio file:\n{tmp_path}/mixed.ogg\n")
    assert read_wav(rendered("alike"))[0].shape[1] == 2
