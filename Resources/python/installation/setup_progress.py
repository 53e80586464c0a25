"""Shows the progress of downloads and installations, which may take minutes before a worker can start its task."""

import time

import worker

_INTERVAL_SECONDS = 0.25


class SetupProgress:
    """Prints a line for each step and, during a download, the position of the program's progress bar.

    The program expects the tag "[download]" while it waits for a song, and "[setup]" at other times.
    """

    def __init__(self, tag: str = "[setup]") -> None:
        self._tag = tag
        self._next_time = 0.0

    def step(self, text: str) -> None:
        worker.say(f"{self._tag} {text}")

    def wait(self) -> None:
        self.step("Waiting for another Kelvane to finish the same download")

    def notice(self, text: str) -> None:
        """Prints a step on a line that later progress does not overwrite in "kelvane-render --prepare"."""
        worker.say(f"[plan] {text}")
        self.step(text)

    def amount(self, text: str, num_arrived: int, num_needed: int) -> None:
        """Prints how much of a download has arrived, in MB. The arguments are in bytes.

        Prints at most four times a second until everything has arrived.
        """
        if time.monotonic() < self._next_time and num_arrived < num_needed:
            return
        self._next_time = time.monotonic() + _INTERVAL_SECONDS
        amounts = f"{num_arrived / 1e6:.1f} of {num_needed / 1e6:.1f} MB"
        worker.say(worker.bar(num_arrived / max(num_needed, 1)), f"{self._tag} {text}: {amounts}")
