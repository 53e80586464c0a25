"""Length, pitch, tempo and format of the output, measured by other means."""

import subprocess
from pathlib import Path

import numpy as np
import pytest
from conftest import Run, rendered
from wav import read_wav, write_wav
from workers import DEMO_SONG

RATE = 44100
TONE = 440.0
CLICK_SECONDS = 0.25
NOISE = np.random.default_rng(1).uniform(-0.5, 0.5, (30000, 2))


def tone_and_clicks(seconds: float) -> np.ndarray:
    """A steady tone on the left, four clicks a second on the right."""
    t = np.arange(int(seconds * RATE)) / RATE
    clicks = np.exp(-(t % CLICK_SECONDS) * 400.0) * np.sin(2 * np.pi * 1000.0 * t)
    return np.stack([0.4 * np.sin(2 * np.pi * TONE * t), 0.4 * clicks], axis=1)


def convert(source: Path, target: Path, *options: str) -> Path:
    subprocess.run(["sox", source, *options, target], check=True)
    return target


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
def test_writes_wav_that_other_programs_read(render: Run, tmp_path: Path, bits: str, encoding: str) -> None:
    assert render(DEMO_SONG, "--out", "out", "--full-song", "--bits", bits).returncode == 0
    output = rendered(tmp_path / "out", "kelvane-demo")
    assert [sox_value(output, flag) for flag in ("-b", "-e", "-c")] == [bits, encoding, "2"]
    assert sox_value(output, "-s") == sox_value(DEMO_SONG, "-s")


@pytest.mark.parametrize(
    ("suffix", "options", "rate", "channels"),
    [
        ("flac", ["-b", "24"], 96000, 6),
        ("flac", [], 8000, 1),
        ("ogg", ["-C", "6"], 48000, 6),
        ("aiff", [], 44100, 2),
        ("aiff", ["-b", "24"], 8000, 1),
        ("wav", ["-b", "24"], 96000, 6),
        ("wav", ["-b", "8"], 11025, 1),
    ],
)
def test_keeps_length_rate_and_channels(
    render: Run, tmp_path: Path, suffix: str, options: list[str], rate: int, channels: int
) -> None:
    noise = NOISE.repeat(3, axis=1)[:, :channels]
    song = convert(write_wav(tmp_path / "source.wav", noise, rate), tmp_path / f"song.{suffix}", *options)
    assert render(song, "--out", "out", "--full-song", "--bits", "16").returncode == 0
    samples, output_rate = read_wav(rendered(tmp_path / "out", "song"))
    assert (samples.shape, output_rate) == (noise.shape, rate)
    if suffix != "ogg":
        assert np.abs(samples - noise).max() < (0.02 if "8" in options else 1e-3)


def test_all_formats_of_a_song_come_out_in_time(render: Run, tmp_path: Path) -> None:
    original = convert(DEMO_SONG, tmp_path / "wav.wav")
    for suffix in ("flac", "ogg", "aiff"):
        convert(original, tmp_path / f"{suffix}.{suffix}")
    for codec, name in (("libmp3lame", "mp3.mp3"), ("aac", "aac.m4a"), ("alac", "alac.m4a")):
        subprocess.run(["ffmpeg", "-v", "error", "-i", original, "-c:a", codec, tmp_path / name], check=True)
    songs = sorted(tmp_path.glob("*.*"))

    assert render(*songs, "--out", "out", "--full-song", "--percent", "10", "--resample").returncode == 0

    expected, _ = read_wav(rendered(tmp_path / "out", "wav"))
    for song in songs:
        samples, rate = read_wav(rendered(tmp_path / "out", song.stem))
        assert (samples.shape, rate) == (expected.shape, 44100), song
        error = np.mean((samples - expected) ** 2) / np.mean(expected**2)
        shifted = np.mean((samples[1:] - expected[:-1]) ** 2) / np.mean(expected**2)
        assert error < min(0.03, 0.5 * shifted), song


def test_reads_what_there_is_of_an_incomplete_flac(render: Run, tmp_path: Path) -> None:
    source = write_wav(tmp_path / "source.wav", NOISE, RATE)
    flac = bytearray(convert(source, tmp_path / "source.flac").read_bytes())
    (tmp_path / "cut.flac").write_bytes(flac[: len(flac) // 2])
    flac[21:26] = bytes([flac[21] | 0x0F, 0xFF, 0xFF, 0xFF, 0xFF])  # the 36 bits of its length
    (tmp_path / "endless.flac").write_bytes(flac)

    assert render("cut.flac", "endless.flac", "--out", "out", "--full-song", "--bits", "16").returncode == 0
    cut, endless = (read_wav(rendered(tmp_path / "out", name))[0] for name in ("cut", "endless"))
    third = len(NOISE) // 3
    assert third < len(cut) < 2 * third
    assert np.abs(cut[:third] - NOISE[:third]).max() < 1e-3
    assert np.abs(endless - NOISE).max() < 1e-3


def test_a_chained_ogg_plays_on_only_if_its_links_agree(render: Run, tmp_path: Path) -> None:
    stereo, mono = (
        convert(write_wav(tmp_path / "source.wav", NOISE[:, :channels], RATE), tmp_path / "link.ogg").read_bytes()
        for channels in (2, 1)
    )
    (tmp_path / "mixed.ogg").write_bytes(stereo + mono)
    (tmp_path / "alike.ogg").write_bytes(stereo + stereo)
    result = render("mixed.ogg", "alike.ogg", "--out", "out", "--full-song")
    assert result.returncode == 1
    assert result.stderr.endswith(f"mixed.ogg: Could not read audio file:\n{tmp_path}/mixed.ogg\n")
    assert read_wav(rendered(tmp_path / "out", "alike"))[0].shape[1] == 2
