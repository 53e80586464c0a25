"""Tests, on a virtual screen, how the window works with the display, the window manager, the mouse and the keyboard."""

import subprocess
from pathlib import Path

import window as at
from conftest import PROGRAM, Start
from screen import Screen, wait_for
from window import Region, Window, same


def test_opens_one_window_that_resizes_and_closes(screen: Screen, start: Start, environment: dict[str, str]) -> None:
    program = start("ignored", "--arguments")
    window = Window(screen).id

    screen.drag_corner(window, -600, -400)
    assert wait_for(lambda: screen.outer_size_of(window) == (1120, 500)), screen.outer_size_of(window)
    screen.drag_corner(window, 100, 100)
    grown = wait_for(lambda: (size := screen.size_of(window))[0] > 1200 and size[1] > 560)
    assert grown, screen.size_of(window)

    assert start().wait(60) == 0
    # This display does not exist. If DISPLAY were not set, JUCE would try the first screen, which may exist.
    result = subprocess.run([PROGRAM], env=environment | {"DISPLAY": ":65000"}, capture_output=True, text=True)
    assert result.returncode == 1
    assert "kelvane-render works without one.\n" in result.stderr
    assert screen.windows() == [window]
    assert program.poll() is None

    screen.xdotool("windowactivate", "--sync", window)
    screen.press("alt+F4")
    assert program.wait(60) == 0


def test_takes_files_and_links_from_other_programs(screen: Screen, start: Start, tmp_path: Path) -> None:
    songs = [(tmp_path / name).as_uri() for name in ("A Song é+.wav", "other.ogg")]
    for song in ("A Song é+.wav", "other.ogg"):
        Path(song).touch()
    start()
    window = Window(screen)

    def shows(region: Region, kind: str, data: str) -> bool:
        before = window.part(region)
        screen.drop(window.id, *at.NOWHERE, kind, data)
        return window.changes(region, before)

    assert shows(at.FILE_NAME, "text/uri-list", songs[0])
    assert shows(at.AROUND_URL, "text/plain;charset=utf-8", "https://127.0.0.1/song\r\n")
    before = window.part(at.INPUT_PANEL)
    screen.drop(window.id, *at.DRUMS, "text/uri-list", "\r\n".join(songs))
    window.dismiss("Cannot use what was dropped")
    assert wait_for(lambda: same(window.part(at.INPUT_PANEL), before), 20)
    assert shows(at.FILE_NAME, "text/uri-list", songs[1])


def test_works_by_keyboard(screen: Screen, start: Start, tools: Path) -> None:
    start(PATH=str(tools))
    window = Window(screen)

    def changes(region: Region, *keys: str, text: str = "") -> bool:
        before = window.part(region)
        screen.press(*keys)
        if text:
            window.type(text)
        return window.changes(region, before)

    # The focus starts on the first toggle, without an outline. Tab moves it to the next control, which is then
    # outlined. After a dialog is dismissed, the window and the outline must look as before, although nothing else
    # repaints the window.
    screen.xdotool("mousemove", 0, 0)
    assert changes(at.AROUND_CHOOSE_FILE, "Tab")
    focused = window.picture()
    screen.press("space")
    dialog = screen.window_with("Choose an audio file")
    assert wait_for(lambda: screen.xdotool("getwindowfocus").strip() == dialog)
    screen.press("Escape")
    assert wait_for(lambda: not screen.windows("Choose an audio file") and same(window.picture(), focused), 20)
    assert changes(at.AROUND_URL, "Tab", "space", "Tab", text="https://127.0.0.1/song")

    # Tab passes the four stems, the full song, the model, Analyze, both stretch modes and Percentage before the slider.
    assert changes(at.SLIDER_VALUE, *["Tab"] * 11, "Right", "Right")
    assert changes(at.BPM_AUTO_TOGGLE, "Tab", "Tab", "Return")
    assert changes(at.BPM_FROM_BOX, "Tab", text="128")


def test_shows_a_tooltip_while_the_mouse_is_over_a_control(screen: Screen, start: Start) -> None:
    start()
    window = Window(screen)
    without = window.part(at.LEFT_OF_ANALYZE)
    for point in at.NOWHERE, (-5, -5):
        screen.xdotool("mousemove", "--window", window.id, *at.ANALYZE)
        assert window.changes(at.LEFT_OF_ANALYZE, without)
        screen.xdotool("mousemove", "--window", window.id, "--", *point)
        assert wait_for(lambda: same(window.part(at.LEFT_OF_ANALYZE), without))


def test_uses_the_desktops_dialogs(screen: Screen, start: Start, tools: Path, tmp_path: Path) -> None:
    for folder in ("Music", "Desktop"):
        Path(folder).mkdir()
    Path("Music/song.wav").touch()
    answer = f'case "$*" in *--directory*) echo /usr ;; *) echo {tmp_path}/Music/song.wav ;; esac'
    (tools / "zenity").write_text(f'#!/bin/sh\necho "$PWD $*" >>{tmp_path}/log\n{answer}\n')
    (tools / "zenity").chmod(0o755)
    program = start(HOME=str(tmp_path), PATH=str(tools))
    window = Window(screen)
    working_folder = Path(f"/proc/{program.pid}/cwd")
    before = working_folder.readlink()

    for button, label in ((at.CHOOSE_FILE, at.FILE_NAME), (at.CHOOSE_FOLDER, at.FOLDER_NAME)):
        unchosen = window.part(label)
        window.click(button)
        assert window.changes(label, unchosen)
    for_file, for_folder = Path("log").read_text().splitlines()
    assert for_file.startswith(f"{tmp_path}/Music ")
    assert "--file-filter=*.wav *.aiff *.aif *.mp3 *.flac *.m4a *.ogg" in for_file
    assert for_folder.startswith(f"{tmp_path}/Desktop ") and "--directory" in for_folder
    assert working_folder.readlink() == before
