"""Runs programs in temporary user folders, disturbs them, and checks their exit, leftovers and results."""

import hashlib
import os
import shutil
import signal
import subprocess
import sys
import time
from collections.abc import Callable, Iterator
from contextlib import contextmanager, suppress
from dataclasses import dataclass, fields
from pathlib import Path

import numpy as np

ROOT = Path(__file__).parents[1]
sys.path.insert(0, str(ROOT / "tests" / "support"))

from loopback import Loopback  # noqa: E402
from package_indexes import PackageIndexes  # noqa: E402
from wav import write_wav  # noqa: E402
from workers import DEMO_SONG, ENVIRONMENT, UV, cache_without_stems, provide  # noqa: E402

__all__ = ["DEMO_SONG", "Loopback", "PackageIndexes"]

RENDER = os.environ.get("KELVANE_RENDER", str(ROOT / "build" / "release" / "bin" / "kelvane-render"))

MARK = "KELVANE_FAULTS"  # an environment variable that all processes of a lab inherit
_STEMS = ["drums", "vocals"]
_LIMIT_SECONDS = 300
_OLDER = b"an older result"

Judge = Callable[[int, str], bool]  # accepts an exit status and the last line of standard error
Disturb = Callable[[subprocess.Popen[bytes]], bool]  # returns True if it came in time


@dataclass
class Tally:
    """Counts the outcomes of one kind of fault."""

    runs: int = 0
    right_exits: int = 0
    processes_left: int = 0
    partial_results: int = 0
    next_runs_succeeded: int = 0

    def is_good(self) -> bool:
        return self.right_exits == self.next_runs_succeeded == self.runs and not (
            self.processes_left or self.partial_results
        )


def says(*words: str) -> Judge:
    """Accepts a failed run whose last line is a sentence about an expected error, with one of the words, if any."""

    def judge(status: int, line: str) -> bool:
        is_sentence = line.endswith(".") and "unexpected" not in line
        return status == 1 and is_sentence and (not words or any(word in line for word in words))

    return judge


def names(word: str) -> Judge:
    """Accepts a failed run whose last line starts with a path and contains the word."""
    return lambda status, line: status == 1 and line.startswith("/") and word in line


def succeeds(status: int, _: str) -> bool:
    return status == 0


def either(*judges: Judge) -> Judge:
    return lambda status, line: any(judge(status, line) for judge in judges)


def dies(status: int, _: str) -> bool:
    return status == -signal.SIGKILL


class Lab:
    """Folders for a song, its results, temporary files and caches, and a small untrained model."""

    def __init__(self, folder: Path, grace: float, verbose: bool) -> None:
        self.folder = folder
        self.grace = grace  # seconds that processes may take to end
        self.verbose = verbose  # print how each run ended
        self.tallies: dict[str, Tally] = {}
        self.temporary, self.out, self.hub = folder / "temporary", folder / "out", folder / "hub"
        self.temporary.mkdir()
        cache = cache_without_stems(folder / "cache")
        self.stems = folder / "cache" / "kelvane" / "stems"
        self.environment = {
            name: value for name, value in ENVIRONMENT.items() if name not in ("DISPLAY", "PYTHONDONTWRITEBYTECODE")
        }
        self.environment |= cache | {"KELVANE_UV": UV, "TMPDIR": str(self.temporary), MARK: str(folder)}
        self.environment |= {"HF_HOME": str(self.hub), "HF_HUB_OFFLINE": "1"}
        for script in ("analyze.py", "yt2wav.py"):
            provide(script)
        make = ROOT / "tests" / "support" / "make_checkpoint.py"
        subprocess.run([provide("separate.py"), make, self.hub], check=True)

        self.song = write_wav(folder / "song.wav", _beat(3), 44100)
        self.usual: list[str | Path] = [self.song, "--stems", ",".join(_STEMS), "--full-song", "--bpm", "auto:140"]
        self.plain: list[str | Path] = [shutil.copy(self.song, folder / "plain.wav"), "--full-song"]
        self._expected: dict[str, set[str]] = {}  # the digests that a result may have, where they are known
        self.seconds = 0.0  # the time that the usual run takes
        for _ in range(2):  # a first run writes bytecode and warms caches
            self.forget_stems()
            begin = time.monotonic()
            status, line = self.end(self.start(self.usual))
            self.seconds = time.monotonic() - begin
            assert status == 0, line
            self.expect_results()
        assert all(len(digests) == 1 for digests in self._expected.values()), "The results differ from run to run"

    def start(self, arguments: list[str | Path], **variables: str) -> subprocess.Popen[bytes]:
        if "--analyze" not in arguments:
            arguments = [*arguments, "--out", self.out]
        with open(self.folder / "stdout", "wb") as output, open(self.folder / "stderr", "wb") as errors:
            return subprocess.Popen(
                [RENDER, *arguments], env=self.environment | variables, stdout=output, stderr=errors, cwd=self.folder
            )

    def end(self, program: subprocess.Popen[bytes]) -> tuple[int | None, str]:
        """Returns the exit status, or None if the run did not end in time, and the last line of standard error."""
        try:
            status = program.wait(_LIMIT_SECONDS)
        except subprocess.TimeoutExpired:
            program.kill()
            program.wait()
            status = None
        lines = (self.folder / "stderr").read_text(errors="replace").strip().splitlines()
        return status, lines[-1] if lines else ""

    def expect_results(self) -> None:
        """Adds the current results to the expected ones."""
        for path in self.out.rglob("*.wav"):
            self._expected.setdefault(path.name, set()).add(_digest(path))

    def forget_stems(self) -> None:
        for entry in self.stems.glob("*"):
            shutil.rmtree(entry)

    def family(self) -> dict[int, int]:
        """Returns the running processes of this lab, each with its parent."""
        mark = f"{MARK}={self.folder}".encode()
        found = {}
        for process in Path("/proc").glob("[0-9]*"):
            try:
                if mark in (process / "environ").read_bytes().split(b"\0"):
                    state, parent, *_ = (process / "stat").read_text().rpartition(")")[2].split()
                    if state not in "ZX":
                        found[int(process.name)] = int(parent)
            except OSError:  # the process has ended, or is another user's
                continue
        return found

    def descendant(self, pid: int, generation: int) -> int:
        """Returns a child of a process (generation 1), a grandchild (2) and so on, or 0 if it does not exist."""
        for _ in range(generation):
            parents = self.family()
            pid = next((child for child, parent in parents.items() if parent == pid), 0)
        return pid

    def attempt(
        self,
        kind: str,
        judge: Judge,
        arguments: list[str | Path] | None = None,
        *,
        disturb: Disturb | None = None,
        restore: Callable[[], None] | None = None,
        next_arguments: list[str | Path] | None = None,
        **variables: str,
    ) -> bool:
        """Runs the program with a fault, then without. Counts the first run's outcome, and whether the second succeeds.

        Calls restore between the runs. The second run is the usual one, unless next_arguments are given. Returns False,
        and counts nothing, if the disturbance came too late.
        """
        arguments = arguments or self.usual
        names = self.put_older_results(arguments)
        begin = time.monotonic()
        program = self.start(arguments, **variables)
        is_in_time = disturb is None or disturb(program)
        status, line = self.end(program)
        left = self.left()
        partial = self.partial(names, status)
        if restore:
            restore()
        if not is_in_time:
            self.seconds = time.monotonic() - begin  # an upper bound, as the speed depends on other load
            return False

        complaints = []
        if self.verbose:
            print(f"{kind} [{' '.join(map(str, arguments))}]: {status}, {line}", flush=True)
        tally = self.tallies.setdefault(kind, Tally())
        tally.runs += 1
        is_right = status is not None and judge(status, line)
        tally.right_exits += is_right
        tally.processes_left += len(left)
        tally.partial_results += len(partial)
        if not is_right or left or partial:
            complaints.append(f"status {status}, left {left}, partial {partial}: {line}")
        complaints += self._run_again(next_arguments or self.usual, tally)
        for complaint in complaints:
            print(f"{kind}: {complaint} [{' '.join(map(str, arguments))}]", flush=True)
        self._tidy()
        return True

    def print_table(self) -> None:
        columns = [field.name for field in fields(Tally)]
        print("| fault | " + " | ".join(name.replace("_", " ") for name in columns) + " |")
        print("|---" * (len(columns) + 1) + "|")
        for kind, tally in self.tallies.items():
            print(f"| {kind} | " + " | ".join(str(getattr(tally, name)) for name in columns) + " |")

    def _run_again(self, arguments: list[str | Path], tally: Tally) -> list[str]:
        names = self.put_older_results(arguments)
        begin = time.monotonic()
        status, line = self.end(self.start(arguments))
        if arguments is self.usual:
            self.seconds = max(self.seconds, time.monotonic() - begin)
        left = self.left()
        present = {path.name for path in self.out.rglob("*") if path.is_file()}
        wrong = self.partial(names, status) + sorted(present ^ {*names, "mine.txt"} if names else present)
        if status == 0 and not left and not wrong:
            tally.next_runs_succeeded += 1
            return []
        return [f"the next run: status {status}, left {left}, wrong {wrong}: {line}"]

    def put_older_results(self, arguments: list[str | Path]) -> list[str]:
        """Puts older files where the results will be, and returns the results' names."""
        for folder in self.out.glob("*"):
            shutil.rmtree(folder)
        if "--analyze" in arguments:
            return []
        song = Path(str(arguments[0])).stem
        folder = self.out / f"{song} - Stems"
        folder.mkdir(parents=True)
        names = [f"{song} - full mix.wav"] if "--full-song" in arguments else []
        if "--stems" in arguments:
            names += [f"{song} - {stem}.wav" for stem in _STEMS]
        for name in [*names, "mine.txt"]:
            (folder / name).write_bytes(_OLDER)
        return names

    def left(self, window: int = 0) -> list[str]:
        """Returns the processes, except the window, that did not end in time, and how long it took until all had ended.

        Kills any that never end.
        """

        def others() -> set[int]:
            return self.family().keys() - {window}

        begin = time.monotonic()
        while (family := others()) and time.monotonic() - begin < self.grace:
            time.sleep(0.02)
        late = list(family)
        while (family := others()) and time.monotonic() - begin < _LIMIT_SECONDS / 10:
            time.sleep(0.02)
        for pid in family:
            with suppress(ProcessLookupError):
                os.kill(pid, signal.SIGKILL)
        return [f"{pid} for {'ever' if pid in family else f'{time.monotonic() - begin:.1f} s'}" for pid in late]

    def partial(self, names: list[str], status: int | None) -> list[str]:
        """Returns the faults of the results: files that are incomplete, missing or unexpected."""
        found = {path.name: path for path in self.out.rglob("*") if path.is_file()}
        wrong = [f"{name} is gone" for name in names if name not in found]
        for name, path in found.items():
            if name == "mine.txt":
                is_good = path.read_bytes() == _OLDER
            elif name not in names:
                is_good = name.startswith(".kelvane-") and status == -signal.SIGKILL
            elif status != 0 and path.stat().st_size == len(_OLDER):
                is_good = path.read_bytes() == _OLDER
            elif name in self._expected:
                is_good = _digest(path) in self._expected[name]
            else:
                is_good = _is_whole(path)
            if not is_good:
                wrong.append(name)
        return wrong

    def _tidy(self) -> None:
        shutil.rmtree(self.out, ignore_errors=True)
        for run in self.temporary.glob("Kelvane*/*"):
            shutil.rmtree(run, ignore_errors=True)
        self.forget_stems()


@contextmanager
def mount(folder: Path, options: str) -> Iterator[Callable[[], None]]:
    """Mounts a separate disk on the folder. Yields a function that unmounts it early."""
    folder.mkdir(parents=True, exist_ok=True)
    subprocess.run(["mount", "-t", "tmpfs", "-o", options, "tmpfs", folder], check=True)

    def unmount() -> None:
        if folder.is_mount():
            subprocess.run(["umount", "--lazy", folder], check=True)

    try:
        yield unmount
    finally:
        unmount()


def _beat(seconds: int) -> np.ndarray:
    """Returns a chord with a burst of noise every half second."""
    times = np.arange(seconds * 44100) / 44100
    chord = sum(np.sin(2 * np.pi * frequency * times) for frequency in (220, 277.2, 329.6))
    hits = np.random.default_rng(1).uniform(-1, 1, times.size) * np.exp(-40 * (times % 0.5))
    return np.stack([0.1 * chord + 0.4 * hits, 0.1 * chord + 0.3 * hits], axis=1)


def _digest(path: Path) -> str:
    return hashlib.sha256(path.read_bytes()).hexdigest()


def _is_whole(path: Path) -> bool:
    """Returns True if a WAV file is as long as its header says."""
    with path.open("rb") as file:
        start = file.read(12)
    return start[:4] == b"RIFF" and int.from_bytes(start[4:8], "little") + 8 == path.stat().st_size > 1000
