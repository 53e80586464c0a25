"""separate.py as the program runs it, on a small untrained model and without a network."""

import os
import re
import shutil
import subprocess
from pathlib import Path

import numpy as np
import pytest
from wav import read_wav, write_float_wav, write_wav
from workers import ENVIRONMENT, SCRIPTS, UV, cache_without_stems, provide, run_each, run_worker, write_script

SCRIPT = SCRIPTS / "separate.py"
SUPPORT = Path(__file__).parents[1] / "support"
ENCODED = Path(__file__).parents[1] / "audio" / "encoded"
RATE = 44100
NO_SERVER = "http://127.0.0.1:9"

# The small model's chunks.
CHUNK = 2 * RATE
STRIDE = CHUNK * 3 // 4
LOUD_SONG_PERCENTS = [int(100 * chunk * STRIDE / (10 * RATE)) for chunk in range(7)] + [100]

# Prints the distance between separate()'s stems and Demucs' own, relative to the latter, for songs of the given
# lengths. Then saves Demucs' own stems of a song.
REFERENCE = """
import sys
from pathlib import Path
scripts, support, song, *lengths = sys.argv[1:]
sys.path[:0] = scripts, support
import numpy, torch
from separation.decoded_song import DecodedSong
from demucs.api import Separator
from separation.demucs_runner import separate
from wav import write_float_wav
demucs, model = Separator("hf://htdemucs", shifts=0), Separator("hf://htdemucs").model
random, path = numpy.random.default_rng(1), Path(song).with_name("short.wav")
for num_samples in map(int, lengths):
    mix = (3000 * random.standard_normal((2, num_samples)) + 500).astype("f4")
    write_float_wav(path, mix.T, 44100)
    expected = torch.stack(list(demucs.separate_tensor(torch.from_numpy(mix))[1].values()))
    stems = torch.cat(list(separate(model, DecodedSong(str(path), path.parent))), -1)
    print("distance", float((stems - expected).norm() / expected.norm()))
mix = numpy.fromfile(song, "<f4", offset=44).reshape(-1, 2).T
numpy.savez(Path(song).with_suffix(".npz"), **demucs.separate_tensor(torch.from_numpy(mix.copy()))[1])
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


@pytest.fixture(scope="session")
def environment(hub: Path, tmp_path_factory: pytest.TempPathFactory) -> dict[str, str]:
    """Stems are not cached."""
    cache = {**cache_without_stems(tmp_path_factory.mktemp("cache")), "KELVANE_STEM_CACHE": "0"}
    return {**ENVIRONMENT, **cache, "HF_HOME": str(hub), "HF_HUB_OFFLINE": "1", "OMP_WAIT_POLICY": "PASSIVE"}


@pytest.fixture
def caching(environment: dict[str, str], tmp_path: Path) -> dict[str, str]:
    """Stems are cached in the test's folder "cache/kelvane/stems"."""
    return {**environment, **cache_without_stems(tmp_path / "cache"), "KELVANE_STEM_CACHE": ""}


def arguments(song: Path, folder: Path, stems: str) -> list[str | Path]:
    return [SCRIPT, song, folder, "--model", "htdemucs", "--stems", stems]


def percents(lines: list[str]) -> list[int]:
    """Returns those that the program takes for progress."""
    return [int(line.partition("%")[0]) for line in lines if re.search(r"^[^%]*\d%\|", line)]


def noise(num_samples: int, level: float = 0.1) -> np.ndarray:
    return (level * np.random.default_rng(1).standard_normal((num_samples, 2))).astype("<f4")


def read_stem(path: Path) -> np.ndarray:
    samples, rate = read_wav(path)
    assert (samples.shape[1], rate) == (2, RATE)
    return samples


@pytest.fixture(scope="module")
def loud_song(tmp_path_factory: pytest.TempPathFactory) -> Path:
    return write_float_wav(tmp_path_factory.mktemp("song") / "7%| loud.wav", noise(10 * RATE, level=3000), RATE)


@pytest.fixture(scope="module")
def reference(loud_song: Path, environment: dict[str, str]) -> dict[str, np.ndarray]:
    """Returns Demucs' own stems, and as "distances" how far the script's are away at many lengths."""
    around = [edge + by for edge in (STRIDE, CHUNK, 2 * STRIDE, STRIDE + CHUNK) for by in (-1, 0, 1)]
    anywhere = np.random.default_rng(2).integers(2, 4 * CHUNK, 4).tolist()
    lengths = [2, 3, CHUNK - STRIDE, *around, *anywhere]
    command = [provide("separate.py"), "-c", REFERENCE, SCRIPTS, SUPPORT, loud_song, *map(str, lengths)]
    output = subprocess.run(command, env=environment, check=True, capture_output=True, text=True).stdout
    distances = np.array(re.findall("^distance (.*)", output, re.MULTILINE), float)
    assert len(distances) == len(lengths)
    return {"distances": distances, **np.load(loud_song.with_suffix(".npz"))}


def test_separates_songs_of_any_length_as_demucs_does(reference: dict[str, np.ndarray]) -> None:
    assert reference["distances"].max() < 1e-6


@pytest.mark.parametrize("gpu_fails", [False, True], ids=["cpu", "a GPU runs out of memory"])
def test_writes_the_wanted_stems_unscaled(
    gpu_fails: bool, loud_song: Path, reference: dict[str, np.ndarray], tmp_path: Path, environment: dict[str, str]
) -> None:
    _, *command = arguments(loud_song, tmp_path / "stems", "other,bass")
    script = write_script(SCRIPT, tmp_path / "failing_gpu.py", FAILING_GPU) if gpu_fails else SCRIPT
    lines = run_worker(script, *command, environment=environment, status=0)
    assert percents(lines) == LOUD_SONG_PERCENTS
    assert sorted(os.listdir(tmp_path / "stems")) == ["bass.wav", "other.wav"]
    for stem in ("other", "bass"):
        expected = reference[stem].T
        assert np.abs(expected).max() > 2
        difference = read_stem(tmp_path / "stems" / f"{stem}.wav") - expected
        assert np.linalg.norm(difference) < 1e-6 * np.linalg.norm(expected)  # 120 dB lower
    if gpu_fails:
        failure = lines.index("The GPU failed, so the CPU continues (CUDA out of memory.)")
        assert lines[failure + 1].startswith("Separating on the CPU")


def test_odd_and_damaged_songs(tmp_path: Path, environment: dict[str, str]) -> None:
    muted, damaged = noise(RATE), noise(RATE)
    muted[5000:5003], damaged[5000:5003] = 0, np.array([np.nan, np.inf, -np.inf])[:, None]
    signals = {"muted": muted, "damaged": damaged, "silent": 0 * muted, "one sample": noise(1)}
    songs = [write_float_wav(tmp_path / f"{name}.wav", samples, RATE) for name, samples in signals.items()]
    songs.append(write_float_wav(tmp_path / "96 kHz mono.wav", noise(9600)[:, :1], 96000))

    encoded = (ENCODED / "aac.m4a").read_bytes()
    songs.append(tmp_path / "damaged aac.m4a")
    songs[-1].write_bytes(encoded[:2500] + bytes(400) + encoded[2900:])

    source = write_wav(tmp_path / "source.wav", muted, RATE)
    for mode in ("j", "m"):  # joint stereo, then mono
        subprocess.run(["lame", "--quiet", "-t", "-m", mode, source, tmp_path / f"{mode}.part"], check=True)
    songs.append(tmp_path / "changing channels.mp3")
    songs[-1].write_bytes((tmp_path / "j.part").read_bytes() + (tmp_path / "m.part").read_bytes())

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
    ("stems", "trouble", "advice"),
    [
        ("vocals,piano", "", "choose from"),
        ("vocals", "damaged model", "delete"),
        ("vocals", "full disk", "disk is full"),
        ("vocals", "no server", "connect to the internet and try again."),
        ("vocals", "offline", "connect to the internet and try again."),
    ],
)
def test_failure_ends_with_advice(
    stems: str, trouble: str, advice: str, tmp_path: Path, environment: dict[str, str]
) -> None:
    hub = environment["HF_HOME"]
    if trouble == "damaged model":
        hub = shutil.copytree(hub, tmp_path / "hub")
        weights = next(hub.rglob("*.safetensors"))
        os.truncate(weights, weights.stat().st_size // 2)
    if trouble in ("no server", "offline"):
        hub = tmp_path / "hub"
    offline = "0" if trouble == "no server" else "1"
    (tmp_path / "stems").mkdir()
    if trouble == "full disk":
        (tmp_path / "stems" / "vocals.part").symlink_to("/dev/full")
    changed = {"HF_HOME": str(hub), "HF_HUB_OFFLINE": offline, "HF_ENDPOINT": NO_SERVER}
    command = arguments(write_float_wav(tmp_path / "song.wav", noise(RATE), RATE), tmp_path / "stems", stems)
    last_line = run_worker(*command, environment={**environment, **changed}, status=1)[-1]
    assert advice in last_line
    assert last_line.endswith(".")
    assert not (tmp_path / "stems" / "vocals.wav").exists()


def test_fetches_the_model_and_reuses_cached_stems(model_hub: str, tmp_path: Path, caching: dict[str, str]) -> None:
    song = write_wav(tmp_path / "song.wav", noise(3 * RATE), RATE)
    fetched, copied = tmp_path / "hub", tmp_path / "copied hub"
    online = {"HF_HOME": str(fetched), "HF_HUB_OFFLINE": "0", "HF_TOKEN": "hf_expired", "HF_ENDPOINT": model_hub}
    command = arguments(song, tmp_path / "first", "drums,vocals")
    lines = run_worker(*command, environment=caching | online, status=0)
    assert percents(lines)[-4:] == [100, 0, 50, 100]  # the model's bar, and then the song's
    assert "[setup] Fetching the model: 0.2 of 0.2 MB" in lines

    # They are found under another name, container and choice of stems, without the hub's links and without torch.
    shutil.copytree(fetched, copied)
    same_song = tmp_path / "elsewhere" / "Same Song.flac"
    same_song.parent.mkdir()
    subprocess.run(["flac", "--silent", song, "-o", same_song], check=True)
    (tmp_path / "broken" / "torch").mkdir(parents=True)
    (tmp_path / "broken" / "torch" / "__init__.py").write_text("raise ImportError")
    offline = caching | {"HF_HOME": str(copied)}
    command = arguments(same_song, tmp_path / "second", "bass,vocals")
    lines = run_worker(*command, environment=offline | {"PYTHONPATH": str(tmp_path / "broken")}, status=0)
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
    song = write_float_wav(tmp_path / "long.wav", np.zeros((8000 * 600, 1)), 8000)
    command = [UV, "run", *arguments(song, tmp_path / "stems", "bass")]
    with subprocess.Popen(command, env=caching, stdout=subprocess.PIPE, stderr=subprocess.STDOUT) as process:
        assert any(b"1%|" in line for line in process.stdout)
        process.kill()
        assert b"100%|" not in process.stdout.read()  # ends when nobody holds the pipe any more
    assert not list((tmp_path / "stems").glob("*.wav"))
    cached = tmp_path / "cache" / "kelvane" / "stems"
    assert [path.suffix for path in cached.iterdir()] == [".part"]

    short = write_float_wav(tmp_path / "short.wav", noise(100), RATE)
    run_worker(*arguments(short, tmp_path / "stems", "bass"), environment=caching, status=0)
    assert [path.suffix for path in cached.iterdir()] == [""]
