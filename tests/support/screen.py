"""A separate screen for a program with a window."""

import os
import struct
import subprocess
import sys
import time
import zlib
from collections.abc import Callable
from pathlib import Path
from typing import TypeVar

import numpy as np

Found = TypeVar("Found")


def wait_for(condition: Callable[[], Found], seconds: float = 60.0) -> Found | None:
    """Returns the condition's result as soon as it is true, or None after a timeout."""
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        if found := condition():
            return found
        time.sleep(0.05)
    return None


class Screen:
    """An X server with a window manager, and a user's eyes and hands."""

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

    def start(self, *command: str, **variables: str) -> subprocess.Popen[bytes]:
        return subprocess.Popen(command, env=self.environment | variables, stderr=subprocess.DEVNULL)

    def ask(self, *command: str) -> str:
        return subprocess.run(command, env=self.environment, capture_output=True, text=True, timeout=60).stdout

    def xdotool(self, *arguments: str) -> str:
        return self.ask("xdotool", *arguments)

    def windows(self, title: str = "Kelvane") -> list[str]:
        return self.xdotool("search", "--onlyvisible", "--name", f"^{title}$").split()

    def window_with(self, title: str, seconds: float = 60.0) -> str:
        window = self.find_window(title, seconds)
        assert window, f"there is no window {title!r}"
        return window

    def find_window(self, title: str, seconds: float) -> str | None:
        """Waits for a window that no longer changes: JUCE creates them small, and some of them twice."""

        def look() -> list[tuple[str, tuple[int, int]]]:
            return [(window, self.size_of(window)) for window in self.windows(title)]

        def one_that_stays() -> str | None:
            found = look()
            time.sleep(0.2)
            stays = len(found) == 1 and found[0][1] > (100, 100) and look() == found
            return found[0][0] if stays else None

        return wait_for(one_that_stays, seconds)

    def size_of(self, window: str) -> tuple[int, int]:
        """Returns width and height, or zeros if the window has gone."""
        shell = dict(line.split("=") for line in self.xdotool("getwindowgeometry", "--shell", window).split())
        return int(shell.get("WIDTH", 0)), int(shell.get("HEIGHT", 0))

    def outer_size_of(self, window: str) -> tuple[int, int]:
        """Returns width and height, including the window manager's frame."""
        extents = self.ask("xprop", "-id", window, "_NET_FRAME_EXTENTS").split("=")[1]
        left, right, top, bottom = (int(extent) for extent in extents.split(","))
        width, height = self.size_of(window)
        return width + left + right, height + top + bottom

    def drag_corner(self, window: str, right: int, down: int) -> None:
        """Resizes with the mouse, as a user would: with Alt and the right button near the bottom right corner."""
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

    def click(self, window: str, x: int, y: int) -> None:
        self.xdotool("mousemove", "--window", window, str(x), str(y), "click", "1")

    def drop(self, window: str, x: int, y: int, kind: str, data: str) -> None:
        """Drops data of a MIME type at a point in a window."""
        place = dict(line.split("=") for line in self.xdotool("getwindowgeometry", "--shell", window).split())
        point = str(int(place["X"]) + x), str(int(place["Y"]) + y)
        command = [sys.executable, str(Path(__file__).with_name("drag.py")), window, *point, kind, data]
        subprocess.run(command, env=self.environment, check=True, timeout=60)

    def press(self, *keys: str) -> None:
        self.xdotool("key", "--clearmodifiers", *keys)

    def picture_of(self, window: str) -> np.ndarray:
        """Returns the pixels of a window, or of "root", of shape (height, width, 3): RGB from 0 to 255."""
        which = ["-root"] if window == "root" else ["-id", window]
        dump = subprocess.run(
            ["xwd", "-silent", *which], env=self.environment, capture_output=True, check=True, timeout=60
        ).stdout
        header = np.frombuffer(dump, ">u4", 25)
        width, height, depth, bytes_per_line = header[4], header[5], header[11] // 8, header[12]
        lines = np.frombuffer(dump, np.uint8, offset=header[0] + 12 * header[19]).reshape(height, bytes_per_line)
        return lines[:, : depth * width].reshape(height, width, depth)[:, :, 2::-1]


def save(name: str, picture: np.ndarray) -> None:
    """Saves a picture in the folder that KELVANE_PICTURES names, if any."""
    if folder := os.environ.get("KELVANE_PICTURES"):
        Path(folder).mkdir(parents=True, exist_ok=True)
        write_png(Path(folder) / f"{name}.png", picture)


def write_png(path: Path, picture: np.ndarray) -> None:
    height, width, _ = picture.shape
    lines = b"".join(b"\0" + row.tobytes() for row in picture)
    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    with path.open("wb") as file:
        file.write(b"\x89PNG\r\n\x1a\n")
        for name, data in ((b"IHDR", header), (b"IDAT", zlib.compress(lines)), (b"IEND", b"")):
            file.write(struct.pack(">I", len(data)) + name + data + struct.pack(">I", zlib.crc32(name + data)))
