"""Runs a program with a window on a separate screen."""

import os
import subprocess
import time
from collections.abc import Callable
from pathlib import Path
from typing import TypeVar

import numpy as np
from Xlib import X
from Xlib.display import Display
from Xlib.error import XError
from Xlib.protocol.event import ClientMessage, SelectionNotify
from Xlib.xobject.drawable import Window as XWindow

Found = TypeVar("Found")


def wait_for(condition: Callable[[], Found], seconds: float = 60.0) -> Found | None:
    """Waits until the condition returns a true value, and returns that value. Returns None after a timeout."""
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        if found := condition():
            return found
        time.sleep(0.05)
    return None


class Screen:
    """Runs an X server with a window manager, and sees and operates windows as a user does. Windows are given by id."""

    def __init__(self, environment: dict[str, str]) -> None:
        reading, writing = os.pipe()
        command = ["Xvfb", "-displayfd", str(writing), "-screen", "0", "1600x1000x24", "-nolisten", "tcp"]
        self.server = subprocess.Popen(command, pass_fds=[writing], stderr=subprocess.DEVNULL)
        os.close(writing)
        with os.fdopen(reading) as display:
            self.environment = {**environment, "DISPLAY": f":{display.readline().strip()}"}
        # A window that opens before the window manager has read its theme is never shown.
        ready = Path(environment["TMPDIR"]) / "window-manager-is-ready"
        self.manager = self.start("openbox", "--startup", f"touch {ready}")
        assert wait_for(ready.exists), "the window manager did not start"
        self.display = Display(self.environment["DISPLAY"])

    def close(self) -> None:
        self.display.close()
        for process in (self.manager, self.server):
            process.terminate()
            process.wait()

    def start(self, *command: str, **variables: str) -> subprocess.Popen[bytes]:
        return subprocess.Popen(command, env=self.environment | variables, stderr=subprocess.DEVNULL)

    def xdotool(self, *arguments: object) -> str:
        command = ["xdotool", *map(str, arguments)]
        return subprocess.run(command, env=self.environment, capture_output=True, text=True, timeout=60).stdout

    def windows(self, title: str = "Kelvane") -> list[str]:
        return self.xdotool("search", "--onlyvisible", "--name", f"^{title}$").split()

    def window_with(self, title: str, seconds: float = 60.0) -> str:
        """Waits for a single window with this title whose size no longer changes, and returns its id.

        JUCE creates windows at a small size first, and creates some of them twice.
        """

        def look() -> list[tuple[str, tuple[int, int]]]:
            return [(window, self.size_of(window)) for window in self.windows(title)]

        def one_that_stays() -> str | None:
            found = look()
            time.sleep(0.2)
            stays = len(found) == 1 and found[0][1] > (100, 100) and look() == found
            return found[0][0] if stays else None

        window = wait_for(one_that_stays, seconds)
        assert window, f"there is no window {title!r}"
        return window

    def size_of(self, window: str) -> tuple[int, int]:
        """Returns width and height, or zeros if the window has gone."""
        try:
            size = self._object(window).get_geometry()
        except XError:
            return 0, 0
        return size.width, size.height

    def outer_size_of(self, window: str) -> tuple[int, int]:
        """Returns width and height, including the window manager's frame."""
        frame = self._object(window).get_full_property(self._atom("_NET_FRAME_EXTENTS"), X.AnyPropertyType)
        (width, height), (left, right, top, bottom) = self.size_of(window), frame.value
        return width + left + right, height + top + bottom

    def drag_corner(self, window: str, right: int, down: int) -> None:
        """Resizes a window as a user would: with Alt and the right mouse button, near the bottom right corner."""
        corner = (size - 10 for size in self.size_of(window))
        self.xdotool("mousemove", "--window", window, *corner, "keydown", "alt", "mousedown", 3)
        for _ in range(10):
            self.xdotool("mousemove_relative", "--sync", "--", right // 10, down // 10)
        self.xdotool("mouseup", 3, "keyup", "alt")

    def click(self, window: str, x: int, y: int) -> None:
        self.xdotool("mousemove", "--window", window, x, y, "click", 1)

    def press(self, *keys: str) -> None:
        self.xdotool("key", "--clearmodifiers", *keys)

    def drop(self, window: str, x: int, y: int, kind: str, data: str) -> None:
        """Drops data of a MIME type at a point in a window through the XDND protocol, as another program would."""
        target, root = self._object(window), self.display.screen().root
        place = root.translate_coords(target, x, y)
        source = root.create_window(0, 0, 1, 1, 0, X.CopyFromParent)
        source.set_selection_owner(self._atom("XdndSelection"), X.CurrentTime)

        def send(message: str, *values: int) -> None:
            content = 32, [source.id, *values, *[0] * (4 - len(values))]
            target.send_event(ClientMessage(window=target, client_type=self._atom(message), data=content))

        def is_finished() -> bool:
            while self.display.pending_events():
                event = self.display.next_event()
                if event.type == X.SelectionRequest:
                    event.requestor.change_property(event.property, event.target, 8, data.encode())
                    fields = ("time", "requestor", "selection", "target", "property")
                    event.requestor.send_event(SelectionNotify(**{name: getattr(event, name) for name in fields}))
                if event.type == X.ClientMessage and event.client_type == self._atom("XdndFinished"):
                    return True
            return False

        send("XdndEnter", 3 << 24, self._atom(kind))
        send("XdndPosition", 0, place.x << 16 | place.y, X.CurrentTime, self._atom("XdndActionCopy"))
        send("XdndDrop")
        assert wait_for(is_finished), "the drop was not accepted"
        source.destroy()
        self.display.sync()

    def picture_of(self, window: str) -> np.ndarray:
        """Returns the pixels of a window, or of the screen for "root": shape (height, width, 3), RGB, 0 to 255."""
        drawable = self._object(window)
        size = drawable.get_geometry()
        image = drawable.get_image(0, 0, size.width, size.height, X.ZPixmap, 0xFFFFFFFF)
        return np.frombuffer(image.data, np.uint8).reshape(size.height, size.width, 4)[:, :, 2::-1]

    def _object(self, window: str) -> XWindow:
        screen = self.display.screen()
        return screen.root if window == "root" else self.display.create_resource_object("window", int(window))

    def _atom(self, name: str) -> int:
        return self.display.intern_atom(name)


def save(name: str, picture: np.ndarray) -> None:
    """Saves a picture as a PNG file in the folder that KELVANE_PICTURES names, if that variable is set."""
    if folder := os.environ.get("KELVANE_PICTURES"):
        Path(folder).mkdir(parents=True, exist_ok=True)
        pixels = b"P6 %d %d 255\n" % picture.shape[1::-1] + picture.tobytes()
        command = ["ffmpeg", "-v", "error", "-y", "-f", "ppm_pipe", "-i", "-", "-update", "1"]
        subprocess.run([*command, Path(folder) / f"{name}.png"], input=pixels, check=True)
