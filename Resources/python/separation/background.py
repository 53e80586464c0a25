"""Runs one stage of work while the stage before it continues."""

from collections.abc import Callable
from concurrent.futures import Future, ThreadPoolExecutor
from types import TracebackType


class Background:
    """A thread that runs one call at a time. A new call waits for the previous one, so that calls never pile up."""

    def __init__(self) -> None:
        self._pool = ThreadPoolExecutor(1)
        self._running: Future[None] | None = None

    def run(self, call: Callable[..., None], *arguments: object) -> None:
        """Starts a call. Raises the previous call's exception, if there was one."""
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
