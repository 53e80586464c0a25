"""Tests yt2wav.py as the program runs it, with a server on the loopback interface."""

import os
import re
import subprocess
import sys
from collections.abc import Callable, Iterable, Iterator
from pathlib import Path
from urllib.parse import urljoin, urlsplit

import numpy as np
import pytest
from loopback import BROKEN, CUT, LYING, STALLED, Loopback
from processes import descendants, gone
from wav import read_wav
from workers import BLOCK_SIZE, ENVIRONMENT, SCRIPTS, UV, provide, run_each, run_worker, write_script

sys.path.append(str(SCRIPTS))
from download.filename import safe_name

SCRIPT = SCRIPTS / "yt2wav.py"

# ffmpeg's input and options for each file. All but the silent one contain three seconds of a tone. Its first channel
# exceeds full scale where the format allows that.
TONE = "lavfi -i aevalsrc=1.5*sin(2000*PI*t){}:d=3:s={}"
STEREO = TONE.format("|0.5*sin(2000*PI*t)", 44100)
MEDIA = {
    "song.m4a": f"{STEREO} -c:a aac -movflags faststart",
    "song.webm": f"{TONE.format('|0.5*sin(2000*PI*t)', 48000)} -c:a libopus",
    "song.mp3": TONE.format("", 44100),
    "song.wav": f"{TONE.format(5 * '|0.5*sin(2000*PI*t)' + ':c=5.1', 44100)} -c:a pcm_f32le",
    "song.m3u8": f"{STEREO} -c:a aac -hls_time 1 -hls_playlist_type vod",
    "silent.mp4": "lavfi -i color=s=640x480:r=10:d=1",
}

# Starts the JavaScript runtime as yt-dlp does, with a program that loops forever.
RUN_JAVASCRIPT = """
import worker
worker.end_with_uv()
import subprocess
from download import downloader

def main(arguments):
    runtime = downloader.Downloader(print)._yt_dlp._js_runtimes["deno"].info
    from yt_dlp.utils import Popen
    with Popen([runtime.path, "run", "-"], text=True, stdin=subprocess.PIPE) as process:
        process.communicate_or_kill("console.log('50 %' + ' '.repeat(8192)); for (;;);")

worker.run(main)
"""

BE_IMPATIENT = """
import worker, yt2wav
from download import downloader
downloader.TIMEOUT_SECONDS, downloader.RETRIES = 5, 0
worker.run(yt2wav.main)
"""


@pytest.fixture(scope="module")
def server(tmp_path_factory: pytest.TempPathFactory) -> Iterator[str]:
    """Serves media and pages. The folders /broken, /cut, /lying and /stalled serve them with that fault."""
    folder = tmp_path_factory.mktemp("media")
    provide("yt2wav.py")
    for name, options in MEDIA.items():
        subprocess.run(["ffmpeg", "-v", "error", "-f", *options.split(), folder / name], check=True)
    files = {path.name: path.read_bytes() for path in folder.iterdir()}
    player = b'<video src="song.mp3"></video>'
    files |= {
        "live.m3u8": files["song.m3u8"].replace(b"#EXT-X-ENDLIST", b""),
        "listen.php": files["song.m4a"],
        "note.mp3": b"This is a letter, and no song. " * 1000,
        "none": b"<html><title>No song</title></html>",
        "page": b"<html><title>../AC/DC: &quot;Back&quot; 100%%(id)s $HOME</title>%s</html>" % player,
        "two": b"<html><title>Two songs</title>%s%s</html>" % (player, player.replace(b"mp3", b"m4a")),
    }
    with Loopback(lambda path: files.get(urlsplit(path).path.rpartition("/")[2])) as loopback:
        loopback.troubles = {f"^/{kind}/": kind for kind in (BROKEN, CUT, LYING, STALLED)}
        song = f'<enclosure url="{loopback.address}/song.mp3?{{0}}" type="audio/mpeg"/>'
        for name, num_songs in (("feed", 1), ("feeds", 3)):
            items = "".join(f"<item><title>Song {n}</title>{song.format(n)}</item>" for n in range(1, num_songs + 1))
            files[name] = f'<rss version="2.0"><channel>{items}</channel></rss>'.encode()
        yield loopback.address


def download(server: str, links: Iterable[str], folder: Path) -> Iterator[tuple[list[str], Path]]:
    """Downloads each link into a separate folder. Yields the printed lines and the folder of each link."""
    calls = [[urljoin(server, link), folder / str(number)] for number, link in enumerate(links)]
    return zip(run_each(SCRIPT, folder, calls), (folder for _, folder in calls), strict=True)


CENTRE_AND_SIDE = 2 * 0.5 * 0.5**0.5  # the centre and one side channel, each mixed in 3 dB lower
SONGS = [
    # link, name, rate, peaks of the channels
    ("song.webm", "song", 48000, [1.5, 0.5]),
    ("song.wav", "song", 44100, [1.5 + CENTRE_AND_SIDE, 0.5 + CENTRE_AND_SIDE]),
    ("song.m3u8", "song", 44100, [1.5, 0.5]),
    ("listen.php?id=1", "listen", 44100, [1.5, 0.5]),
    ("page", "AC-DC - 'Back' 100%(id)s $HOME", 44100, [1.5]),
    ("feed", "Song 1", 44100, [1.5]),
]


def test_song_becomes_a_wav_that_sounds_the_same(server: str, tmp_path: Path) -> None:
    root = tmp_path / "a folder, $HOME and %(title)s"
    root.mkdir()
    downloads = download(server, [link for link, *_ in SONGS], root)
    for (link, name, rate, peaks), (lines, folder) in zip(SONGS, downloads, strict=True):
        assert lines[0] == "[download] Looking at the page"
        assert "[download] Converting to WAV" in lines
        assert lines[-1] == f"WAV_PATH::{folder}/{name}.wav"
        assert os.listdir(folder) == [f"{name}.wav"]

        samples, wav_rate = read_wav(folder / f"{name}.wav")
        padding = 2048 if link == "song.m3u8" else 0  # an HLS stream does not state its encoder's padding
        assert wav_rate == rate
        assert 3 * rate <= len(samples) <= 3 * rate + padding
        middle = samples[rate : 2 * rate]
        assert np.abs(middle).max(axis=0) == pytest.approx(peaks, rel=0.1)
        assert (np.abs(np.fft.rfft(middle, axis=0)).argmax(axis=0) == 1000).all()


FAILURES = {
    "missing": "There is nothing at this link (HTTP 404)",
    "two": "There are 2 songs at this link",
    "feeds": "There are 3 songs at this link",
    "none": "No song was found at this link",
    "live.m3u8": "This is a live stream",
    "silent.mp4": "There is no audio in silent.mp4",
    "note.mp3": "note.mp3 could not be read as audio",
    "broken/song.mp3": "The download failed",
    "lying/song.mp3": "The server's answer could not be read",
    "cut/song.m4a": "The download is incomplete",
    "cut/song.webm": "The download is incomplete",
    "http://127.0.0.1:1/closed": "The server could not be reached",
}


def test_failure_ends_in_one_sentence_and_leaves_nothing(server: str, tmp_path: Path) -> None:
    downloads = download(server, FAILURES, tmp_path)
    for sentence, ((*progress, last_line), folder) in zip(FAILURES.values(), downloads, strict=True):
        assert last_line.startswith(sentence)
        assert last_line.endswith(".")
        assert all(line.startswith("[download] ") for line in progress)
        assert os.listdir(folder) == []


def test_stalled_download_says_that_it_is_waiting_and_then_fails(server: str, tmp_path: Path) -> None:
    script = write_script(SCRIPT, tmp_path / "impatient.py", BE_IMPATIENT)
    *lines, last_line = run_worker(script, f"{server}/stalled/song.m4a", tmp_path / "download", status=1)
    assert last_line == "The download failed (timed out): check your connection and try again."
    assert len([line for line in lines if re.fullmatch(r".* \d+\.\d % of \d+ kB, waiting for the server", line)]) >= 2
    assert os.listdir(tmp_path / "download") == []


@pytest.mark.parametrize("end", [subprocess.Popen.kill, lambda uv: uv.stdout.close()], ids=["uv", "program"])
def test_nothing_outlives_uv_or_the_program(tmp_path: Path, end: Callable[[subprocess.Popen], None]) -> None:
    """Starts the JavaScript runtime from Python, as yt-dlp does, with a program that loops forever."""
    command = [UV, "run", write_script(SCRIPT, tmp_path / "script.py", RUN_JAVASCRIPT)]
    with subprocess.Popen(command, env=ENVIRONMENT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT) as uv:
        while b" % " not in (block := uv.stdout.read(BLOCK_SIZE)):
            assert block
        family = descendants(uv.pid)
        assert len(family) == 2
        end(uv)
        assert gone([uv.pid, *family])


def test_names_are_readable() -> None:
    names = {
        "Sigur Rós: Ágætis byrjun": "Sigur Rós - Ágætis byrjun",
        '12:30 | AC/DC \\ <live> "x"?*': "12-30 - AC-DC - (live) 'x'",
        "Lpt1 .tar.gz": "Lpt1_.tar.gz",
        "a\u202e\u2066b\u200b\0c\r\n\u2028d\ud800": "abc d",
        "x" * 178 + "q\u0307\u0323": "x" * 178,
    }
    assert {title: safe_name(title) for title in names} == names
