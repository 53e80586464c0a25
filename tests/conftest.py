"""What the tests of the workers and those of the programs share."""

import os
import subprocess
from collections.abc import Iterator
from pathlib import Path

import pytest

# Meant for the tests' own files. The workers' packages shall be compiled once, as for a user.
os.environ.pop("PYTHONDONTWRITEBYTECODE", None)

import model_hub as hubs
from workers import ROOT, provide


@pytest.fixture(scope="session")
def hub(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """A folder for HF_HOME that holds an untrained model of a tiny size in the place of htdemucs."""
    folder = tmp_path_factory.mktemp("hub")
    python = provide("separate.py")
    subprocess.run([python, ROOT / "tests" / "support" / "make_checkpoint.py", folder], check=True)
    return folder


@pytest.fixture
def model_hub(hub: Path) -> Iterator[str]:
    """The address of a hub on loopback that has this model."""
    with hubs.serve(hub) as address:
        yield address
