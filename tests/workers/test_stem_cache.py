"""Tests the cache of stems, with short entries."""

import os
import re
import shutil
import sys
import tempfile
from pathlib import Path
from types import SimpleNamespace
from unittest.mock import patch

import numpy as np
import pytest
from hypothesis import example, given
from hypothesis import strategies as st
from workers import SCRIPTS

sys.path.insert(0, str(SCRIPTS))
from separation.stem_cache import NewEntry, StemCache
from separation.stem_file import StemFile, file_size
from separation.stem_key import stem_key
from worker import WorkerError

NUM_SAMPLES = 5000
SAMPLES = np.arange(2 * NUM_SAMPLES, dtype=np.float32).reshape(2, -1)
ENTRY_SIZE = 2 * file_size(NUM_SAMPLES)


@pytest.fixture
def kept(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Path:
    """Moves the cache into the test's folder. Returns the folder with the entries."""
    monkeypatch.chdir(tmp_path)
    monkeypatch.setenv("XDG_CACHE_HOME", str(tmp_path))
    return tmp_path / "kelvane" / "stems"


def write(entry: NewEntry, folder: Path) -> None:
    """Writes the drums, which the user wants, to the folder, and the bass to the entry. Then finishes the entry."""
    folder.mkdir(exist_ok=True)
    drums = StemFile(folder / "drums.part", NUM_SAMPLES)
    drums.write(SAMPLES)
    entry.write("bass", SAMPLES, NUM_SAMPLES)
    drums.close()
    drums.rename(folder / "drums.wav")
    entry.finish({"drums": drums})


def keep(key: str, size: int = ENTRY_SIZE) -> None:
    with StemCache().new_entry(key, size) as entry:
        write(entry, Path("out"))


def place(key: str, folder: Path) -> bool:
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    placed = StemCache().place(key, ["bass", "drums"], folder)
    assert sorted(os.listdir(folder)) == (["bass.wav", "drums.wav"] if placed else [])
    return placed


@given(
    st.sampled_from(["bass.wav", "drums.wav", "stems.json"]),
    st.binary() | st.sampled_from(["gone", "folder", b"[1]", b"{}", b'{"bass": 1}', b'{"bass": {}, "drums": null}']),
)
@example("bass.wav", "folder")
@example("stems.json", b"{}")
@example("stems.json", 100_000 * b"[")
def test_any_damaged_entry_is_reported_and_removed(
    kept: Path, capsys: pytest.CaptureFixture[str], name: str, damage: bytes | str
) -> None:
    keep("song")
    assert place("song", Path("placed"))
    (kept / "song" / name).unlink()
    if damage == "folder":
        (kept / "song" / name).mkdir()
    elif damage != "gone":
        (kept / "song" / name).write_bytes(damage)
    assert not place("song", Path("placed"))
    assert "damaged" in capsys.readouterr().out
    assert not list(kept.iterdir())


@given(st.binary())
@example(b"\xff")
@example(300 * b"a")
def test_any_reference_without_a_model_gives_no_key(tmp_path: Path, reference: bytes) -> None:
    (tmp_path / "models--adefossez--demucs" / "refs").mkdir(parents=True, exist_ok=True)
    (tmp_path / "models--adefossez--demucs" / "refs" / "main").write_bytes(reference)
    hub = SimpleNamespace(constants=SimpleNamespace(HF_HUB_CACHE=tmp_path))
    with patch.dict(sys.modules, huggingface_hub=hub):
        assert stem_key("digest", "htdemucs") is None


def test_deletes_the_least_recently_used_entries(kept: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    def names() -> list[str]:
        return sorted(path.name for path in kept.iterdir())

    monkeypatch.setenv("KELVANE_STEM_CACHE", str(3.5 * (ENTRY_SIZE + 200) / 1e9))
    for day, key in enumerate(["1", "2", "3"]):
        keep(key)
        os.utime(kept / key, (day, day))
    assert place("1", Path("placed"))
    keep("4")
    assert names() == ["1", "3", "4"]
    keep("too big for the limit", 4 * ENTRY_SIZE)
    assert names() == ["1", "3", "4"]

    def disk_usage(_: Path) -> SimpleNamespace:
        used = sum(path.stat().st_size for path in kept.rglob("*.wav"))
        return SimpleNamespace(free=2 * 10**9 + capacity * ENTRY_SIZE - used)

    monkeypatch.setattr(shutil, "disk_usage", disk_usage)
    for capacity, key, left in ((2.5, "5", ["4", "5"]), (0.9, "6", []), (9, "7", ["7"])):  # noqa: B007
        keep(key)
        assert names() == left
    monkeypatch.setenv("KELVANE_STEM_CACHE", "0")
    keep("8")
    assert not names()


def test_keeps_the_first_of_two_simultaneous_entries(kept: Path) -> None:
    with StemCache().new_entry("song", ENTRY_SIZE) as slow:
        keep("song")
        assert list(kept.glob("*.part"))
        write(slow, Path("slow"))
    (entry,) = kept.iterdir()
    assert (entry / "drums.wav").samefile("out/drums.wav")
    assert place("song", Path("placed"))


@pytest.mark.parametrize("trouble", ["a full disk", "no more files"])
def test_separates_without_caching(
    trouble: str, kept: Path, capsys: pytest.CaptureFixture[str], monkeypatch: pytest.MonkeyPatch
) -> None:
    if trouble == "no more files":
        monkeypatch.setattr("separation.stem_cache._RECEIPT", "absent/stems.json")
    with StemCache().new_entry("song", ENTRY_SIZE) as entry:
        if trouble == "a full disk":
            (next(kept.glob("*.part")) / "bass.wav").symlink_to("/dev/full")
        write(entry, Path("out"))
    assert not list(kept.iterdir())
    assert Path("out/drums.wav").exists()
    assert "The stems will not be cached (No " in capsys.readouterr().out


def test_copies_stems_to_another_file_system(kept: Path, tmp_path: Path) -> None:
    memory = Path("/dev/shm")
    if not memory.is_dir() or memory.stat().st_dev == tmp_path.stat().st_dev:
        pytest.skip("there is no other file system")
    keep("song")
    with tempfile.TemporaryDirectory(dir=memory) as folder:
        assert place("song", Path(folder, "out"))
        assert Path(folder, "out", "bass.wav").read_bytes() == (kept / "song" / "bass.wav").read_bytes()


NUMBERS = st.from_regex(r"\s*\d{0,500}(\.\d{0,20})? ?(g?b?)\s*", fullmatch=True)


@given(st.text(st.characters(blacklist_characters="\0", blacklist_categories=["Cs"])) | NUMBERS)
@example("lots")
@example(400 * "9")
def test_any_limit_is_a_number_of_gigabytes_or_refused(kept: Path, text: str) -> None:
    with patch.dict(os.environ, KELVANE_STEM_CACHE=text):
        try:
            limit = StemCache()._limit
            assert limit == pytest.approx(1e9 * float(re.match(r"\s*([\d.]*)", text)[1] or 4), abs=1)
        except WorkerError as error:
            assert "set it to a number of gigabytes" in str(error)
