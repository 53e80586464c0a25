"""Tests the installed tree as the packages contain it."""

import os
import shutil
import struct
import subprocess
from pathlib import Path

import pytest
from conftest import RENDER, rendered
from wav import read_wav
from workers import SCRIPTS

APPLICATION = "org.kelvane.Kelvane"


@pytest.fixture(scope="module")
def tree(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """Installs as packagers do, and then moves the tree."""
    folder = tmp_path_factory.mktemp("install")
    command = ["cmake", "--install", Path(RENDER).parents[1], "--prefix", "/opt/kelvane"]
    subprocess.run(command, env=os.environ | {"DESTDIR": str(folder / "staged")}, check=True)
    return (folder / "staged" / "opt" / "kelvane").rename(folder / "moved")


def test_installs_all_files_and_no_build_products(tree: Path) -> None:
    scripts = {path.relative_to(SCRIPTS).as_posix() for path in SCRIPTS.rglob("[!.]*.*")}
    workers = {f"python/{path}" for path in scripts if "__pycache__" not in path}
    assert workers >= {"python/analyze.py", "python/separate.py", "python/yt2wav.py", "python/uv.toml"}
    assert {path.name for path in (tree / "bin").iterdir()} == {"kelvane", "kelvane-render"}
    library = tree / "lib" / "kelvane"
    files = {path.relative_to(library).as_posix() for path in (tree / "lib").rglob("*") if path.is_file()}
    assert files == {"Kelvane", "kelvane-render", *workers}
    assert sorted(os.listdir(tree)) == ["bin", "lib", "share"]

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
    icons = list((share / "icons" / "hicolor").glob(f"*/apps/{entries['Icon']}.png"))
    sizes = [struct.unpack(">II", icon.read_bytes()[16:24]) for icon in icons]
    assert [icon.parts[-3] for icon in icons] == [f"{width}x{height}" for width, height in sizes]
    assert {width for width, _ in sizes} >= {16, 22, 24, 32, 48, 64, 128, 256, 512}


def test_runs_and_finds_its_workers_and_uv(tree: Path, environment: dict[str, str]) -> None:
    """Starts the program through a symbolic link. Each place for uv takes precedence over the places before it."""
    for place in ("/opt/homebrew/bin/uv", "/usr/local/bin/uv", "/usr/bin/uv"):
        if os.path.exists(place):
            pytest.skip(f"This machine has uv at {place}, where it is always found.")
    shutil.copy(tree / "share" / "kelvane" / "kelvane-demo.ogg", "song.ogg")
    home, tools = Path("home").absolute(), Path("tools").absolute()
    environment |= {"HOME": str(home), "PATH": f"{tools}:/usr/bin:/bin", "KELVANE_UV": "/"}

    def run(*arguments: str) -> str:
        command = [tree / "bin" / "kelvane-render", "song.ogg", *arguments]
        done = subprocess.run(command, env=environment, capture_output=True, text=True, timeout=300)
        return done.stdout + done.stderr

    run("--full-song", "--out", "out")
    samples, rate = read_wav(rendered("song"))
    assert len(samples) / rate == pytest.approx(27.2, rel=0.01)
    assert "Could not find 'uv', which is needed to run the Python workers.\nInstall it (" in run("--analyze")

    library = tree / "lib" / "kelvane"
    in_home = [home / path / "uv" for path in (".local/share/kelvane/uv/bin", ".cargo/bin", ".local/bin")]
    for bpm, uv in enumerate([library / "uv", in_home[0], tools / "uv", *in_home[1:]], start=100):
        uv.parent.mkdir(parents=True, exist_ok=True)
        worker, result = library / "python" / "analyze.py", f'{{"bpm": {bpm}, "key_index": 2}}'
        uv.write_text(f"#!/bin/sh\n[ -f \"$2\" ] && [ \"$2\" = '{worker}' ] && echo 'RESULT::{result}'")
        uv.chmod(0o755)
        assert f'"bpm": {bpm}' in run("--analyze"), uv
