"""Runs Demucs on a song of any length, in constant memory."""

from collections.abc import Iterator
from typing import TYPE_CHECKING

import worker

from separation.decoded_song import DecodedSong

if TYPE_CHECKING:
    import torch
    from demucs.apply import BagOfModels, TensorChunk

_OVERLAP = 0.25  # of a chunk, as in Demucs' own command


def separate(model: "BagOfModels", song: DecodedSong) -> "Iterator[torch.Tensor]":
    """Yields consecutive parts of the stems, in tensors of shape (stems, 2, samples).

    Except for rounding, the result matches Demucs' own command without random shifts. Uses a GPU if there is one.
    """
    import torch

    network = _Network(model)
    mean, deviation = song.normalization()
    chunk_size = int(model.samplerate * model.models[0].segment)
    stride = int((1 - _OVERLAP) * chunk_size)
    fading = _fading_weights(chunk_size)
    tail, tail_weights = torch.zeros(0), torch.zeros(0)  # the previous chunk's end, beyond its stride

    for start in range(0, song.num_samples, stride):
        length = min(chunk_size, song.num_samples - start)
        weights = fading[:length].clone()
        stems = network.run(_chunk(song, start, length, chunk_size, mean, deviation)).mul_(weights)
        overlap = len(tail_weights)
        stems[..., :overlap] += tail
        weights[:overlap] += tail_weights
        tail, tail_weights = stems[..., stride:].clone(), weights[stride:]
        yield stems[..., :stride].div_(weights[:stride]).mul_(deviation).add_(mean)


def _fading_weights(size: int) -> "torch.Tensor":
    """Returns a triangular window with a peak of 1."""
    import torch

    rising = torch.arange(1, size // 2 + 1)
    falling = torch.arange(size - size // 2, 0, -1)
    return torch.cat([rising, falling]) / falling[0]


def _chunk(
    song: DecodedSong, start: int, length: int, padded_length: int, mean: float, deviation: float
) -> "TensorChunk":
    """Returns a normalized chunk, with the samples around it that Demucs uses as padding."""
    import torch
    from demucs.apply import TensorChunk

    padding = padded_length - length
    first = max(0, start - padding // 2)
    end = min(song.num_samples, start - padding // 2 + padded_length)
    around = torch.from_numpy(song.read(first, end)).sub_(mean).div_(deviation)
    return TensorChunk(around[None], start - first, length)


class _Network:
    """Runs the model chunk by chunk: on the GPU, if there is one, until a chunk fails there, and then on the CPU."""

    def __init__(self, model: "BagOfModels") -> None:
        import torch

        if hasattr(torch.backends, "mha"):  # missing from the last torch for Intel Macs
            torch.backends.mha.set_fastpath_enabled(False)  # slower than the fused attention used otherwise
        self._model = model
        self._use(_gpu() or "cpu")

    def run(self, chunk: "TensorChunk") -> "torch.Tensor":
        """Returns the chunk's stems, of shape (stems, 2, samples), in the CPU's memory."""
        if self._device != "cpu":
            try:
                return self._run(chunk)
            except RuntimeError as error:  # most often out of memory, or a GPU that this torch does not support
                reason = str(error).partition("\n")[0]
                worker.say(f"The GPU failed, so the CPU continues ({reason})")
            self._use("cpu")
        try:
            return self._run(chunk)
        except RuntimeError as error:
            if "you tried to allocate" in str(error):  # torch raises no specific type
                raise MemoryError from error
            raise

    def _use(self, device: str) -> None:
        import torch

        with worker.without_bytecode():
            from separation.network_tuning import tune

        threads = ""
        if device == "cpu":
            threads = f" ({torch.get_num_threads()} threads)"
            tune(self._model.cpu())
        worker.say(f"Separating on the {device.upper()}{threads}")
        self._device = device

    def _run(self, chunk: "TensorChunk") -> "torch.Tensor":
        from demucs.apply import apply_model

        self._model.to(self._device)  # moves the model only once; Demucs would move it back after each chunk
        return apply_model(self._model, chunk, shifts=0, split=False, device=self._device)[0].cpu()


def _gpu() -> str | None:
    import torch

    if torch.cuda.is_available():
        return "cuda"
    return "mps" if torch.backends.mps.is_available() else None
