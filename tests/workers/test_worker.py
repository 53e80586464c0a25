"""worker.py without uv and without packages."""

import os
import subprocess
import sys

import pytest
from workers import SCRIPTS

UNREADABLE_PROC = """
import builtins
open = builtins.open
def refuse(path, *arguments, **options):
    if str(path).startswith("/proc"):
        raise PermissionError(13, "Permission denied", path)
    return open(path, *arguments, **options)
builtins.open = refuse
worker.end_with_uv()
print("It goes on.")
"""


def last_line(code: str, **environment: str) -> str:
    """Returns the last line of a worker whose work is the code."""
    script = f"import worker\ndef work(arguments):\n    exec({code!r})\nworker.run(work)"
    environment = {"HOME": os.environ["HOME"], "PYTHONDONTWRITEBYTECODE": "1"} | environment
    done = subprocess.run(
        [sys.executable, "-c", script], cwd=SCRIPTS, env=environment, stdout=subprocess.PIPE, text=True
    )
    return done.stdout.splitlines()[-1]


@pytest.mark.parametrize(
    ("code", "environment", "sentence"),
    [
        ("import worker; worker.cache_folder()", {"HOME": "/dev/null"}, "set HOME or XDG_CACHE_HOME to a folder"),
        ("import worker" + UNREADABLE_PROC, {"UV": "/opt/uv"}, "It goes on."),
    ],
    ids=["home", "proc"],
)
def test_works_without_a_home_folder_or_proc(code: str, environment: dict[str, str], sentence: str) -> None:
    assert sentence in last_line(code, **environment)
