"""Renders songs with a sound font or a simple synthesizer, and imitates the flaws of recordings."""

import subprocess
import tempfile
from pathlib import Path

import numpy as np
import soundfile
from scipy.signal import butter, fftconvolve, resample_poly, sosfilt
from songs import DRUMS, Song

RATE = 22050
SOUND_FONT = "/usr/share/sounds/sf2/FluidR3_GM.sf2"


def adsr(count: int, attack: float, decay: float) -> np.ndarray:
    time = np.arange(count) / RATE
    return np.minimum(1, time / attack) * np.exp(-time / decay)


def drum(rng: np.random.Generator, kit: dict[str, float], pitch: int) -> np.ndarray:
    """Synthesizes a drum: a falling sine for pitched drums, filtered noise for the others."""
    if pitch in (DRUMS["KICK"], DRUMS["TOM"], 43, 48, DRUMS["CONGA_HI"], DRUMS["CONGA_LO"]):
        base = {
            DRUMS["KICK"]: kit["kick"],
            DRUMS["TOM"]: 100,
            43: 80,
            48: 140,
            DRUMS["CONGA_HI"]: 300,
            DRUMS["CONGA_LO"]: 200,
        }[pitch]
        count = int(RATE * (kit["kick_decay"] * 4 if pitch == DRUMS["KICK"] else 0.3))
        time = np.arange(count) / RATE
        sweep = base * (1 + (4 if pitch == DRUMS["KICK"] else 0.5) * np.exp(-time / 0.02))
        return 1.2 * np.sin(2 * np.pi * np.cumsum(sweep) / RATE) * adsr(count, 0.001, count / RATE / 4)
    low, high, decay, level = {
        DRUMS["SNARE"]: (150, 8000, kit["snare"], 0.8),
        DRUMS["CLAP"]: (800, 6000, 0.09, 0.7),
        DRUMS["RIM"]: (1500, 5000, 0.015, 0.8),
        DRUMS["CRASH"]: (3000, 10500, 0.7, 0.4),
        DRUMS["RIDE"]: (4000, 10500, 0.25, 0.3),
        DRUMS["OPEN"]: (6000, 10500, 0.15, 0.4),
        DRUMS["SHAKER"]: (5000, 10500, 0.03, 0.3),
        DRUMS["TAMB"]: (6000, 10500, 0.06, 0.4),
        DRUMS["COWBELL"]: (500, 1500, 0.06, 0.4),
        DRUMS["CLAVE"]: (2000, 2800, 0.02, 0.7),
    }.get(pitch, (6000, 10500, kit["hat"], 0.35))
    count = int(RATE * decay * 5)
    noise = sosfilt(butter(2, (low, high), "bandpass", fs=RATE, output="sos"), rng.standard_normal(count)) * adsr(
        count, 0.002 if pitch != DRUMS["SHAKER"] else 0.015, decay
    )
    if pitch == DRUMS["SNARE"]:
        noise += 0.6 * np.sin(2 * np.pi * 190 * np.arange(count) / RATE) * adsr(count, 0.001, 0.05)
    return level * noise / max(np.abs(noise).max(), 1e-9)


def synthesize(song: Song) -> np.ndarray:
    """Renders the song with synthetic sounds; the lead may glide, waver and drag like a voice."""
    rng = song.rng
    seconds_per_beat = 60 / song.bpm
    total = round((song.num_bars * song.genre.beats * seconds_per_beat + 4) * RATE)
    out, ducked = np.zeros(total), np.zeros(total)
    kit = {
        "kick": rng.uniform(40, 60),
        "kick_decay": rng.choice([0.06, 0.1, 0.25]),
        "snare": rng.uniform(0.06, 0.18),
        "hat": rng.uniform(0.015, 0.05),
    }
    timbres = [
        (rng.uniform(0.4, 2.5), rng.choice([0.005, 0.01, 0.08]), rng.choice([0.15, 0.4, 1.5]), rng.uniform(0.1, 0.35))
        for _ in range(4)
    ]
    is_voice, cache = rng.random() < 0.5, {}
    for beat, length, channel, pitch, velocity in song.notes:
        start = round(beat * seconds_per_beat * RATE)
        if channel == 9:
            if pitch not in cache:
                cache[pitch] = drum(rng, kit, pitch)
            sound, target = cache[pitch], out
        else:
            tilt, attack, decay, level = timbres[channel]
            voice = channel == 2 and is_voice
            count = int(RATE * (length * seconds_per_beat + 0.15))
            time = np.arange(count) / RATE
            hertz = 440 * 2 ** ((pitch - 69) / 12) * np.ones(count)
            if voice:
                start += max(-start, round(rng.normal(0.02, 0.03) * RATE))
                hertz *= 2 ** (
                    (0.3 * np.sin(2 * np.pi * 5.5 * time) * np.minimum(1, time * 3) - 1.5 * np.exp(-time / 0.04)) / 12
                )
                attack = 0.05
            phase = 2 * np.pi * np.cumsum(hertz) / RATE + rng.uniform(0, 6)
            sound = sum(np.sin(h * phase) / h**tilt for h in range(1, 11) if h * hertz.max() < RATE / 2)
            sound = (
                sound
                * level
                * adsr(count, attack, decay)
                * np.minimum(1, (count - np.arange(count)) / (0.04 * RATE))
                * (1.6 if channel == 1 else 1)
            )
            target = ducked
        end = min(total, start + len(sound))
        if end > start:
            target[start:end] += sound[: end - start] * velocity / 127
    if song.genre_name in ("house", "techno", "trance", "disco") and rng.random() < 0.6:  # side-chain compression
        position = (np.arange(total) / RATE / seconds_per_beat) % 1
        ducked *= np.minimum(1, 0.2 + position * 1.6)
    return out * rng.uniform(0.5, 1.2) + ducked


def render(song: Song) -> np.ndarray:
    return trim(song, synthesize(song) if song.rng.random() < song.synthetic else play(song))


def play(song: Song) -> np.ndarray:
    with tempfile.TemporaryDirectory() as folder:
        midi, wav = Path(folder) / "a.mid", Path(folder) / "a.wav"
        song.write(midi)
        subprocess.run(
            [
                "fluidsynth",
                "-ni",
                "-q",
                "-g",
                "0.5",
                "-r",
                str(RATE),
                "-T",
                "wav",
                "-O",
                "s16",
                "-F",
                wav,
                SOUND_FONT,
                midi,
            ],
            check=True,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
        )
        return soundfile.read(wav)[0].mean(axis=1)


def trim(song: Song, samples: np.ndarray) -> np.ndarray:
    """Cuts a loop exactly at its end, and some other songs to an excerpt with arbitrary ends."""
    rng, length = song.rng, song.num_bars * song.genre.beats * 60 / song.bpm
    if song.loop:
        return samples[: round(length * RATE)]
    if rng.random() < 0.35 and not song.drift:
        begin, end = rng.uniform(0, 0.4), rng.uniform(0.7, 1)
        return samples[round(begin * length * RATE) : round(end * length * RATE)]
    return samples[: round((length + 1) * RATE)]


def treat(song: Song, samples: np.ndarray) -> tuple[np.ndarray, str]:
    """Applies at most one treatment, such as mastering, noise or a change of playback speed. Also returns its name."""
    rng = song.rng
    samples = samples / max(np.abs(samples).max(), 1e-9)
    post = str(
        rng.choice(
            ["", "master", "noise", "vinyl", "lowpass", "fadein", "silence", "room"],
            p=[0.4, 0.15, 0.1, 0.1, 0.08, 0.07, 0.05, 0.05],
        )
    )
    if post == "master":
        samples = np.tanh(samples / samples.std() * 0.9)
    if post == "noise":
        samples = samples + rng.standard_normal(len(samples)) * samples.std() * 0.2
    if post == "vinyl":
        speed = int(rng.choice([980, 985, 990, 1010, 1020]))
        samples = resample_poly(samples, 1000, speed)
        song.bpm *= speed / 1000
    if post == "lowpass":
        samples = sosfilt(butter(2, rng.uniform(1500, 5000), fs=RATE, output="sos"), samples)
    if post == "fadein" and not song.loop:
        samples[: 7 * RATE] *= np.linspace(0, 1, 7 * RATE) ** 2
    if post == "silence" and not song.loop:
        samples = np.concatenate([np.zeros(round(rng.uniform(1, 7) * RATE)), samples])
    if post == "room":
        tail = rng.standard_normal(RATE // 2) * np.exp(-np.arange(RATE // 2) / RATE * 12)
        samples = samples + 0.35 * fftconvolve(samples, tail / np.linalg.norm(tail))[: len(samples)]
    return samples / max(np.abs(samples).max(), 1e-9) * 0.9, post
