"""The cache of stems, with entries of a few samples."""

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
STEMS = ["bass", "drums"]
ENTRY_SIZE = 2 * file_size(NUM_SAMPLES)


@pytest.fixture
def kept(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Path:
    """Returns the folder of the entries."""
    monkeypatch.setenv("XDG_CACHE_HOME", str(tmp_path))
    return tmp_path / "kelvane" / "stems"


def write(entry: NewEntry, folder: Path) -> None:
    """Writes one stem into the folder, as if it was wanted, and the other into the entry."""
    folder.mkdir(exist_ok=True)
    drums = StemFile(folder / "drums.part", NUM_SAMPLES)
    drums.write(SAMPLES)
    entry.write("bass", SAMPLES, NUM_SAMPLES)
    drums.close()
    drums.rename(folder / "drums.wav")
    entry.finish({"drums": drums})


def keep(key: str, folder: Path) -> None:
    with StemCache().new_entry(key, ENTRY_SIZE) as entry:
        write(entry, folder)


def place(key: str, folder: Path) -> bool:
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    placed = StemCache().place(key, STEMS, folder)
    assert {path.name for path in folder.iterdir()} == ({"bass.wav", "drums.wav"} if placed else set())
    return placed


@given(
    st.sampled_from(["bass.wav", "drums.wav", "stems.json"]),
    st.binary() | st.sampled_from(["gone", "folder", b"[1]", b"{}", b'{"bass": 1}', b'{"bass": {}, "drums": null}']),
)
@example("bass.wav", "folder")
@example("stems.json", b"{}")
@example("stems.json", 100_000 * b"[")
def test_any_damaged_entry_is_reported_and_removed(
    kept: Path, tmp_path: Path, capsys: pytest.CaptureFixture[str], name: str, damage: bytes | str
) -> None:
    keep("song", tmp_path / "out")
    assert place("song", tmp_path / "out")
    (kept / "song" / name).unlink()
    if damage == "folder":
        (kept / "song" / name).mkdir()
    elif damage != "gone":
        (kept / "song" / name).write_bytes(damage)
    assert not place("song", tmp_path / "out")
    assert "damaged" in capsys.readouterr().out
    assert not list(kept.iterdir())


@given(st.binary())
@example(b"\xff")
@example(300 * b"a")
def test_any_reference_to_no_model_has_no_key(tmp_path: Path, reference: bytes) -> None:
    (tmp_path / "models--adefossez--demucs" / "refs").mkdir(parents=True, exist_ok=True)
    (tmp_path / "models--adefossez--demucs" / "refs" / "main").write_bytes(reference)
    hub = SimpleNamespace(constants=SimpleNamespace(HF_HUB_CACHE=tmp_path))
    with patch.dict(sys.modules, huggingface_hub=hub):
        assert stem_key("digest", "htdemucs") is None


def test_deletes_the_least_recently_used_entries(kept: Path, tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    def names() -> set[str]:
        return {path.name for path in kept.iterdir()}

    monkeypatch.setenv("KELVANE_STEM_CACHE", str(3.5 * (ENTRY_SIZE + 200) / 1e9))
    for day, key in enumerate(["one", "two", "three"]):
        keep(key, tmp_path / "out")
        os.utime(kept / key, (day, day))
    assert place("one", tmp_path / "out")
    keep("four", tmp_path / "out")
    assert names() == {"one", "three", "four"}

    with StemCache().new_entry("too big for the limit", 4 * ENTRY_SIZE) as entry:
        write(entry, tmp_path / "out")
    assert names() == {"one", "three", "four"}

    def disk_usage(_: Path) -> SimpleNamespace:
        return SimpleNamespace(
            free=2 * 10**9 + capacity * ENTRY_SIZE - sum(p.stat().st_size for p in kept.rglob("*.wav"))
        )

    monkeypatch.setattr(shutil, "disk_usage", disk_usage)
    capacity = 2.5
    keep("five", tmp_path / "out")
    assert names() == {"four", "five"}
    capacity = 0.9
    keep("six", tmp_path / "out")
    assert not names()
    capacity = 9
    keep("seven", tmp_path / "out")
    assert names() == {"seven"}

    monkeypatch.setenv("KELVANE_STEM_CACHE", "0")
    keep("eight", tmp_path / "out")
    assert not names()


def test_keeps_the_first_of_two_entries_at_once(kept: Path, tmp_path: Path) -> None:
    with StemCache().new_entry("song", ENTRY_SIZE) as slow:
        keep("song", tmp_path / "fast")
        assert list(kept.glob("*.part"))
        write(slow, tmp_path / "slow")
    (entry,) = kept.iterdir()
    assert (entry / "drums.wav").samefile(tmp_path / "fast" / "drums.wav")
    assert place("song", tmp_path / "out")


def test_separates_without_caching_on_a_full_disk(
    kept: Path, tmp_path: Path, capsys: pytest.CaptureFixture[str]
) -> None:
    with StemCache().new_entry("song", ENTRY_SIZE) as entry:
        (next(kept.glob("*.part")) / "bass.wav").symlink_to("/dev/full")
        write(entry, tmp_path / "out")
    assert not list(kept.iterdir())
    assert (tmp_path / "out" / "drums.wav").exists()
    assert "The stems will not be cached (No space left on device)" in capsys.readouterr().out


def test_separates_without_caching_if_no_file_can_be_created(
    kept: Path, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr("separation.stem_cache._RECEIPT", "absent/stems.json")
    keep("song", tmp_path / "out")
    assert not list(kept.iterdir())


def test_copies_stems_to_another_file_system(kept: Path, tmp_path: Path) -> None:
    memory = Path("/dev/shm")
    if not memory.is_dir() or memory.stat().st_dev == tmp_path.stat().st_dev:
        pytest.skip("there is no other file system")
    keep("song", tmp_path / "out")
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
