"""Composes and renders labelled songs in many genres, for training the detectors.

    compose.py FOLDER COUNT [FIRST_SEED]

Needs mido, numpy, scipy, soundfile, and fluidsynth with the sound font FluidR3_GM. Writes FOLDER/wav/*.wav
(22.05 kHz mono) and FOLDER/labels.csv.
"""

import csv
import sys
from functools import partial
from multiprocessing import Pool
from pathlib import Path

import soundfile
from songs import Song
from sounds import RATE, render, treat


def make(folder: Path, seed: int) -> dict[str, object]:
    song = Song(seed)
    samples, post = treat(song, render(song))
    name = f"t{seed:04d}_{song.genre_name}"
    soundfile.write(folder / "wav" / f"{name}.wav", samples, RATE, subtype="PCM_16")
    return {
        "file": name,
        "split": "train",
        "part": "a",
        "genre": song.genre_name,
        "bpm": "" if song.genre.texture else f"{song.bpm:.4f}",
        "bpm_alt": f"{song.bpm * song.genre.alternative:.4f}" if song.genre.alternative else "",
        "key_index": song.tonic if song.has_key else "",
        "mode": song.mode,
        "post": post,
        "post_param": "",
        "loop": int(song.loop),
        "tags": "",
    }


def main() -> None:
    folder, count = Path(sys.argv[1]), int(sys.argv[2])
    first = int(sys.argv[3]) if len(sys.argv) > 3 else 0
    (folder / "wav").mkdir(parents=True, exist_ok=True)
    with Pool(2) as pool:
        rows = pool.map(partial(make, folder), range(first, first + count), chunksize=4)
    with open(folder / "labels.csv", "w", newline="") as file:
        writer = csv.DictWriter(file, rows[0].keys())
        writer.writeheader()
        writer.writerows(rows)


if __name__ == "__main__":
    main()
