"""Tests separate.py as the program runs it, with a small untrained model and without a network."""

import os
import re
import shutil
import subprocess
from pathlib import Path

import numpy as np
import pytest
from wav import read_wav, write_wav
from workers import ENVIRONMENT, ROOT, SCRIPTS, UV, cache_without_stems, provide, run_each, run_worker, write_script

SCRIPT = SCRIPTS / "separate.py"
RATE = 44100

# The small model's chunk size and stride, in samples, and song lengths close to them.
CHUNK = 2 * RATE
STRIDE = CHUNK * 3 // 4
LENGTHS = [2, 3, STRIDE - 1, STRIDE, STRIDE + 1, CHUNK, CHUNK + 1, STRIDE + CHUNK, 10 * RATE]

# Saves Demucs' own stems of each song beside the song.
REFERENCE = """
import numpy, sys, torch
from demucs.api import Separator
demucs = Separator("hf://htdemucs", shifts=0)
for song in sys.argv[1:]:
    mix = numpy.fromfile(song, "<f4", offset=44).reshape(-1, 2).T
    numpy.savez(song + ".npz", **demucs.separate_tensor(torch.from_numpy(mix.copy()))[1])
"""

# Stands in for a GPU whose memory runs out in the second chunk.
FAILING_GPU = """
import separate, torch, worker
from separation import demucs_runner
from demucs.htdemucs import HTDemucs
forward, calls = HTDemucs.forward, []
def fail_once(model, mix):
    calls.append(mix)
    if len(calls) == 2:
        raise torch.OutOfMemoryError("CUDA out of memory.\\nMore.")
    return forward(model, mix)
HTDemucs.forward, demucs_runner._gpu = fail_once, lambda: "cpu:0"
worker.run(separate.main)
"""


@pytest.fixture(scope="module")
def environment(hub: Path, tmp_path_factory: pytest.TempPathFactory) -> dict[str, str]:
    """Returns environment variables that turn off the stem cache."""
    cache = {**cache_without_stems(tmp_path_factory.mktemp("cache")), "KELVANE_STEM_CACHE": "0"}
    return {**ENVIRONMENT, **cache, "HF_HOME": str(hub), "HF_HUB_OFFLINE": "1", "OMP_WAIT_POLICY": "PASSIVE"}


@pytest.fixture
def caching(environment: dict[str, str], tmp_path: Path) -> dict[str, str]:
    """Returns environment variables that put the stem cache in "cache/kelvane/stems", in the test's folder."""
    return {**environment, **cache_without_stems(tmp_path / "cache"), "KELVANE_STEM_CACHE": ""}


def arguments(song: Path, folder: Path, stems: str) -> list[str | Path]:
    return [SCRIPT, song, folder, "--model", "htdemucs", "--stems", stems]


def percents(lines: list[str]) -> list[int]:
    """Returns the percentages that the program reads as progress."""
    return [int(line.partition("%")[0]) for line in lines if re.search(r"^[^%]*\d%\|", line)]


def noise(num_samples: int, level: float = 0.1) -> np.ndarray:
    return (level * np.random.default_rng(1).standard_normal((num_samples, 2))).astype("<f4")


def read_stem(path: Path) -> np.ndarray:
    samples, rate = read_wav(path)
    assert (samples.shape[1], rate) == (2, RATE)
    return samples


@pytest.fixture(scope="module")
def songs(tmp_path_factory: pytest.TempPathFactory, environment: dict[str, str]) -> list[Path]:
    """Writes loud songs of all LENGTHS, with Demucs' own stems beside them."""
    folder = tmp_path_factory.mktemp("songs")
    songs = [write_wav(folder / f"7%| {length}.wav", 500 + noise(length, level=3000), RATE) for length in LENGTHS]
    subprocess.run([provide("separate.py"), "-c", REFERENCE, *songs], env=environment, check=True, capture_output=True)
    return songs


def assert_separated(song: Path, folder: Path, stems: list[str], lines: list[str]) -> None:
    """Asserts that progress was shown and the folder has exactly these stems, within -120 dB of Demucs' own."""
    reference = np.load(f"{song}.npz")
    assert sorted(os.listdir(folder)) == [f"{stem}.wav" for stem in stems]
    for stem in stems:
        distance = np.linalg.norm(read_stem(folder / f"{stem}.wav") - reference[stem].T)
        assert distance < 1e-6 * np.linalg.norm(reference[stem]), song
    length = reference[stems[0]].shape[1]
    assert percents(lines) == [*(100 * start // length for start in range(0, length, STRIDE)), 100]


def test_separates_songs_of_any_length_as_demucs_does(
    songs: list[Path], tmp_path: Path, environment: dict[str, str]
) -> None:
    folders = [tmp_path / str(length) for length in LENGTHS]
    calls = [arguments(song, folder, "other,bass")[1:] for song, folder in zip(songs, folders, strict=True)]
    for song, folder, lines in zip(songs, folders, run_each(SCRIPT, tmp_path, calls, environment), strict=True):
        assert_separated(song, folder, ["bass", "other"], lines)


def test_continues_on_the_cpu_when_the_gpu_fails(
    songs: list[Path], tmp_path: Path, environment: dict[str, str]
) -> None:
    _, *command = arguments(songs[-1], tmp_path / "stems", "drums,vocals")
    script = write_script(SCRIPT, tmp_path / "failing_gpu.py", FAILING_GPU)
    lines = run_worker(script, *command, environment=environment, status=0)
    assert_separated(songs[-1], tmp_path / "stems", ["drums", "vocals"], lines)
    failure = lines.index("The GPU failed, so the CPU continues (CUDA out of memory.)")
    assert lines[failure + 1].startswith("Separating on the CPU")


def test_odd_and_damaged_songs(tmp_path: Path, environment: dict[str, str]) -> None:
    muted, damaged = noise(RATE), noise(RATE)
    muted[5000:5003], damaged[5000:5003] = 0, np.array([np.nan, np.inf, -np.inf])[:, None]
    signals = {"muted": muted, "damaged": damaged, "silent": 0 * muted, "one sample": noise(1)}
    songs = [write_wav(tmp_path / f"{name}.wav", samples, RATE) for name, samples in signals.items()]
    songs.append(write_wav(tmp_path / "96 kHz mono.wav", noise(9600)[:, :1], 96000))

    encoded = (ROOT / "tests" / "audio" / "encoded" / "aac.m4a").read_bytes()
    songs.append(tmp_path / "damaged aac.m4a")
    songs[-1].write_bytes(encoded[:2500] + bytes(400) + encoded[2900:])

    joint_stereo_then_mono = b""
    for mode in ("j", "m"):
        command = ["lame", "--quiet", "-t", "-m", mode, songs[0], "-"]
        joint_stereo_then_mono += subprocess.run(command, check=True, capture_output=True).stdout
    songs.append(tmp_path / "changing channels.mp3")
    songs[-1].write_bytes(joint_stereo_then_mono)

    calls = [arguments(song, song.with_suffix(""), "bass")[1:] for song in songs]
    run_each(SCRIPT, tmp_path, calls, environment)
    stems = {song.stem: read_stem(song.with_suffix("") / "bass.wav") for song in songs}
    assert all(np.isfinite(stem).all() for stem in stems.values())
    np.testing.assert_array_equal(stems["damaged"], stems["muted"])
    assert np.abs(stems["silent"]).max() < 1e-6
    assert {name: len(stem) for name, stem in stems.items()} == {
        **dict.fromkeys(("muted", "damaged", "silent"), RATE),
        "one sample": 1,
        "96 kHz mono": RATE // 10,
        "damaged aac": pytest.approx(20011, abs=RATE / 1000),
        "changing channels": pytest.approx(2 * RATE, abs=6000),
    }


@pytest.mark.parametrize(
    ("trouble", "advice"),
    [
        ("no such stem", "choose from"),
        ("damaged model", "delete"),
        ("full disk", "disk is full"),
        ("no server", "connect to the internet and try again."),
        ("offline", "connect to the internet and try again."),
    ],
)
def test_failure_ends_with_advice(trouble: str, advice: str, tmp_path: Path, environment: dict[str, str]) -> None:
    stems, hub = tmp_path / "stems", tmp_path / "hub"
    changed = {"HF_ENDPOINT": "http://127.0.0.1:9", "HF_HUB_OFFLINE": "0" if trouble == "no server" else "1"}
    if trouble not in ("no server", "offline"):
        shutil.copytree(environment["HF_HOME"], hub)
    if trouble == "damaged model":
        weights = next(hub.rglob("*.safetensors"))
        os.truncate(weights, weights.stat().st_size // 2)
    stems.mkdir()
    if trouble == "full disk":
        (stems / "vocals.part").symlink_to("/dev/full")
    wanted = "vocals,piano" if trouble == "no such stem" else "vocals"
    command = arguments(write_wav(tmp_path / "song.wav", noise(RATE), RATE), stems, wanted)
    last_line = run_worker(*command, environment=environment | changed | {"HF_HOME": str(hub)}, status=1)[-1]
    assert advice in last_line
    assert last_line.endswith(".")
    assert not (stems / "vocals.wav").exists()


def test_fetches_the_model_and_reuses_cached_stems(model_hub: str, tmp_path: Path, caching: dict[str, str]) -> None:
    song = write_wav(tmp_path / "song.wav", noise(3 * RATE), RATE)
    fetched, copied = tmp_path / "hub", tmp_path / "copied hub"
    online = {"HF_HOME": str(fetched), "HF_HUB_OFFLINE": "0", "HF_TOKEN": "hf_expired", "HF_ENDPOINT": model_hub}
    command = arguments(song, tmp_path / "first", "drums,vocals")
    lines = run_worker(*command, environment=caching | online, status=0)
    assert percents(lines)[-4:] == [100, 0, 50, 100]  # the download of the model, then the separation
    assert "[setup] Fetching the model: 0.2 of 0.2 MB" in lines

    # The stems are found for another file name, container and choice of stems, without the hub's symlinks or torch.
    shutil.copytree(fetched, copied)
    same_song = tmp_path / "elsewhere" / "Same Song.wv"
    (tmp_path / "elsewhere" / "torch").mkdir(parents=True)
    (tmp_path / "elsewhere" / "torch" / "__init__.py").write_text("raise ImportError")
    subprocess.run(["ffmpeg", "-v", "error", "-i", song, same_song], check=True)
    offline = caching | {"HF_HOME": str(copied)}
    command = arguments(same_song, tmp_path / "second", "bass,vocals")
    lines = run_worker(*command, environment=offline | {"PYTHONPATH": str(same_song.parent)}, status=0)
    assert percents(lines) == [100]
    vocals = tmp_path / "second" / "vocals.wav"
    assert vocals.read_bytes() == (tmp_path / "first" / "vocals.wav").read_bytes()
    assert len(read_stem(tmp_path / "second" / "bass.wav")) == 3 * RATE

    (entry,) = (tmp_path / "cache" / "kelvane" / "stems").iterdir()
    assert (entry / "vocals.wav").samefile(vocals)
    assert len(list(entry.glob("*.wav"))) == 4
    assert all(path.stat().st_mode & 0o777 == 0o400 for path in entry.iterdir())

    weights = next(copied.rglob("*.safetensors"))
    weights.write_bytes(weights.read_bytes()[:-1] + b"\1")
    assert percents(run_worker(*command, environment=offline, status=0)) == [0, 50, 100]


def test_ends_with_uv_in_the_middle_of_a_chunk(tmp_path: Path, caching: dict[str, str]) -> None:
    song = write_wav(tmp_path / "long.wav", np.zeros((8000 * 600, 1)), 8000)
    command = [UV, "run", *arguments(song, tmp_path / "stems", "bass")]
    with subprocess.Popen(command, env=caching, stdout=subprocess.PIPE, stderr=subprocess.STDOUT) as process:
        assert any(b"1%|" in line for line in process.stdout)
        process.kill()
        assert b"100%|" not in process.stdout.read()  # read() returns when every process has closed the pipe
    assert not list((tmp_path / "stems").glob("*.wav"))
    cached = tmp_path / "cache" / "kelvane" / "stems"
    assert [path.suffix for path in cached.iterdir()] == [".part"]

    short = write_wav(tmp_path / "short.wav", noise(100), RATE)
    run_worker(*arguments(short, tmp_path / "stems", "bass"), environment=caching, status=0)
    assert [path.suffix for path in cached.iterdir()] == [""]
