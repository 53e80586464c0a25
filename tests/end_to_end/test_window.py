"""The program in a real window, on a screen of its own."""

import os
import subprocess
import time
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest

PROGRAM = os.environ["KELVANE_PROGRAM"]


def wait_for(condition: Callable[[], object], seconds: float = 60.0) -> object:
    """What a condition gives once it gives anything, or nothing when the time is up."""
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        if found := condition():
            return found
        time.sleep(0.05)
    return None


class Screen:
    """An X server with a window manager, and what a user sees and does there."""

    def __init__(self, environment: dict[str, str]) -> None:
        reading, writing = os.pipe()
        self.server = subprocess.Popen(
            ["Xvfb", "-displayfd", str(writing), "-screen", "0", "1600x1000x24", "-nolisten", "tcp"],
            pass_fds=[writing],
            stderr=subprocess.DEVNULL,
        )
        os.close(writing)
        with os.fdopen(reading) as display:
            self.environment = {**environment, "DISPLAY": f":{display.readline().strip()}"}
        # A window that asks to be shown before the manager has read its theme is never shown.
        ready = Path(environment["TMPDIR"]) / "window-manager-is-ready"
        self.manager = subprocess.Popen(
            ["openbox", "--startup", f"touch {ready}"], env=self.environment, stderr=subprocess.DEVNULL
        )
        assert wait_for(ready.exists), "the window manager did not start"

    def close(self) -> None:
        for process in (self.manager, self.server):
            process.terminate()
            process.wait()

    def start(self, *arguments: str) -> subprocess.Popen[bytes]:
        return subprocess.Popen([PROGRAM, *arguments], env=self.environment, stderr=subprocess.DEVNULL)

    def ask(self, *command: str) -> str:
        return subprocess.run(command, env=self.environment, capture_output=True, text=True, timeout=60).stdout

    def xdotool(self, *arguments: str) -> str:
        return self.ask("xdotool", *arguments)

    def windows(self) -> list[str]:
        return self.xdotool("search", "--onlyvisible", "--name", "^Kelvane$").split()

    def size_of(self, window: str) -> tuple[int, int]:
        shell = dict(line.split("=") for line in self.xdotool("getwindowgeometry", "--shell", window).split())
        return int(shell["WIDTH"]), int(shell["HEIGHT"])

    def outer_size_of(self, window: str) -> tuple[int, int]:
        """With the frame that the window manager draws around it."""
        extents = self.ask("xprop", "-id", window, "_NET_FRAME_EXTENTS").split("=")[1]
        left, right, top, bottom = (int(extent) for extent in extents.split(","))
        width, height = self.size_of(window)
        return width + left + right, height + top + bottom

    def drag_corner(self, window: str, right: int, down: int) -> None:
        """Resizes as a user would, with the mouse: Alt and the right button, near the bottom right corner."""
        width, height = self.size_of(window)
        self.xdotool("mousemove", "--window", window, str(width - 10), str(height - 10))
        self.xdotool("keydown", "alt", "mousedown", "3")
        for step in range(1, 11):
            self.xdotool(
                "mousemove",
                "--window",
                window,
                str(width - 10 + right * step // 10),
                str(height - 10 + down * step // 10),
            )
        self.xdotool("mouseup", "3", "keyup", "alt")


@pytest.fixture
def screen(environment: dict[str, str]) -> Iterator[Screen]:
    screen = Screen(environment)
    yield screen
    screen.close()


@pytest.fixture
def program(screen: Screen) -> Iterator[subprocess.Popen[bytes]]:
    process = screen.start("what is given here", "--is-ignored")
    yield process
    if process.poll() is None:
        process.terminate()
    process.wait()


def test_one_window_that_can_be_resized_and_closed(
    screen: Screen, program: subprocess.Popen[bytes], tmp_path: Path
) -> None:
    assert wait_for(screen.windows), "no window came up; is a Kelvane running already?"
    (window,) = screen.windows()
    assert wait_for(lambda: screen.size_of(window) == (1250, 572))

    screen.drag_corner(window, -600, -400)
    assert wait_for(lambda: screen.outer_size_of(window) == (1120, 500)), screen.outer_size_of(window)
    screen.drag_corner(window, 100, 100)
    grown = wait_for(lambda: (size := screen.size_of(window))[0] > 1200 and size[1] > 560)
    assert grown, screen.size_of(window)

    second = screen.start()
    assert second.wait(60) == 0
    assert screen.windows() == [window]
    assert program.poll() is None

    screen.xdotool("windowactivate", "--sync", window)
    screen.xdotool("key", "--clearmodifiers", "alt+F4")
    assert program.wait(60) == 0
