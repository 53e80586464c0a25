"""Kelvane's window at its first size, as a user sees it and works it."""

import os
from pathlib import Path

import numpy as np
from screen import Screen, save_png, wait_for

Region = tuple[int, int, int, int]  # left, top, width, height

# Points to click at.
CHOOSE_FILE, URL_TOGGLE, URL_BOX = (153, 205), (50, 282), (153, 326)
DRUMS, BASS, VOCALS, OTHER, FULL_SONG = (328, 173), (328, 199), (328, 225), (328, 251), (328, 285)
ANALYZE, PERCENT, BPM, KEY = (880, 132), (596, 234), (596, 304), (596, 368)
BPM_FROM, BPM_TO, BPM_AUTO, KEY_AUTO = (662, 330), (750, 330), (800, 330), (806, 394)
CHOOSE_FOLDER, EXECUTE = (1100, 197), (1153, 539)
NOWHERE = (700, 30)

# Where something is shown.
FILE_NAME, FOLDER_NAME = (62, 226, 182, 22), (993, 216, 219, 22)
DETECTED, STATUS, PROGRESS_BAR = (857, 316, 64, 92), (22, 494, 1206, 20), (22, 522, 1042, 34)
ACCENT = (0xF2, 0xA8, 0x38)

# Where the tests leave their pictures, if the environment says so.
PICTURES = os.environ.get("KELVANE_PICTURES")


class Window:
    def __init__(self, screen: Screen) -> None:
        # JUCE makes its window a second time for the native title bar, so the first to be seen goes again.
        found = wait_for(lambda: [window for window in screen.windows() if screen.size_of(window) == (1250, 572)])
        assert found, "no window came up; is a Kelvane running already?"
        self.screen = screen
        (self.id,) = found
        screen.xdotool("windowactivate", "--sync", self.id)

    def click(self, *points: tuple[int, int]) -> None:
        for point in points:
            self.screen.click(self.id, *point)

    def type(self, text: str) -> None:
        self.screen.xdotool("type", text)

    def picture(self) -> np.ndarray:
        return self.screen.picture_of(self.id)

    def part(self, region: Region) -> np.ndarray:
        left, top, width, height = region
        return self.picture()[top : top + height, left : left + width]

    def changes(self, region: Region, before: np.ndarray) -> bool:
        return bool(wait_for(lambda: (self.part(region) != before).any()))

    def progress(self) -> float:
        """How far the bar is filled, from 0 to 1, give or take its text."""
        left, top, width, height = PROGRESS_BAR
        filled = (self.part((left, top + height // 2, width, 1))[0] == ACCENT).all(axis=1)
        return float(np.flatnonzero(filled).max(initial=-1) + 1) / width

    def choose(self, button: tuple[int, int], title: str, path: Path) -> None:
        """By the program's own dialog, which comes where the desktop has none."""
        self.click(button)
        assert wait_for(lambda: self.screen.windows(title))
        (dialog,) = self.screen.windows(title)
        width, height = self.screen.size_of(dialog)
        self.screen.click(dialog, width // 2, height - 64)
        self.screen.press("ctrl+a")
        self.type(str(path))
        self.screen.press("Return")
        self.screen.click(dialog, width - 54, height - 25)
        assert wait_for(lambda: not self.screen.windows(title))

    def dismiss(self, title: str, seconds: float = 120) -> None:
        """Waits for a message of this title and closes it."""
        assert wait_for(lambda: self.screen.windows(title), seconds), f"no message {title!r}"
        (dialog,) = self.screen.windows(title)
        self.save(title, dialog)
        self.screen.xdotool("windowfocus", "--sync", dialog)
        self.screen.press("Return")
        assert wait_for(lambda: not self.screen.windows(title))

    def save(self, name: str, window: str | None = None) -> None:
        if PICTURES:
            Path(PICTURES).mkdir(parents=True, exist_ok=True)
            save_png(Path(PICTURES) / f"{name}.png", self.screen.picture_of(window or self.id))
