"""Sees and operates Kelvane's window as a user would, at its initial size."""

import time
from pathlib import Path

import numpy as np
from screen import Screen, save, wait_for

Region = tuple[int, int, int, int]  # left, top, width, height

# Points to click.
LOCAL_TOGGLE, CHOOSE_FILE, URL_TOGGLE, URL_BOX = (50, 172), (153, 205), (50, 282), (153, 326)
DRUMS, BASS, VOCALS, OTHER, FULL_SONG = (328, 173), (328, 199), (328, 225), (328, 251), (328, 285)
ANALYZE, BPM, BPM_TO, BPM_AUTO = (880, 132), (596, 304), (750, 330), (800, 330)
CHOOSE_FOLDER, EXECUTE = (1100, 197), (1153, 539)
NOWHERE = (700, 30)

# Regions whose pixels the tests compare.
FILE_NAME, FOLDER_NAME = (62, 226, 182, 22), (993, 216, 219, 22)
DETECTED, STATUS, PROGRESS_BAR = (857, 316, 64, 92), (22, 494, 1206, 20), (22, 522, 1042, 34)
INPUT_PANEL, AROUND_URL, AROUND_CHOOSE_FILE = (22, 114, 238, 368), (62, 300, 182, 52), (60, 188, 186, 2)
LEFT_OF_ANALYZE = (600, 140, 200, 16)
SLIDER_VALUE, BPM_FROM_BOX, BPM_AUTO_TOGGLE = (857, 253, 64, 20), (634, 318, 56, 24), (788, 316, 64, 28)
ACCENT, PANEL = (0xF2, 0xA8, 0x38), (0x3A, 0x21, 0x17)


def same(a: np.ndarray, b: np.ndarray) -> bool:
    """Returns True if two pictures are equal, apart from the rounding when only part of the window is repainted."""
    return bool(np.abs(a.astype(int) - b).max() <= 8)


class Window:
    def __init__(self, screen: Screen) -> None:
        """Waits until the window has its initial size. Fails if there is a second window."""
        self.screen = screen
        self.id = screen.window_with("Kelvane")
        assert wait_for(lambda: screen.size_of(self.id) == (1250, 572))
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
        return bool(wait_for(lambda: not same(self.part(region), before)))

    def progress(self) -> float:
        """Returns how far the progress bar is filled, from 0 to 1. The text on the bar makes this approximate."""
        left, top, width, height = PROGRESS_BAR
        filled = (self.part((left, top + height // 2, width, 1))[0] == ACCENT).all(axis=1)
        return float(np.flatnonzero(filled).max(initial=-1) + 1) / width

    def choose(self, button: tuple[int, int], title: str, path: Path) -> None:
        """Chooses a path in JUCE's own file dialog, which appears if the desktop does not provide one."""
        self.click(button)
        dialog = self.screen.window_with(title)
        width, height = self.screen.size_of(dialog)
        self.screen.click(dialog, width // 2, height - 64)
        self.screen.press("ctrl+a")
        self.type(str(path))
        self.screen.press("Return")
        open_button = (slice(height - 35, height - 15), slice(width - 75, width - 35))
        assert wait_for(lambda: self.screen.picture_of(dialog)[open_button].min(axis=2).max() > 190), "still dimmed"
        self.screen.click(dialog, width - 54, height - 25)
        self.wait_for_end(title)

    def dismiss(self, title: str, seconds: float = 120) -> None:
        """Waits for a message box with this title and closes it."""
        dialog = self.screen.window_with(title, seconds)
        assert wait_for(lambda: (self.screen.picture_of(dialog) == PANEL).all(axis=2).mean() > 0.5)
        save(title, self.screen.picture_of(dialog))
        width, height = self.screen.size_of(dialog)
        self.screen.click(dialog, width // 2, height - 40)
        self.wait_for_end(title)

    def wait_for_end(self, title: str) -> None:
        """Waits until the dialog has gone and Execute lights up under the mouse again."""
        assert wait_for(lambda: not self.screen.windows(title))

        def under_mouse_at(point: tuple[int, int]) -> np.ndarray:
            self.screen.xdotool("mousemove", "--window", self.id, *point)
            time.sleep(0.1)
            return self.part((EXECUTE[0] - 60, EXECUTE[1] - 10, 20, 20))

        assert wait_for(lambda: not same(under_mouse_at(NOWHERE), under_mouse_at(EXECUTE)))

    def save(self, name: str) -> None:
        save(name, self.picture())
