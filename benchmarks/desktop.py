"""Opens Kelvane's window on a separate screen, for the benchmarks that use the window."""

import os
import shutil
import sys
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path

ROOT = Path(__file__).parents[1]
sys.path.append(str(ROOT / "tests" / "support"))

from screen import Screen  # noqa: E402
from window import CHOOSE_FILE, CHOOSE_FOLDER, Window  # noqa: E402

PROGRAM = ROOT / "build" / "release" / "src" / "app" / "Kelvane_artefacts" / "Release" / "Kelvane"
SONG = ROOT / "Resources" / "demo" / "kelvane-demo.ogg"


@contextmanager
def open_window(
    program: Path, environment: dict[str, str], *commands: str, **variables: str
) -> Iterator[tuple[Window, int]]:
    """Yields the window and the program's process ID. Only the program gets the variables.

    Its PATH has only "which" and the given commands, so that it finds no desktop dialogs and shows JUCE's own.
    """
    tools = Path(environment["TMPDIR"]).parent / "tools"
    tools.mkdir(exist_ok=True)
    for command in {"which", *commands} - set(os.listdir(tools)):
        (tools / command).symlink_to(shutil.which(command) or "")
    screen = Screen(environment)
    process = screen.start(str(program.absolute()), PATH=str(tools), **variables)
    try:
        yield Window(screen), process.pid
    finally:
        process.terminate()
        process.wait()
        screen.close()


def choose(window: Window, out: Path, song: Path = SONG) -> None:
    """Chooses the song, and the folder for its stems."""
    window.choose(CHOOSE_FILE, "Choose an audio file", song)
    window.choose(CHOOSE_FOLDER, "Choose the output folder", out)
