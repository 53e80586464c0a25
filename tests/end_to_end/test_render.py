"""kelvane-render's command line: usage, messages, exit statuses, progress and cancelling."""

import os
import pty
import resource
import signal
import struct
import subprocess
from pathlib import Path

import numpy as np
import pytest
from conftest import RENDER, Run, rendered
from namespaces import with_disk
from wav import read_wav, write_wav
from workers import DEMO_SONG

NOISE = np.random.default_rng(7).uniform(-0.5, 0.5, (20000, 2))


@pytest.fixture
def song(tmp_path: Path) -> Path:
    return write_wav(tmp_path / "song.wav", NOISE, 44100)


@pytest.mark.parametrize(
    ("arguments", "complaint"),
    [
        ([], "No song is given."),
        (["song.wav"], "--out is missing: name a folder for the results."),
        (["song.wav", "--out"], "--out needs a value."),
        (["song.wav", "--out="], "--out is empty."),
        (["song.wav", "--out", "out", "--loud"], "There is no option '--loud'."),
        (["song.wav", "--out", "out", "--out", "out"], "--out is given twice."),
        (["song.wav", "--out", "out", "--percent", "5", "--key", "C:D"], "--percent and --key exclude each other."),
        (["song.wav", "--out", "out", "--percent", "fast"], "--percent takes a number, not 'fast'."),
        (["song.wav", "--out", "out", "--percent", "inf"], "--percent takes a number, not 'inf'."),
        (["song.wav", "--out", "out", "--percent", "9" * 400], f"--percent takes a number, not '{'9' * 400}'."),
        (["", "--out", "out"], "A song's name is empty."),
        (["song.wav", "--out", "out", "--percent", "1.2.3"], "--percent takes a number, not '1.2.3'."),
        (
            ["song.wav", "--out", "out", "--bpm", "120"],
            "--bpm takes two tempos as FROM:TO, such as 120:90 or auto:90, not '120'.",
        ),
        (["song.wav", "--out", "out", "--bpm", "100:401"], "The BPM ratio is out of range (limited to 0.25x - 4x)."),
        (["song.wav", "--out", "out", "--bpm", "100:0"], "Enter a target (to) BPM."),
        (
            ["song.wav", "--out", "out", "--key", "H:C"],
            "--key takes two keys as FROM:TO, out of C C# D D# E F F# G G# A A# B, not 'H:C'.",
        ),
        (
            ["song.wav", "--out", "out", "--rate", "7999"],
            "--rate takes a whole number of Hz from 8000 to 384000, not '7999'.",
        ),
        (["song.wav", "--out", "out", "--bits", "20"], "--bits takes 16, 24 or 32, not '20'."),
        (
            ["song.wav", "--out", "out", "--stems", "drums,piano"],
            "--stems takes a list out of drums,bass,vocals,other, not 'drums,piano'.",
        ),
        (["song.wav", "--out", "out", "--stems", ""], "--stems is empty."),
        (["song.wav", "--analyze", "--out", "out"], "--analyze and --out exclude each other."),
        (["song.wav", "--full-song", "--analyze"], "--analyze and --full-song exclude each other."),
    ],
    ids=lambda value: value if isinstance(value, str) else "",
)
def test_wrong_usage_is_named_before_the_usage_line(
    render: Run, tmp_path: Path, arguments: list[str], complaint: str
) -> None:
    result = render(*arguments)
    assert result.returncode == 2
    assert result.stdout == ""
    assert f"kelvane-render: {complaint}\nUsage: kelvane-render SONG" in result.stderr
    assert not (tmp_path / "out").exists()


def test_songs_of_one_name_would_overwrite_each_other(render: Run, tmp_path: Path) -> None:
    result = render("a/song.wav", "b/song.flac", "--out", "out", "--full-song")
    assert result.returncode == 2
    assert f"'{tmp_path}/a/song.wav' and '{tmp_path}/b/song.flac' would be written to the same files." in result.stderr


def test_an_argument_that_is_no_text_is_refused(render: Run) -> None:
    result = render(os.fsdecode(b"caf\xe9.wav"), "--out", "out")
    assert result.returncode == 2
    assert "kelvane-render: An argument is not valid UTF-8.\nUsage:" in result.stderr


def test_a_pipe_and_a_reader_that_goes_away(
    render: Run, tmp_path: Path, song: Path, environment: dict[str, str]
) -> None:
    os.mkfifo(tmp_path / "pipe.wav")
    result = render("pipe.wav", "--out", "out", "--full-song")
    assert result.stderr.endswith(f"Could not read audio file:\n{tmp_path}/pipe.wav\n")

    reading, writing = os.pipe()
    os.close(reading)
    arguments = [RENDER, str(song), "--out", "out", "--full-song"]
    assert subprocess.run(arguments, cwd=tmp_path, env=environment, stdout=writing, timeout=60).returncode == 0
    os.close(writing)
    assert rendered(tmp_path / "out", "song").exists()


def test_help_and_version(render: Run) -> None:
    shown = render("--help")
    assert shown.returncode == 0
    assert shown.stdout.startswith("Usage: kelvane-render SONG")
    version = render("--version")
    assert (version.returncode, version.stdout) == (0, "kelvane-render 1.0.0\n")


def test_progress_on_a_pipe_is_a_line_a_status(render: Run, tmp_path: Path, song: Path) -> None:
    result = render(song, "--out", "out", "--full-song")
    assert result.returncode == 0
    assert result.stdout.splitlines() == [
        " 68%  Processing full mix...",
        "100%  Done",
        "Wrote 1 file(s) to:",
        f"{tmp_path}/out/song - Stems",
    ]


def test_progress_on_a_terminal_is_one_line_drawn_again(
    tmp_path: Path, song: Path, environment: dict[str, str]
) -> None:
    controller, terminal = pty.openpty()
    arguments = [RENDER, str(song), "--out", "out", "--full-song"]
    process = subprocess.Popen(arguments, cwd=tmp_path, env=environment, stdout=terminal, stderr=subprocess.DEVNULL)
    os.close(terminal)
    shown = b""
    try:
        while piece := os.read(controller, 4096):
            shown += piece
    except OSError:  # how Linux reports that the terminal's other side is closed
        pass
    os.close(controller)
    assert process.wait(60) == 0

    drawn, *below = shown.decode().split("\r\n")
    assert drawn.split("\r")[1:] == [
        "[################........]  68%  Processing full mix...",
        "[########################] 100%  Done".ljust(55),
    ]
    assert below == ["Wrote 1 file(s) to:", f"{tmp_path}/out/song - Stems", ""]


def test_a_failed_song_does_not_stop_the_rest(render: Run, tmp_path: Path, song: Path) -> None:
    (tmp_path / "broken.wav").write_text("no audio at all")
    result = render("broken.wav", song, "missing.wav", "--out", "out", "--full-song")
    assert result.returncode == 1
    assert rendered(tmp_path / "out", "song").exists()
    assert result.stderr.endswith(
        f"broken.wav: Could not read audio file:\n{tmp_path}/broken.wav\n"
        f"missing.wav: Input file does not exist:\n{tmp_path}/missing.wav\n"
    )


def test_failures_to_the_letter(render: Run, tmp_path: Path, song: Path) -> None:
    def fails_with(message: str, *arguments: str | Path) -> None:
        result = render(*arguments, "--full-song")
        assert result.returncode == 1
        assert result.stderr.endswith(message + "\n")

    (tmp_path / "empty.wav").touch()
    fails_with(f"Could not read audio file:\n{tmp_path}/empty.wav", "empty.wav", "--out", "out")

    (tmp_path / "a letter").write_text("Dear diary, today I sampled a kettle.\n" * 100)
    fails_with(f"Could not read audio file:\n{tmp_path}/a letter", "a letter", "--out", "out")

    fails_with("Choose a valid output folder.", song, "--out", song)
    fails_with("Could not create the output folder:\n/proc/nowhere", song, "--out", "/proc/nowhere")

    (tmp_path / "out" / "song - Stems" / "song - full mix.wav" / "kept").mkdir(parents=True)
    fails_with(f"Could not open output file for writing:\n{rendered(tmp_path / 'out', 'song')}", song, "--out", "out")
    assert (rendered(tmp_path / "out", "song") / "kept").exists()


def test_a_worker_that_is_stopped_cannot_say_why(
    render: Run, tmp_path: Path, song: Path, environment: dict[str, str]
) -> None:
    environment["KELVANE_UV"] = str(tmp_path / "uv")
    for words, advises in ((" 42%|####      |", True), ("", True), ("error: no Python", False)):
        (tmp_path / "uv").write_text(f"#!/bin/sh\necho '{words}'\nexit 137\n")
        (tmp_path / "uv").chmod(0o755)
        for arguments in (["--out", "out", "--stems", "bass"], ["--analyze"], ["--out", "out", "--bpm", "auto:90"]):
            assert render(song, *arguments).stderr.endswith("is short, and try again.\n") == advises


def test_more_audio_than_memory_is_an_error_and_no_crash(render: Run, tmp_path: Path) -> None:
    claimed = 3_000_000_000
    header = struct.pack(
        "<4sI4s4sIHHIIHH4sI", b"RIFF", claimed + 36, b"WAVE", b"fmt ", 16, 1, 2, 44100, 176400, 4, 16, b"data", claimed
    )
    with (tmp_path / "long.wav").open("wb") as file:
        file.write(header)
        file.truncate(claimed)  # a hole, which takes no space

    limit = 2**31
    result = render(
        "long.wav",
        "--out",
        "out",
        "--full-song",
        preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (limit, limit)),
    )
    assert result.returncode == 1
    assert result.stderr.endswith("Unexpected error: std::bad_alloc\n")


@pytest.mark.parametrize(
    "name", ["two words", "Grüße 音楽 🎛", "-dash", "~tilde", ".hidden", "dots.in.it", 'it\'s 100% "real"']
)
def test_any_name_of_a_song(render: Run, tmp_path: Path, song: Path, name: str) -> None:
    song.rename(tmp_path / f"{name}.wav")
    for _ in range(2):  # a second run takes the place of the first
        result = render("--out", f"out {name}", "--full-song", "--bits", "16", "--", f"{name}.wav")
        assert result.returncode == 0, result.stderr
        assert np.abs(read_wav(rendered(tmp_path / f"out {name}", name))[0] - NOISE).max() < 1e-3


def test_no_samples_give_a_file_without_any(render: Run, tmp_path: Path) -> None:
    write_wav(tmp_path / "nothing.wav", NOISE[:0], 44100)
    assert render("nothing.wav", "--out", "out", "--full-song", "--bits", "16", "--percent", "25").returncode == 0
    assert read_wav(rendered(tmp_path / "out", "nothing"))[0].shape == (0, 2)


def test_a_run_leaves_nothing_but_its_results(
    render: Run, tmp_path: Path, song: Path, environment: dict[str, str]
) -> None:
    before = {path for path in tmp_path.rglob("*")}
    assert render(song, "--out", "out", "--full-song").returncode == 0
    added = {str(path.relative_to(tmp_path)) for path in set(tmp_path.rglob("*")) - before}
    assert added == {"out", "out/song - Stems", "out/song - Stems/song - full mix.wav", "temporary/Kelvane"}


def test_ctrl_c_cancels(tmp_path: Path, environment: dict[str, str]) -> None:
    """Far more songs than can be done before the signal comes, so that there is no race to win."""
    songs = []
    for number in range(200):
        songs.append(tmp_path / f"song {number}.ogg")
        songs[-1].symlink_to(DEMO_SONG)

    process = subprocess.Popen(
        [RENDER, *songs, "--out", "out", "--full-song", "--percent", "5"],
        cwd=tmp_path,
        env=environment,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
    )
    assert "Processing full mix" in process.stdout.readline()
    process.send_signal(signal.SIGINT)
    output, errors = process.communicate(timeout=60)

    assert process.returncode == 130, errors
    assert "Cancelling..." in output
    assert errors.rstrip().endswith(": Cancelled.")
    # The song that was being rendered is complete, and the next was not begun.
    outputs = list((tmp_path / "out").rglob("*.wav"))
    assert len(outputs) < len(songs)
    for path in outputs:
        assert subprocess.run(["soxi", "-s", path], capture_output=True, text=True).stdout.strip() != "0"


def test_relative_paths_in_the_environment_keep_their_meaning(environment: dict[str, str], tmp_path: Path) -> None:
    here = tmp_path / "here"
    (here / "wheels").mkdir(parents=True)
    (here / "uv").write_text(f"#!/bin/sh\nenv -0 > {tmp_path}/seen\n")
    (here / "uv").chmod(0o755)
    given = {
        "KELVANE_UV": "uv",
        "UV_CONFIG_FILE": "missing.toml",
        "XDG_DATA_HOME": "../data",
        "SSL_CERT_DIR": "wheels:/etc/ssl/certs",
        "UV_FIND_LINKS": "wheels,https://index.invalid/wheels,missing",
        "UV_INDEX": "https://index.invalid mine=./wheels",
        "UV_PYTHON": "3.11",
        "TMPDIR": "",
    }
    expected = given | {
        "KELVANE_UV": f"{here}/uv",
        "UV_CONFIG_FILE": f"{here}/missing.toml",
        "XDG_DATA_HOME": f"{tmp_path}/data",
        "SSL_CERT_DIR": f"{here}/wheels:/etc/ssl/certs",
        "UV_FIND_LINKS": f"{here}/wheels,https://index.invalid/wheels,missing",
        "UV_INDEX": f"https://index.invalid mine={here}/wheels",
        "TMPDIR": None,
    }
    subprocess.run([RENDER, "--analyze", DEMO_SONG], cwd=here, env=environment | given, capture_output=True)
    seen = dict(line.partition("=")[::2] for line in (tmp_path / "seen").read_text().split("\0"))
    assert {name: seen.get(name) for name in given} == expected


@pytest.mark.parametrize(
    ("state", "reason"),
    [
        ("size=64k", "No space left on device"),
        ("ro", "Read-only file system. A file of that name from before is unchanged."),
    ],
    ids=["full", "read-only"],
)
def test_a_disk_that_cannot_be_written_costs_no_older_file(
    state: str, reason: str, tmp_path: Path, song: Path, environment: dict[str, str]
) -> None:
    folder = tmp_path / "out" / "song - Stems"
    folder.mkdir(parents=True)
    older = folder / "song - full mix.wav"
    look = f'ls -A "{folder}"; cat "{older}"'
    script = f'echo older >"{older}"; mount -o remount,{state} "{folder}"; "$@"; echo $?; {look}'
    command = ["sh", "-c", script, "sh", RENDER, song, "--out", tmp_path / "out", "--full-song", "--bits", "32"]
    done = subprocess.run(with_disk(folder, "size=64k", *command), env=environment, capture_output=True, text=True)
    assert done.stdout.splitlines()[-3:] == ["1", older.name, "older"], done
    assert reason in done.stderr
    assert str(older) in done.stderr
