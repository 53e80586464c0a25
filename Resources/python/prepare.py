# /// script
# requires-python = ">=3.11,<3.15"
# ///
"""Fetches everything that the workers need. Takes no arguments.

Prints first what is to be fetched, as "[plan] Stems: 280 MB", and then the progress of each download.
"""

import os
import subprocess
import sys
from functools import partial
from pathlib import Path

sys.dont_write_bytecode = True  # nothing is written beside the scripts
import worker

worker.end_with_uv()
import uv_tool
from environment import Environment
from setup_progress import SetupProgress

sys.dont_write_bytecode = False

_SCRIPTS = Path(__file__).parent
_PURPOSES = {"Links": "yt2wav.py", "Detection": "analyze.py", "Stems": "separate.py"}
_MODEL = "htdemucs"


def main(_: list[str]) -> None:
    progress = SetupProgress()
    progress.step("Looking for what is missing")
    provide = _provide_on_linux if sys.platform == "linux" else _provide_elsewhere
    if sys.platform == "linux":
        _print_plan()
    for script in _PURPOSES.values():
        python = provide(_SCRIPTS / script, progress)
    progress.step(f"Looking for the {_MODEL} model")
    _fetch_model(python)


def _print_plan() -> None:
    for purpose, script in _PURPOSES.items():
        environment = Environment(_SCRIPTS / script)
        worker.say(f"[plan] {purpose}: {'ready' if environment.is_ready() else _size(environment)}")
    worker.say(f"[plan] The {_MODEL} model: 84 MB, unless it is there already")


def _size(environment: Environment) -> str:
    num_bytes = environment.num_bytes_to_fetch()
    return "to fetch (size unknown)" if num_bytes is None else f"{num_bytes / 1e6:.0f} MB to fetch"


def _provide_on_linux(script: Path, progress: SetupProgress) -> Path:
    return Environment(script).provide(progress)


def _provide_elsewhere(script: Path, progress: SetupProgress) -> Path:
    uv = uv_tool.Uv(_SCRIPTS)
    uv.fetch("sync", "--script", script, on_progress=partial(progress.amount, "Fetching packages"))
    return Path(uv.run("python", "find", "--script", script).strip())


def _fetch_model(python: Path) -> None:
    begin = partial(worker.begin_child, os.getpid()) if sys.platform == "linux" else None
    command = [python, _SCRIPTS / "model_cache.py", _MODEL]
    environment = {name: value for name, value in os.environ.items() if name != "UV"}  # it is not uv that starts it
    done = subprocess.run(command, stdin=subprocess.DEVNULL, preexec_fn=begin, env=environment)
    if done.returncode != 0:
        sys.exit(1)  # the last line has been printed


if __name__ == "__main__":
    worker.run(main)
