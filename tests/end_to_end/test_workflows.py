"""The workflows of the project's host, checked by a linter."""

import subprocess

from workers import ENVIRONMENT, ROOT, UV, run_uv

LINTER = ("tool", "run", "--quiet", "zizmor==1.32.0")


def test_workflows_are_valid_and_safe() -> None:
    run_uv("zizmor", *LINTER, "--version")
    lint = [UV, *LINTER, "--offline", "--no-progress", "--no-config", "--strict-collection", ROOT / ".github"]
    linted = subprocess.run(lint, env=ENVIRONMENT, capture_output=True, text=True)
    assert linted.returncode == 0, linted.stdout + linted.stderr
