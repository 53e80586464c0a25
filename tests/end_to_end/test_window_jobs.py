"""Goes through a session in the real window, with real workers, real files and a tiny untrained model."""

import os
from pathlib import Path

import pytest
import window as at
from conftest import LINK, Start
from loopback import Loopback
from processes import descendants, gone
from screen import Screen, wait_for
from wav import read_wav
from window import Window, same
from workers import DEMO_SONG


@pytest.fixture
def environment(environment_with_workers: dict[str, str]) -> dict[str, str]:
    return environment_with_workers


def test_processes_a_file_and_a_link_and_cancels(
    screen: Screen, start: Start, tools: Path, site: Loopback, long_song: Path
) -> None:
    (tools / "python3").symlink_to("/usr/bin/python3")
    program = start(PATH=str(tools))
    window = Window(screen)
    out = Path("out").absolute()
    out.mkdir()

    # Render two stems of a file, from its detected tempo to 140 BPM.
    window.choose(at.CHOOSE_FILE, "Choose an audio file", DEMO_SONG)
    window.choose(at.CHOOSE_FOLDER, "Choose the output folder", out)
    window.click(at.BASS, at.OTHER, at.BPM, at.BPM_AUTO, at.BPM_TO)
    window.type("140")
    window.click(at.NOWHERE)
    window.save("before")
    window.click(at.EXECUTE)
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

    undetected = window.part(at.DETECTED)
    window.click(at.ANALYZE)
    assert window.changes(at.DETECTED, undetected)
    window.save("analyzed")

    # Choosing the same song again keeps the detected values.
    detected = window.part(at.DETECTED)
    window.choose(at.CHOOSE_FILE, "Choose an audio file", DEMO_SONG)
    assert same(window.part(at.DETECTED), detected)

    # Execute reuses what Analyze has downloaded.
    window.click(at.URL_TOGGLE, at.URL_BOX)
    window.type(f"{site.address}{LINK}")
    assert window.changes(at.DETECTED, detected)
    window.click(at.ANALYZE)
    assert wait_for(lambda: same(window.part(at.DETECTED), detected))
    num_requests = len(site.requests)
    assert num_requests > 0
    window.click(at.DRUMS, at.VOCALS, at.FULL_SONG, at.EXECUTE)
    window.dismiss("Pipeline complete")
    assert len(site.requests) == num_requests
    assert os.listdir(out / "A Title é日 - Stems") == ["A Title é日 - full mix.wav"]

    # Both the Cancel button and closing the window cancel a run.
    window.click(at.LOCAL_TOGGLE)
    window.choose(at.CHOOSE_FILE, "Choose an audio file", long_song)
    window.click(at.DRUMS)

    def begin() -> list[int]:
        status = window.part(at.STATUS)
        window.click(at.EXECUTE)
        family = wait_for(lambda: (found := descendants(program.pid)) and len(found) > 1 and found)
        assert family
        assert window.changes(at.STATUS, status)
        return family

    family = begin()
    window.click(at.EXECUTE)
    assert gone(family)
    assert wait_for(lambda: window.progress() == 0)
    window.save("cancelled")
    assert not screen.windows("Pipeline.*")

    family = begin()
    screen.press("alt+F4")
    assert program.wait(20) == 0
    assert gone(family)
    assert not list(Path("temporary/Kelvane").glob("cache-*"))
