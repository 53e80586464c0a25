"""Kills Kelvane's window, uv or a worker during runs in the window, and counts what goes wrong.

See "Faults" in docs/benchmarks.md. No process may be left, and the next run must succeed, in a new window if the old
one was killed. If uv or a worker is killed, the window must report a failure, unless all results are complete.

Needs a release build, NumPy, python-xlib, Xvfb, openbox and xdotool.
"""

import argparse
import os
import random
import signal
import sys
import tempfile
import time
from collections.abc import Iterator
from contextlib import contextmanager, suppress
from dataclasses import dataclass
from pathlib import Path

from desktop import PROGRAM, choose, open_window
from fault_lab import MARK, Lab, Tally
from screen import wait_for
from window import (
    BASS,
    BPM,
    BPM_AUTO,
    BPM_TO,
    EXECUTE,
    FULL_SONG,
    NOWHERE,
    OTHER,
    Window,
)

_TARGETS = ["program", "uv", "worker"]  # each process is the child of the previous one
_COMPLETE, _FAILED = "Pipeline complete", "Pipeline failed"


@dataclass
class _User:
    """Carries out the lab's usual run in a window."""

    lab: Lab
    window: Window
    pid: int

    def enter_what_is_wanted(self) -> None:
        choose(self.window, self.lab.out, self.lab.song)
        self.window.click(BASS, OTHER, FULL_SONG, BPM, BPM_AUTO, BPM_TO)
        self.window.type("140")
        self.window.click(NOWHERE)

    def begin(self) -> list[str]:
        """Starts a run and returns the names of its results. While a dialog is still closing, a click does nothing."""
        names = self.lab.put_older_results(self.lab.usual)
        self.lab.forget_stems()
        for _ in range(5):
            self.window.click(EXECUTE)
            if wait_for(lambda: len(self.lab.family()) > 1, 10):
                return names
        raise AssertionError("no run has started")

    def shown(self) -> str | None:
        """Returns the title of the message that is shown, if any."""
        return next((title for title in (_COMPLETE, _FAILED) if self.window.screen.windows(title)), None)

    def dismiss(self) -> str:
        """Waits for the end of a run, and returns the title of its message."""
        title = wait_for(self.shown, 300)
        assert title, "the run does not end"
        self.window.dismiss(title)
        return title

    def completes_a_run(self) -> bool:
        names = self.begin()
        return self.dismiss() == _COMPLETE and not self.lab.partial(names, 0)

    def kill(self, generation: int) -> bool:
        """Kills the window (generation 0), its child (1) or its grandchild (2).

        Returns False if there is no such process, or if the run has ended.
        """
        victim = self.lab.descendant(self.pid, generation)
        if victim == 0 or self.shown():
            return False
        with suppress(ProcessLookupError):
            os.kill(victim, signal.SIGKILL)
            return True
        return False


@contextmanager
def _user(lab: Lab) -> Iterator[_User]:
    environment = {name: value for name, value in lab.environment.items() if name != MARK}
    with open_window(PROGRAM, environment, "python3", **{MARK: lab.environment[MARK]}) as (window, pid):
        user = _User(lab, window, pid)
        user.enter_what_is_wanted()
        yield user


def _kill_window(user: _User, tally: Tally, dice: random.Random) -> bool:
    names = user.begin()
    time.sleep(dice.uniform(0, user.lab.seconds))
    if not user.kill(0):
        user.dismiss()
        return False
    tally.runs += 1
    tally.right_exits += 1
    tally.processes_left += len(user.lab.left())
    tally.partial_results += len(user.lab.partial(names, -signal.SIGKILL))
    return True


def _kill_descendant(generation: int, user: _User, tally: Tally, dice: random.Random) -> None:
    names = user.begin()
    time.sleep(dice.uniform(0, user.lab.seconds))
    is_in_time = user.kill(generation)
    title = user.dismiss()
    if not is_in_time:
        return
    tally.runs += 1
    left, partial = user.lab.left(user.pid), user.lab.partial(names, 1 if title == _FAILED else 0)
    tally.right_exits += title == _FAILED or not partial
    tally.processes_left += len(left)
    tally.partial_results += len(partial)
    tally.next_runs_succeeded += user.completes_a_run()


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--kills", type=int, default=50, help="of each process (%(default)s)")
    parser.add_argument("--seed", type=int, default=1, help="of the random moments (%(default)s)")
    options = parser.parse_args()
    dice = random.Random(options.seed)

    with tempfile.TemporaryDirectory() as folder:
        lab = Lab(Path(folder), grace=1, verbose=False)
        lab.tallies = {f"kill: {target}, in the window": Tally() for target in _TARGETS}
        of_window, *of_descendants = lab.tallies.values()

        with _user(lab) as user:
            user.begin()
            begin = time.monotonic()
            assert user.dismiss() == _COMPLETE
            lab.seconds = time.monotonic() - begin
            lab.expect_results()
            print(f"The usual run takes {lab.seconds:.1f} s in the window.", flush=True)
            for generation, tally in enumerate(of_descendants, start=1):
                while tally.runs < options.kills:
                    _kill_descendant(generation, user, tally, dice)

        for _ in range(options.kills):
            with _user(lab) as user:
                while not _kill_window(user, of_window, dice):
                    pass
            with _user(lab) as user:
                of_window.next_runs_succeeded += user.completes_a_run()

        lab.print_table()
        sys.exit(any(not tally.is_good() for tally in lab.tallies.values()))


if __name__ == "__main__":
    main()
