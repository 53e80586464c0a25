#!/usr/bin/env python3
"""Encodes the same sweep in formats that can state the encoder's delay. Needs lame, ffmpeg and mutagen.

The results are in the repository, so that the tests need no encoder. tests/audio/AudioFileTest.cpp computes the same
sweep.
"""

import os
import subprocess
import tempfile
from pathlib import Path

import mutagen.mp4

FOLDER = Path(__file__).parent
NUM_SAMPLES = 20011  # not a multiple of any codec's frame
SWEEP = "aevalsrc='if(lt(mod(n,4000),2000),0.5,0.1)*sin(n*n*5e-5)':s={}," + f"atrim=end_sample={NUM_SAMPLES}"
AAC = "-c:a aac -b:a 96k"


def ffmpeg(source: str, options: str, target: Path) -> None:
    exact = "-fflags +bitexact -flags:a +bitexact -map_metadata -1"
    command = ["ffmpeg", "-y", "-loglevel", "error", *source.split(), *exact.split(), *options.split(), target]
    subprocess.run(command, check=True)


def main() -> None:
    os.chdir(tempfile.mkdtemp())
    for rate, name in (44100, "source.wav"), (22050, "slow.wav"):
        ffmpeg(f"-f lavfi -i {SWEEP.format(rate)}", "", Path(name))
    for options, name in ("", "tagged"), ("-t", "untagged"), ("", "slow"):
        wav = "slow.wav" if name == "slow" else "source.wav"
        subprocess.run(["lame", "--quiet", "-V4", *options.split(), wav, FOLDER / f"{name}.mp3"], check=True)
    for options, name in (
        (AAC, "aac.m4a"),
        (f"{AAC} -movflags +frag_keyframe+delay_moov -frag_duration 100000", "fragments.m4a"),
        ("-c:a alac", "alac.m4a"),
        (f"{AAC} -use_editlist 0", "apple.m4a"),
        ("-c:a libopus -b:a 64k", "opus.ogg"),
    ):
        ffmpeg("-i source.wav", options, FOLDER / name)

    # Apple's encoders state the delay and the padding in this tag instead of an edit list.
    delay, padding = 1024, -(NUM_SAMPLES + 1024) % 1024
    note = f" 00000000 {delay:08X} {padding:08X} {NUM_SAMPLES:016X}" + 8 * " 00000000"
    tags = mutagen.mp4.MP4(FOLDER / "apple.m4a")
    tags["----:com.apple.iTunes:iTunSMPB"] = mutagen.mp4.MP4FreeForm(note.encode())
    tags.save()


if __name__ == "__main__":
    main()
