"""Names what a separation's result depends on, without loading what computes it."""

import hashlib
from importlib.metadata import version
from pathlib import Path

# To be raised when the same song would give other stems for another reason than its packages.
_VERSION = 1


def stem_key(song_digest: str, model: str) -> str | None:
    """The same for the same samples, weights and versions. None where the model is not in the hub's cache yet."""
    files = _model_files(model)
    if not files:
        return None
    packages = [f"{name} {version(name)}" for name in ("demucs", "torch")]
    parts = [str(_VERSION), *packages, *map(_content, files), song_digest]
    return hashlib.sha256("\n".join(parts).encode()).hexdigest()[:32]


def _model_files(name: str) -> list[Path]:
    """Those that Demucs would load: its own look-up takes the seconds of its import."""
    from huggingface_hub import constants

    for reference in Path(constants.HF_HUB_CACHE).glob("models--adefossez--*/refs/main"):
        snapshot = reference.parents[1] / "snapshots" / reference.read_text().strip()
        if (snapshot / f"{name}.yaml").exists():
            return sorted(path for path in snapshot.iterdir() if path.suffix in (".yaml", ".safetensors"))
    return []


def _content(file: Path) -> str:
    """The hub's cache links to files that it names after their contents; where it cannot link, these are read."""
    content = file.resolve()
    if content.parent.name == "blobs":
        return content.name
    with content.open("rb") as opened:
        return hashlib.file_digest(opened, "sha256").hexdigest()
