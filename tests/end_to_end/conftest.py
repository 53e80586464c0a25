"""The finished programs, driven as a user or a script would drive them."""

import os
import subprocess
from collections.abc import Callable
from pathlib import Path

import numpy as np
import pytest

RENDER = os.environ["KELVANE_RENDER"]

Run = Callable[..., subprocess.CompletedProcess[str]]


@pytest.fixture
def environment(tmp_path: Path) -> dict[str, str]:
    """No display, and temporary files where the test can count them."""
    temporary = tmp_path / "temporary"
    temporary.mkdir()
    kept = {name: value for name, value in os.environ.items() if name not in ("DISPLAY", "WAYLAND_DISPLAY")}
    return {**kept, "TMPDIR": str(temporary)}


@pytest.fixture
def render(tmp_path: Path, environment: dict[str, str]) -> Run:
    """Runs kelvane-render in the test's folder."""

    def run(*arguments: str | Path, **options: object) -> subprocess.CompletedProcess[str]:
        result = subprocess.run(
            [RENDER, *map(str, arguments)],
            cwd=tmp_path,
            env=environment,
            capture_output=True,
            text=True,
            timeout=300,
            **options,
        )
        assert "Assertion" not in result.stderr
        return result

    return run


def read_wav(path: Path) -> tuple[np.ndarray, int]:
    """Reads any WAV, by another program, as floats of shape (frames, channels), with the rate."""

    def ask(flag: str) -> int:
        return int(subprocess.run(["soxi", flag, path], capture_output=True, check=True).stdout)

    raw = subprocess.run(["sox", path, "-t", "f32", "-"], capture_output=True, check=True).stdout
    return np.frombuffer(raw, "<f4").reshape(-1, ask("-c")), ask("-r")


def rendered(out: Path, song: str) -> Path:
    return out / f"{song} - Stems" / f"{song} - full mix.wav"
