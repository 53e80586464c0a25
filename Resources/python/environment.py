# /// script
# requires-python = ">=3.11"
# ///
"""Gives a worker on Linux its packages with the build of PyTorch that fits the machine.

No script can ask uv run for that: its block would get the registry's build, which brings 3 GB for GPUs along. So a
marker keeps the block's packages from uv run, and they are installed here, once, into a folder of the user's cache.

Started by itself, as "uv run environment.py SCRIPT", it prints the interpreter that has the script's packages.
"""

import hashlib
import os
import re
import shutil
import subprocess
import sys
import sysconfig
import tomllib
from collections.abc import Iterator
from contextlib import contextmanager
from dataclasses import dataclass
from functools import partial
from pathlib import Path

import worker

# Written into an environment. It tells a reader what the folder holds, and a worker that it is in the right one.
_RECEIPT = "installed-by-kelvane.txt"

# Set by a process that starts anew: it has to come out in the right environment, and not to try for ever.
_ENTERED = "KELVANE_ENTERED_ENVIRONMENT"

# By these a user says where packages come from, and it is not for Kelvane to look elsewhere.
_USERS_SOURCES = ("UV_DEFAULT_INDEX", "UV_EXTRA_INDEX_URL", "UV_FIND_LINKS", "UV_INDEX", "UV_INDEX_URL")

# PyTorch's own index does not tell when something was uploaded, and uv refuses what has no date. What it takes from
# there is bounded by its versions instead.
_UNDATED = ("pytorch-triton-rocm", "pytorch-triton-xpu", "torch", "triton", "triton-rocm", "triton-xpu")

_NVIDIA_TRACES = ("/proc/driver/nvidia/version", "/usr/lib/wsl/lib/libcuda.so.1")


def enter(script: Path) -> None:
    """Starts the process anew in the script's environment, which is made if it is missing.

    Returns if the process is in one already, or is not on Linux. Raises WorkerError if it could not be made.
    """
    if sys.platform != "linux" or Path(sys.prefix, _RECEIPT).exists():
        return
    entered = os.environ.get(_ENTERED)
    if entered:
        raise worker.WorkerError(worker.damaged(entered))
    python = provide(script)
    os.environ[_ENTERED] = str(python.parents[1])
    os.execv(python, [python, *sys.orig_argv[1:]])


def provide(script: Path) -> Path:
    """The interpreter of the script's environment, which is made if it is missing and never changed afterwards.

    Raises WorkerError if it could not be made.
    """
    wanted = _Wanted.by(script)
    folder = _cache_folder() / f"{script.stem}-{wanted.key()}"
    python = folder / "bin" / "python"
    if not python.exists():  # its interpreter may have been taken from the system, too
        folder.parent.mkdir(parents=True, exist_ok=True)
        with _locked(folder.with_suffix(".lock")) as lock:
            if not python.exists():
                _Installation(wanted, folder, script.parent, lock).run()
    return python


def _cache_folder() -> Path:
    cache = os.environ.get("XDG_CACHE_HOME", "")
    return (Path(cache) if os.path.isabs(cache) else Path.home() / ".cache") / "kelvane"


@dataclass(frozen=True)
class _Wanted:
    """What an environment is made of."""

    requirements: list[str]
    day: str  # nothing that was uploaded later is looked at

    @staticmethod
    def by(script: Path) -> "_Wanted":
        """Reads the block at the script's top, without the markers."""
        _, _, text = script.read_text(encoding="utf-8").partition("# /// script\n")
        block, _, _ = text.partition("# ///\n")
        metadata = tomllib.loads(re.sub("^# ?", "", block, flags=re.MULTILINE))
        requirements = [requirement.partition(";")[0].strip() for requirement in metadata["dependencies"]]
        return _Wanted(requirements, metadata["tool"]["uv"]["exclude-newer"])

    def key(self) -> str:
        """Another one for other packages and for a Python that takes other binaries."""
        python = str(sysconfig.get_config_var("SOABI"))
        return hashlib.sha256("\n".join([*self.requirements, self.day, python]).encode()).hexdigest()[:12]


@contextmanager
def _locked(path: Path) -> Iterator[int]:
    """Waits until no other process holds the file, and yields its descriptor."""
    import fcntl  # not on every system that imports this file

    with path.open("w") as file:
        try:
            fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            worker.say("Waiting for another Kelvane that is installing the same")
            fcntl.flock(file, fcntl.LOCK_EX)
        yield file.fileno()


class _Installation:
    """Makes an environment beside its place, and moves it there when it is complete."""

    def __init__(self, wanted: _Wanted, folder: Path, scripts: Path, lock: int) -> None:
        self._wanted = wanted
        self._folder = folder
        self._scripts = scripts
        self._lock = lock
        self._partial = folder.with_suffix(".part")

    def run(self) -> None:
        worker.say("Installing what the worker needs, which is done once")
        shutil.rmtree(self._partial, ignore_errors=True)  # of a start that was cut off
        try:
            _demand(self._uv("venv", "--quiet", "--python", sys.executable, self._partial))
            _demand(self._install())
            (self._partial / _RECEIPT).write_text("\n".join([*self._wanted.requirements, ""]))
            os.sync()  # the new name may not outlive a power cut without the contents
            shutil.rmtree(self._folder, ignore_errors=True)  # one that has lost its interpreter
            self._partial.rename(self._folder)
        finally:
            shutil.rmtree(self._partial, ignore_errors=True)

    def _install(self) -> bool:
        undated = [f"--exclude-newer-package={name}=false" for name in _UNDATED]
        if os.environ.get("UV_TORCH_BACKEND"):
            return self._fetch(*undated)
        if any(os.environ.get(name) for name in _USERS_SOURCES):
            return self._fetch()

        worker.say("Looking for the PyTorch that fits this machine")
        fitting = [*undated, f"--torch-backend={'auto' if _has_nvidia_driver() else 'cpu'}"]
        impatient = {"UV_HTTP_TIMEOUT": "10"} | os.environ  # seconds
        if self._uv(*self._command(), "--dry-run", "--quiet", *fitting, env=impatient) and self._fetch(*fitting):
            return True

        worker.say(
            "PyTorch's own index cannot be used, or uv is too old for it, so the ordinary build is taken. "
            f"To choose anew, delete {self._folder}"
        )
        return self._fetch()

    def _fetch(self, *options: str) -> bool:
        worker.say("Fetching PyTorch and what else the worker needs")
        return self._uv(*self._command(), *options)

    def _command(self) -> list[str | Path]:
        python = self._partial / "bin" / "python"
        return ["pip", "install", "--python", python, "--exclude-newer", self._wanted.day, *self._wanted.requirements]

    def _uv(self, *arguments: str | Path, env: dict[str, str] | None = None) -> bool:
        """Runs uv, with the scripts' configuration in the place of the working folder's; tells whether it succeeded.

        It ends with this process, and only then the lock is free.
        """
        done = subprocess.run(
            [_uv_path(), *arguments, "--project", self._scripts],
            stdin=subprocess.DEVNULL,
            pass_fds=(self._lock,),
            preexec_fn=partial(worker.begin_child, os.getpid()),
            env=env,
        )
        return done.returncode == 0


def _demand(succeeded: bool) -> None:
    if not succeeded:
        raise worker.WorkerError(
            "What the worker needs, which is fetched once, could not be installed: "
            "connect to the internet, or free some space, and try again."
        )


def _uv_path() -> str:
    """That of the uv which has started this process: old ones do not tell it."""
    return os.environ.get("UV") or os.readlink(f"/proc/{os.getppid()}/exe")


def _has_nvidia_driver() -> bool:
    """Whether there is one for uv to fit a build to. Left alone, uv would also fit one to any Intel graphics."""
    return bool(os.environ.get("UV_CUDA_DRIVER_VERSION")) or any(map(os.path.exists, _NVIDIA_TRACES))


def main(arguments: list[str]) -> None:
    print(provide(Path(arguments[0]).absolute()))


if __name__ == "__main__":
    worker.end_with_uv()
    worker.run(main)
