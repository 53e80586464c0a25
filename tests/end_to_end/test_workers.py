"""kelvane-render with the real workers: real uv, real scripts, and a tiny untrained model."""

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
from conftest import LINK, RENDER, Run
from loopback import Loopback
from processes import descendants, gone
from wav import read_wav, write_wav
from workers import DEMO_SONG


@pytest.fixture
def environment(environment_with_workers: dict[str, str]) -> dict[str, str]:
    return environment_with_workers


def test_stems_at_another_tempo(render: Run, tmp_path: Path) -> None:
    """From a folder whose configuration would break uv."""
    (tmp_path / "uv.toml").write_text("no configuration [")
    (tmp_path / "pyproject.toml").write_text('[tool.uv]\nrequired-version = "<0.1"\n')
    (tmp_path / ".python-version").write_text("3.8\n")

    result = render(DEMO_SONG, "--stems", "vocals,drums", "--bpm", "auto:140", "--out", "out")
    assert result.returncode == 0, result.stdout + result.stderr
    assert "Processing drums... (detected 112.0 BPM)" in result.stdout
    assert "Separating stems... 100%" in result.stdout

    folder = tmp_path / "out" / "kelvane-demo - Stems"
    assert sorted(os.listdir(folder)) == ["kelvane-demo - drums.wav", "kelvane-demo - vocals.wav"]
    for path in folder.iterdir():
        samples, rate = read_wav(path)
        assert rate == 44100
        assert len(samples) / rate == pytest.approx(27.2 * 112 / 140, rel=0.01)

    result = render(DEMO_SONG, "--stems", "bass", "--percent", "10", "--out", "out")
    assert re.findall(r"Separating stems\.\.\. (\d+)%", result.stdout) == ["100"]
    assert (folder / "kelvane-demo - bass.wav").exists()
    assert not list((tmp_path / "temporary" / "Kelvane").iterdir())


def test_a_link_becomes_a_folder_named_after_its_title(render: Run, tmp_path: Path, site: Loopback) -> None:
    result = render(f"{site.address}{LINK}", "--full-song", "--key", "auto:E", "--out", "out")
    assert result.returncode == 0, result.stdout + result.stderr
    assert "Processing full mix... (detected key: D)" in result.stdout
    samples, _ = read_wav(tmp_path / "out" / "A Title é日 - Stems" / "A Title é日 - full mix.wav")
    assert np.abs(samples).max() > 0.1
    assert not list((tmp_path / "temporary" / "Kelvane").iterdir())


def test_analyze_prints_a_line_of_json_for_each_song(render: Run, tmp_path: Path, site: Loopback) -> None:
    url = f"{site.address}{LINK}"
    silence = write_wav(tmp_path / "silence.wav", np.zeros((100000, 2)), 44100)
    result = render("--analyze", DEMO_SONG, silence, "missing.wav", url)

    assert result.returncode == 1
    results = [json.loads(line) for line in result.stdout.splitlines()]
    assert [one["song"] for one in results] == [str(DEMO_SONG), url]
    for one in results:
        assert one["bpm"] == pytest.approx(112, abs=0.1)
        assert (one["key_index"], one["key"]) == (2, "D")
    assert "silence.wav: Analysis failed.\n\n" in result.stderr
    assert f"missing.wav: Input file does not exist:\n{tmp_path}/missing.wav\n" in result.stderr
    assert not list((tmp_path / "temporary" / "Kelvane").iterdir())


Start = Callable[..., subprocess.Popen[str]]


@pytest.fixture
def start(environment: dict[str, str], tmp_path: Path) -> Iterator[Start]:
    """Starts kelvane-render, as the leader of a process group, and does not wait for it."""
    with ExitStack() as stack:

        def start(*arguments: str | Path, **variables: str) -> subprocess.Popen[str]:
            pipes = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "text": True}
            options = {"cwd": tmp_path, "env": environment | variables, "start_new_session": True}
            return stack.enter_context(subprocess.Popen([RENDER, *arguments], **pipes, **options))

        yield start


@pytest.mark.parametrize(
    ("song", "arguments", "sign", "num_processes", "end"),
    [
        ("stalled", ["--full-song"], "waiting for the server", 2, "Ctrl+C"),
        ("stalled", ["--full-song"], "waiting for the server", 2, "SIGKILL"),
        ("long", ["--full-song", "--bpm", "auto:100"], "Detecting", 2, "SIGINT"),
        ("long", ["--full-song", "--bpm", "auto:100"], "Detecting", 2, "SIGKILL"),
        ("long", ["--stems", "bass"], "Separating stems... 1%", 2, "Ctrl+C"),
        ("long", ["--stems", "bass"], "Separating stems... 1%", 2, "SIGINT"),
        ("long", ["--stems", "bass"], "Separating stems... 1%", 2, "SIGKILL"),
        ("installing", ["--stems", "bass"], "Fetching", 3, "SIGINT"),
        ("installing", ["--stems", "bass"], "Fetching", 3, "SIGKILL"),
        ("", ["--prepare"], "Checking what is missing", 3, "Ctrl+C"),
        ("", ["--prepare"], "Checking what is missing", 3, "SIGKILL"),
    ],
)
def test_nothing_outlives_the_program(
    start: Start,
    tmp_path: Path,
    site: Loopback,
    long_song: Path,
    song: str,
    arguments: list[str],
    sign: str,
    num_processes: int,
    end: str,
) -> None:
    source = {"stalled": [f"{site.address}/stalled.ogg"], "": []}.get(song, [long_song])
    variables = {}
    with socket.create_server(("127.0.0.1", 0)) as silent:
        if song in ("installing", ""):  # from an index that does not answer
            cold = dict.fromkeys(("UV_CACHE_DIR", "XDG_CACHE_HOME"), str(tmp_path / "cold"))
            variables = cold | {"UV_DEFAULT_INDEX": f"http://127.0.0.1:{silent.getsockname()[1]}", "UV_FIND_LINKS": ""}
        program = start(*source, "--out", "out", *arguments, **variables) if song else start(*arguments, **variables)

        # The sign that the worker is at work also shows that its lines arrive meanwhile.
        assert any(sign in line for line in program.stdout)
        while len(family := descendants(program.pid)) < num_processes:
            assert program.poll() is None

        {"SIGKILL": program.kill, "SIGINT": lambda: program.send_signal(signal.SIGINT)}.get(
            end, lambda: os.killpg(program.pid, signal.SIGINT)
        )()
        assert program.wait(timeout=60) == (-signal.SIGKILL if end == "SIGKILL" else 130)
        assert gone(family, 10)
    if end != "SIGKILL":
        assert program.stderr.read().endswith("Cancelled.\n")


def test_after_a_preparation_no_network_is_needed(
    render: Run, environment: dict[str, str], model_hub: str, tmp_path: Path
) -> None:
    environment |= {"XDG_CACHE_HOME": str(tmp_path / "cache"), "HF_HOME": str(tmp_path / "hub"), "HF_HUB_OFFLINE": "0"}
    environment["HF_ENDPOINT"] = model_hub
    result = render("--prepare")
    assert result.returncode == 0, result.stdout + result.stderr
    for purpose in ("Links", "Detection", "Stems"):
        assert re.search(rf"^{purpose}: \d+ MB to fetch$", result.stdout, re.MULTILINE)
    assert "100%  Fetching the model: 0.2 of 0.2 MB" in result.stdout

    nowhere = "http://127.0.0.1:9"
    environment |= {"HF_ENDPOINT": nowhere, "HTTPS_PROXY": nowhere, "UV_OFFLINE": "1"}
    assert "Stems: ready" in render("--prepare").stdout
    result = render(DEMO_SONG, "--stems", "vocals", "--bpm", "auto:140", "--out", "out")
    assert result.returncode == 0, result.stdout + result.stderr


def test_a_cancel_during_a_workers_start(start: Start, site: Loopback) -> None:
    for delay in np.linspace(0.01, 0.2, 12):
        program = start("--analyze", f"{site.address}/stalled.ogg")
        time.sleep(delay)
        family = descendants(program.pid)
        program.send_signal(signal.SIGINT)
        assert program.wait(timeout=10) in (130, -signal.SIGINT)  # the latter before it listens
        assert gone(family, 10)


def test_the_scripts_beside_the_program_are_found_however_it_is_called(
    environment: dict[str, str], tmp_path: Path
) -> None:
    """By a path that is relative, or not told at all; and not those in the folder that it is called from."""
    for folder, bpm in (("program", 77), ("here", 99)):
        (tmp_path / folder / "python").mkdir(parents=True)
        script = f'print(\'RESULT::{{"bpm": {bpm}, "key_index": 1}}\')\n'
        (tmp_path / folder / "python" / "analyze.py").write_text(script)
    shutil.copy(RENDER, tmp_path / "program" / "kelvane-render")
    environment["PATH"] = f"{tmp_path}/program:{environment['PATH']}"

    for command in ("../program/kelvane-render", "kelvane-render"):
        printed = subprocess.run(
            [command, "--analyze", DEMO_SONG], cwd=tmp_path / "here", env=environment, capture_output=True, text=True
        )
        assert '"bpm": 77' in printed.stdout, printed.stderr
    assert os.listdir(tmp_path / "program" / "python") == ["analyze.py"]
