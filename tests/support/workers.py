"""Where the workers are, what starts them, and the environments they run in."""

import os
import shutil
import subprocess
from functools import cache
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
SCRIPTS = ROOT / "Resources" / "python"
DEMO_SONG = ROOT / "Resources" / "demo" / "kelvane-demo.ogg"

BLOCK_SIZE = 8192  # what the program reads at a time

# From where the program would take it.
UV = os.environ.get("KELVANE_UV") or shutil.which("uv") or str(Path.home() / ".local/share/kelvane/uv/bin/uv")

# Where pip looks for wheels beside its index, uv shall look too. Loopback is not for a proxy.
ENVIRONMENT = os.environ | {"UV_FIND_LINKS": os.environ.get("PIP_FIND_LINKS", ""), "no_proxy": "127.0.0.1"}


@cache
def provide(script: str) -> Path:
    """Installs what a worker needs, and returns the interpreter that has it. Skips the test where it cannot be had."""
    return Path(run_uv(script, "run", SCRIPTS / "prepare.py", SCRIPTS / script).splitlines()[-1])


def run_uv(what: str, *arguments: str | Path) -> str:
    """Installs, and returns the output. Skips the test where what is wanted cannot be had, but not in CI."""
    done = subprocess.run([UV, *arguments], env=ENVIRONMENT, capture_output=True, text=True)
    if done.returncode != 0 and not os.environ.get("CI"):
        pytest.skip(f"What {what} needs could not be installed: {done.stderr.strip()}")
    assert done.returncode == 0, done.stderr
    return done.stdout


def cache_without_stems(folder: Path) -> dict[str, str]:
    """Variables for a cache of the test's own that shares nothing with the user's but the workers' packages."""
    cache = folder / "kelvane"
    cache.mkdir(parents=True)
    for item in provide("separate.py").parents[2].iterdir():
        if item.name != "stems":
            (cache / item.name).symlink_to(item)
    return {"XDG_CACHE_HOME": str(folder), "UV_CACHE_DIR": run_uv("separate.py", "cache", "dir").strip()}


def run_worker(*command: str | Path, status: int, environment: dict[str, str] = ENVIRONMENT) -> list[str]:
    """Runs a script, which has to end with the status. Returns its lines as the program sees them."""
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
