"""Runs commands on a system that differs from the test's."""

import subprocess
from pathlib import Path

import pytest


def with_disk(folder: Path, options: str, *command: str | Path) -> list[str | Path]:
    """Returns a command that runs with a separate disk mounted at folder. Skips the test if that is not permitted."""
    mount = f'mount -t tmpfs -o {options} tmpfs "{folder}"'
    in_namespace = ["unshare", "--mount", "--map-root-user", "sh", "-c"]
    if subprocess.run([*in_namespace, mount], capture_output=True).returncode != 0:
        pytest.skip("No disk can be mounted here")
    return [*in_namespace, f'{mount} && exec "$@"', "sh", *command]
