"""What a window that nobody uses takes of a core, and how often it wakes.

    idle.py [PROGRAM] [--seconds 60]

Measures with the mouse elsewhere, with the mouse at rest on the window, and after a run. PROGRAM is the Kelvane to be
used; scripts/run leaves one where it is looked for else. Needs NumPy, Xvfb, openbox, xdotool and xwd.
"""

import argparse
import os
import shutil
import sys
import tempfile
import time
from pathlib import Path

_ROOT = Path(__file__).parents[1]
sys.path.append(str(_ROOT / "tests" / "support"))

import window as places  # noqa: E402
from screen import Screen  # noqa: E402

_SONG = _ROOT / "Resources" / "demo" / "kelvane-demo.ogg"
_PROGRAM = _ROOT / "build" / "release" / "src" / "app" / "Kelvane_artefacts" / "Release" / "Kelvane"


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("program", nargs="?", type=Path, default=_PROGRAM)
    parser.add_argument("--seconds", type=float, default=60)
    options = parser.parse_args()

    with tempfile.TemporaryDirectory() as folder:
        # Without the desktop's dialogs, which the program looks for by means of `which`.
        tools = Path(folder, "tools")
        tools.mkdir()
        (tools / "which").symlink_to(shutil.which("which") or "")
        screen = Screen({**os.environ, "TMPDIR": folder})
        program = screen.start(str(options.program.absolute()), PATH=str(tools))
        try:
            window = places.Window(screen)

            def measure(state: str, mouse: tuple[int, int]) -> None:
                screen.xdotool("mousemove", *map(str, mouse))
                time.sleep(5)
                _print_use(state, program.pid, options.seconds)

            print("state                           % of a core   wakes a second")
            outside, inside = (5, 5), (800, 300)
            measure("mouse elsewhere", outside)
            measure("mouse at rest on the window", inside)
            window.choose(places.CHOOSE_FILE, "Choose an audio file", _SONG)
            window.choose(places.CHOOSE_FOLDER, "Choose the output folder", Path(folder))
            window.click(places.DRUMS, places.BASS, places.VOCALS, places.OTHER, places.FULL_SONG, places.EXECUTE)
            window.dismiss("Pipeline complete")
            measure("after a run, mouse elsewhere", outside)
        finally:
            program.terminate()
            program.wait()
            screen.close()


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
    """How often its threads have gone to sleep by themselves."""
    states = (path.read_text() for path in Path(f"/proc/{pid}/task").glob("*/status"))
    return sum(int(state.partition("\nvoluntary_ctxt_switches:")[2].split()[0]) for state in states)


if __name__ == "__main__":
    main()
