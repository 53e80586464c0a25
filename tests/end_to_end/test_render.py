"""kelvane-render's command line: usage, messages, exit statuses, progress and cancelling."""

import contextlib
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

OUT = ("--out", "out", "--full-song")
NOISE = np.random.default_rng(7).uniform(-0.5, 0.5, (20000, 2))


@pytest.fixture
def song(tmp_path: Path) -> Path:
    return write_wav(tmp_path / "song.wav", NOISE, 44100)


@pytest.mark.parametrize(
    ("arguments", "complaint"),
    [
        ([], "No song is given."),
        (["song.wav"], "--out is missing: name a folder for the results."),
        (["", *OUT], "A song's name is empty."),
        ([os.fsdecode(b"caf\xe9.wav"), *OUT], "An argument is not valid UTF-8."),
        (["song.wav", "--out"], "--out needs a value."),
        (["song.wav", "--out="], "--out is empty."),
        (["song.wav", *OUT, *OUT], "--out is given twice."),
        (["song.wav", *OUT, "--loud"], "There is no option '--loud'."),
        (["song.wav", *OUT, "--percent", "5", "--key", "C:D"], "--percent and --key exclude each other."),
        (["song.wav", *OUT, "--percent", "fast"], "--percent takes a number, not 'fast'."),
        (["song.wav", *OUT, "--percent", "inf"], "--percent takes a number, not 'inf'."),
        (["song.wav", *OUT, "--percent", "9" * 400], "--percent takes a number, not '999"),
        (["song.wav", *OUT, "--percent", "1.2.3"], "--percent takes a number, not '1.2.3'."),
        (["song.wav", *OUT, "--bpm", "120"], "--bpm takes two tempos as FROM:TO, such as"),
        (["song.wav", *OUT, "--bpm", "100:401"], "The BPM ratio is out of range (limited to 0.25x - 4x)."),
        (["song.wav", *OUT, "--bpm", "100:0"], "Enter a target (to) BPM."),
        (["song.wav", *OUT, "--key", "H:C"], "--key takes two keys as FROM:TO, out of C C# D D# E F F# G G# A A# B, "),
        (["song.wav", *OUT, "--rate", "7999"], "--rate takes a whole number of Hz from 8000 to 384000, not '7999'."),
        (["song.wav", *OUT, "--bits", "20"], "--bits takes 16, 24 or 32, not '20'."),
        (["song.wav", *OUT, "--stems", "drums,piano"], "--stems takes a list out of drums,bass,vocals,other, not 'd"),
        (["song.wav", *OUT, "--stems", ""], "--stems is empty."),
        (["song.wav", *OUT, "--analyze"], "--analyze and --out exclude each other."),
        (["song.wav", "--full-song", "--analyze"], "--analyze and --full-song exclude each other."),
    ],
    ids=lambda value: value if isinstance(value, str) else "",
)
def test_explains_wrong_usage(render: Run, tmp_path: Path, arguments: list[str], complaint: str) -> None:
    result = render(*arguments)
    assert result.returncode == 2
    assert result.stdout == ""
    assert f"kelvane-render: {complaint}" in result.stderr
    assert "\nUsage: kelvane-render SONG" in result.stderr
    assert not (tmp_path / "out").exists()


def test_refuses_songs_that_would_overwrite_each_other(render: Run, tmp_path: Path) -> None:
    result = render("a/song.wav", "b/song.flac", *OUT)
    assert result.returncode == 2
    assert f"'{tmp_path}/a/song.wav' and '{tmp_path}/b/song.flac' would be written to the same files." in result.stderr


def test_renders_although_nobody_reads_its_output(tmp_path: Path, song: Path, environment: dict[str, str]) -> None:
    reading, writing = os.pipe()
    os.close(reading)
    done = subprocess.run([RENDER, song, *OUT], cwd=tmp_path, env=environment, stdout=writing, timeout=60)
    os.close(writing)
    assert done.returncode == 0
    assert rendered(tmp_path / "out", "song").exists()


def test_help_and_version(render: Run) -> None:
    shown = render("--help")
    assert shown.returncode == 0
    assert shown.stdout.startswith("Usage: kelvane-render SONG")
    version = render("--version")
    assert (version.returncode, version.stdout) == (0, "kelvane-render 1.0.0\n")


def test_prints_a_line_a_status_and_leaves_nothing_but_the_result(render: Run, tmp_path: Path, song: Path) -> None:
    before = set(tmp_path.rglob("*"))
    result = render(song, *OUT)
    assert result.returncode == 0
    assert result.stdout.splitlines() == [
        " 68%  Processing full mix...",
        "100%  Done",
        "Wrote 1 file(s) to:",
        f"{tmp_path}/out/song - Stems",
    ]
    added = {str(path.relative_to(tmp_path)) for path in set(tmp_path.rglob("*")) - before}
    assert added == {"out", "out/song - Stems", "out/song - Stems/song - full mix.wav", "temporary/Kelvane"}


def test_redraws_one_line_on_a_terminal(tmp_path: Path, song: Path, environment: dict[str, str]) -> None:
    controller, terminal = pty.openpty()
    command = [RENDER, song, *OUT]
    process = subprocess.Popen(command, cwd=tmp_path, env=environment, stdout=terminal, stderr=subprocess.DEVNULL)
    os.close(terminal)
    shown = b""
    with contextlib.suppress(OSError):  # how Linux reports that the terminal's other side is closed
        while piece := os.read(controller, 4096):
            shown += piece
    os.close(controller)
    assert process.wait(60) == 0

    drawn, *below = shown.decode().split("\r\n")
    assert drawn.split("\r")[1:] == [
        "[################........]  68%  Processing full mix...",
        "[########################] 100%  Done".ljust(55),
    ]
    assert below == ["Wrote 1 file(s) to:", f"{tmp_path}/out/song - Stems", ""]


def test_reports_failed_songs_and_renders_the_rest(render: Run, tmp_path: Path, song: Path) -> None:
    (tmp_path / "empty.wav").touch()
    (tmp_path / "a letter").write_text("Dear diary, today I sampled a kettle.\n" * 100)
    os.mkfifo(tmp_path / "pipe.wav")
    result = render("empty.wav", "a letter", song, "pipe.wav", "missing.wav", *OUT)
    assert result.returncode == 1
    assert rendered(tmp_path / "out", "song").exists()
    unreadable = [
        f"{name}: Could not read audio file:\n{tmp_path}/{name}\n" for name in ("empty.wav", "a letter", "pipe.wav")
    ]
    assert result.stderr.endswith(
        "".join(unreadable) + f"missing.wav: Input file does not exist:\n{tmp_path}/missing.wav\n"
    )


def test_reports_unusable_output_folders(render: Run, tmp_path: Path, song: Path) -> None:
    kept = rendered(tmp_path / "out", "song") / "kept"
    kept.mkdir(parents=True)
    for out, message in (
        (song, "Choose a valid output folder."),
        ("/../proc/./nowhere", "Could not create the output folder:\n/proc/nowhere"),
        ("out", f"Could not open output file for writing:\n{kept.parent}"),
    ):
        result = render(song, "--full-song", "--out", out)
        assert result.returncode == 1
        assert result.stderr.endswith(message + "\n")
    assert kept.exists()


def test_advises_when_a_worker_was_stopped(
    render: Run, tmp_path: Path, song: Path, environment: dict[str, str]
) -> None:
    environment["KELVANE_UV"] = str(tmp_path / "uv")
    stopped, full = "is short, and try again.\n", "The disk is full: free some space and try again.\n"
    for words, end in (
        (" 42%|####      |", stopped),
        ("", stopped),
        ("error: no Python", "error: no Python\n"),
        ("error: No space left on device (os error 28)", full),
    ):
        (tmp_path / "uv").write_text(f"#!/bin/sh\necho '{words}'\nexit 137\n")
        (tmp_path / "uv").chmod(0o755)
        for arguments in (["--out", "out", "--stems", "bass"], ["--analyze"], ["--out", "out", "--bpm", "auto:90"]):
            assert render(song, *arguments).stderr.endswith(end)


def test_reports_a_song_that_does_not_fit_into_memory(render: Run, tmp_path: Path) -> None:
    claimed = 3_000_000_000
    header = struct.pack(
        "<4sI4s4sIHHIIHH4sI", b"RIFF", claimed + 36, b"WAVE", b"fmt ", 16, 1, 2, 44100, 176400, 4, 16, b"data", claimed
    )
    with (tmp_path / "long.wav").open("wb") as file:
        file.write(header)
        file.truncate(claimed)  # a hole, which takes no space

    limit = 2**31, 2**31
    result = render("long.wav", *OUT, preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, limit))
    assert result.returncode == 1
    assert result.stderr.endswith("Unexpected error: std::bad_alloc\n")


@pytest.mark.parametrize(
    "name", ["two words", "Grüße 音楽 🎛", "-dash", "~tilde", ".hidden", "dots.in.it", 'it\'s 100% "real"']
)
def test_takes_a_song_of_any_name(render: Run, tmp_path: Path, song: Path, name: str) -> None:
    song.rename(tmp_path / f"{name}.wav")
    for _ in range(2):  # a second run takes the place of the first
        result = render("--out", f"out {name}", "--full-song", "--bits", "16", "--", f"{name}.wav")
        assert result.returncode == 0, result.stderr
        assert np.abs(read_wav(rendered(tmp_path / f"out {name}", name))[0] - NOISE).max() < 1e-3


def test_renders_a_song_without_samples(render: Run, tmp_path: Path) -> None:
    write_wav(tmp_path / "nothing.wav", NOISE[:0], 44100)
    assert render("nothing.wav", "--out", "out", "--full-song", "--bits", "16", "--percent", "25").returncode == 0
    assert read_wav(rendered(tmp_path / "out", "nothing"))[0].shape == (0, 2)


def test_ctrl_c_cancels(tmp_path: Path, environment: dict[str, str]) -> None:
    """With more songs than can be done before the signal comes."""
    songs = [tmp_path / f"song {number}.ogg" for number in range(200)]
    for song in songs:
        song.symlink_to(DEMO_SONG)
    command, pipe = [RENDER, *songs, *OUT, "--percent", "5"], subprocess.PIPE
    process = subprocess.Popen(command, cwd=tmp_path, env=environment, stdout=pipe, stderr=pipe, text=True)
    assert "Processing full mix" in process.stdout.readline()
    process.send_signal(signal.SIGINT)
    output, errors = process.communicate(timeout=60)

    assert process.returncode == 130, errors
    assert "Cancelling..." in output
    assert errors.rstrip().endswith(": Cancelled.")
    # The song that was being rendered is complete, and the next was not begun.
    outputs = list((tmp_path / "out").rglob("*.wav"))
    assert len(outputs) < len(songs)
    assert all(len(read_wav(path)[0]) > 0 for path in outputs)


def test_resolves_relative_paths_in_the_environment(environment: dict[str, str], tmp_path: Path) -> None:
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
def test_keeps_older_files_on_a_disk_that_cannot_be_written(
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
