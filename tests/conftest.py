"""Provides fixtures for the tests of the workers and of the programs."""

import json
import os
import subprocess
from collections.abc import Iterator
from pathlib import Path

import pytest
from hypothesis import HealthCheck, settings

# This variable is meant only for the tests' own files. The workers must cache bytecode, as they do for a user.
os.environ.pop("PYTHONDONTWRITEBYTECODE", None)

from loopback import Loopback
from workers import ROOT, provide

# By default, Hypothesis tries the same few examples each time. HYPOTHESIS_PROFILE=long tries many random ones.
settings.register_profile(
    "default", database=None, deadline=None, derandomize=True, max_examples=50, suppress_health_check=list(HealthCheck)
)
settings.register_profile("long", settings.get_profile("default"), derandomize=False, max_examples=1000)
settings.load_profile(os.environ.get("HYPOTHESIS_PROFILE", "default"))


@pytest.fixture(scope="session")
def hub(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """Returns a folder for HF_HOME that contains a tiny untrained model under the name htdemucs."""
    folder = tmp_path_factory.mktemp("hub")
    python = provide("separate.py")
    subprocess.run([python, ROOT / "tests" / "support" / "make_checkpoint.py", folder], check=True)
    return folder


@pytest.fixture
def model_hub(hub: Path) -> Iterator[str]:
    """Yields the address of a local model hub that serves the tiny model."""
    files = {path.name: path.read_bytes() for path in hub.rglob("*") if path.suffix}
    listing = {"id": "adefossez/HTDemucs", "siblings": [{"rfilename": name} for name in files]}
    with Loopback(lambda path: files.get(path.rpartition("/")[2]) or json.dumps(listing).encode()) as server:
        yield server.address
