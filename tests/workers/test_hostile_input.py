"""Gives the workers arbitrary songs, titles and output of other programs. They must cope, or fail with one sentence."""

import io
import os
import re
import subprocess
import sys
import unicodedata
from collections.abc import Callable, Iterator
from functools import partial
from pathlib import Path

import numpy as np
import pytest
from hypothesis import example, given
from hypothesis import strategies as st
from wav import write_wav
from workers import BLOCK_SIZE, ROOT, SCRIPTS, provide

sys.path.insert(0, str(SCRIPTS))
import worker
from download.filename import MAX_BYTES, safe_name
from installation import uv_tool

# Reads the paths of songs, one per line, and gives each song to the workers. Answers with a line, which is empty if
# they accept the song, and otherwise contains their sentence. Exits on any other failure, or if a song takes more than
# a minute, 4 GB of memory or 512 MB of disk space.
SONG_TAKER = """
import contextlib, io, json, resource, signal, sys
from pathlib import Path
from types import SimpleNamespace
import analyze, numpy, worker, yt2wav
from separation.decoded_song import DecodedSong

def take(path):
    assert yt2wav._write_wav(path, path + ".wav", SimpleNamespace(update=print)) > 0
    song = DecodedSong(path, Path(path).parent)
    assert numpy.isfinite(song.normalization()).all()
    assert numpy.isfinite(song.read(0, song.num_samples)).all()
    with contextlib.redirect_stdout(io.StringIO()) as output:
        analyze.main([path, "--bpm", "--key"])
    result = json.loads(output.getvalue().removeprefix("RESULT::"))
    assert 39 < result["bpm"] < 224  # the last refinements may go past 40 and 220
    assert result["key_index"] in range(12)

resource.setrlimit(resource.RLIMIT_AS, (4 << 30, 4 << 30))
resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 29, 1 << 29))
for path in map(str.strip, sys.stdin):
    answer = ""
    signal.alarm(60)
    try:
        with contextlib.redirect_stdout(None):
            take(path)
    except worker.WorkerError as error:
        answer = error
    print(answer, flush=True)
    signal.alarm(0)
"""
ENCODED = sorted((ROOT / "tests" / "audio" / "encoded").glob("*.*[34g]"))
FORMATS = ["wav", "aiff", "flac", "webm", "wma", "ac3", "aac", "caf", "wv", "ts"]
EMPTY = 1 + len(FORMATS) + len(ENCODED)


@pytest.fixture(scope="module")
def sentence() -> Iterator[Callable[[Path], str]]:
    """Yields a function that returns the workers' reason for refusing a song, or an empty line if they accept it."""
    command, pipe = [provide("analyze.py"), "-B", "-c", SONG_TAKER], subprocess.PIPE
    processes: list[subprocess.Popen[str]] = []

    def ask(song: Path) -> str:
        if not processes or processes[-1].poll() is not None:
            processes.append(subprocess.Popen(command, cwd=SCRIPTS, stdin=pipe, stdout=pipe, text=True))
        print(song, file=processes[-1].stdin, flush=True)
        answer = processes[-1].stdout.readline()
        assert answer, f"The workers' process has ended with {processes[-1].wait()}"
        return answer

    yield ask
    processes[-1].communicate()


@pytest.fixture(scope="module")
def songs(tmp_path_factory: pytest.TempPathFactory) -> list[bytes]:
    """Returns the contents of files: noise, two seconds as WAV and 0.2 s in many formats, songs, and an empty file."""
    folder = tmp_path_factory.mktemp("songs")
    noise = write_wav(folder / "noise.wav", np.random.default_rng(1).uniform(-1, 1, 16000), 8000)
    paths = [folder / f"song.{name}" for name in FORMATS]
    outputs = [argument for path in paths for argument in ("-t", "0.2", path)]
    subprocess.run(["ffmpeg", "-v", "error", "-i", noise, *outputs], check=True)
    return [*(path.read_bytes() for path in (noise, *paths, *ENCODED)), b""]


SAMPLES = st.sampled_from(np.float32([0, np.nan, np.inf, 3.4e38, 1e-38]))
EDITS = st.lists(
    st.tuples(
        st.integers(0, 200) | st.integers(0, 30_000),
        st.none() | st.integers(0, 30_000),  # the number of bytes to remove; None means as many as are inserted
        st.binary(max_size=8) | st.builds(np.repeat, SAMPLES, st.integers(1, 9000)).map(bytes),
    ),
    max_size=8,
)


@given(st.integers(0, EMPTY), st.just(EMPTY) | st.integers(0, EMPTY), EDITS)
@example(0, EMPTY, [(24, None, (1).to_bytes(4, "little"))])  # a sample rate of 1 Hz
@example(0, EMPTY, [(22, None, b"\x09")])  # 9 channels
@example(0, EMPTY, [(17604, 8851, b"")])  # samples of up to 1e38
@example(FORMATS.index("ts") + 1, EMPTY, [(0, 0, b"#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:0.2,\nnext.ts\n")])
def test_any_song(
    songs: list[bytes], sentence: Callable[[Path], str], tmp_path: Path, one: int, other: int, edits: list
) -> None:
    content = songs[one] + songs[other]
    for position, removed, data in edits:
        content = content[:position] + data + content[position + (len(data) if removed is None else removed) :]
    (tmp_path / "next.ts").write_bytes(songs[one])
    (tmp_path / "song.m3u8").write_bytes(content)
    assert re.fullmatch(r"(.*song\.m3u8.*: choose .*\.)?\n", sentence(tmp_path / "song.m3u8"))


PIECES = st.sampled_from([*'.~ :?*/\\"<|', "con", "COM¹", "x" * 170, "e", "\u0301"])


@given(st.text(max_size=250) | st.lists(PIECES).map("".join))
@example("con." + 176 * "x")
@example("e?\u0301")
def test_any_title_becomes_a_safe_name(tmp_path: Path, title: str) -> None:
    name = safe_name(title)
    assert 0 < len(name.encode()) <= MAX_BYTES
    assert not re.search(r'^[-.~ ]|[/\\:*?"<>|]|[. ]$', name)
    assert not re.fullmatch(r"(?i)(con|prn|aux|nul|con(in|out)\$|(com|lpt)[\d¹²³]) *(\..*)?", name)
    assert not {unicodedata.category(character) for character in name} & {"Cc", "Cf", "Cs", "Zl", "Zp"}
    assert safe_name(name) == name
    (tmp_path / f"{name}.wav").touch()


CONTROL = re.compile(r"[\0-\x1f\x7f-\x9f\u2028\u2029]")
NOT_FOUND = partial(ImportError, name="a\nb")
FAILURES = [worker.WorkerError, uv_tool.UvError, NOT_FOUND, lambda text: OSError(5, text, text), ValueError]


@given(st.text(), st.sampled_from(FAILURES))
@example("a\r\nb\u2028\x1b[2J.mp3", FAILURES[0])
@example("os error " + 5000 * "1", FAILURES[1])
def test_any_text_is_printed_plainly(text: str, failure: Callable[[str], Exception]) -> None:
    sentence = f"{text} is silent: choose another song."

    def work(_: list[str]) -> None:
        worker.say(sentence)
        raise failure(sentence)

    with pytest.MonkeyPatch.context() as patch:
        for stream in ("stdout", "stderr"):
            patch.setattr(sys, stream, io.TextIOWrapper(io.BytesIO()))
        patch.setattr(os, "_exit", lambda _: sys.stdout.flush())
        worker.run(work)
        said, padding, *details, last = re.split(r"[\r\n]", sys.stdout.buffer.getvalue().decode().removesuffix("\n"))
    plain = CONTROL.sub(" ", sentence).encode(errors="replace").decode()
    assert (said, padding) == (plain, " " * BLOCK_SIZE)
    assert last == plain if failure is worker.WorkerError else last.endswith(".")
    assert not CONTROL.search("".join([last, *details]))


AMOUNTS = st.builds("{} {}".format, st.text("0123456789.", min_size=1), st.sampled_from(["B", "MiB", "GiB", ""]))
BARS = st.builds("Preparing packages...\n{} --- {}/{}\r\n".format, st.sampled_from("ab"), AMOUNTS, AMOUNTS)


@given(st.lists(st.binary(max_size=20) | BARS.map(str.encode)))
@example([b"Preparing packages...\na --- 1.2.3 B/4 B\nPreparing packages..."])
@example([b"Preparing packages...\na --- 9 B/4 B\nPreparing packages..."])
@example([b"Preparing packages...\na --- " + 400 * b"9" + b" B/4 B\nPreparing packages..."])
def test_any_output_of_uv_is_read(chunks: list[bytes]) -> None:
    amounts = []
    screen = uv_tool._Screen(lambda *amount: amounts.append(amount))
    for chunk in chunks:
        screen.show(chunk)
    screen.finish()
    assert all(0 <= num_arrived <= num_needed for num_arrived, num_needed in amounts)
    assert uv_tool.UvError(screen.words()).details == screen.words().strip()


def test_goes_on_if_proc_is_unreadable(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("UV", "/usr/bin/uv")
    assert worker._has_lost_uv(os.getpid())  # the parent is not uv
    monkeypatch.setattr("builtins.open", lambda path: os.open("/dev/null/proc", os.O_RDONLY))
    assert not worker._has_lost_uv(os.getpid())
