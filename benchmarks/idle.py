"""Measures how much of a core an idle window uses, and how often it wakes.

    idle.py [PROGRAM] [--seconds 60]

Measures with the mouse elsewhere, with the mouse at rest on the window, and after a run. PROGRAM is the Kelvane to
measure; the default is the release build. Needs NumPy, python-xlib, Xvfb, openbox and xdotool.
"""

import argparse
import os
import tempfile
import time
from pathlib import Path

from desktop import PROGRAM, choose, open_window
from window import BASS, DRUMS, EXECUTE, FULL_SONG, OTHER, VOCALS


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("program", nargs="?", type=Path, default=PROGRAM)
    parser.add_argument("--seconds", type=float, default=60)
    options = parser.parse_args()

    with tempfile.TemporaryDirectory() as folder:
        temporary = Path(folder, "temporary")
        temporary.mkdir()
        with open_window(options.program, {**os.environ, "TMPDIR": str(temporary)}) as (window, pid):

            def measure(state: str, mouse: tuple[int, int]) -> None:
                window.screen.xdotool("mousemove", *map(str, mouse))
                time.sleep(5)
                _print_use(state, pid, options.seconds)

            print("                                % of a core   wakes a second")
            outside, inside = (5, 5), (800, 300)
            measure("mouse elsewhere", outside)
            measure("mouse at rest on the window", inside)
            choose(window, Path(folder))
            window.click(DRUMS, BASS, VOCALS, OTHER, FULL_SONG, EXECUTE)
            window.dismiss("Pipeline complete")
            measure("after a run, mouse elsewhere", outside)


def _print_use(state: str, pid: int, seconds: float) -> None:
    cpu, wakes, start = _cpu_seconds(pid), _wakes(pid), time.monotonic()
    time.sleep(seconds)
    passed = time.monotonic() - start
    share = 100 * (_cpu_seconds(pid) - cpu) / passed
    print(f"{state:30}{share:13.2f}{(_wakes(pid) - wakes) / passed:17.1f}", flush=True)


def _cpu_seconds(pid: int) -> float:
    fields = Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def _wakes(pid: int) -> int:
    """Returns the number of voluntary context switches of all of the process's threads."""
    states = (path.read_text() for path in Path(f"/proc/{pid}/task").glob("*/status"))
    return sum(int(state.partition("\nvoluntary_ctxt_switches:")[2].split()[0]) for state in states)


if __name__ == "__main__":
    main()
