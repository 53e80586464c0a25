# /// script
# requires-python = ">=3.11,<3.15"
# ///
"""Fetches everything that the workers need: their packages and the model.

prepare.py                fetches everything. On Linux, first prints a plan: "[plan] Stems: 280 MB to fetch"
prepare.py SCRIPT         fetches the packages of one worker and prints the interpreter that has them
prepare.py --model NAME   fetches a model. Needs an interpreter that has the packages of separate.py
"""

import os
import subprocess
import sys
from functools import partial
from pathlib import Path

sys.dont_write_bytecode = True  # keeps __pycache__ out of this folder; worker.run turns bytecode back on
import worker

worker.end_with_uv()
from installation import uv_tool
from installation.environment import Environment
from installation.setup_progress import SetupProgress
from separation import model_cache

_SCRIPTS = Path(__file__).parent
_PURPOSES = {"Links": "yt2wav.py", "Detection": "analyze.py", "Stems": "separate.py"}


def main(arguments: list[str]) -> None:
    match arguments:
        case ["--model", name]:
            model_cache.load(name)
        case [script]:
            print(_provide(Path(script).absolute(), SetupProgress()))
        case _:
            _fetch_everything()


def _fetch_everything() -> None:
    progress = SetupProgress()
    progress.step("Checking what is missing")
    if sys.platform == "linux":
        _print_plan()
    for script in _PURPOSES.values():
        python = _provide(_SCRIPTS / script, progress)
    progress.step(f"Checking for the {model_cache.DEFAULT_MODEL} model")
    _fetch_model(python)


def _print_plan() -> None:
    for purpose, script in _PURPOSES.items():
        environment = Environment(_SCRIPTS / script)
        worker.say(f"[plan] {purpose}: {'ready' if environment.is_ready() else _size(environment)}")
    model, megabytes = model_cache.DEFAULT_MODEL, model_cache.DEFAULT_MEGABYTES
    worker.say(f"[plan] The {model} model: {megabytes} MB, unless it is already there")


def _size(environment: Environment) -> str:
    num_bytes = environment.num_bytes_to_fetch()
    return "to fetch (size unknown)" if num_bytes is None else f"{num_bytes / 1e6:.0f} MB to fetch"


def _provide(script: Path, progress: SetupProgress) -> Path:
    """Installs the script's packages if they are missing, and returns the interpreter that has them."""
    if sys.platform == "linux":
        return Environment(script).provide(progress)
    uv = uv_tool.Uv(_SCRIPTS)
    uv.fetch("sync", "--script", script, on_progress=partial(progress.amount, "Fetching packages"))
    return Path(uv.run("python", "find", "--script", script).strip())


def _fetch_model(python: Path) -> None:
    begin = partial(worker.begin_child, os.getpid()) if sys.platform == "linux" else None
    command = [python, __file__, "--model", model_cache.DEFAULT_MODEL]
    # UV would name uv as the child's parent.
    environment = {name: value for name, value in os.environ.items() if name != "UV"}
    done = subprocess.run(command, stdin=subprocess.DEVNULL, preexec_fn=begin, env=environment)
    if done.returncode != 0:
        sys.exit(1)  # the child has printed the reason


if __name__ == "__main__":
    worker.run(main)
