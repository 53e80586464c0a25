"""Commands that see another system than the test does."""

import subprocess
from pathlib import Path

import pytest


def with_disk(folder: Path, options: str, *command: str | Path) -> list[str | Path]:
    """Returns a command that has a disk of its own mounted on the folder. Skips the test if that is not allowed."""
    mount = f'mount -t tmpfs -o {options} tmpfs "{folder}"'
    in_namespace = ["unshare", "--mount", "--map-root-user", "sh", "-c"]
    if subprocess.run([*in_namespace, mount], capture_output=True).returncode != 0:
        pytest.skip("No disk can be mounted here")
    return [*in_namespace, f'{mount} && exec "$@"', "sh", *command]
