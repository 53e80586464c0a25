"""Identifies a separation's result by everything it depends on, without loading Demucs."""

import hashlib
from importlib.metadata import version
from pathlib import Path

# Increase this whenever a change to our own code changes a song's stems.
_VERSION = 1

_HASH_LENGTH = 40  # of a commit in the hub


def stem_key(song_digest: str, model: str) -> str | None:
    """Returns a key for these samples, weights and versions, or None if the model is not in the hub's cache yet."""
    files = _model_files(model)
    if not files:
        return None
    packages = [f"{name} {version(name)}" for name in ("demucs", "torch")]
    parts = [str(_VERSION), *packages, *map(_content, files), song_digest]
    return hashlib.sha256("\n".join(parts).encode()).hexdigest()[:32]


def _model_files(name: str) -> list[Path]:
    """Returns the files that Demucs would load. Importing Demucs to find them would take seconds."""
    from huggingface_hub import constants

    for reference in Path(constants.HF_HUB_CACHE).glob("models--adefossez--*/refs/main"):
        snapshot = reference.parents[1] / "snapshots" / reference.read_text(errors="replace").strip()[:_HASH_LENGTH]
        if (snapshot / f"{name}.yaml").exists():
            return sorted(path for path in snapshot.iterdir() if path.suffix in (".yaml", ".safetensors"))
    return []


def _content(file: Path) -> str:
    """Returns a digest of a file. In the hub's cache, a file is a link to a target that is named after its digest."""
    content = file.resolve()
    if content.parent.name == "blobs":
        return content.name
    with content.open("rb") as opened:
        return hashlib.file_digest(opened, "sha256").hexdigest()
