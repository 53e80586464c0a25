"""Finds, installs and runs the workers."""

import os
import shutil
import subprocess
from functools import cache
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
SCRIPTS = ROOT / "Resources" / "python"
DEMO_SONG = ROOT / "Resources" / "demo" / "kelvane-demo.ogg"

BLOCK_SIZE = 8192  # bytes: the program reads this many at a time

# The tests look for uv in some of the places where the program does.
UV = os.environ.get("KELVANE_UV") or shutil.which("uv") or str(Path.home() / ".local/share/kelvane/uv/bin/uv")

# With these variables, uv finds wheels in the folder that pip uses, and requests to the loopback interface bypass
# proxies.
ENVIRONMENT = os.environ | {"UV_FIND_LINKS": os.environ.get("PIP_FIND_LINKS", ""), "no_proxy": "127.0.0.1"}


@cache
def provide(script: str) -> Path:
    """Installs a worker's packages and returns the interpreter that has them. Skips the test if that fails."""
    return Path(run_uv(script, "run", SCRIPTS / "prepare.py", SCRIPTS / script).splitlines()[-1])


def run_uv(purpose: str, *arguments: str | Path) -> str:
    """Runs uv and returns its output. If uv fails, the test fails in CI, and is skipped elsewhere."""
    done = subprocess.run([UV, *arguments], env=ENVIRONMENT, capture_output=True, text=True)
    if done.returncode != 0 and not os.environ.get("CI"):
        pytest.skip(f"The packages for {purpose} could not be installed: {done.stderr.strip()}")
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def cache_without_stems(folder: Path) -> dict[str, str]:
    """Creates a cache that shares everything but the stems with the user's. Returns the variables that select it."""
    (folder / "kelvane").mkdir(parents=True)
    for item in provide("separate.py").parents[2].iterdir():
        if item.name != "stems":
            (folder / "kelvane" / item.name).symlink_to(item)
    return {"XDG_CACHE_HOME": str(folder), "UV_CACHE_DIR": run_uv("separate.py", "cache", "dir").strip()}


def write_script(worker: Path, path: Path, code: str) -> Path:
    """Writes a script that can import a worker's packages and the modules beside the worker."""
    block = worker.read_text().partition('"""')[0]
    path.write_text(
        f"{block}import pathlib, sys\nsys.dont_write_bytecode = True\nsys.path.insert(0, {str(SCRIPTS)!r})\n"
        f"from installation import environment\nenvironment.enter(pathlib.Path({str(worker)!r}))\n{code}"
    )
    return path


def run_worker(*command: str | Path, status: int, environment: dict[str, str] = ENVIRONMENT) -> list[str]:
    """Runs a script, which must exit with the given status. Returns its lines as the program reads them."""
    output = {"stdout": subprocess.PIPE, "stderr": subprocess.STDOUT, "text": True}
    done = subprocess.run([UV, "run", "--quiet", *command], env=environment, timeout=300, **output)
    assert done.returncode == status, done.stdout
    assert "Traceback" not in done.stdout
    return [line.strip() for line in done.stdout.splitlines() if line.strip()]


RUN_EACH = """
import {0}, worker

def main(_):
    for arguments in {1}:
        worker.say("NEXT CALL")
        try:
            {0}.main(arguments)
        except worker.WorkerError as error:
            worker.say(str(error))

worker.run(main)
"""


def run_each(
    worker: Path, folder: Path, calls: list[list[str | Path]], environment: dict[str, str] = ENVIRONMENT
) -> list[list[str]]:
    """Calls a worker's main with each list of arguments, in one process. Returns the lines that each call prints.

    The last line of a call that fails is the error message.
    """
    provide(worker.name)
    code = RUN_EACH.format(worker.stem, [list(map(str, arguments)) for arguments in calls])
    lines = run_worker(write_script(worker, folder / "each.py", code), environment=environment, status=0)
    return [call.splitlines() for call in "\n".join(lines).split("NEXT CALL\n")[1:]]
