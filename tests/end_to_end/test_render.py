"""Tests kelvane-render's command line: usage, messages, exit statuses, progress and cancelling."""

import os
import re
import signal
import subprocess
from pathlib import Path

import numpy as np
import pytest
from conftest import RENDER, Run, rendered
from processes import with_disk
from wav import read_wav, write_wav
from workers import DEMO_SONG, ROOT

OUT = ("--out", "out", "--full-song")
NOISE = np.random.default_rng(7).uniform(-0.5, 0.5, (20000, 2))
BITS = ("--bits", "16")


@pytest.fixture
def song(environment: dict[str, str]) -> Path:
    return write_wav(Path("song.wav").absolute(), NOISE, 44100)


def write_uv(script: str) -> str:
    Path("uv").write_text(f"#!/bin/sh\n{script}\n")
    Path("uv").chmod(0o755)
    return str(Path("uv").absolute())


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
        (["song.wav", *OUT, "--percent", "5", "--key", "C:D"], "--percent and --key cannot be used together."),
        (["song.wav", *OUT, "--percent", "inf"], "--percent takes a number, not 'inf'."),
        (["song.wav", *OUT, "--percent", "9" * 400], "--percent takes a number, not '999"),
        (["song.wav", *OUT, "--percent", "1.2.3"], "--percent takes a number, not '1.2.3'."),
        (["song.wav", *OUT, "--bpm", "120"], "--bpm takes two tempos as FROM:TO, such as"),
        (["song.wav", *OUT, "--bpm", "100:401"], "The BPM ratio is out of range (limited to 0.25x - 4x)."),
        (["song.wav", *OUT, "--bpm", "100:0"], "Enter a target (to) BPM."),
        (["song.wav", *OUT, "--key", "H:C"], "--key takes two keys as FROM:TO, from C C# D D# E F F# G G# A A# B, "),
        (["song.wav", *OUT, "--rate", "7999"], "--rate takes a whole number of Hz from 8000 to 384000, not '7999'."),
        (["song.wav", *OUT, "--bits", "20"], "--bits takes 16, 24 or 32, not '20'."),
        (["song.wav", *OUT, "--stems", "drums,piano"], "--stems takes a list of drums,bass,vocals,other, not 'd"),
        (["song.wav", *OUT, "--stems", ""], "--stems is empty."),
        (["song.wav", "--full-song", "--analyze"], "--analyze and --full-song cannot be used together."),
        (["a/song.wav", "b/song.flac", *OUT], "'{0}/a/song.wav' and '{0}/b/song.flac' would be written to the same f"),
    ],
    ids=lambda value: value if isinstance(value, str) else "",
)
def test_explains_wrong_usage(render: Run, tmp_path: Path, arguments: list[str], complaint: str) -> None:
    result = render(*arguments)
    assert (result.returncode, result.stdout) == (2, "")
    assert f"kelvane-render: {complaint.format(tmp_path)}" in result.stderr
    assert "\nUsage: kelvane-render SONG" in result.stderr
    assert not Path("out").exists()


def test_help_and_version(render: Run) -> None:
    shown, version = render("--help"), render("--version")
    assert (shown.returncode, version.returncode, version.stdout) == (0, 0, "kelvane-render 1.0.0\n")
    assert shown.stdout.startswith("Usage: kelvane-render SONG")

    manual = (ROOT / "packaging" / "kelvane-render.1").read_text().replace("\\-", "-")
    facts = re.findall(r"--[a-z-]+|\w+(?:,\w+)+|C C#.+|\d{4,}|[\d.]+x", shown.stdout)
    assert len(facts) > 20
    assert not [fact for fact in facts if fact not in manual]


def test_prints_a_line_for_each_status_or_redraws_one_on_a_terminal(render: Run, tmp_path: Path, song: Path) -> None:
    before, wrote = set(tmp_path.rglob("*")), ["Wrote 1 file(s) to:", f"{tmp_path}/out/song - Stems"]
    result = render(song, *OUT)
    assert result.returncode == 0
    assert result.stdout.splitlines() == [" 68%  Processing full mix...", "100%  Done", *wrote]
    added = {str(path.relative_to(tmp_path)) for path in set(tmp_path.rglob("*")) - before}
    assert added == {"out", "out/song - Stems", str(rendered("song")), "temporary/Kelvane"}

    terminal = ["script", "-qec", f"{RENDER} song.wav --out out --full-song 2>/dev/null", "/dev/null"]
    drawn, *below = subprocess.run(terminal, capture_output=True, check=True).stdout.decode().split("\r\n")
    assert drawn.split("\r")[1:] == [
        "[################........]  68%  Processing full mix...",
        "[########################] 100%  Done".ljust(55),
    ]
    assert below == [*wrote, ""]


def test_renders_even_if_nobody_reads_its_output(render: Run, song: Path) -> None:
    reading, writing = os.pipe()
    os.close(reading)
    assert render(song, *OUT, capture_output=False, stdout=writing).returncode == 0
    os.close(writing)
    assert rendered("song").exists()


def test_reports_failed_songs_and_renders_the_rest(render: Run, tmp_path: Path, song: Path) -> None:
    Path("a letter").write_text("Dear diary, today I sampled a kettle.\n" * 100)
    os.mkfifo("pipe.wav")
    result = render("a letter", song, "pipe.wav", "missing.wav", *OUT)
    assert result.returncode == 1
    assert rendered("song").exists()
    unreadable = (f"{name}: Could not read audio file:\n{tmp_path}/{name}\n" for name in ("a letter", "pipe.wav"))
    missing = f"missing.wav: Input file does not exist:\n{tmp_path}/missing.wav\n"
    assert result.stderr.endswith("".join([*unreadable, missing]))


def test_reports_unusable_output_folders(render: Run, tmp_path: Path, song: Path) -> None:
    kept = rendered("song") / "kept"
    kept.mkdir(parents=True)
    for out, message in (
        (song, "Choose a valid output folder."),
        ("/../proc/./nowhere", "Could not create the output folder:\n/proc/nowhere"),
        ("out", f"Could not open output file for writing:\n{tmp_path / kept.parent}"),
    ):
        result = render(song, "--full-song", "--out", out)
        assert result.returncode == 1
        assert result.stderr.endswith(message + "\n")
    assert kept.exists()


def test_gives_advice_when_a_worker_was_killed(render: Run, song: Path, environment: dict[str, str]) -> None:
    stopped, full = "close other programs and try again.\n", "The disk is full: free some space and try again.\n"
    for words, end in (
        (" 42%|####      |", stopped),
        ("", stopped),
        ("error: no Python", "error: no Python\n"),
        ("error: No space left on device (os error 28)", full),
    ):
        environment["KELVANE_UV"] = write_uv(f"echo '{words}'; exit 137")
        for arguments in (["--out", "out", "--stems", "bass"], ["--analyze"], ["--out", "out", "--bpm", "auto:90"]):
            assert render(song, *arguments).stderr.endswith(end)


def test_accepts_songs_with_any_name(render: Run, song: Path) -> None:
    names = ["two words", "Grüße 音楽 🎛", "-dash", "~tilde", ".hidden", "dots.in.it", 'it\'s 100% "real"']
    for name in names:
        Path(f"{name}.wav").symlink_to(song)
        for _ in range(2):  # the second run finds the folder that the first one created
            result = render("--out", f"out {name}", "--full-song", *BITS, "--", f"{name}.wav")
            assert result.returncode == 0, result.stderr
        assert np.abs(read_wav(rendered(name, Path(f"out {name}")))[0] - NOISE).max() < 1e-3


def test_renders_a_song_without_samples(render: Run) -> None:
    write_wav(Path("nothing.wav"), NOISE[:0], 44100)
    assert render("nothing.wav", *OUT, *BITS, "--percent", "25").returncode == 0
    assert read_wav(rendered("nothing"))[0].shape == (0, 2)


def test_ctrl_c_cancels(environment: dict[str, str]) -> None:
    """Renders more songs than can be finished before the signal arrives."""
    songs = [Path(f"song {number}.ogg") for number in range(200)]
    for song in songs:
        song.symlink_to(DEMO_SONG)
    command, pipe = [RENDER, *songs, *OUT, "--percent", "5"], subprocess.PIPE
    process = subprocess.Popen(command, env=environment, stdout=pipe, stderr=pipe, text=True)
    assert "Processing full mix" in process.stdout.readline()
    process.send_signal(signal.SIGINT)
    output, errors = process.communicate(timeout=60)

    assert process.returncode == 130, errors
    assert "Cancelling..." in output
    assert errors.rstrip().endswith(": Cancelled.")
    # The song that was being rendered is finished, and no other one is started.
    outputs = list(Path("out").rglob("*.wav"))
    assert len(outputs) < len(songs)
    assert all(len(read_wav(path)[0]) > 0 for path in outputs)


def test_resolves_relative_paths_in_the_environment(environment: dict[str, str], tmp_path: Path) -> None:
    here, outside = tmp_path, tmp_path.parent
    Path("wheels").mkdir()
    write_uv(f"env -0 >{here}/seen")
    variables = {
        "KELVANE_UV": ("uv", f"{here}/uv"),
        "UV_CONFIG_FILE": ("missing.toml", f"{here}/missing.toml"),
        "XDG_DATA_HOME": ("../data", f"{outside}/data"),
        "SSL_CERT_DIR": ("wheels:/etc/ssl/certs", f"{here}/wheels:/etc/ssl/certs"),
        "UV_FIND_LINKS": ("wheels,https://index.invalid/a,missing", f"{here}/wheels,https://index.invalid/a,missing"),
        "UV_INDEX": ("https://index.invalid mine=./wheels", f"https://index.invalid mine={here}/wheels"),
        "UV_PYTHON": ("3.11", "3.11"),
        "TMPDIR": ("", None),
    }
    given = {name: value for name, (value, _) in variables.items()}
    subprocess.run([RENDER, "--analyze", DEMO_SONG], env=environment | given, capture_output=True)
    seen = dict(line.partition("=")[::2] for line in Path("seen").read_text().split("\0"))
    assert {name: (value, seen.get(name)) for name, value in given.items()} == variables


@pytest.mark.parametrize(
    ("state", "reason"),
    [
        ("size=64k", "No space left on device"),
        ("ro", "Read-only file system. An older file of that name is unchanged."),
    ],
)
def test_keeps_older_files_on_a_disk_that_cannot_be_written(
    state: str, reason: str, song: Path, environment: dict[str, str]
) -> None:
    older = rendered("song").absolute()
    older.parent.mkdir(parents=True)
    script = f'echo older >"$0"; cd "${{0%/*}}"; mount -o remount,{state} .; "$@"; echo $?; ls -A; cat "$0"'
    command = ["sh", "-c", script, older, RENDER, song, "--out", Path("out").absolute(), "--full-song", "--bits", "32"]
    disk = with_disk(older.parent, "size=64k", *command)
    done = subprocess.run(disk, env=environment, capture_output=True, text=True)
    assert done.stdout.splitlines()[-3:] == ["1", older.name, "older"], done
    assert reason in done.stderr
    assert str(older) in done.stderr
