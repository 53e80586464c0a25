"""Shows the progress of fetching and installing, which may take minutes before a worker can begin."""

import time

import worker

_INTERVAL_SECONDS = 0.25


class SetupProgress:
    """Prints a line for each step and, during a download, the position of the program's progress bar.

    The program shows lines by their tag: "[setup]" while it waits for stems, "[download]" while it waits for a song.
    """

    def __init__(self, tag: str = "[setup]") -> None:
        self._tag = tag
        self._next_time = 0.0

    def step(self, text: str) -> None:
        worker.say(f"{self._tag} {text}")

    def wait(self) -> None:
        self.step("Waiting for another Kelvane to finish the same download")

    def notice(self, text: str) -> None:
        """Prints a line that stays on the screen when everything is fetched in advance."""
        worker.say(f"[plan] {text}")
        self.step(text)

    def amount(self, text: str, num_arrived: int, num_needed: int) -> None:
        """Prints the bytes that have arrived and the bytes needed, at most a few times a second until complete."""
        if time.monotonic() < self._next_time and num_arrived < num_needed:
            return
        self._next_time = time.monotonic() + _INTERVAL_SECONDS
        amounts = f"{num_arrived / 1e6:.1f} of {num_needed / 1e6:.1f} MB"
        worker.say(worker.bar(num_arrived / max(num_needed, 1)), f"{self._tag} {text}: {amounts}")
