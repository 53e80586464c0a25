"""The installed tree, as packages contain it."""

import os
import struct
import subprocess
from pathlib import Path

import pytest
from conftest import RENDER, rendered
from wav import read_wav
from workers import SCRIPTS

BUILD = Path(RENDER).parents[1]
APPLICATION = "org.kelvane.Kelvane"


@pytest.fixture(scope="module")
def tree(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """Installs as packagers do, and then moves the tree."""
    folder = tmp_path_factory.mktemp("install")
    environment = os.environ | {"DESTDIR": str(folder / "staged")}
    subprocess.run(["cmake", "--install", BUILD, "--prefix", "/opt/kelvane"], env=environment, check=True)
    return (folder / "staged" / "opt" / "kelvane").rename(folder / "moved")


def test_installs_all_files_and_nothing_of_the_build(tree: Path) -> None:
    assert sorted(os.listdir(tree)) == ["bin", "lib", "share"]
    assert sorted(os.listdir(tree / "bin")) == ["kelvane", "kelvane-render"]
    paths = [path.relative_to(SCRIPTS) for path in SCRIPTS.rglob("*.*") if path.parent.name != "__pycache__"]
    workers = {path.as_posix() for path in paths if path.name[0] != "."}
    assert workers >= {"analyze.py", "separate.py", "yt2wav.py", "uv.toml"}
    files = {str(path.relative_to(tree)) for path in tree.rglob("*") if path.is_file()}
    programs = {"Kelvane", "kelvane-render", *(f"python/{name}" for name in workers)}
    assert {file for file in files if file.startswith("lib/")} == {f"lib/kelvane/{name}" for name in programs}

    licences = tree / "share" / "doc" / "kelvane" / "licences"
    assert {"Kelvane.txt", "JUCE.txt", "HarfBuzz.txt", "SheenBidi.txt", "GeistPixel.txt"} <= set(os.listdir(licences))


def test_desktop_files_are_valid_and_complete(tree: Path) -> None:
    share = tree / "share"
    entry = share / "applications" / f"{APPLICATION}.desktop"
    metainfo = share / "metainfo" / f"{APPLICATION}.metainfo.xml"
    for validator in (["desktop-file-validate", entry], ["appstreamcli", "validate", "--no-net", metainfo]):
        validated = subprocess.run(validator, capture_output=True, text=True)
        assert validated.returncode == 0, validated.stdout + validated.stderr

    entries = dict(line.split("=", 1) for line in entry.read_text().splitlines() if "=" in line)
    assert os.access(tree / "bin" / entries["Exec"], os.X_OK)
    sizes = set()
    for icon in (share / "icons" / "hicolor").glob(f"*/apps/{entries['Icon']}.png"):
        width, height = struct.unpack(">II", icon.read_bytes()[16:24])
        assert icon.parts[-3] == f"{width}x{height}"
        sizes.add(width)
    assert sizes >= {16, 22, 24, 32, 48, 64, 128, 256, 512}


def test_runs_and_finds_its_workers_and_uv(tree: Path, tmp_path: Path, environment: dict[str, str]) -> None:
    """Started through a link. The user's own uv comes before the installed one."""
    for place in ("/opt/homebrew/bin/uv", "/usr/local/bin/uv", "/usr/bin/uv"):
        if os.path.exists(place):
            pytest.skip(f"This machine has uv at {place}, where it is always found.")

    song = tree / "share" / "kelvane" / "kelvane-demo.ogg"
    home = tmp_path / "home"
    environment |= {"HOME": str(home), "PATH": "/usr/bin:/bin"}
    environment.pop("KELVANE_UV", None)

    def run(*arguments: str) -> str:
        command = [tree / "bin" / "kelvane-render", song, *arguments]
        done = subprocess.run(command, cwd=tmp_path, env=environment, capture_output=True, text=True, timeout=300)
        assert done.returncode == 0, done.stdout + done.stderr
        return done.stdout

    def provide_uv(uv: Path, bpm: int) -> None:
        uv.parent.mkdir(parents=True, exist_ok=True)
        result = f'RESULT::{{"bpm": {bpm}, "key_index": 2}}'
        uv.write_text(
            f"#!/bin/sh\n[ -f \"$2\" ] && [ \"$2\" = '{tree}/lib/kelvane/python/analyze.py' ] && echo '{result}'"
        )
        uv.chmod(0o755)

    run("--full-song", "--out", "out")
    samples, rate = read_wav(rendered(tmp_path / "out", "kelvane-demo"))
    assert len(samples) / rate == pytest.approx(27.2, rel=0.01)

    provide_uv(tree / "lib" / "kelvane" / "uv", 100)
    assert '"bpm": 100' in run("--analyze")
    provide_uv(home / ".local" / "bin" / "uv", 200)
    assert '"bpm": 200' in run("--analyze")
