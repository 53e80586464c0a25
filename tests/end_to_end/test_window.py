"""The program in a real window, on a screen of its own."""

import os
import shutil
import subprocess
from collections.abc import Callable, Iterator
from pathlib import Path

import numpy as np
import pytest
from screen import Screen, wait_for

PROGRAM = os.environ["KELVANE_PROGRAM"]

Start = Callable[..., subprocess.Popen[bytes]]

# Where things are in the window at its first size: left, top, width, height; or a point to click at.
TEMPO_CONTROLS = {
    "percent": (608, 246, 313, 34),
    "BPM from caption": (594, 316, 36, 28),
    "BPM from": (634, 318, 56, 24),
    "BPM to caption": (690, 316, 28, 28),
    "BPM to": (722, 318, 56, 24),
    "BPM auto": (788, 316, 64, 28),
    "key from caption": (594, 380, 36, 28),
    "key from": (634, 382, 60, 24),
    "key to caption": (694, 380, 28, 28),
    "key to": (726, 382, 60, 24),
    "key auto": (796, 380, 61, 28),
}
PERCENT, BPM, KEY = (596, 234), (596, 304), (596, 368)
BPM_FROM, BPM_TO, KEY_AUTO = (662, 330), (750, 330), (806, 394)
CHOOSE_FILE, CHOOSE_FOLDER = (153, 205), (1100, 197)
FILE_NAME, FOLDER_NAME = (62, 226, 182, 22), (993, 216, 219, 22)
URL_TOGGLE, URL_BOX = (50, 282), (62, 300, 182, 52)


def part(picture: np.ndarray, region: tuple[int, int, int, int]) -> np.ndarray:
    left, top, width, height = region
    return picture[top : top + height, left : left + width]


def enabled_of(picture: np.ndarray) -> set[str]:
    """Which controls of the tempo panel are not dimmed: nothing in a dimmed one is as bright as this."""
    luma = picture @ np.array((0.299, 0.587, 0.114))
    return {name for name, region in TEMPO_CONTROLS.items() if part(luma, region).max() > 125}


@pytest.fixture
def screen(environment: dict[str, str]) -> Iterator[Screen]:
    screen = Screen(environment)
    yield screen
    screen.close()


@pytest.fixture
def start(screen: Screen) -> Iterator[Start]:
    """Starts the program; what a test starts ends with it."""
    started: list[subprocess.Popen[bytes]] = []

    def start(*arguments: str, **variables: str) -> subprocess.Popen[bytes]:
        started.append(screen.start(PROGRAM, *arguments, **variables))
        return started[-1]

    yield start
    for process in started:
        if process.poll() is None:
            process.terminate()
        process.wait()


def window_of(screen: Screen) -> str:
    # JUCE makes its window a second time for the native title bar, so the first to be seen goes again.
    found = wait_for(lambda: [window for window in screen.windows() if screen.size_of(window) == (1250, 572)])
    assert found, "no window came up; is a Kelvane running already?"
    (window,) = found
    screen.xdotool("windowactivate", "--sync", window)
    return window


def test_one_window_that_can_be_resized_and_closed(screen: Screen, start: Start) -> None:
    program = start("what is given here", "--is-ignored")
    window = window_of(screen)

    screen.drag_corner(window, -600, -400)
    assert wait_for(lambda: screen.outer_size_of(window) == (1120, 500)), screen.outer_size_of(window)
    screen.drag_corner(window, 100, 100)
    grown = wait_for(lambda: (size := screen.size_of(window))[0] > 1200 and size[1] > 560)
    assert grown, screen.size_of(window)

    second = start()
    assert second.wait(60) == 0
    assert screen.windows() == [window]
    assert program.poll() is None

    screen.xdotool("windowactivate", "--sync", window)
    screen.press("alt+F4")
    assert program.wait(60) == 0


def test_the_mouse_reaches_what_applies_and_nothing_else(screen: Screen, start: Start) -> None:
    start()
    window = window_of(screen)

    def becomes(expected: set[str]) -> bool:
        return bool(wait_for(lambda: enabled_of(screen.picture_of(window)) == expected, 20))

    bpm = {"BPM from caption", "BPM from", "BPM to caption", "BPM to", "BPM auto"}
    key = {"key from caption", "key from", "key to caption", "key to", "key auto"}

    assert becomes({"percent"})
    screen.click(window, *BPM)
    for box, digits in ((BPM_FROM, "120"), (BPM_TO, "90")):
        screen.click(window, *box)
        screen.xdotool("type", digits)
    assert becomes(bpm)

    screen.click(window, *KEY)
    assert becomes(key)
    screen.click(window, *BPM_FROM)
    screen.xdotool("type", "7")
    screen.click(window, *KEY_AUTO)
    assert becomes(key - {"key from"})

    before = screen.picture_of(window)
    screen.click(window, *BPM)
    screen.click(window, *KEY)
    screen.click(window, *PERCENT)
    assert becomes({"percent"})
    after = screen.picture_of(window)
    region = TEMPO_CONTROLS["BPM from"]
    assert (part(before, region) == part(after, region)).all(), "a dimmed box took a digit"


def test_the_keyboard_reaches_everything(screen: Screen, start: Start) -> None:
    start()
    window = window_of(screen)
    first = screen.picture_of(window)

    def changed(region: tuple[int, int, int, int]) -> bool:
        return bool(wait_for(lambda: (part(screen.picture_of(window), region) != part(first, region)).any(), 20))

    # The focus is on the first toggle; Tab shows where it goes.
    screen.press("Tab")
    around_choose_file = (60, 188, 186, 2)
    assert changed(around_choose_file)
    screen.press("Tab", "space", "Tab")
    screen.xdotool("type", "https://127.0.0.1/song")
    assert changed(URL_BOX)

    # Past the five stems, the model, Analyze and both ways of stretching to Percentage, BPM and Key.
    screen.press(*["Tab"] * 10, "Tab")
    screen.press("Right", "Right")
    assert changed((857, 253, 64, 20)), "the slider's value"
    screen.press("Tab", "Tab", "Return")
    assert wait_for(lambda: "BPM auto" in enabled_of(screen.picture_of(window)), 20)
    screen.press("Tab")
    screen.xdotool("type", "128")
    assert wait_for(lambda: "BPM from" in enabled_of(screen.picture_of(window)), 20)
    screen.press("shift+Tab", "Tab", "Tab", "Tab", "space")
    assert wait_for(lambda: "BPM from" not in enabled_of(screen.picture_of(window)), 20)


@pytest.mark.parametrize("native", [True, False])
def test_a_file_and_a_folder_are_chosen(screen: Screen, start: Start, tmp_path: Path, native: bool) -> None:
    home, tools = tmp_path / "home", tmp_path / "tools"
    for folder in (home / "Music", home / "Desktop" / "Samples", tools):
        folder.mkdir(parents=True)
    song = home / "Music" / "song.wav"
    song.touch()
    log = tmp_path / "log"

    # The program looks for a dialog of the desktop's by means of `which`.
    (tools / "which").symlink_to(shutil.which("which") or "")
    if native:
        zenity = tools / "zenity"
        zenity.write_text(
            f'#!/bin/sh\necho "$PWD $*" >>{log}\ncase "$*" in *--directory*) echo {home}/Desktop/Samples ;; '
            f"*) echo {song} ;; esac\n"
        )
        zenity.chmod(0o755)

    start(HOME=str(home), PATH=str(tools))
    window = window_of(screen)
    first = screen.picture_of(window)

    def choose(button: tuple[int, int], title: str, path: Path, label: tuple[int, int, int, int]) -> None:
        screen.click(window, *button)
        if not native:
            assert wait_for(lambda: screen.windows(title))
            (dialog,) = screen.windows(title)
            width, height = screen.size_of(dialog)
            screen.click(dialog, width // 2, height - 64)
            screen.press("ctrl+a")
            screen.xdotool("type", str(path))
            screen.press("Return")
            screen.click(dialog, width - 54, height - 25)
            assert wait_for(lambda: not screen.windows(title))
        assert wait_for(lambda: (part(screen.picture_of(window), label) != part(first, label)).any())

    choose(CHOOSE_FILE, "Choose an audio file", song, FILE_NAME)
    choose(CHOOSE_FOLDER, "Choose the output folder", home / "Desktop" / "Samples", FOLDER_NAME)

    if native:
        for_file, for_folder = log.read_text().splitlines()
        assert for_file.startswith(f"{home}/Music ")
        assert "--file-filter=*.wav *.aiff *.aif *.mp3 *.flac *.m4a *.ogg" in for_file
        assert for_folder.startswith(f"{home}/Desktop ") and "--directory" in for_folder
