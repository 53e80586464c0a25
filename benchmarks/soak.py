"""Runs Kelvane many times, and fails if it holds more resources after the last run than after the fiftieth.

    soak.py [batch] [window] [failures] [--runs 500] [--real 20]

"batch" renders all songs with one kelvane-render. "window" clicks Execute for each run in one window, and Analyze
before every tenth click. In both, stand-ins for the workers answer immediately, and only as many runs as --real says
use the real workers, with a small model. "failures" makes runs of both programs fail, cancels others, and then deletes
their leftovers with the command in README.md.

Needs a release build, NumPy, python-xlib, Xvfb, openbox and xdotool.
"""

import argparse
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from collections.abc import Iterator
from contextlib import contextmanager
from dataclasses import dataclass
from pathlib import Path

import numpy as np
from desktop import PROGRAM, ROOT, SONG, choose, open_window
from footprint import HEADING, Footprint, count_files
from processes import descendants
from screen import wait_for
from wav import write_wav
from window import ANALYZE, BASS, BPM, BPM_AUTO, BPM_TO, EXECUTE, NOWHERE, OTHER, Window, same

_RENDER = ROOT / "build" / "release" / "bin" / "kelvane-render"
_UV = os.environ.get("KELVANE_UV") or shutil.which("uv") or str(Path.home() / ".local/share/kelvane/uv/bin/uv")
_FIRST_SAMPLE = 50  # taken after this many runs
_AUTO = (788, 316, 64, 28)  # region of the Auto toggle for the tempo

# Stands in for uv, and counts the runs. Only Analyze passes --key. Each run begins with a call that passes only --bpm.
_STAND_IN = """#!/bin/sh
case "$*" in
*--key*) run=1 ;;
*--bpm*) run=$(($(cat {folder}/runs) + 1)); echo $run >{folder}/runs ;;
*) run=$(cat {folder}/runs) ;;
esac
[ $((run % {period})) -ne 0 ] || exec {uv} "$@"
case "$2" in
*/analyze.py)
    while [ -e {folder}/hold-$run ]; do touch {folder}/held-$run; sleep 0.02; done
    echo 'RESULT::{{"bpm": 112.04, "key_index": 2}}' ;;
*/separate.py)
    for stem in drums vocals; do cp {folder}/stem.wav "$4/$stem.wav"; done
    [ ! -e {folder}/stall ] || exec sleep 600
    [ ! -e {folder}/fail ] || exit 1 ;;
esac
"""


class _Soak:
    def __init__(self, folder: Path, num_runs: int, num_real: int) -> None:
        self.folder, self.num_runs, self.num_real = folder, num_runs, num_real
        self.temporary, self.out = folder / "temporary", folder / "out"
        self.temporary.mkdir()
        self.out.mkdir()
        write_wav(folder / "stem.wav", np.random.default_rng(1).uniform(-0.5, 0.5, (22050, 2)), 44100)
        self.environment = {
            **os.environ,
            "TMPDIR": str(self.temporary),
            "KELVANE_UV": str(folder / "uv"),
            "KELVANE_STEM_CACHE": "0",
            "HF_HOME": str(folder / "hub"),
            "HF_HUB_OFFLINE": "1",
            "UV_FIND_LINKS": os.environ.get("PIP_FIND_LINKS", ""),
        }
        self.is_flat = True

    def make_model(self) -> None:
        """Installs the workers' packages, then makes the small model."""
        scripts = ROOT / "Resources" / "python"
        for script in ("analyze.py", "separate.py"):
            install = [_UV, "run", "--quiet", scripts / "prepare.py", scripts / script]
            output = subprocess.run(install, env=self.environment, check=True, stdout=subprocess.PIPE, text=True).stdout
        make = ROOT / "tests" / "support" / "make_checkpoint.py"
        subprocess.run([output.splitlines()[-1], make, self.folder / "hub"], env=self.environment, check=True)

    def install_stand_in(self, num_real: int) -> None:
        """Installs the stand-in for uv, and restarts its count of runs."""
        (self.folder / "runs").write_text("0")
        period = self.num_runs // num_real if num_real else self.num_runs + 2
        (self.folder / "uv").write_text(_STAND_IN.format(folder=self.folder, period=period, uv=_UV))
        (self.folder / "uv").chmod(0o755)

    def num_started(self) -> int:
        return int((self.folder / "runs").read_text() or 0)

    @contextmanager
    def flag(self, name: str) -> Iterator[None]:
        """Makes the stand-in fail or stall, as the name says, until the block ends."""
        (self.folder / name).touch()
        yield
        (self.folder / name).unlink()

    def report(self, part: str, samples: dict[str, Footprint]) -> None:
        for when, sample in samples.items():
            print(f"{part + ', ' + when:20}{sample}", flush=True)
        first, last = samples.values()
        if not first.stays(last):
            self.is_flat = False
            print(f"{part} is not flat", flush=True)

    def start_batch(self, num_songs: int) -> subprocess.Popen[bytes]:
        songs = [self.folder / f"song {number}.ogg" for number in range(1, num_songs + 1)]
        for song in songs:
            if not song.exists():
                song.symlink_to(SONG)
        command = [_RENDER, *songs, "--stems", "drums,vocals", "--bpm", "auto:120", "--bits", "16", "--out", self.out]
        with (self.folder / "output").open("wb") as output:
            return subprocess.Popen(command, env=self.environment, stdout=output, stderr=subprocess.STDOUT)

    def batch(self) -> None:
        """Renders all songs with one program, and takes each sample while the next song's first worker runs."""
        self.install_stand_in(self.num_real)
        samples = {}
        runs = (_FIRST_SAMPLE, self.num_runs)
        for run in runs:
            (self.folder / f"hold-{run + 1}").touch()
        program = self.start_batch(self.num_runs + 1)
        for run in runs:
            assert wait_for((self.folder / f"held-{run + 1}").exists, 3600)
            time.sleep(1)
            samples[f"run {run}"] = Footprint.take(program.pid, self.temporary)
            (self.folder / f"hold-{run + 1}").unlink()
        status, output = program.wait(), (self.folder / "output").read_text()
        assert (status, output.count("Wrote 2 file(s)")) == (0, self.num_runs + 1), output[-2000:]
        self.report("batch", samples)

    @contextmanager
    def window(self, num_real: int) -> Iterator["_User"]:
        self.install_stand_in(num_real)
        with open_window(PROGRAM, self.environment, "sh", "cat", "cp", "sleep", "touch", "python3") as (window, pid):
            user = _User(self, window, pid)
            user.enter_what_is_wanted()
            yield user

    def clicks(self) -> None:
        samples = {}
        with self.window(self.num_real) as user:
            for run in range(1, self.num_runs + 1):
                if run % 10 == 0:
                    user.analyze()
                user.execute()
                user.window.dismiss("Pipeline complete")
                if run in (_FIRST_SAMPLE, self.num_runs):
                    samples[f"run {run}"] = user.sample()
        self.report("window", samples)

    def failures(self) -> None:
        with self.window(0) as user:
            user.execute()
            user.window.dismiss("Pipeline complete")
            before = user.sample()
            for _ in range(10):
                with self.flag("fail"):
                    user.execute()
                    user.window.dismiss("Pipeline failed")
                with self.flag("stall"):
                    user.execute()
                    user.cancel()
            with self.flag("fail"):
                assert self.start_batch(10).wait() == 1
            with self.flag("stall"):
                num_started, batch = self.num_started(), self.start_batch(10)
                assert wait_for(lambda: self.num_started() > num_started)
                batch.send_signal(signal.SIGINT)
                assert batch.wait() == 130
            left = count_files(self.temporary) - before.temporary
            print(f"20 runs failed and 11 were cancelled, and left {left} temporary files")
            row = re.search(r"\| runs that failed or were cancelled \| `(.+)` \|", (ROOT / "README.md").read_text())
            assert row and left > 31
            subprocess.run(["sh", "-c", row[1]], env=self.environment, check=True)
            user.execute()
            user.window.dismiss("Pipeline complete")
            self.report("failures", {"before": before, "after": user.sample()})


@dataclass
class _User:
    soak: _Soak
    window: Window
    pid: int

    def enter_what_is_wanted(self) -> None:
        """Chooses the song and the folder, two stems, and a change from the detected tempo to 120 BPM."""
        choose(self.window, self.soak.out)
        self.window.click(BASS, OTHER, BPM, BPM_AUTO, BPM_TO)
        self.window.type("120")
        self.window.click(NOWHERE)

    def execute(self) -> None:
        """Clicks until a run starts: while a dialog is still closing, a click does nothing."""
        before = self.soak.num_started()
        for _ in range(5):
            self.window.click(EXECUTE)
            if wait_for(lambda: self.soak.num_started() > before, 10):
                return
        raise AssertionError("no run has started")

    def cancel(self) -> None:
        self.window.click(EXECUTE)
        assert wait_for(lambda: not descendants(self.pid))
        time.sleep(0.5)

    def analyze(self) -> None:
        """Analyzes the song, and then turns Auto on again, because an analysis turns it off."""
        auto = self.window.part(_AUTO)
        self.window.click(ANALYZE)
        assert self.window.changes(_AUTO, auto)
        self.window.click(BPM_AUTO, NOWHERE)
        assert wait_for(lambda: same(self.window.part(_AUTO), auto))

    def sample(self) -> Footprint:
        """Measures the program after it has freed the memory that painting takes."""
        self.window.click(NOWHERE)
        time.sleep(5)
        return Footprint.take(self.pid, self.soak.temporary)


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("parts", nargs="*", metavar="batch | window | failures")
    parser.add_argument("--runs", type=int, default=500)
    parser.add_argument("--real", type=int, default=20)
    options = parser.parse_args()

    with tempfile.TemporaryDirectory() as folder:
        soak = _Soak(Path(folder), options.runs, options.real)
        soak.make_model()
        print(" " * 20 + HEADING)
        parts = {"batch": soak.batch, "window": soak.clicks, "failures": soak.failures}
        for part in options.parts or parts:
            parts[part]()
        sys.exit(0 if soak.is_flat else "Kelvane has grown.")


if __name__ == "__main__":
    main()
