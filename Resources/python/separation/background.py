"""Runs work beside the work that produces it."""

from collections.abc import Callable
from concurrent.futures import Future, ThreadPoolExecutor
from types import TracebackType


class Background:
    """A thread for one call at a time. A new call waits for the one before, so that no more than two pile up."""

    def __init__(self) -> None:
        self._pool = ThreadPoolExecutor(1)
        self._running: Future[None] | None = None

    def run(self, call: Callable[..., None], *arguments: object) -> None:
        """Raises what the call before has raised."""
        self._wait()
        self._running = self._pool.submit(call, *arguments)

    def _wait(self) -> None:
        running, self._running = self._running, None
        if running is not None:
            running.result()

    def __enter__(self) -> "Background":
        return self

    def __exit__(self, kind: type[BaseException] | None, *_: BaseException | TracebackType | None) -> None:
        try:
            if kind is None:
                self._wait()
        finally:
            self._pool.shutdown()
