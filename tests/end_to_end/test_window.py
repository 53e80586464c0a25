"""The program in a real window, on a screen of its own."""

import subprocess
from pathlib import Path

import numpy as np
import pytest
from conftest import PROGRAM, Start
from screen import Screen, wait_for
from window import (
    ANALYZE,
    CHOOSE_FILE,
    CHOOSE_FOLDER,
    DRUMS,
    FILE_NAME,
    FOLDER_NAME,
    LOCAL_TOGGLE,
    NOWHERE,
    Region,
    Window,
    same,
)

BPM_FROM_BOX, BPM_AUTO_TOGGLE = (634, 318, 56, 24), (788, 316, 64, 28)


def is_enabled(window: Window, control: Region) -> bool:
    """Whether a control is not dimmed: nothing in a dimmed one is as bright as this."""
    return float((window.part(control) @ np.array((0.299, 0.587, 0.114))).max()) > 125


def says_that_there_is_no_display(environment: dict[str, str]) -> None:
    # Without DISPLAY JUCE takes the first screen, and there may be one.
    result = subprocess.run([PROGRAM], env=environment | {"DISPLAY": ":65000"}, capture_output=True, text=True)
    assert result.returncode == 1
    assert "kelvane-render works without one.\n" in result.stderr


def test_without_a_display_it_says_so(environment: dict[str, str]) -> None:
    says_that_there_is_no_display(environment)


def test_one_window_that_can_be_resized_and_closed(screen: Screen, start: Start, environment: dict[str, str]) -> None:
    program = start("what is given here", "--is-ignored")
    window = Window(screen).id

    screen.drag_corner(window, -600, -400)
    assert wait_for(lambda: screen.outer_size_of(window) == (1120, 500)), screen.outer_size_of(window)
    screen.drag_corner(window, 100, 100)
    grown = wait_for(lambda: (size := screen.size_of(window))[0] > 1200 and size[1] > 560)
    assert grown, screen.size_of(window)

    second = start()
    assert second.wait(60) == 0
    says_that_there_is_no_display(environment)
    assert screen.windows() == [window]
    assert program.poll() is None

    screen.xdotool("windowactivate", "--sync", window)
    screen.press("alt+F4")
    assert program.wait(60) == 0


def test_a_file_or_a_link_dropped_anywhere(screen: Screen, start: Start, tmp_path: Path) -> None:
    songs = [tmp_path / "A Song é+.wav", tmp_path / "other.ogg"]
    for song in songs:
        song.touch()
    start()
    window = Window(screen)
    link = "text/plain;charset=utf-8", "https://127.0.0.1/song\r\n"
    files = "text/uri-list", "\r\n".join(song.as_uri() for song in songs)

    def shows(region: Region, *drop: str) -> bool:
        before = window.part(region)
        screen.drop(window.id, *NOWHERE, *drop)
        return window.changes(region, before)

    assert shows(FILE_NAME, "text/uri-list", songs[0].as_uri())
    around_url = (62, 300, 182, 52)
    assert shows(around_url, *link)

    input_panel = (22, 114, 238, 368)
    before = window.part(input_panel)
    screen.drop(window.id, *DRUMS, *files)
    window.dismiss("Cannot use what was dropped")
    assert wait_for(lambda: same(window.part(input_panel), before), 20)
    assert shows(FILE_NAME, "text/uri-list", songs[1].as_uri())


def test_the_keyboard_reaches_everything(screen: Screen, start: Start) -> None:
    start()
    window = Window(screen)

    def changes(region: Region, *keys: str, text: str = "") -> bool:
        before = window.part(region)
        screen.press(*keys)
        if text:
            window.type(text)
        return window.changes(region, before)

    # The focus is on the first toggle; Tab shows where it goes.
    around_choose_file = (60, 188, 186, 2)
    assert changes(around_choose_file, "Tab")
    around_url = (62, 300, 182, 52)
    assert changes(around_url, "Tab", "space", "Tab", text="https://127.0.0.1/song")

    # Past the five stems, the model, Analyze and both ways of stretching to Percentage, BPM and Key.
    slider_value = (857, 253, 64, 20)
    assert changes(slider_value, *["Tab"] * 11, "Right", "Right")
    screen.press("Tab", "Tab", "Return")
    assert wait_for(lambda: is_enabled(window, BPM_AUTO_TOGGLE), 20)
    screen.press("Tab")
    window.type("128")
    assert wait_for(lambda: is_enabled(window, BPM_FROM_BOX), 20)
    screen.press("shift+Tab", "Tab", "Tab", "Tab", "space")
    assert wait_for(lambda: not is_enabled(window, BPM_FROM_BOX), 20)


def test_a_tooltip_comes_and_goes_with_the_mouse(screen: Screen, start: Start) -> None:
    start()
    window = Window(screen)
    left_of_analyze = (600, 140, 200, 16)
    without = window.part(left_of_analyze)

    for x, y in NOWHERE, (-5, -5):
        screen.xdotool("mousemove", "--window", window.id, *map(str, ANALYZE))
        assert window.changes(left_of_analyze, without)
        screen.xdotool("mousemove", "--window", window.id, "--", str(x), str(y))
        assert wait_for(lambda: same(window.part(left_of_analyze), without))


@pytest.fixture
def home(tmp_path: Path) -> Path:
    home = tmp_path / "home"
    (home / "Music").mkdir(parents=True)
    (home / "Music" / "song.wav").touch()
    (home / "Desktop").mkdir()
    return home


def test_the_programs_own_dialogs(screen: Screen, start: Start, home: Path, tools: Path) -> None:
    start(HOME=str(home), PATH=str(tools))
    window = Window(screen)
    for button, title, path, label in (
        (CHOOSE_FILE, "Choose an audio file", home / "Music" / "song.wav", FILE_NAME),
        (CHOOSE_FOLDER, "Choose the output folder", Path("/usr"), FOLDER_NAME),
    ):
        before = window.part(label)
        window.choose(button, title, path)
        assert window.changes(label, before)

    # By keyboard alone, a dialog that is dismissed leaves the window, and its focus, as they were. Nothing
    # else happens then that would have the window painted.
    window.click(LOCAL_TOGGLE)
    screen.xdotool("mousemove", "0", "0")
    unfocused = window.picture()
    screen.press("Tab")
    assert wait_for(lambda: not same(window.picture(), unfocused))
    focused = window.picture()
    dialog = window.open_dialog("Choose an audio file", lambda: screen.press("space"))
    assert wait_for(lambda: screen.xdotool("getwindowfocus").strip() == dialog)
    screen.press("Escape")
    assert wait_for(lambda: not screen.windows("Choose an audio file") and same(window.picture(), focused), 20)


def test_the_desktops_dialogs(screen: Screen, start: Start, home: Path, tools: Path, tmp_path: Path) -> None:
    log = tmp_path / "log"
    zenity = tools / "zenity"
    zenity.write_text(
        f'#!/bin/sh\necho "$PWD $*" >>{log}\ncase "$*" in *--directory*) echo /usr ;; '
        f"*) echo {home}/Music/song.wav ;; esac\n"
    )
    zenity.chmod(0o755)
    program = start(HOME=str(home), PATH=str(tools))
    window = Window(screen)
    working_folder = Path(f"/proc/{program.pid}/cwd")
    before = working_folder.readlink()

    for button, label in ((CHOOSE_FILE, FILE_NAME), (CHOOSE_FOLDER, FOLDER_NAME)):
        unchosen = window.part(label)
        window.click(button)
        assert window.changes(label, unchosen)

    for_file, for_folder = log.read_text().splitlines()
    assert for_file.startswith(f"{home}/Music ")
    assert "--file-filter=*.wav *.aiff *.aif *.mp3 *.flac *.m4a *.ogg" in for_file
    assert for_folder.startswith(f"{home}/Desktop ") and "--directory" in for_folder
    assert working_folder.readlink() == before
