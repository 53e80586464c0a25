"""Installs each worker's packages on Linux, in a separate environment in the user's cache.

"uv run" shows no progress and cannot choose a build of PyTorch: it would install the package index's build, which is
for NVIDIA GPUs and takes several gigabytes. Markers in the workers' metadata therefore hide the packages from it.
"""

import hashlib
import os
import platform
import re
import shutil
import sys
import sysconfig
import tomllib
from contextlib import suppress
from dataclasses import dataclass
from functools import partial
from pathlib import Path
from typing import Any

import file_lock
import surroundings
import worker

from installation import uv_tool
from installation.setup_progress import SetupProgress

# Set to the environment in which the process has restarted, so that it cannot restart forever.
_ENTERED = "KELVANE_ENTERED_ENVIRONMENT"

# A user who sets one of these chooses where packages come from.
_USERS_SOURCES = ("UV_DEFAULT_INDEX", "UV_EXTRA_INDEX_URL", "UV_FIND_LINKS", "UV_INDEX", "UV_INDEX_URL")

# PyTorch's own index gives no upload dates, and a limit on upload dates makes uv reject files without a date. These
# packages are therefore exempt from the limit, and only the bounds on torch's version pin them.
_UNDATED = ("pytorch-triton-rocm", "pytorch-triton-xpu", "torch", "triton", "triton-rocm", "triton-xpu")

_NVIDIA_TRACES = ("/proc/driver/nvidia/version", "/usr/lib/wsl/lib/libcuda.so.1")


def enter(script: Path, progress: SetupProgress | None = None) -> None:
    """Restarts the process in the script's environment, creating it if necessary.

    Does nothing if the process already runs there, on systems other than Linux, or if the user has started their own
    interpreter instead of uv. Raises WorkerError if the environment cannot be created or is damaged, or if there is no
    PyTorch for this Python.
    """
    if _is_new_python_on_intel_mac() and _Requirements.read(script).include_torch():
        raise worker.WorkerError(
            "PyTorch for Intel Macs needs Python 3.12 or older: install 3.12, set UV_PYTHON to 3.12, and try again."
        )
    if sys.platform != "linux" or Path(sys.prefix, surroundings.RECEIPT).exists():
        return
    entered = os.environ.get(_ENTERED)
    if entered:
        raise worker.WorkerError(worker.damaged(entered))
    if not surroundings.is_in_own_environment():
        return
    environment = Environment(script)
    progress = progress or SetupProgress()
    environment.provide(progress)
    while not environment.hold():
        environment.provide(progress)
    os.environ[_ENTERED] = str(environment.folder)
    os.execv(environment.python, [environment.python, *sys.orig_argv[1:]])


@dataclass(frozen=True)
class _Requirements:
    packages: list[str]
    day: str  # later uploads are ignored

    @staticmethod
    def read(script: Path) -> "_Requirements":
        """Reads the metadata at the top of the script, dropping the markers."""
        _, _, text = script.read_text(encoding="utf-8").partition("# /// script\n")
        block, _, _ = text.partition("# ///\n")
        metadata = tomllib.loads(re.sub("^# ?", "", block, flags=re.MULTILINE))
        packages = [requirement.partition(";")[0].strip() for requirement in metadata["dependencies"]]
        return _Requirements(packages, metadata["tool"]["uv"]["exclude-newer"])

    def key(self) -> str:
        """Returns a hash of the packages, the day and the Python ABI that they are installed for."""
        python = str(sysconfig.get_config_var("SOABI"))
        return hashlib.sha256("\n".join([*self.packages, self.day, python]).encode()).hexdigest()[:12]

    def include_torch(self) -> bool:
        return any(package.startswith("torch") for package in self.packages)


class Environment:
    """A script's environment: a folder that is either complete or missing, and never changes.

    A process that uses the environment holds a shared lock on the lock file beside it. Creating or deleting the
    environment takes an exclusive lock.
    """

    def __init__(self, script: Path) -> None:
        self._requirements = _Requirements.read(script)
        self._scripts = script.parent
        self.folder = worker.cache_folder() / f"{script.stem}-{self._requirements.key()}"
        self.python = self.folder / "bin" / "python"

    def is_ready(self) -> bool:
        return self.python.exists()  # false for a link whose interpreter was removed

    def num_bytes_to_fetch(self) -> int | None:
        """Returns the size of the packages in bytes, including those already in uv's cache, or None if unknown."""
        uv = uv_tool.Uv(self._scripts)
        command = ["pip", "compile", "-", "--python", sys.executable, "--format", "pylock.toml", "--quiet"]
        command += ["--exclude-newer", self._requirements.day]
        text = "\n".join(self._requirements.packages)
        for options in self._alternatives():
            with suppress(uv_tool.UvError):
                lock = tomllib.loads(uv.run(*command, *options, text=text, environment=_impatient()))
                sizes = [_size(package["wheels"][0]) for package in lock["packages"]]
                return None if None in sizes else sum(filter(None, sizes))
        return None

    def provide(self, progress: SetupProgress) -> Path:
        """Creates the environment if necessary, and returns its interpreter.

        Raises WorkerError if the environment cannot be created.
        """
        while not self.is_ready():
            with file_lock.take(self._lock_file(), on_wait=progress.wait) as lock:
                if not self.is_ready():
                    self._make(lock.fileno(), progress)
                    self._sweep()
        return self.python

    def hold(self) -> bool:
        """Keeps the environment from being deleted until this process ends, even after exec.

        Returns False if the environment is missing.
        """
        with file_lock.take(self._lock_file(), shared=True) as lock:
            if not self.is_ready():
                return False
            os.set_inheritable(os.dup(lock.fileno()), True)
        return True

    def _lock_file(self) -> Path:
        return self.folder.with_suffix(".lock")

    def _make(self, lock: int, progress: SetupProgress) -> None:
        part = self.folder.with_suffix(".part")
        uv = uv_tool.Uv(self._scripts, (lock,))
        progress.step("Installing packages (only needed once)")
        if part.exists():  # left by an interrupted installation
            shutil.rmtree(part)
            uv.remove_leftovers()
        try:
            uv.run("venv", "--quiet", "--python", sys.executable, part)
            self._install(uv, part / "bin" / "python", progress)
            (part / surroundings.RECEIPT).write_text("\n".join([*self._requirements.packages, ""]))
            os.sync()  # a power cut must not leave incomplete contents under the final name
            shutil.rmtree(self.folder, ignore_errors=True)  # exists if its interpreter was removed
            part.rename(self.folder)
        finally:
            shutil.rmtree(part, ignore_errors=True)

    def _install(self, uv: uv_tool.Uv, python: Path, progress: SetupProgress) -> None:
        command = ["pip", "install", "--python", python, "--exclude-newer", self._requirements.day]
        command += self._requirements.packages
        *fitting, ordinary = self._alternatives()
        if fitting:
            progress.step("Looking for the build of PyTorch for this machine")
        options = next((options for options in fitting if _resolves(uv, *command, *options)), ordinary)
        has_fallen_back = bool(fitting) and options is ordinary
        if has_fallen_back:
            progress.notice("The build of PyTorch for this machine is unavailable: fetching the standard one")
        progress.step("Fetching packages")
        uv.fetch(*command, *options, on_progress=partial(progress.amount, "Fetching packages"))
        if has_fallen_back:
            progress.notice(f"To try again later, delete {self.folder}")

    def _alternatives(self) -> list[list[str]]:
        """Returns uv's options for each build of PyTorch to try, best first. The last build gets no dry run."""
        if not self._requirements.include_torch():
            return [[]]
        undated = [f"--exclude-newer-package={name}=false" for name in _UNDATED]
        if os.environ.get("UV_TORCH_BACKEND"):
            return [undated]
        if any(os.environ.get(name) for name in _USERS_SOURCES):
            return [[]]
        return [[*undated, f"--torch-backend={'auto' if _has_nvidia_driver() else 'cpu'}"], []]

    def _sweep(self) -> None:
        """Deletes unused older environments of the script, and the remains of interrupted installations."""
        name, _, _ = self.folder.name.rpartition("-")
        for lock_file in self.folder.parent.glob(f"{name}-*.lock"):
            if lock_file == self._lock_file():
                continue
            lock = file_lock.try_to_take(lock_file)
            if lock is None:
                continue
            with lock:
                for folder in (lock_file.with_suffix(""), lock_file.with_suffix(".part")):
                    shutil.rmtree(folder, ignore_errors=True)
                lock_file.unlink()


def _resolves(uv: uv_tool.Uv, *command: str | Path) -> bool:
    """Returns True if a dry run of the command succeeds.

    Raises UvError if it fails for a reason that applies to every build.
    """
    try:
        uv.run(*command, "--dry-run", "--quiet", environment=_impatient())
    except uv_tool.UvError as error:
        if error.cause in (uv_tool.Cause.DISK_FULL, uv_tool.Cause.NOT_WRITABLE):
            raise
        return False
    return True


def _size(wheel: dict[str, Any]) -> int | None:
    """Returns a wheel's size in bytes, or None if it is unknown.

    PyTorch's index gives no sizes, so this asks the server.
    """
    if "size" in wheel or "url" not in wheel:
        return wheel.get("size", 0)  # no URL means a local file
    import urllib.request  # rarely needed and slow to import

    request = urllib.request.Request(wheel["url"], method="HEAD")
    try:
        with urllib.request.urlopen(request, timeout=10) as response:
            return int(response.headers["Content-Length"])
    except (OSError, TypeError, ValueError):
        return None


def _impatient() -> dict[str, str]:
    return {"UV_HTTP_TIMEOUT": os.environ.get("UV_HTTP_TIMEOUT", "10")}  # seconds


def _is_new_python_on_intel_mac() -> bool:
    return sys.platform == "darwin" and platform.machine() == "x86_64" and sys.version_info >= (3, 13)


def _has_nvidia_driver() -> bool:
    """Returns True if an NVIDIA driver is installed, or if UV_CUDA_DRIVER_VERSION gives its version.

    Without this check, uv's automatic choice would also consider Intel GPUs.
    """
    return bool(os.environ.get("UV_CUDA_DRIVER_VERSION")) or any(map(os.path.exists, _NVIDIA_TRACES))
