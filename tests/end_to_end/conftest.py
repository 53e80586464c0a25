"""Provides fixtures that run the finished programs as a user or a script would, in a separate folder for each test."""

import os
import shutil
import subprocess
from collections.abc import Callable, Iterator
from pathlib import Path

import numpy as np
import pytest
from loopback import STALLED, Loopback
from screen import Screen, save
from wav import write_wav
from workers import DEMO_SONG, ENVIRONMENT, UV, cache_without_stems, provide

RENDER = os.environ["KELVANE_RENDER"]
PROGRAM = os.environ["KELVANE_PROGRAM"]

Run = Callable[..., subprocess.CompletedProcess[str]]
Start = Callable[..., subprocess.Popen[bytes]]


@pytest.fixture
def environment(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> dict[str, str]:
    """Returns environment variables without a display, and with a TMPDIR whose files the test can count."""
    monkeypatch.chdir(tmp_path)
    Path("temporary").mkdir()
    kept = {name: value for name, value in os.environ.items() if name not in ("DISPLAY", "WAYLAND_DISPLAY")}
    return {**kept, "TMPDIR": str(tmp_path / "temporary")}


@pytest.fixture
def render(environment: dict[str, str]) -> Run:
    def run(*arguments: str | Path, **options: object) -> subprocess.CompletedProcess[str]:
        options = {"env": environment, "capture_output": True, "text": True, "timeout": 300} | options
        result = subprocess.run([RENDER, *arguments], **options)
        assert "Assertion" not in (result.stderr or "")
        return result

    return run


def rendered(song: str, out: Path = Path("out")) -> Path:
    return out / f"{song} - Stems" / f"{song} - full mix.wav"


@pytest.fixture
def environment_with_workers(environment: dict[str, str], hub: Path) -> dict[str, str]:
    """Installs the workers' packages. Returns variables with a new cache for stems, and with the model hub offline."""
    for script in ("analyze.py", "yt2wav.py"):
        provide(script)
    cache = cache_without_stems(Path("own cache").absolute())
    return {**ENVIRONMENT, **environment, **cache, "KELVANE_UV": UV, "HF_HOME": str(hub), "HF_HUB_OFFLINE": "1"}


LINK = "/A%20Title%20%C3%A9%E6%97%A5.ogg"


@pytest.fixture
def site() -> Iterator[Loopback]:
    """Serves the demo song as LINK, and a song that stops halfway as /stalled.ogg."""
    song = DEMO_SONG.read_bytes()
    with Loopback({LINK: song, "/stalled.ogg": song}.get) as site:
        site.troubles = {"stalled": STALLED}
        yield site


@pytest.fixture(scope="session")
def long_song(tmp_path_factory: pytest.TempPathFactory) -> Path:
    noise = np.random.default_rng(1).uniform(-0.1, 0.1, (44100 * 240, 2))
    return write_wav(tmp_path_factory.mktemp("long") / "long.wav", noise, 44100)


@pytest.fixture
def screen(environment: dict[str, str]) -> Iterator[Screen]:
    screen = Screen(environment)
    yield screen
    screen.close()


@pytest.fixture
def start(screen: Screen, request: pytest.FixtureRequest) -> Iterator[Start]:
    """Yields a function that starts the program. Ends every program that it has started when the test ends."""
    started: list[subprocess.Popen[bytes]] = []

    def start(*arguments: str, **variables: str) -> subprocess.Popen[bytes]:
        started.append(screen.start(PROGRAM, *arguments, **variables))
        return started[-1]

    yield start
    save(f"{request.node.name} (end)", screen.picture_of("root"))
    for process in started:
        process.terminate()
        process.wait()


@pytest.fixture
def tools() -> Path:
    """Returns a folder for PATH that contains only `which`, which the window uses to look for the desktop's dialogs."""
    tools = Path("tools").absolute()
    tools.mkdir()
    (tools / "which").symlink_to(shutil.which("which") or "")
    return tools
