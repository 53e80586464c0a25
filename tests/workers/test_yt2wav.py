"""yt2wav.py as the program runs it, against a server of its own on the loopback interface."""

import os
import re
import subprocess
import sys
import threading
from collections.abc import Callable, Iterator
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from pathlib import Path
from urllib.parse import urljoin, urlsplit

import numpy as np
import pytest
from processes import descendants, gone
from wav import read_float_wav
from workers import BLOCK_SIZE, ENVIRONMENT, SCRIPTS, UV, provide, run_worker

sys.path.append(str(SCRIPTS))
from download.filename import safe_name

SCRIPT = SCRIPTS / "yt2wav.py"

# Three seconds of a tone, its first channel beyond full scale where the format allows it.
MAKE_MEDIA = """
import array, fractions, math, av

def make(name, codec, rate, layout="stereo", **options):
    with av.open(name, "w", options=options) as container:
        stream = container.add_stream(codec, rate=rate, layout=layout)
        levels = [1.5] + [0.5] * (len(stream.layout.channels) - 1)
        tone = (math.sin(2 * math.pi * 1000 * index / rate) for index in range(3 * rate))
        frame = av.AudioFrame(format="flt", layout=layout, samples=3 * rate)
        frame.sample_rate, frame.pts, frame.time_base = rate, 0, fractions.Fraction(1, rate)
        frame.planes[0].update(array.array("f", [level * sample for sample in tone for level in levels]).tobytes())
        resampler = av.AudioResampler(format=stream.codec_context.format, frame_size=stream.frame_size or 1024)
        for part in [*resampler.resample(frame), *resampler.resample(None)]:
            container.mux(stream.encode(part))
        container.mux(stream.encode(None))

make("song.m4a", "aac", 44100, movflags="faststart")
make("song.webm", "libopus", 48000)
make("song.mp3", "libmp3lame", 44100, "mono")
make("song.wav", "pcm_f32le", 44100, "5.1")
make("song.m3u8", "aac", 44100, hls_time="1", hls_playlist_type="vod")
with av.open("silent.mp4", "w") as container:
    stream = container.add_stream("mpeg4", rate=10)
    container.mux(stream.encode(av.VideoFrame(640, 480, "yuv420p")))
    container.mux(stream.encode(None))
"""

# The JavaScript runtime, started as yt-dlp starts it, in an endless loop.
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


def write_script(path: Path, code: str) -> Path:
    """A script that has what the worker has: its packages, and the modules beside it."""
    block = SCRIPT.read_text().partition('"""')[0]
    path.write_text(
        f"{block}import pathlib, sys\nsys.dont_write_bytecode = True\nsys.path.insert(0, {str(SCRIPTS)!r})\n"
        f"from installation import environment\nenvironment.enter(pathlib.Path({str(SCRIPT)!r}))\n{code}"
    )
    return path


@pytest.fixture(scope="session")
def server(tmp_path_factory: pytest.TempPathFactory) -> Iterator[str]:
    """Serves media and pages. Below /broken the connection ends within a file, below /cut the file itself does,
    below /stalled no more of it comes, and below /lying its length is no number."""
    folder = tmp_path_factory.mktemp("media")
    provide("yt2wav.py")
    subprocess.run([UV, "run", write_script(folder / "make.py", MAKE_MEDIA)], cwd=folder, env=ENVIRONMENT, check=True)
    files = {path.name: path.read_bytes() for path in folder.iterdir()}
    files["live.m3u8"] = files["song.m3u8"].replace(b"#EXT-X-ENDLIST", b"")
    files["listen.php"] = files["song.m4a"]
    files["note.mp3"] = b"This is a letter, and no song. " * 1000
    files["none"] = b"<html><title>No song</title></html>"
    player = b'<video src="song.mp3"></video>'
    files["page"] = b"<html><title>../AC/DC: &quot;Back&quot; 100%%(id)s $HOME</title>%s</html>" % player
    files["two"] = b"<html><title>Two songs</title>%s%s</html>" % (player, player.replace(b"mp3", b"m4a"))
    feed = '<rss version="2.0"><channel>{}</channel></rss>'
    item = '<item><title>Song {1}</title><enclosure url="{0}/song.mp3?{1}" type="audio/mpeg"/></item>'
    released = threading.Event()

    class Handler(BaseHTTPRequestHandler):
        def do_GET(self) -> None:
            trouble, _, name = urlsplit(self.path).path[1:].rpartition("/")
            content = files.get(name)
            if content is None:
                return self.send_error(404)
            self.send_response(200)
            if trouble != "cut":
                self.send_header("Content-Length", "many" if trouble == "lying" else str(len(content)))
            self.end_headers()
            self.wfile.write(content[: len(content) // 3] if trouble else content)
            if trouble == "stalled":
                released.wait()

        def log_message(self, *_: object) -> None:
            pass

    with ThreadingHTTPServer(("127.0.0.1", 0), Handler) as loopback:
        root = f"http://127.0.0.1:{loopback.server_port}"
        files["feed"] = feed.format(item.format(root, 1)).encode()
        files["feeds"] = feed.format("".join(item.format(root, number) for number in (1, 2, 3))).encode()
        threading.Thread(target=loopback.serve_forever).start()
        yield root
        released.set()
        loopback.shutdown()


CENTRE_AND_SIDE = 2 * 0.5 * 0.5**0.5  # each mixed in at 3 dB less


@pytest.mark.parametrize(
    ("link", "name", "rate", "peaks"),
    [
        ("song.m4a", "song", 44100, [1.5, 0.5]),
        ("song.webm", "song", 48000, [1, 0.5]),
        ("song.mp3", "song", 44100, [1]),
        ("song.wav", "song", 44100, [1.5 + CENTRE_AND_SIDE, 0.5 + CENTRE_AND_SIDE]),
        ("song.m3u8", "song", 44100, [1.5, 0.5]),
        ("listen.php?id=1", "listen", 44100, [1.5, 0.5]),
        ("page", "AC-DC - 'Back' 100%(id)s $HOME", 44100, [1]),
        ("feed", "Song 1", 44100, [1]),
    ],
)
def test_song_becomes_a_wav_of_the_same_sound(
    server: str, tmp_path: Path, link: str, name: str, rate: int, peaks: list[float]
) -> None:
    folder = tmp_path / "a folder, $HOME and %(title)s" / "download"
    lines = run_worker(SCRIPT, f"{server}/{link}", folder, status=0)

    assert lines[0] == "[download] Looking at the page"
    assert "[download] Converting to WAV" in lines
    assert lines[-1] == f"WAV_PATH::{folder}/{name}.wav"
    assert os.listdir(folder) == [f"{name}.wav"]

    samples, wav_rate = read_float_wav(folder / f"{name}.wav")
    padding = 2048 if link == "song.m3u8" else 0  # a stream does not state how much of its ends is the encoder's
    assert wav_rate == rate
    assert 3 * rate <= len(samples) <= 3 * rate + padding
    middle = samples[rate : 2 * rate]
    assert np.abs(middle).max(axis=0) == pytest.approx(peaks, rel=0.05)
    assert (np.abs(np.fft.rfft(middle, axis=0)).argmax(axis=0) == 1000).all()


@pytest.mark.parametrize(
    ("link", "sentence"),
    [
        ("missing", "There is nothing at this link (HTTP 404)"),
        ("two", "There are 2 songs at this link"),
        ("feeds", "There are 3 songs at this link"),
        ("none", "No song was found at this link"),
        ("live.m3u8", "This is a live stream"),
        ("silent.mp4", "There is no audio in silent.mp4"),
        ("note.mp3", "note.mp3 could not be read as audio"),
        ("broken/song.mp3", "The download failed"),
        ("lying/song.mp3", "The server's answer could not be read"),
        ("cut/song.m4a", "The download is incomplete"),
        ("cut/song.webm", "The download is incomplete"),
        ("http://127.0.0.1:1/closed", "The server could not be reached"),
    ],
)
def test_failure_ends_in_one_sentence_and_leaves_nothing(server: str, tmp_path: Path, link: str, sentence: str) -> None:
    lines = run_worker(SCRIPT, urljoin(server, link), tmp_path, status=1)

    assert lines[-1].startswith(sentence)
    assert lines[-1].endswith(".")
    assert all(line.startswith("[download] ") for line in lines[:-1])
    assert os.listdir(tmp_path) == []


def test_stalled_connection_keeps_talking_and_then_fails(server: str, tmp_path: Path) -> None:
    script = write_script(tmp_path / "impatient.py", BE_IMPATIENT)
    lines = run_worker(script, f"{server}/stalled/song.m4a", tmp_path / "download", status=1)

    assert lines[-1] == "The download failed (timed out): check your connection and try again."
    assert sum(bool(re.fullmatch(r".* \d+\.\d % of \d+ kB, waiting for the server", line)) for line in lines) >= 2
    assert os.listdir(tmp_path / "download") == []


@pytest.mark.skipif(sys.platform != "linux", reason="looks at /proc")
@pytest.mark.parametrize("end", [subprocess.Popen.kill, lambda uv: uv.stdout.close()], ids=["uv", "program"])
@pytest.mark.parametrize(("code", "num_processes"), [(BE_IMPATIENT, 1), (RUN_JAVASCRIPT, 2)], ids=["python", "deno"])
def test_nothing_outlives_uv_or_the_program(
    server: str, tmp_path: Path, code: str, num_processes: int, end: Callable[[subprocess.Popen], None]
) -> None:
    script = write_script(tmp_path / "script.py", code)
    command = [UV, "run", script, f"{server}/stalled/song.m4a", tmp_path / "download"]
    with subprocess.Popen(command, env=ENVIRONMENT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT) as uv:
        while b" % " not in (block := uv.stdout.read(BLOCK_SIZE)):  # it comes although little is printed behind it
            assert block
        family = descendants(uv.pid)
        assert len(family) == num_processes

        end(uv)
        assert gone([uv.pid, *family], 4)  # less than the connection's time-out


@pytest.mark.parametrize(
    ("title", "name"),
    [
        ("Sigur Rós: Ágætis byrjun", "Sigur Rós - Ágætis byrjun"),
        ('12:30 | AC/DC \\ <live> "x"?*', "12-30 - AC-DC - (live) 'x'"),
        ("Lpt1 .tar.gz", "Lpt1_.tar.gz"),
        ("a\u202e\u2066b\u200b\0c\r\n\u2028d\ud800", "abc d"),
        ("x" * 178 + "q\u0307\u0323", "x" * 178),
    ],
)
def test_names_are_readable(title: str, name: str) -> None:
    assert safe_name(title) == name
