"""The workers' folder, their environments and the command that runs them."""

import os
import shutil
import subprocess
from functools import cache
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
SCRIPTS = ROOT / "Resources" / "python"
DEMO_SONG = ROOT / "Resources" / "demo" / "kelvane-demo.ogg"

BLOCK_SIZE = 8192  # bytes that the program reads at a time

# Found where the program finds it.
UV = os.environ.get("KELVANE_UV") or shutil.which("uv") or str(Path.home() / ".local/share/kelvane/uv/bin/uv")

# uv finds wheels where pip does, and requests to loopback bypass proxies.
ENVIRONMENT = os.environ | {"UV_FIND_LINKS": os.environ.get("PIP_FIND_LINKS", ""), "no_proxy": "127.0.0.1"}


@cache
def provide(script: str) -> Path:
    """Installs a worker's packages and returns their interpreter. Skips the test if that is not possible."""
    return Path(run_uv(script, "run", SCRIPTS / "prepare.py", SCRIPTS / script).splitlines()[-1])


def run_uv(purpose: str, *arguments: str | Path) -> str:
    """Runs uv and returns its output. If it fails, skips the test, or fails it in CI."""
    done = subprocess.run([UV, *arguments], env=ENVIRONMENT, capture_output=True, text=True)
    if done.returncode != 0 and not os.environ.get("CI"):
        pytest.skip(f"The packages for {purpose} could not be installed: {done.stderr.strip()}")
    assert done.returncode == 0, done.stderr
    return done.stdout


def cache_without_stems(folder: Path) -> dict[str, str]:
    """Returns variables for a new cache that shares only the workers' packages with the user's."""
    cache = folder / "kelvane"
    cache.mkdir(parents=True)
    for item in provide("separate.py").parents[2].iterdir():
        if item.name != "stems":
            (cache / item.name).symlink_to(item)
    return {"XDG_CACHE_HOME": str(folder), "UV_CACHE_DIR": run_uv("separate.py", "cache", "dir").strip()}


def run_worker(*command: str | Path, status: int, environment: dict[str, str] = ENVIRONMENT) -> list[str]:
    """Runs a script, which must exit with the status. Returns its lines as the program reads them."""
    done = subprocess.run(
        [UV, "run", "--quiet", *command],
        env=environment,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        timeout=300,
    )
    assert done.returncode == status, done.stdout
    assert "Traceback" not in done.stdout
    return [line.strip() for line in done.stdout.splitlines() if line.strip()]
