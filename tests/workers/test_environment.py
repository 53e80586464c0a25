"""Tests the installation of a worker's packages, with the real uv and small packages from local indexes."""

import os
import re
import shutil
import subprocess
import sys
import time
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest
from loopback import BROKEN, STALLED
from package_indexes import PackageIndexes
from processes import descendants, gone, with_disk
from workers import SCRIPTS, UV, run_worker

# The code of the tests' own worker. It gets the metadata of separate.py, the worker that needs PyTorch.
WORKER = """
from pathlib import Path
import sys
import worker
worker.end_with_uv()
from installation import environment

def main(arguments):
    if arguments == ["size"]:
        print(environment.Environment(Path(__file__)).num_bytes_to_fetch())
        return
    environment.enter(Path(__file__))
    import numpy, torch
    print(f"numpy {numpy.__version__}, torch {torch.__version__}, {arguments} in {sys.prefix}", flush=True)
    if arguments == ["wait"]:
        sys.stdin.read()

worker.run(main)
"""

SEPARATE = (SCRIPTS / "separate.py").read_text()
PINNED = re.findall(r'"([\w-]+)==([\d.]+)', SEPARATE)
BEFORE, AFTER = "2025-01-01T00:00:00Z", "2099-01-01T00:00:00Z"
NO_DRIVER = pytest.mark.skipif(Path("/proc/driver/nvidia/version").exists(), reason="This machine has a driver")
WHEEL = "-py3-none-any.whl"
CUDA = {"UV_CUDA_DRIVER_VERSION": "570"}

Run = Callable[..., list[str]]
Start = Callable[..., subprocess.Popen[str]]


@pytest.fixture
def indexes(tmp_path: Path) -> Iterator[PackageIndexes]:
    (tmp_path / "indexes").mkdir()
    with PackageIndexes(tmp_path / "indexes") as indexes:
        for name, version in [*PINNED, ("numpy", "2.0"), ("torch", "2.13.0"), ("triton", "1.0")]:
            indexes.add(f"/simple/{name}", version, BEFORE)
        indexes.add("/simple/numpy", "3.0", AFTER)
        for backend, requires in (("cpu", ()), ("cu126", ("triton==3.7.1",))):
            for version in ("2.13.0", "2.14.0"):
                indexes.add(f"/whl/{backend}/torch", f"{version}+{backend}", requires=requires, size=4_000_000)
        indexes.add("/whl/cu126/triton", "3.7.1")
        yield indexes


@pytest.fixture
def environment(indexes: PackageIndexes, tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> dict[str, str]:
    """Returns variables for empty caches. A uv.toml and a module in the working folder try to break the worker."""
    monkeypatch.chdir(tmp_path)
    Path("uv.toml").write_text("no configuration [")
    Path("numpy.py").write_text('raise ImportError("built for another Python")')
    kept = {name: value for name, value in os.environ.items() if not name.startswith(("UV_", "SSL_"))}
    caches = {"UV_CACHE_DIR": str(tmp_path / "uv"), "XDG_CACHE_HOME": str(tmp_path / "cache")}
    uv = {"UV_HTTP_RETRIES": "0", "UV_HTTP_TIMEOUT": "100"}
    return kept | caches | uv | {"HTTPS_PROXY": indexes.address, "PYTHONPATH": str(tmp_path)}


@pytest.fixture
def script(indexes: PackageIndexes, tmp_path: Path) -> Path:
    """Copies the scripts, with the indexes' certificate authority in place of the system's, and adds WORKER.

    Returns the path of WORKER.
    """
    scripts = shutil.copytree(SCRIPTS, tmp_path / "scripts")
    module = scripts / "surroundings.py"
    module.write_text(module.read_text().replace("/etc/ssl/certs/ca-certificates.crt", str(indexes.authority)))
    (scripts / "tiny.py").write_text(SEPARATE.partition('"""')[0] + WORKER)
    return scripts / "tiny.py"


@pytest.fixture
def run(script: Path, environment: dict[str, str]) -> Run:
    def run(*arguments: str, status: int = 0, **variables: str) -> list[str]:
        given = arguments or ("a b", "é")
        return run_worker(script, *given, environment=environment | variables, status=status)

    return run


@pytest.fixture
def start(script: Path, environment: dict[str, str]) -> Start:
    def start(*arguments: str) -> subprocess.Popen[str]:
        command, pipe = [UV, "run", "--quiet", script, *arguments], subprocess.PIPE
        return subprocess.Popen(command, env=environment, stdin=pipe, stdout=pipe, stderr=subprocess.STDOUT, text=True)

    return start


def result(lines: list[str]) -> tuple[str, Path]:
    """Returns the build of PyTorch that a worker has installed, and the folder of the worker's environment."""
    found = re.fullmatch(r"numpy 2.0, torch (\S+), \['a b', 'é'\] in (.*)", lines[-1])
    assert found, lines
    return found[1], Path(found[2])


def made() -> list[str]:
    return sorted(path.name for path in Path("cache/kelvane").iterdir() if path.suffix != ".lock")


@pytest.mark.parametrize(
    ("variables", "missing", "troubles", "build"),
    [
        pytest.param({}, (), {}, "2.13.0+cpu", marks=NO_DRIVER),
        (CUDA, (), {}, "2.13.0+cu126"),
        (CUDA, ("/whl",), {}, "2.13.0"),
        ({"UV_HTTP_TIMEOUT": "3"}, (), {"/whl/.*/torch/$": STALLED}, "2.13.0"),
        ({"UV_TORCH_BACKEND": "cu126"}, (), {}, "2.13.0+cu126"),
        ({"UV_DEFAULT_INDEX": "https://index.invalid/simple"}, (), {}, "2.13.0"),
    ],
    ids=["cpu", "cuda", "missing", "hanging", "user's build", "user's index"],
)
def test_installs_the_build_of_pytorch_that_fits(
    variables: dict[str, str],
    missing: tuple[str],
    troubles: dict[str, str],
    build: str,
    indexes: PackageIndexes,
    run: Run,
) -> None:
    indexes.missing, indexes.troubles = missing, troubles
    lines = run(**variables)
    assert result(lines)[0] == build
    has_fallen_back = any("unavailable: fetching the standard one" in line for line in lines)
    assert has_fallen_back == bool(missing or troubles)


def test_installs_once_and_reports_a_damaged_environment(indexes: PackageIndexes, run: Run) -> None:
    fetched, lines = run("size"), run()
    assert "100%|##########|" in lines
    assert any(re.fullmatch(r"\[setup\] Fetching packages: ([\d.]+) of \1 MB", line) for line in lines), lines
    build, folder = result(lines)
    wheels = {path for path in indexes.requests if path.endswith(WHEEL)}
    assert fetched == [str(sum(len(indexes.find(path)) for path in wheels))]

    num_requests = len(indexes.requests)
    shutil.rmtree("uv")
    assert result(run()) == (build, folder)
    assert len(indexes.requests) == num_requests

    (torch,) = folder.glob("lib/*/site-packages/torch")
    for part in (torch, folder / "installed-by-kelvane.txt", folder / "pyvenv.cfg"):
        part.rename(folder / "away")
        assert run(status=1)[-1] == f"The installed packages are damaged: delete the folder {folder} and try again."
        (folder / "away").rename(part)
    (folder / "bin" / "python").unlink()
    assert result(run()) == (build, folder)


def test_resumes_a_broken_download_with_the_same_build(indexes: PackageIndexes, run: Run) -> None:
    failed = "The packages could not be fetched: check your internet connection"
    lines = run(status=1, HTTPS_PROXY="http://127.0.0.1:9")
    assert any(line.startswith("error: ") for line in lines), lines
    assert lines[-1].startswith(failed)

    torch = f"torch-2.13.0%2Bcpu{WHEEL}"
    indexes.troubles = {f"{torch}$": BROKEN}
    assert run(status=1, UV_CONCURRENT_DOWNLOADS="1")[-1].startswith(failed)
    assert not made()
    assert not any(path.startswith("/simple/torch/torch") for path in indexes.requests)

    finished = {path for path in indexes.requests if path.endswith(WHEEL) and not path.endswith(torch)}
    indexes.troubles = {}
    assert result(run())[0] == "2.13.0+cpu"
    assert all(indexes.requests.count(path) == 1 for path in finished)


# The path of uv's cache is so long that uv breaks the line in the middle of "os error 28".
@pytest.mark.parametrize("full", [{"UV_CACHE_DIR": f"/mnt/{'u' * 26}"}, {"XDG_CACHE_HOME": "/mnt"}], ids=" ".join)
def test_full_disk(full: dict[str, str], environment: dict[str, str], script: Path) -> None:
    command = with_disk(Path("/mnt"), "size=2m", UV, "run", "--quiet", script, "a b", "é")
    done = subprocess.run(command, env=environment | full, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    assert done.returncode == 1
    assert done.stdout.splitlines()[-1].startswith("The disk is full: free some space"), done.stdout
    assert "standard one" not in done.stdout


def test_installs_nothing_without_a_cache_or_for_the_users_own_interpreter(
    script: Path, environment: dict[str, str], run: Run
) -> None:
    last_line = run(status=1, XDG_CACHE_HOME="/dev/null")[-1]
    assert last_line.startswith("/dev/null/kelvane could not be created (Not a directory): set HOME or XDG_CACHE_HOME")
    done = subprocess.run([sys.executable, script], env=environment, capture_output=True, text=True)
    assert done.returncode == 1
    assert f"could not be loaded by {sys.executable}: install it there" in done.stdout
    assert not Path("cache").exists()


def test_avoids_a_python_that_is_too_new(environment: dict[str, str], tmp_path: Path) -> None:
    nothing = {"UV_PYTHON_INSTALL_DIR": str(tmp_path), "UV_PYTHON_INSTALL_MIRROR": f"file://{tmp_path}", "PATH": "/"}
    for script in ("analyze.py", "prepare.py", "separate.py", "yt2wav.py"):
        command = [UV, "run", SCRIPTS / script]
        done = subprocess.run(command, cwd="/", env=environment | nothing, capture_output=True, text=True)
        assert "cpython-3.14." in done.stderr, script


def wait_for_the_download(process: subprocess.Popen[str], indexes: PackageIndexes) -> None:
    while not any(path.endswith(WHEEL) for path in indexes.requests):
        assert process.poll() is None, process.stdout.read()
        time.sleep(0.01)


def test_installs_once_after_a_kill_and_for_two_simultaneous_starts(indexes: PackageIndexes, start: Start) -> None:
    indexes.troubles = {f"{WHEEL}$": STALLED}
    with start("a b", "é") as killed:
        wait_for_the_download(killed, indexes)
        family = descendants(killed.pid)
        assert len(family) == 2
        killed.kill()
        assert gone(family)
    assert [Path(name).suffix for name in made()] == [".part"]

    indexes.requests.clear()
    with start("a b", "é") as first:
        wait_for_the_download(first, indexes)
        with start("a b", "é") as second:
            assert second.stdout.readline().startswith("[setup] Waiting for another Kelvane")
            indexes.released.set()
            outputs = [process.communicate()[0].splitlines() for process in (first, second)]
    assert result(outputs[0]) == result(outputs[1])
    assert not any("Fetching" in line for line in outputs[1])
    assert made() == [result(outputs[0])[1].name]


def test_deletes_an_older_environment_once_it_is_unused(
    indexes: PackageIndexes, script: Path, start: Start, run: Run
) -> None:
    _, old = result(run())
    name, _ = PINNED[0]

    def install(newer: str) -> Path:
        indexes.add(f"/simple/{name}", newer, BEFORE)
        script.write_text(re.sub(f"{name}==[\\d.]+", f"{name}=={newer}", script.read_text()))
        _, folder = result(run())
        assert list(folder.rglob(f"{name}-{newer}.dist-info"))
        return folder

    with start("wait") as user:
        assert user.stdout.readline()
        old.with_suffix(".part").mkdir()
        newer = install("98.0")
        assert made() == sorted([old.name, f"{old.name}.part", newer.name])
        user.communicate()
    newest = install("99.0")
    assert made() == [newest.name]
