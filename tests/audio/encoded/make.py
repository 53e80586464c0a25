#!/usr/bin/env python3
"""Encodes the same sweep in formats that know of an encoder's delay. Needs lame, ffmpeg and mutagen.

The files are kept, so that the tests need no encoder; tests/audio/FFmpegAudioFormatTest.cpp knows the sweep.
"""

import math
import struct
import subprocess
import wave
from pathlib import Path

import mutagen.mp4

FOLDER = Path(__file__).parent
NUM_SAMPLES = 20011  # a whole number of no codec's frames


def sweep(index: int) -> float:
    loudness = 0.5 if index % 4000 < 2000 else 0.1
    return loudness * math.sin(index * index * 5e-5)


def write_wav(path: Path, rate: int) -> None:
    with wave.open(str(path), "wb") as file:
        file.setparams((1, 2, rate, 0, "NONE", ""))
        file.writeframes(b"".join(struct.pack("<h", round(32767 * sweep(i))) for i in range(NUM_SAMPLES)))


def run(*command: str | Path) -> None:
    subprocess.run(command, check=True)


def ffmpeg(source: Path, *options: str, name: str) -> None:
    exact = ("-fflags", "+bitexact", "-flags:a", "+bitexact", "-map_metadata", "-1")
    run("ffmpeg", "-y", "-loglevel", "error", "-i", source, *exact, *options, FOLDER / name)


def main() -> None:
    source, slow = FOLDER / "sweep.wav", FOLDER / "slow.wav"
    write_wav(source, 44100)
    write_wav(slow, 22050)

    run("lame", "--quiet", "-V4", source, FOLDER / "tagged.mp3")
    run("lame", "--quiet", "-V4", "-t", source, FOLDER / "untagged.mp3")
    run("lame", "--quiet", "-V4", slow, FOLDER / "slow.mp3")
    ffmpeg(source, "-c:a", "aac", "-b:a", "96k", name="aac.m4a")
    fragments = ("-movflags", "+frag_keyframe+delay_moov", "-frag_duration", "100000")
    ffmpeg(source, "-c:a", "aac", "-b:a", "96k", *fragments, name="fragments.m4a")
    ffmpeg(source, "-c:a", "alac", name="alac.m4a")
    ffmpeg(source, "-c:a", "aac", "-b:a", "96k", "-use_editlist", "0", name="apple.m4a")
    ffmpeg(source, "-c:a", "libopus", "-b:a", "64k", name="opus.ogg")

    # What Apple's encoders note instead of an edit list.
    delay, padding = 1024, -(NUM_SAMPLES + 1024) % 1024
    note = f" 00000000 {delay:08X} {padding:08X} {NUM_SAMPLES:016X}" + 8 * " 00000000"
    tags = mutagen.mp4.MP4(FOLDER / "apple.m4a")
    tags["----:com.apple.iTunes:iTunSMPB"] = mutagen.mp4.MP4FreeForm(note.encode())
    tags.save()

    source.unlink()
    slow.unlink()


if __name__ == "__main__":
    main()
