"""Has the workers read the songs whose paths it is given, a line each, and answers with a line: "" or their sentence.

Ends at any other failure, and if a song takes more than a minute, 4 GB of memory or 512 MB of disk.
"""

import contextlib
import io
import json
import resource
import signal
import sys
from pathlib import Path
from types import SimpleNamespace

import analyze
import numpy as np
import worker
import yt2wav
from separation.decoded_song import DecodedSong


def take(path: str) -> None:
    assert yt2wav._write_wav(path, f"{path}.wav", SimpleNamespace(update=print)) > 0
    song = DecodedSong(path, Path(path).parent)
    assert np.isfinite(song.normalization()).all()
    assert np.isfinite(song.read(0, song.num_samples)).all()
    with contextlib.redirect_stdout(io.StringIO()) as output:
        analyze.main([path, "--bpm", "--key"])
    (line,) = output.getvalue().splitlines()
    result = json.loads(line.removeprefix("RESULT::"))
    assert 40 <= result["bpm"] <= 220
    assert result["key_index"] in range(12)


for limit, num_bytes in ((resource.RLIMIT_AS, 4 << 30), (resource.RLIMIT_FSIZE, 1 << 29)):
    resource.setrlimit(limit, (num_bytes, num_bytes))
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
