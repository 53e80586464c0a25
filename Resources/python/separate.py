# /// script
# requires-python = ">=3.11,<3.15"
# dependencies = [
#   "av==18.1.0; sys_platform != 'linux'",
#   "demucs==4.1.0; sys_platform != 'linux' and (platform_machine != 'x86_64' or python_version < '3.13')",
#   "huggingface-hub==2.4.0; sys_platform != 'linux'",
#   "numpy; sys_platform != 'linux'",
#   "torch>=2.6,<2.14; sys_platform != 'linux' and (sys_platform != 'darwin' or platform_machine != 'x86_64')",
#   "tqdm==4.70.1; sys_platform != 'linux'",
# ]
# [tool.uv]
# exclude-newer = "2026-11-15T00:00:00Z"
# ///
"""Splits a song into stems with Demucs. Arguments: the song, a folder, --model NAME, --stems A,B,…

Writes each requested stem into the folder as unscaled 32-bit float WAV, and prints progress as " 12%|#         |". Also
keeps all stems in the user's cache, where the next run finds them.
"""

import argparse
import ctypes
import os
import sys
from collections.abc import Iterable
from pathlib import Path
from typing import TYPE_CHECKING

sys.dont_write_bytecode = True  # keeps __pycache__ out of this folder; worker.run turns bytecode back on
import worker

worker.end_with_uv()
from installation import environment
from separation import demucs_runner, model_cache
from separation.background import Background
from separation.decoded_song import DecodedSong
from separation.stem_cache import NewEntry, StemCache
from separation.stem_file import StemFile, file_size
from separation.stem_key import stem_key

if TYPE_CHECKING:
    import torch


def main(arguments: list[str]) -> None:
    parser = argparse.ArgumentParser()
    parser.add_argument("song")
    parser.add_argument("folder", type=Path)
    parser.add_argument("--model", required=True)
    parser.add_argument("--stems", required=True, type=lambda names: names.split(","))
    options = parser.parse_args(arguments)
    environment.enter(Path(__file__))
    options.folder.mkdir(parents=True, exist_ok=True)

    _tune()
    cache = StemCache()
    worker.say("Reading the song")
    song = DecodedSong(options.song, cache.scratch_folder(options.folder))
    key = stem_key(song.digest, options.model)
    if cache.place(key, options.stems, options.folder):
        _show(1)
    else:
        _separate(song, options, key, cache)


def _separate(song: DecodedSong, options: argparse.Namespace, key: str | None, cache: StemCache) -> None:
    worker.say(f"Loading the {options.model} model")
    model = model_cache.load(options.model).model
    for stem in options.stems:
        if stem not in model.sources:
            known = ", ".join(model.sources)
            raise worker.WorkerError(f'The {options.model} model has no stem "{stem}": choose from {known}.')

    key = key or stem_key(song.digest, options.model)  # None until the model has been fetched
    blocks = demucs_runner.separate(model, song)
    with cache.new_entry(key, len(model.sources) * file_size(song.num_samples)) as entry:
        _write(blocks, model.sources, song.num_samples, options.stems, options.folder, entry)


def _tune() -> None:
    """Sets how OpenMP's threads wait, and makes the C library keep freed memory. Call this before libraries load."""
    os.environ.setdefault("OMP_WAIT_POLICY", "PASSIVE")  # spinning threads slow down other programs
    os.environ.setdefault("GOMP_SPINCOUNT", "10000")  # but GNU's threads wake up late if they never spin

    mallopt = getattr(ctypes.CDLL(None), "mallopt", None) if sys.platform == "linux" else None
    if mallopt is not None:  # reuse the memory that torch frees: the kernel would have to clear new pages
        trim_threshold, mmap_max, arena_max = -1, -4, -8
        mallopt(trim_threshold, -1)
        mallopt(mmap_max, 0)
        mallopt(arena_max, 1)


def _write(
    blocks: "Iterable[torch.Tensor]",
    sources: list[str],
    num_samples: int,
    wanted: list[str],
    folder: Path,
    entry: NewEntry,
) -> None:
    """Writes the wanted stems into the folder and the others into the cache entry, while the separation continues."""
    files = {stem: StemFile(folder / f"{stem}.part", num_samples) for stem in wanted}

    def write(block: "torch.Tensor") -> None:
        for stem, samples in zip(sources, block.numpy(), strict=True):
            if stem in files:
                files[stem].write(samples)
            else:
                entry.write(stem, samples, num_samples)

    num_done = 0
    _show(0)
    with Background() as background:
        for block in blocks:
            background.run(write, block)
            num_done += block.shape[-1]
            _show(num_done / num_samples)
    for stem, file in files.items():
        file.close()
        file.rename(folder / f"{stem}.wav")
    entry.finish(files)


def _show(progress: float) -> None:
    worker.say(worker.bar(progress))


if __name__ == "__main__":
    worker.run(main)
