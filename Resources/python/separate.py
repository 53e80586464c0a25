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
"""Splits a song into stems by Demucs. Arguments: the song, a folder, --model NAME, --stems A,B,…

Writes each wanted stem into the folder as 32-bit float WAV, as loud as Demucs gives it, and prints
the progress as " 12%|###       |".
"""

import argparse
import ctypes
import os
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from typing import TYPE_CHECKING, Any

sys.dont_write_bytecode = True  # nothing is written beside the scripts
import worker

worker.end_with_uv()
import environment
import model_cache

sys.dont_write_bytecode = False

if TYPE_CHECKING:
    import numpy as np
    import torch
    from demucs.api import Separator

_RATE = 44100  # every Demucs model's
_BLOCK = 1 << 16


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
    worker.say("Reading the song")
    with ThreadPoolExecutor(1) as pool:
        decoding = pool.submit(worker.read_audio, options.song, _RATE, "stereo")
        import demucs.api  # noqa: F401  # takes seconds, in which the song is decoded

        mix = decoding.result()

    worker.say(f"Loading the {options.model} model")
    separator = model_cache.load(options.model)
    for stem in options.stems:
        if stem not in separator.model.sources:
            known = ", ".join(separator.model.sources)
            raise worker.WorkerError(f'The {options.model} model has no stem "{stem}": choose among {known}.')

    stems = separate(separator, mix)
    for stem in options.stems:
        _write_wav(options.folder / f"{stem}.wav", stems[stem].numpy())


def _tune() -> None:
    """Sets up what libraries read when they are loaded."""
    os.environ.setdefault("OMP_WAIT_POLICY", "PASSIVE")  # spinning threads fight with the machine's other work,
    os.environ.setdefault("GOMP_SPINCOUNT", "1000")  # but GNU's wake up late from less than a moment of it

    mallopt = getattr(ctypes.CDLL(None), "mallopt", None) if sys.platform == "linux" else None
    if mallopt is not None:  # glibc: memory that torch frees is kept, as each page fetched anew has to be cleared
        trim_threshold, mmap_max, arena_max = -1, -4, -8
        mallopt(trim_threshold, -1)
        mallopt(mmap_max, 0)
        mallopt(arena_max, 1)


def separate(separator: "Separator", mix: "np.ndarray") -> "dict[str, torch.Tensor]":
    """Splits floats of shape (2, samples) into stems of the same shape, on a GPU where there is one."""
    gpu = _gpu()
    if gpu:
        try:
            return _separate_on(gpu, separator, mix)
        except RuntimeError as error:  # out of memory above all, or a GPU that this torch does not know
            reason = str(error).partition("\n")[0]
            worker.say(f"The GPU has given up, so the CPU starts again ({reason})")
    try:
        return _separate_on("cpu", separator, mix)
    except RuntimeError as error:
        if "you tried to allocate" in str(error):  # torch has no type for it
            raise MemoryError from error
        raise


def _gpu() -> str | None:
    import torch

    if torch.cuda.is_available():
        return "cuda"
    return "mps" if torch.backends.mps.is_available() else None


def _separate_on(device: str, separator: "Separator", mix: "np.ndarray") -> "dict[str, torch.Tensor]":
    import torch

    threads = f" ({torch.get_num_threads()} threads)" if device == "cpu" else ""
    worker.say(f"Separating on the {device.upper()}{threads}")
    if hasattr(torch.backends, "mha"):  # not in the last torch for Intel Macs
        torch.backends.mha.set_fastpath_enabled(False)  # slower than the fused attention behind it
    progress = _Progress()
    separator.update_parameter(device=device, shifts=0, callback=progress.chunk)

    num_samples = mix.shape[1]
    song = torch.from_numpy(mix).nan_to_num_(0, 0, 0)  # in place: a copy of the song is a lot of memory
    if num_samples == 1:
        song = song.repeat(1, 2)  # one sample has no deviation, which Demucs divides by
    stems = separator.separate_tensor(song, _RATE)[1]
    progress.reach(1)
    return {name: samples[:, :num_samples] for name, samples in stems.items()}


class _Progress:
    """Prints each whole per cent once."""

    def __init__(self) -> None:
        self._percent = -1

    def chunk(self, state: dict[str, Any]) -> None:
        """What Demucs calls at a chunk's start, up to which all is done, and at its end."""
        if state["state"] == "start":
            models = state["model_idx_in_bag"] + state["segment_offset"] / state["audio_length"]
            self.reach(models / state["models"])

    def reach(self, fraction: float) -> None:
        percent = int(100 * fraction)
        if percent > self._percent:
            self._percent = percent
            worker.say(worker.bar(fraction))


def _write_wav(path: Path, samples: "np.ndarray") -> None:
    """Writes floats of shape (2, samples). The name appears when the file is complete."""
    import av
    import numpy as np

    partial = path.with_suffix(".part")
    with av.open(str(partial), "w", format="wav", options={"rf64": "auto"}) as file:
        stream = file.add_stream("pcm_f32le", rate=_RATE, layout="stereo")
        for start in range(0, samples.shape[1], _BLOCK):
            interleaved = np.ascontiguousarray(samples[:, start : start + _BLOCK].T).reshape(1, -1)
            frame = av.AudioFrame.from_ndarray(interleaved, format="flt", layout="stereo")
            frame.sample_rate = _RATE
            file.mux(stream.encode(frame))
        file.mux(stream.encode(None))
    partial.replace(path)


if __name__ == "__main__":
    worker.run(main)
