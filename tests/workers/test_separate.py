"""separate.py, run as the program runs it, on a small untrained model and without a network."""

import os
import re
import shutil
import subprocess
from pathlib import Path

import numpy as np
import pytest
from wav import read_float_wav, write_float_wav, write_wav
from workers import ENVIRONMENT, SCRIPTS, UV, cache_without_stems, provide, run_worker

SCRIPT = SCRIPTS / "separate.py"
SUPPORT = Path(__file__).parents[1] / "support"
ENCODED = Path(__file__).parents[1] / "audio" / "encoded"
RATE = 44100
NO_SERVER = "http://127.0.0.1:9"

# The small model's chunks.
CHUNK = 2 * RATE
STRIDE = CHUNK * 3 // 4
LOUD_SONG_PERCENTS = [int(100 * chunk * STRIDE / (20 * RATE)) for chunk in range(14)] + [100]

# Demucs' own way from samples to stems.
REFERENCE = """
import sys, numpy, torch
from demucs.apply import apply_model
from demucs.pretrained import get_model
mix = torch.from_numpy(numpy.load(sys.argv[1]))
mean, deviation = mix.mean(0).mean(), mix.mean(0).std()
model = get_model("hf://htdemucs")
stems = apply_model(model, (mix[None] - mean) / deviation, shifts=0)[0] * deviation + mean
numpy.savez(sys.argv[2], **dict(zip(model.sources, stems)))
"""

# Prints how far the chunks' way lies from Demucs' own interface, relative to the stems, for songs of the given lengths.
COMPARISON = """
import sys
from pathlib import Path
sys.path[:0] = sys.argv[1:3]
import numpy, torch
from separation.decoded_song import DecodedSong
from demucs.api import Separator
from separation.demucs_runner import separate
from wav import write_float_wav
demucs, model = Separator("hf://htdemucs", shifts=0), Separator("hf://htdemucs").model
random = numpy.random.default_rng(1)
for num_samples in map(int, sys.argv[4:]):
    mix = (3000 * random.standard_normal((2, num_samples)) + 500).astype("f4")
    path = write_float_wav(Path(sys.argv[3], "song.wav"), mix.T, 44100)
    expected = torch.stack(list(demucs.separate_tensor(torch.from_numpy(mix))[1].values()))
    stems = torch.cat(list(separate(model, DecodedSong(str(path), path.parent))), -1)
    print("distance", float((stems - expected).norm() / expected.norm()))
"""

# Stands in for a GPU whose memory runs out in the second chunk.
FAILING_GPU = """
import os, sys
sys.dont_write_bytecode = True
sys.path.insert(0, os.path.dirname(sys.argv[1]))
import pathlib
from installation import environment
environment.enter(pathlib.Path(sys.argv[1]))
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
sys.argv[:2] = sys.argv[1:2]
worker.run(separate.main)
"""


@pytest.fixture(scope="session")
def environment(hub: Path, tmp_path_factory: pytest.TempPathFactory) -> dict[str, str]:
    """Nothing is kept."""
    cache = {**cache_without_stems(tmp_path_factory.mktemp("cache")), "KELVANE_STEM_CACHE": "0"}
    return {**ENVIRONMENT, **cache, "HF_HOME": str(hub), "HF_HUB_OFFLINE": "1", "OMP_WAIT_POLICY": "PASSIVE"}


@pytest.fixture
def keeping(environment: dict[str, str], tmp_path: Path) -> dict[str, str]:
    """Stems are kept in the test's folder "cache/kelvane/stems"."""
    return {**environment, **cache_without_stems(tmp_path / "cache"), "KELVANE_STEM_CACHE": ""}


def arguments(song: Path, folder: Path, stems: str) -> list[str | Path]:
    folder.mkdir(exist_ok=True)
    return [SCRIPT, song, folder, "--model", "htdemucs", "--stems", stems]


def percents(lines: list[str]) -> list[int]:
    """Those that the program takes for progress."""
    return [int(line.partition("%")[0]) for line in lines if re.search(r"^[^%]*\d%\|", line)]


def noise(num_samples: int, level: float = 0.1) -> np.ndarray:
    return (level * np.random.default_rng(1).standard_normal((2, num_samples))).astype("<f4")


def write_song(path: Path, samples: np.ndarray, rate: int = RATE) -> Path:
    """Writes floats of shape (channels, samples) as they are."""
    return write_float_wav(path, samples.T, rate)


def read_stem(path: Path) -> np.ndarray:
    samples, rate = read_float_wav(path)
    assert rate == RATE
    return samples.T


def assert_same(stem: np.ndarray, expected: np.ndarray) -> None:
    """The difference lies 120 dB below."""
    assert np.linalg.norm(stem - expected) < 1e-6 * np.linalg.norm(expected)


@pytest.fixture(scope="session")
def loud_song(tmp_path_factory: pytest.TempPathFactory) -> Path:
    return write_song(tmp_path_factory.mktemp("song") / "7%| loud.wav", noise(20 * RATE, level=3000))


@pytest.fixture(scope="session")
def reference(loud_song: Path, environment: dict[str, str]) -> dict[str, np.ndarray]:
    mix, stems = loud_song.with_suffix(".npy"), loud_song.with_suffix(".npz")
    np.save(mix, noise(20 * RATE, level=3000))
    subprocess.run([provide("separate.py"), "-c", REFERENCE, mix, stems], env=environment, check=True)
    return dict(np.load(stems))


@pytest.mark.parametrize("stems", ["vocals", "bass,other", "other,vocals,bass,drums"])
def test_writes_the_wanted_stems_unscaled(
    stems: str, loud_song: Path, reference: dict[str, np.ndarray], tmp_path: Path, environment: dict[str, str]
) -> None:
    shown = percents(run_worker(*arguments(loud_song, tmp_path, stems), environment=environment, status=0))
    assert shown == LOUD_SONG_PERCENTS
    assert {path.name for path in tmp_path.iterdir()} == {f"{stem}.wav" for stem in stems.split(",")}
    for stem in stems.split(","):
        assert np.abs(reference[stem]).max() > 2
        assert_same(read_stem(tmp_path / f"{stem}.wav"), reference[stem])


def test_is_as_demucs_own_at_every_length(tmp_path: Path, environment: dict[str, str]) -> None:
    around = [edge + by for edge in (STRIDE, CHUNK, 2 * STRIDE, STRIDE + CHUNK) for by in (-1, 0, 1)]
    anywhere = np.random.default_rng(2).integers(2, 4 * CHUNK, 8).tolist()
    lengths = [2, 3, CHUNK - STRIDE, *around, *anywhere]
    command = [provide("separate.py"), "-c", COMPARISON, SCRIPTS, SUPPORT, tmp_path, *map(str, lengths)]
    output = subprocess.run(command, env=environment, check=True, capture_output=True, text=True).stdout
    distances = re.findall("^distance (.*)", output, re.MULTILINE)
    assert len(distances) == len(lengths)
    assert max(map(float, distances)) < 1e-6


def test_a_gpu_without_memory_gives_way_to_the_cpu(
    loud_song: Path, reference: dict[str, np.ndarray], tmp_path: Path, environment: dict[str, str]
) -> None:
    script = tmp_path / "failing_gpu.py"
    script.write_text(SCRIPT.read_text().partition('"""')[0] + FAILING_GPU)
    lines = run_worker(script, *arguments(loud_song, tmp_path, "bass"), environment=environment, status=0)
    failure = lines.index("The GPU failed, so the CPU continues (CUDA out of memory.)")
    assert lines[failure + 1].startswith("Separating on the CPU")
    assert percents(lines) == LOUD_SONG_PERCENTS
    assert_same(read_stem(tmp_path / "bass.wav"), reference["bass"])


@pytest.mark.parametrize(
    ("num_samples", "rate", "channels"),
    [(1, RATE, 2), (STRIDE + 1, RATE, 1), (9600, 96000, 1)],
)
def test_keeps_the_length(
    num_samples: int, rate: int, channels: int, tmp_path: Path, environment: dict[str, str]
) -> None:
    song = write_song(tmp_path / "song.wav", noise(num_samples)[:channels], rate)
    run_worker(*arguments(song, tmp_path, "bass"), environment=environment, status=0)
    stem = read_stem(tmp_path / "bass.wav")
    assert stem.shape == (2, num_samples * RATE // rate)
    assert np.isfinite(stem).all()


def test_damaged_samples_and_silence(tmp_path: Path, environment: dict[str, str]) -> None:
    def separated(name: str, samples: np.ndarray) -> np.ndarray:
        song = write_song(tmp_path / f"{name}.wav", samples)
        run_worker(*arguments(song, tmp_path / name, "other"), environment=environment, status=0)
        return read_stem(tmp_path / name / "other.wav")

    muted, damaged = noise(RATE), noise(RATE)
    muted[:, 5000:5003], damaged[:, 5000:5003] = 0, [np.nan, np.inf, -np.inf]
    np.testing.assert_array_equal(separated("damaged", damaged), separated("muted", muted))
    assert np.abs(separated("silence", np.zeros_like(muted))).max() < 1e-6


def test_what_is_damaged_keeps_its_length(tmp_path: Path, environment: dict[str, str]) -> None:
    encoded = (ENCODED / "aac.m4a").read_bytes()
    song = tmp_path / "song.m4a"
    song.write_bytes(encoded[:2500] + bytes(400) + encoded[2900:])
    run_worker(*arguments(song, tmp_path, "bass"), environment=environment, status=0)
    assert read_stem(tmp_path / "bass.wav").shape[1] == pytest.approx(20011, abs=RATE / 1000)


def test_a_song_may_change_its_channels(tmp_path: Path, environment: dict[str, str]) -> None:
    parts = []
    for mode in ("j", "m"):
        source, part = write_wav(tmp_path / "part.wav", noise(RATE).T, RATE), tmp_path / f"{mode}.mp3"
        subprocess.run(["lame", "--quiet", "-t", "-m", mode, source, part], check=True)
        parts.append(part.read_bytes())
    song = tmp_path / "song.mp3"
    song.write_bytes(b"".join(parts))
    run_worker(*arguments(song, tmp_path, "bass"), environment=environment, status=0)
    assert read_stem(tmp_path / "bass.wav").shape[1] == pytest.approx(2 * RATE, abs=6000)


@pytest.mark.parametrize(
    ("stems", "damage", "advice"),
    [
        ("vocals,piano", "", "choose from"),
        ("vocals", "no samples", "empty or damaged"),
        ("vocals", "model", "delete"),
        ("vocals", "disk", "disk is full"),
    ],
)
def test_failures_end_with_a_sentence(
    stems: str, damage: str, advice: str, tmp_path: Path, environment: dict[str, str]
) -> None:
    song = write_song(tmp_path / "song.wav", noise(0 if damage == "no samples" else RATE))
    command = arguments(song, tmp_path / "stems", stems)
    if damage == "model":
        environment = {**environment, "HF_HOME": shutil.copytree(environment["HF_HOME"], tmp_path / "hub")}
        weights = next((tmp_path / "hub").rglob("*.safetensors"))
        os.truncate(weights, weights.stat().st_size // 2)
    if damage == "disk":
        (tmp_path / "stems" / "vocals.part").symlink_to("/dev/full")
    last_line = run_worker(*command, environment=environment, status=1)[-1]
    assert advice in last_line
    assert last_line.endswith(".")
    assert not (tmp_path / "stems" / "vocals.wav").exists()


def test_fetches_a_missing_model_once(model_hub: str, tmp_path: Path, environment: dict[str, str]) -> None:
    command = arguments(write_song(tmp_path / "song.wav", noise(100)), tmp_path, "bass")
    online = {**environment, "HF_HOME": str(tmp_path / "hub"), "HF_HUB_OFFLINE": "0", "HF_TOKEN": "hf_expired"}
    lines = run_worker(*command, environment={**online, "HF_ENDPOINT": model_hub}, status=0)
    assert percents(lines)[-3:] == [100, 0, 100]  # the model's bar, and then the song's
    assert "[setup] Fetching the model: 0.2 of 0.2 MB" in lines
    lines = run_worker(*command, environment={**online, "HF_ENDPOINT": NO_SERVER}, status=0)
    assert "Fetching" not in "".join(lines)


@pytest.mark.parametrize("offline", ["0", "1"])
def test_no_model_and_no_network(offline: str, tmp_path: Path, environment: dict[str, str]) -> None:
    command = arguments(write_song(tmp_path / "song.wav", noise(100)), tmp_path, "bass")
    nothing = {"HF_HOME": str(tmp_path / "hub"), "HF_HUB_OFFLINE": offline, "HF_ENDPOINT": NO_SERVER}
    last_line = run_worker(*command, environment={**environment, **nothing}, status=1)[-1]
    assert last_line.endswith("connect to the internet and try again.")


def test_kept_stems_are_found_whatever_the_songs_file(tmp_path: Path, keeping: dict[str, str]) -> None:
    """Another name, container and choice of stems; and torch cannot be loaded."""
    song = write_wav(tmp_path / "song.wav", noise(3 * RATE).T, RATE)
    command = arguments(song, tmp_path / "first", "drums,vocals")
    assert percents(run_worker(*command, environment=keeping, status=0)) == [0, 50, 100]
    first = (tmp_path / "first" / "vocals.wav").read_bytes()

    same_song = tmp_path / "elsewhere" / "Same Song.flac"
    same_song.parent.mkdir()
    subprocess.run(["flac", "--silent", song, "-o", same_song], check=True)
    (tmp_path / "broken" / "torch").mkdir(parents=True)
    (tmp_path / "broken" / "torch" / "__init__.py").write_text("raise ImportError")
    command = arguments(same_song, tmp_path / "second", "bass,vocals")
    lines = run_worker(*command, environment={**keeping, "PYTHONPATH": str(tmp_path / "broken")}, status=0)
    assert percents(lines) == [100]
    assert (tmp_path / "second" / "vocals.wav").read_bytes() == first
    assert read_stem(tmp_path / "second" / "bass.wav").shape == (2, 3 * RATE)

    (entry,) = (tmp_path / "cache" / "kelvane" / "stems").iterdir()
    assert (entry / "vocals.wav").samefile(tmp_path / "second" / "vocals.wav")
    assert len(list(entry.glob("*.wav"))) == 4
    assert all(path.stat().st_mode & 0o777 == 0o400 for path in entry.iterdir())

    weights = next(Path(keeping["HF_HOME"]).rglob("*.safetensors"))
    other_model = {**keeping, "HF_HOME": str(shutil.copytree(keeping["HF_HOME"], tmp_path / "hub"))}
    other_weights = tmp_path / "hub" / weights.relative_to(keeping["HF_HOME"])
    other_weights.write_bytes(weights.read_bytes()[:-1] + b"\1")
    assert len(percents(run_worker(*command, environment=other_model, status=0))) == 3


def test_ends_with_uv_in_the_middle_of_a_chunk(tmp_path: Path, keeping: dict[str, str]) -> None:
    song = write_song(tmp_path / "long.wav", np.zeros((1, 8000 * 600), "<f4"), 8000)
    command = arguments(song, tmp_path / "stems", "bass")
    with subprocess.Popen(
        [UV, "run", *command], env=keeping, stdout=subprocess.PIPE, stderr=subprocess.STDOUT
    ) as process:
        assert any(b"1%|" in line for line in process.stdout)
        process.kill()
        assert b"100%|" not in process.stdout.read()  # it ends when nobody holds the pipe any more
    assert not list((tmp_path / "stems").glob("*.wav"))
    kept = tmp_path / "cache" / "kelvane" / "stems"
    assert [path.suffix for path in kept.iterdir()] == [".part"]

    short = write_song(tmp_path / "short.wav", noise(100))
    run_worker(*arguments(short, tmp_path / "stems", "bass"), environment=keeping, status=0)
    assert [path.suffix for path in kept.iterdir()] == [""]
