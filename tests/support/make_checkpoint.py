"""Writes an untrained htdemucs into a Hugging Face Hub cache, where Demucs finds it without a network.

Arguments: the folder for HF_HOME, and "--full" for the real model's size instead of 1/400 of it.
Run this script with the interpreter that has the packages of separate.py.
"""

import argparse
import json
from fractions import Fraction
from pathlib import Path

import torch
from demucs.htdemucs import HTDemucs
from demucs.transformer import LayerScale
from safetensors.torch import save_file

_SOURCES = ["drums", "bass", "other", "vocals"]
_SMALL = {"channels": 4, "dconv_comp": 2, "bottom_channels": 16, "t_layers": 1, "t_heads": 2, "segment": 2}
_FULL = {"channels": 48, "bottom_channels": 512, "t_layers": 5, "dconv_mode": 3, "segment": Fraction(39, 5)}
_REVISION = "0" * 40
_SIGNATURE = "955717e8"


def write_checkpoint(hf_home: Path, sizes: dict[str, int | Fraction]) -> None:
    """Writes a model with random weights, which are the same each time."""
    torch.manual_seed(0)
    model = HTDemucs(_SOURCES, **sizes)
    for module in model.modules():
        if isinstance(module, LayerScale):  # initially near 0, which would mute the layer's branch
            torch.nn.init.constant_(module.scale, 0.2)

    repository = hf_home / "hub" / "models--adefossez--HTDemucs"
    snapshot = repository / "snapshots" / _REVISION
    snapshot.mkdir(parents=True)
    (repository / "refs").mkdir()
    (repository / "refs" / "main").write_text(_REVISION)
    (snapshot / "htdemucs.yaml").write_text(f"models: ['{_SIGNATURE}']\n")
    metadata = {
        "klass": "demucs.htdemucs.HTDemucs",
        "args": json.dumps([_SOURCES]),
        "kwargs": json.dumps(sizes, default=_encode_fraction),
    }
    save_file(model.half().state_dict(), snapshot / f"{_SIGNATURE}.safetensors", metadata)


def _encode_fraction(value: Fraction) -> dict[str, str | int]:
    return {"_type": "fraction", "numerator": value.numerator, "denominator": value.denominator}


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("hf_home", type=Path)
    parser.add_argument("--full", action="store_true")
    options = parser.parse_args()
    write_checkpoint(options.hf_home, _FULL if options.full else _SMALL)
