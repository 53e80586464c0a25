"""The finished programs, driven as a user or a script would drive them."""

import os
import shutil
import subprocess
import threading
from collections.abc import Callable, Iterator
from http.server import SimpleHTTPRequestHandler, ThreadingHTTPServer
from pathlib import Path

import numpy as np
import pytest
from screen import Screen, save
from wav import write_wav
from workers import DEMO_SONG, ENVIRONMENT, UV, cache_without_stems, provide

RENDER = os.environ["KELVANE_RENDER"]
PROGRAM = os.environ["KELVANE_PROGRAM"]

Run = Callable[..., subprocess.CompletedProcess[str]]
Start = Callable[..., subprocess.Popen[bytes]]


@pytest.fixture
def environment(tmp_path: Path) -> dict[str, str]:
    """No display, and temporary files where the test can count them."""
    temporary = tmp_path / "temporary"
    temporary.mkdir()
    kept = {name: value for name, value in os.environ.items() if name not in ("DISPLAY", "WAYLAND_DISPLAY")}
    return {**kept, "TMPDIR": str(temporary)}


@pytest.fixture
def render(tmp_path: Path, environment: dict[str, str]) -> Run:
    """Runs kelvane-render in the test's folder."""

    def run(*arguments: str | Path, **options: object) -> subprocess.CompletedProcess[str]:
        result = subprocess.run(
            [RENDER, *map(str, arguments)],
            cwd=tmp_path,
            env=environment,
            capture_output=True,
            text=True,
            timeout=300,
            **options,
        )
        assert "Assertion" not in result.stderr
        return result

    return run


def read_wav(path: Path) -> tuple[np.ndarray, int]:
    """Reads any WAV, by another program, as floats of shape (frames, channels), with the rate."""

    def ask(flag: str) -> int:
        return int(subprocess.run(["soxi", flag, path], capture_output=True, check=True).stdout)

    raw = subprocess.run(["sox", path, "-t", "f32", "-"], capture_output=True, check=True).stdout
    return np.frombuffer(raw, "<f4").reshape(-1, ask("-c")), ask("-r")


def rendered(out: Path, song: str) -> Path:
    return out / f"{song} - Stems" / f"{song} - full mix.wav"


@pytest.fixture
def environment_with_workers(environment: dict[str, str], hub: Path, tmp_path: Path) -> dict[str, str]:
    """With what the workers need, offline but for the loopback interface."""
    for script in ("analyze.py", "yt2wav.py"):
        provide(script)
    cache = cache_without_stems(tmp_path / "own cache")
    return {**ENVIRONMENT, **environment, **cache, "KELVANE_UV": UV, "HF_HOME": str(hub), "HF_HUB_OFFLINE": "1"}


class Site:
    """A site with the demo song, as /A Title é日.ogg, and with one that stops coming, as /stalled.ogg."""

    def __init__(self, folder: Path) -> None:
        self.requests: list[str] = []
        released = self.released = threading.Event()
        requests = self.requests

        class Handler(SimpleHTTPRequestHandler):
            def do_GET(self) -> None:
                requests.append(self.path)
                if self.path.startswith("/stalled/"):
                    released.wait()
                super().do_GET()

            def copyfile(self, source: object, outputfile: object) -> None:
                if "stalled" not in self.path:
                    return super().copyfile(source, outputfile)
                outputfile.write(source.read(100000))
                return released.wait()

            def log_message(self, *_: object) -> None:
                pass

        folder.mkdir()
        for name in ("A Title é日.ogg", "stalled.ogg"):
            (folder / name).write_bytes(DEMO_SONG.read_bytes())

        self.server = ThreadingHTTPServer(("127.0.0.1", 0), lambda *given: Handler(*given, directory=folder))
        self.address = f"http://127.0.0.1:{self.server.server_port}"
        self.thread = threading.Thread(target=self.server.serve_forever)
        self.thread.start()

    def close(self) -> None:
        self.released.set()
        self.server.shutdown()
        self.thread.join()
        self.server.server_close()


@pytest.fixture
def site(tmp_path: Path) -> Iterator[Site]:
    site = Site(tmp_path / "site")
    yield site
    site.close()


@pytest.fixture(scope="session")
def long_song(tmp_path_factory: pytest.TempPathFactory) -> Path:
    return write_wav(
        tmp_path_factory.mktemp("long") / "long.wav",
        np.random.default_rng(1).uniform(-0.1, 0.1, (44100 * 240, 2)),
        44100,
    )


@pytest.fixture
def screen(environment: dict[str, str]) -> Iterator[Screen]:
    screen = Screen(environment)
    yield screen
    screen.close()


@pytest.fixture
def start(screen: Screen, request: pytest.FixtureRequest) -> Iterator[Start]:
    """Starts the program; what a test starts ends with it."""
    started: list[subprocess.Popen[bytes]] = []

    def start(*arguments: str, **variables: str) -> subprocess.Popen[bytes]:
        started.append(screen.start(PROGRAM, *arguments, **variables))
        return started[-1]

    yield start
    save(f"{request.node.name} (end)", screen.picture_of("root"))
    for process in started:
        if process.poll() is None:
            process.terminate()
        process.wait()


@pytest.fixture
def tools(tmp_path: Path) -> Path:
    """The only programs that the window can find: it looks for the desktop's dialogs by means of `which`."""
    tools = tmp_path / "tools"
    tools.mkdir()
    (tools / "which").symlink_to(shutil.which("which") or "")
    return tools
