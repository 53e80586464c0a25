"""Runs kelvane-render with the real uv and the real workers, and with a tiny untrained model."""

import json
import os
import re
import shutil
import signal
import socket
import subprocess
import time
from collections.abc import Callable, Iterator
from contextlib import ExitStack
from pathlib import Path

import numpy as np
import pytest
from conftest import LINK, RENDER, Run, rendered
from loopback import Loopback
from processes import descendants, gone
from wav import read_wav, write_wav
from workers import DEMO_SONG

Start = Callable[..., subprocess.Popen[str]]


@pytest.fixture
def environment(environment_with_workers: dict[str, str]) -> dict[str, str]:
    return environment_with_workers


@pytest.fixture
def start(environment: dict[str, str]) -> Iterator[Start]:
    """Yields a function that starts kelvane-render in a separate process group, without waiting for it to end."""
    with ExitStack() as stack:

        def start(*arguments: str | Path, **variables: str) -> subprocess.Popen[str]:
            pipes = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "text": True}
            options = {"env": environment | variables, "start_new_session": True}
            return stack.enter_context(subprocess.Popen([RENDER, *arguments], **pipes, **options))

        yield start


def test_renders_stems_at_another_tempo(render: Run) -> None:
    """Renders from a folder whose configuration files would break uv."""
    Path("uv.toml").write_text("no configuration [")
    Path("pyproject.toml").write_text('[tool.uv]\nrequired-version = "<0.1"\n')
    Path(".python-version").write_text("3.8\n")

    result = render(DEMO_SONG, "--stems", "vocals,drums", "--bpm", "auto:140", "--out", "out")
    assert result.returncode == 0, result.stdout + result.stderr
    assert "Processing drums... (detected 112.0 BPM)" in result.stdout
    assert "Separating stems... 100%" in result.stdout

    folder = rendered("kelvane-demo").parent
    assert sorted(os.listdir(folder)) == ["kelvane-demo - drums.wav", "kelvane-demo - vocals.wav"]
    for path in folder.iterdir():
        samples, rate = read_wav(path)
        assert rate == 44100
        assert len(samples) / rate == pytest.approx(27.2 * 112 / 140, rel=0.01)

    result = render(DEMO_SONG, "--stems", "bass", "--percent", "10", "--out", "out")
    assert re.findall(r"Separating stems\.\.\. (\d+)%", result.stdout) == ["100"]
    assert (folder / "kelvane-demo - bass.wav").exists()
    assert not os.listdir("temporary/Kelvane")


def test_names_a_links_results_after_its_title(render: Run, site: Loopback) -> None:
    result = render(f"{site.address}{LINK}", "--full-song", "--key", "auto:E", "--out", "out")
    assert result.returncode == 0, result.stdout + result.stderr
    assert "Processing full mix... (detected key: D)" in result.stdout
    assert np.abs(read_wav(rendered("A Title é日"))[0]).max() > 0.1
    assert not os.listdir("temporary/Kelvane")


def test_analyze_prints_json_for_each_song(render: Run, tmp_path: Path, site: Loopback) -> None:
    url = f"{site.address}{LINK}"
    silence = write_wav(Path("silence.wav"), np.zeros((100000, 2)), 44100)
    result = render("--analyze", DEMO_SONG, silence, "missing.wav", url)

    assert result.returncode == 1
    found = {"bpm": pytest.approx(112, abs=0.1), "key_index": 2, "key": "D"}
    results = [json.loads(line) for line in result.stdout.splitlines()]
    assert results == [{"song": str(DEMO_SONG)} | found, {"song": url} | found]
    assert "silence.wav: Analysis failed.\n\n" in result.stderr
    assert f"missing.wav: Input file does not exist:\n{tmp_path}/missing.wav\n" in result.stderr
    assert not os.listdir("temporary/Kelvane")


# For each stage: the arguments, a text that the program prints once the worker is busy, and the number of descendants
# that the program has by then.
STAGES = {
    "download": (["stalled", "--out", "out", "--full-song"], "waiting for the server", 2),
    "detection": (["long", "--out", "out", "--full-song", "--bpm", "auto:100"], "Detecting", 2),
    "separation": (["long", "--out", "out", "--stems", "bass"], "Separating stems... 1%", 2),
    "installation": (["long", "--out", "out", "--stems", "bass"], "Fetching", 3),
    "preparation": (["--prepare"], "Checking what is missing", 3),
}
ENDS = {
    "SIGKILL": lambda program: program.kill(),
    "SIGINT": lambda program: program.send_signal(signal.SIGINT),
    "Ctrl+C": lambda program: os.killpg(program.pid, signal.SIGINT),  # to the whole group, as a terminal does
}


@pytest.mark.parametrize(
    ("stage", "end"),
    [
        *((stage, "SIGKILL") for stage in STAGES),
        *((stage, "SIGINT") for stage in ("detection", "preparation")),
        *((stage, "Ctrl+C") for stage in ("download", "separation", "installation")),
    ],
)
def test_nothing_outlives_the_program(
    stage: str, end: str, start: Start, tmp_path: Path, site: Loopback, long_song: Path
) -> None:
    arguments, sign, num_processes = STAGES[stage]
    songs = {"stalled": f"{site.address}/stalled.ogg", "long": long_song}
    with socket.create_server(("127.0.0.1", 0)) as silent:
        cold = dict.fromkeys(("UV_CACHE_DIR", "XDG_CACHE_HOME"), str(tmp_path / "cold"))
        cold |= {"UV_DEFAULT_INDEX": f"http://127.0.0.1:{silent.getsockname()[1]}", "UV_FIND_LINKS": ""}
        variables = cold if stage in ("installation", "preparation") else {}
        program = start(*(songs.get(argument, argument) for argument in arguments), **variables)
        assert any(sign in line for line in program.stdout)
        while len(family := descendants(program.pid)) < num_processes:
            assert program.poll() is None

        ENDS[end](program)
        assert program.wait(timeout=60) == (-signal.SIGKILL if end == "SIGKILL" else 130)
        assert gone(family)
    if end != "SIGKILL":
        assert program.stderr.read().endswith("Cancelled.\n")


def test_works_without_a_network_after_preparing(render: Run, environment: dict[str, str], model_hub: str) -> None:
    """Starts without the model and without the packages of one worker."""
    for item in Path(environment["XDG_CACHE_HOME"], "kelvane").glob("analyze-*"):
        item.unlink()
    environment |= {"HF_HOME": os.path.abspath("hub"), "HF_HUB_OFFLINE": "0", "HF_ENDPOINT": model_hub}
    result = render("--prepare")
    assert result.returncode == 0, result.stdout + result.stderr
    assert re.search(r"^Links: ready\nDetection: \d+ MB to fetch\nStems: ready$", result.stdout, re.MULTILINE)
    assert "100%  Fetching the model: 0.2 of 0.2 MB" in result.stdout

    nowhere = "http://127.0.0.1:9"
    environment |= {"HF_ENDPOINT": nowhere, "HTTPS_PROXY": nowhere, "UV_OFFLINE": "1"}
    assert "Detection: ready" in render("--prepare").stdout
    result = render(DEMO_SONG, "--stems", "vocals", "--bpm", "auto:140", "--out", "out")
    assert result.returncode == 0, result.stdout + result.stderr


def test_cancels_while_a_worker_starts(start: Start, site: Loopback) -> None:
    for delay in np.linspace(0.01, 0.2, 12):
        program = start("--analyze", f"{site.address}/stalled.ogg")
        time.sleep(delay)
        family = descendants(program.pid)
        program.send_signal(signal.SIGINT)
        assert program.wait(timeout=10) in (130, -signal.SIGINT)  # -SIGINT if the program did not handle signals yet
        assert gone(family)


def test_finds_the_scripts_beside_the_program(environment: dict[str, str], tmp_path: Path) -> None:
    """Starts the program by a relative path, and by its name. The working folder has other scripts."""
    for folder, bpm in (("program", 77), ("here", 99)):
        Path(folder, "python").mkdir(parents=True)
        script = f'print(\'RESULT::{{"bpm": {bpm}, "key_index": 1}}\')\n'
        Path(folder, "python", "analyze.py").write_text(script)
    shutil.copy(RENDER, "program/kelvane-render")
    environment["PATH"] = f"{tmp_path}/program:{environment['PATH']}"
    for program in ("../program/kelvane-render", "kelvane-render"):
        command = [program, "--analyze", DEMO_SONG]
        assert b'"bpm": 77' in subprocess.run(command, cwd="here", env=environment, capture_output=True).stdout
    assert os.listdir("program/python") == ["analyze.py"]
