#!/usr/bin/env python3
"""Makes seeds for the fuzzers, in FOLDER/TARGET. Needs ffmpeg."""

import itertools
import subprocess
import sys
from pathlib import Path

PARSED = {
    "worker-output": [
        b"\x10Downloading...\r 50%\r100%\nWAV_PATH::/tmp/a song.wav\n",
        "\x03Grüße 音楽 🎛\r\n\n  WAV_PATH::relative\nRESULT::{}".encode(),
    ],
    "detection": [b'{"bpm": 128.02, "key_index": 9, "key": "A"}', b'{"bpm": -1e5, "key_index": [{"a": null}, true]}'],
    "command-line": [
        b"song.wav\n--out\ndir\n--stems\ndrums,bass\n--percent\n-12.5\n--bits\n16",
        b"--out=dir\n--bpm\nauto:90\n--rate=48000\n--full-song\n--\n-song.flac",
        b"https://example.org/video\n--key=C#:A\n--resample\n--out\n~",
        b"a.ogg\nb.ogg\n--analyze",
        b"--prepare",
    ],
}
ENCODED = {
    "wav": ["16.wav", "24.wav -c:a pcm_s24le", "32.wav -c:a pcm_f32le", "8.wav -c:a pcm_u8", "long.wav -rf64 always"],
    "aiff": ["16.aiff", "24.aiff -c:a pcm_s24be", "float.aiff -c:a pcm_f32be", "swapped.aiff -c:a pcm_s16le"],
    "flac": ["16.flac", "24.flac -sample_fmt s32", "frames.flac -frame_size 16", "small.flac -compression_level 12"],
    "ogg": ["vorbis.ogg -c:a libvorbis -q:a 0"],
    "ffmpeg": [
        "a.mp3", "a.mp2", "a.m4a", "alac.m4a -c:a alac", "fragments.m4a -movflags +frag_keyframe+delay_moov", "a.mov",
        "opus.ogg -c:a libopus", "a.wma", "a.aac", "a.ac3", "a.caf", "a.au", "a.tta", "a.wv", "a.mka", "a.flv", "a.ts",
        "adpcm.wav -c:a adpcm_ms", "a.w64",
    ],
}  # fmt: skip


def encode(folder: Path, rate: int, channels: int, request: str) -> None:
    name, *options = request.split()
    wave = "|".join(["0.3*sin(99*t*t*1000)+0.1*random(0)"] * channels)
    source = ["-f", "lavfi", "-i", f"aevalsrc={wave}:s={rate}:d=0.06", "-fflags", "+bitexact"]
    target = folder / f"{channels}-{name}"

    # Some encoders do not support every sample rate and number of channels.
    if subprocess.run(["ffmpeg", "-y", "-loglevel", "quiet", *source, *options, target]).returncode != 0:
        target.unlink(missing_ok=True)


def main() -> None:
    for target, texts in PARSED.items():
        (folder := Path(sys.argv[1]) / target).mkdir(parents=True, exist_ok=True)
        for number, text in enumerate(texts):
            (folder / f"{number}").write_bytes(text)
    for target, requests in ENCODED.items():
        (folder := Path(sys.argv[1]) / target).mkdir(parents=True, exist_ok=True)
        for request, (rate, channels) in itertools.product(requests, [(8000, 1), (48000, 2), (44100, 6)]):
            encode(folder, rate, channels, request)


if __name__ == "__main__":
    main()
