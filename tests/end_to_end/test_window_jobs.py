"""What the program is for, in its real window: real workers, real files and a tiny untrained model."""

import os
from pathlib import Path

import pytest
from conftest import Site, Start, read_wav
from processes import descendants, gone
from screen import Screen, wait_for
from window import (
    ANALYZE,
    BASS,
    BPM,
    BPM_AUTO,
    BPM_TO,
    CHOOSE_FILE,
    CHOOSE_FOLDER,
    DETECTED,
    DRUMS,
    EXECUTE,
    FULL_SONG,
    LOCAL_TOGGLE,
    NOWHERE,
    OTHER,
    STATUS,
    URL_BOX,
    URL_TOGGLE,
    VOCALS,
    Window,
    same,
)
from workers import DEMO_SONG


@pytest.fixture
def environment(environment_with_workers: dict[str, str]) -> dict[str, str]:
    return environment_with_workers


def test_a_song_a_link_a_cancel_and_an_end(
    screen: Screen, start: Start, tools: Path, site: Site, long_song: Path, tmp_path: Path
) -> None:
    (tools / "python3").symlink_to("/usr/bin/python3")
    program = start(PATH=str(tools))
    window = Window(screen)
    out = tmp_path / "out"
    out.mkdir()

    # A song from a file, two stems of it, from whatever tempo it has to 140.
    window.choose(CHOOSE_FILE, "Choose an audio file", DEMO_SONG)
    window.choose(CHOOSE_FOLDER, "Choose the output folder", out)
    window.click(BASS, OTHER, BPM, BPM_AUTO, BPM_TO)
    window.type("140")
    window.click(NOWHERE)
    window.save("before")
    window.click(EXECUTE)
    seen = set()
    assert wait_for(lambda: seen.add(window.progress()) or len(seen) > 4)
    window.save("during")
    window.dismiss("Pipeline complete")
    window.save("after")
    assert window.progress() > 0.95

    stems = out / "kelvane-demo - Stems"
    assert sorted(os.listdir(stems)) == ["kelvane-demo - drums.wav", "kelvane-demo - vocals.wav"]
    for path in stems.iterdir():
        samples, rate = read_wav(path)
        assert len(samples) / rate == pytest.approx(27.2 * 112 / 140, rel=0.01)

    undetected = window.part(DETECTED)
    window.click(ANALYZE)
    assert window.changes(DETECTED, undetected)
    window.save("analyzed")

    # The same song once more voids nothing.
    detected = window.part(DETECTED)
    window.choose(CHOOSE_FILE, "Choose an audio file", DEMO_SONG)
    assert same(window.part(DETECTED), detected)

    # A link: what Analyze has downloaded, Execute does not download again.
    window.click(URL_TOGGLE, URL_BOX)
    window.type(f"{site.address}/A%20Title%20%C3%A9%E6%97%A5.ogg")
    assert window.changes(DETECTED, detected)
    window.click(ANALYZE)
    assert wait_for(lambda: same(window.part(DETECTED), detected))
    num_requests = len(site.requests)
    assert num_requests > 0
    window.click(DRUMS, VOCALS, FULL_SONG, EXECUTE)
    window.dismiss("Pipeline complete")
    assert len(site.requests) == num_requests
    assert os.listdir(out / "A Title é日 - Stems") == ["A Title é日 - full mix.wav"]

    # Cancel, and a run that the end of the program cancels.
    window.click(LOCAL_TOGGLE)
    window.choose(CHOOSE_FILE, "Choose an audio file", long_song)
    window.click(DRUMS)

    def begin() -> list[int]:
        status = window.part(STATUS)
        window.click(EXECUTE)
        family = wait_for(lambda: (found := descendants(program.pid)) and len(found) > 1 and found)
        assert family
        assert window.changes(STATUS, status)
        return family

    family = begin()
    window.click(EXECUTE)
    assert gone(family, 10)
    assert wait_for(lambda: window.progress() == 0)
    window.save("cancelled")
    assert not screen.windows("Pipeline.*")

    family = begin()
    screen.press("alt+F4")
    assert program.wait(20) == 0
    assert gone(family, 10)
    assert not list((tmp_path / "temporary" / "Kelvane").glob("cache-*"))
