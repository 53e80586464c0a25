#!/usr/bin/env python3
"""Makes the seeds of the fuzzers' corpora, in FOLDER/TARGET. Needs ffmpeg and flac."""

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
    "wav": ["a.wav", "pcm_f32le.wav", "pcm_s24le.wav", "pcm_u8.wav", "adpcm_ms.wav", "a.w64", "-rf64 always 64.wav"],
    "aiff": ["a.aiff", "pcm_s24be.aiff", "pcm_f32be.aiff", "pcm_s16le.aiff"],
    "flac": ["a.flac", "-frame_size 16 fine.flac", "-sample_fmt s32 deep.flac", "-compression_level 12 small.flac"],
    "ogg": ["libvorbis -q:a 0 a.ogg"],
    "ffmpeg": [
        "a.mp3", "a.m4a", "alac.m4a", "-movflags +frag_keyframe+delay_moov fragments.m4a", "libopus a.ogg",
        "a.wma", "a.aac", "a.ac3", "a.caf", "a.au", "a.tta", "a.wv", "a.mka", "a.mp2", "a.flv", "a.ts", "pcm_s16le.mov",
    ],
}  # fmt: skip


def encode(folder: Path, rate: int, channels: int, request: str) -> None:
    *options, name = request.split()
    stem, _, suffix = name.partition(".")
    codec = options.pop(0) if options and not options[0].startswith("-") else stem if "_" in stem or stem == "alac" else ""
    wave = "|".join(["0.3*sin(99*t*t*1000)+0.1*random(0)"] * channels)
    source = ["-f", "lavfi", "-i", f"aevalsrc={wave}:s={rate}:d=0.06", "-fflags", "+bitexact"]
    target = folder / f"{stem}-{rate}-{channels}.{suffix}"
    named = ["-c:a", codec] if codec else []
    subprocess.run(["ffmpeg", "-y", "-loglevel", "error", *source, *named, *options, target], check=False)


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
