"""environment.py under the real uv, on small packages from indexes on loopback."""

import os
import re
import shutil
import subprocess
import sys
import time
from collections.abc import Iterator
from pathlib import Path

import pytest
from namespaces import with_disk
from package_indexes import PackageIndexes
from processes import descendants, gone
from workers import SCRIPTS, UV, run_worker

# With the block of the worker that needs PyTorch, and without its work.
WORKER = """
from pathlib import Path
import sys
import worker
worker.end_with_uv()
from installation import environment

def main(arguments):
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


@pytest.fixture
def indexes(tmp_path: Path) -> Iterator[PackageIndexes]:
    (tmp_path / "indexes").mkdir()
    indexes = PackageIndexes(tmp_path / "indexes")
    for name, version in [*PINNED, ("numpy", "2.0"), ("torch", "2.13.0"), ("triton", "1.0")]:
        indexes.add(f"/simple/{name}", version, BEFORE)
    indexes.add("/simple/numpy", "3.0", AFTER)
    for backend, requires in (("cpu", ()), ("cu126", ("triton==3.7.1",))):
        indexes.add(f"/whl/{backend}/torch", f"2.13.0+{backend}", requires=requires)
        indexes.add(f"/whl/{backend}/torch", f"2.14.0+{backend}", requires=requires)
    indexes.add("/whl/cu126/triton", "3.7.1")
    yield indexes
    indexes.close()


@pytest.fixture
def environment(indexes: PackageIndexes, tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> dict[str, str]:
    """With empty caches, where both uv's configuration and PYTHONPATH would break a worker."""
    (tmp_path / "working").mkdir()
    (tmp_path / "working" / "uv.toml").write_text("no configuration [")
    (tmp_path / "working" / "numpy.py").write_text('raise ImportError("built for another Python")')
    monkeypatch.chdir(tmp_path / "working")
    kept = {name: value for name, value in os.environ.items() if not name.startswith(("UV_", "SSL_"))}
    caches = {"UV_CACHE_DIR": str(tmp_path / "uv"), "XDG_CACHE_HOME": str(tmp_path / "cache")}
    return kept | caches | {"HTTPS_PROXY": indexes.proxy, "UV_HTTP_RETRIES": "0", "PYTHONPATH": os.getcwd()}


@pytest.fixture
def script(indexes: PackageIndexes, tmp_path: Path) -> Path:
    """Beside workers that take the authority of the indexes for one of the system's."""
    scripts = shutil.copytree(SCRIPTS, tmp_path / "scripts")
    module = scripts / "surroundings.py"
    module.write_text(module.read_text().replace("/etc/ssl/certs/ca-certificates.crt", str(indexes.authority)))
    (scripts / "tiny.py").write_text(SEPARATE.partition('"""')[0] + WORKER)
    return scripts / "tiny.py"


def result(lines: list[str]) -> tuple[str, Path]:
    """The build of PyTorch that a worker has got, and where from."""
    found = re.fullmatch(r"numpy 2.0, torch (\S+), \['a b', 'é'\] in (.*)", lines[-1])
    assert found, lines
    return found[1], Path(found[2])


def made(tmp_path: Path) -> list[str]:
    return sorted(path.name for path in (tmp_path / "cache" / "kelvane").iterdir() if path.suffix != ".lock")


@pytest.mark.parametrize(
    ("variables", "out_of_order", "stalled", "build"),
    [
        pytest.param({}, (), (), "2.13.0+cpu", marks=NO_DRIVER),
        ({"UV_CUDA_DRIVER_VERSION": "570"}, (), (), "2.13.0+cu126"),
        ({"UV_CUDA_DRIVER_VERSION": "570"}, ("/whl",), (), "2.13.0"),
        ({}, (), ("torch/",), "2.13.0"),
        ({"UV_TORCH_BACKEND": "cu126"}, (), (), "2.13.0+cu126"),
        ({"UV_DEFAULT_INDEX": "https://index.invalid/simple"}, (), (), "2.13.0"),
    ],
    ids=["cpu", "cuda", "missing", "hanging", "user's build", "user's index"],
)
def test_the_build_that_fits_is_installed_once(
    variables: dict[str, str],
    out_of_order: tuple[str, ...],
    stalled: tuple[str, ...],
    build: str,
    indexes: PackageIndexes,
    environment: dict[str, str],
    script: Path,
    tmp_path: Path,
) -> None:
    indexes.out_of_order = out_of_order
    indexes.stalled = tuple(f"/whl/{backend}/{page}" for backend in ("cpu", "cu126") for page in stalled)
    command = [script, "a b", "é"]
    lines = run_worker(*command, environment=environment | variables, status=0)
    assert result(lines)[0] == build
    has_fallen_back = any("unavailable: fetching the standard one" in line for line in lines)
    assert has_fallen_back == (build == "2.13.0" and "UV_DEFAULT_INDEX" not in variables)

    indexes.close()
    num_requests = len(indexes.requests)
    shutil.rmtree(tmp_path / "uv")
    assert result(run_worker(*command, environment=environment, status=0))[0] == build
    assert len(indexes.requests) == num_requests


def test_what_is_damaged_is_named_or_made_again(environment: dict[str, str], script: Path) -> None:
    command = [script, "a b", "é"]
    _, folder = result(run_worker(*command, environment=environment, status=0))
    (torch,) = folder.glob("lib/*/site-packages/torch")
    for part in (torch, folder / "installed-by-kelvane.txt", folder / "pyvenv.cfg"):
        part.rename(folder / "away")
        lines = run_worker(*command, environment=environment, status=1)
        assert lines[-1] == f"The installed packages are damaged: delete the folder {folder} and try again."
        (folder / "away").rename(part)

    (folder / "bin" / "python").unlink()
    assert result(run_worker(*command, environment=environment, status=0))[1] == folder


def test_a_broken_download_is_not_replaced_by_another_build(
    indexes: PackageIndexes, environment: dict[str, str], script: Path, tmp_path: Path
) -> None:
    torch = "torch-2.13.0%2Bcpu-py3-none-any.whl"
    indexes.cut = (torch,)
    broken = environment | {"UV_CONCURRENT_DOWNLOADS": "1"}
    lines = run_worker(script, "a b", "é", environment=broken, status=1)
    assert lines[-1].startswith("The packages could not be fetched: check your internet connection")
    assert not made(tmp_path)
    assert not any(path.startswith("/simple/torch/torch") for path in indexes.requests)

    before, indexes.cut = set(indexes.requests), ()
    lines = run_worker(script, "a b", "é", environment=environment, status=0)
    assert result(lines)[0] == "2.13.0+cpu"
    wheels = [path for path in indexes.requests if path.endswith(".whl")]
    kept = [path for path in before if path.endswith(".whl") and not path.endswith(torch)]
    assert all(wheels.count(path) == 1 for path in kept)


# uv's cache has a path of such a length that uv breaks the line in the middle of the error's number.
@pytest.mark.parametrize(
    "full", [{"UV_CACHE_DIR": f"/mnt/{'u' * 26}"}, {"XDG_CACHE_HOME": "/mnt"}], ids=["uv", "cache"]
)
def test_a_full_disk(full: dict[str, str], indexes: PackageIndexes, environment: dict[str, str], script: Path) -> None:
    indexes.add("/whl/cpu/torch", "2.13.1+cpu", size=4_000_000)
    command = with_disk(Path("/mnt"), "size=2m", UV, "run", "--quiet", script, "a b", "é")
    done = subprocess.run(command, env=environment | full, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    assert done.returncode == 1
    assert done.stdout.splitlines()[-1].startswith("The disk is full: free some space"), done.stdout
    assert "ordinary" not in done.stdout


def test_no_network(indexes: PackageIndexes, environment: dict[str, str], script: Path, tmp_path: Path) -> None:
    indexes.close()
    lines = run_worker(script, environment=environment | {"UV_HTTP_RETRIES": "1"}, status=1)
    assert any(line.startswith("error: ") for line in lines), lines
    assert lines[-1].startswith("The packages could not be fetched: check your internet connection")
    assert not made(tmp_path)


def test_an_interpreter_of_the_users_own_gets_no_packages(
    script: Path, environment: dict[str, str], tmp_path: Path
) -> None:
    done = subprocess.run([sys.executable, script], env=environment, capture_output=True, text=True)
    assert done.returncode == 1
    assert f"could not be loaded by {sys.executable}: install it there" in done.stdout
    assert not (tmp_path / "cache").exists()


def test_no_python_is_chosen_that_is_too_new(environment: dict[str, str], tmp_path: Path) -> None:
    nothing = {"UV_PYTHON_INSTALL_DIR": str(tmp_path), "UV_PYTHON_INSTALL_MIRROR": f"file://{tmp_path}", "PATH": "/"}
    for script in (path for path in SCRIPTS.glob("*.py") if path.read_text().startswith("# /// script")):
        command = [UV, "run", script]
        done = subprocess.run(command, env=environment | nothing, capture_output=True, text=True)
        assert "cpython-3.14." in done.stderr, script


def start(script: Path, environment: dict[str, str]) -> subprocess.Popen[str]:
    command = [UV, "run", "--quiet", script, "a b", "é"]
    return subprocess.Popen(command, env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)


def wait_for_the_download(process: subprocess.Popen[str], indexes: PackageIndexes) -> None:
    while not any(path.endswith(indexes.stalled) for path in indexes.requests):
        assert process.poll() is None, process.stdout.read()
        time.sleep(0.01)


def test_shows_how_much_has_arrived(indexes: PackageIndexes, environment: dict[str, str], script: Path) -> None:
    indexes.add("/whl/cpu/torch", "2.13.1+cpu", size=4_000_000)
    lines = run_worker(script, "a b", "é", environment=environment, status=0)
    assert "100%|##########|" in lines
    assert any(re.fullmatch(r"\[setup\] Fetching packages: ([\d.]+) of \1 MB", line) for line in lines), lines


def test_killed_in_the_middle_it_starts_again(
    indexes: PackageIndexes, environment: dict[str, str], script: Path, tmp_path: Path
) -> None:
    indexes.stalled = ("-py3-none-any.whl",)
    patient = environment | {"UV_HTTP_TIMEOUT": "100"}
    with start(script, patient) as process:
        wait_for_the_download(process, indexes)
        family = descendants(process.pid)
        assert len(family) == 2
        process.kill()
        assert gone(family, 10)
    assert [Path(name).suffix for name in made(tmp_path)] == [".part"]

    indexes.released.set()
    _, folder = result(run_worker(script, "a b", "é", environment=environment, status=0))
    assert made(tmp_path) == [folder.name]


def test_two_at_once_install_once(
    indexes: PackageIndexes, environment: dict[str, str], script: Path, tmp_path: Path
) -> None:
    indexes.stalled = ("-py3-none-any.whl",)
    patient = environment | {"UV_HTTP_TIMEOUT": "100"}
    with start(script, patient) as first:
        wait_for_the_download(first, indexes)
        with start(script, patient) as second:
            assert second.stdout.readline().startswith("[setup] Waiting for another Kelvane")
            indexes.released.set()
            outputs = [process.communicate()[0].splitlines() for process in (first, second)]
    assert result(outputs[0]) == result(outputs[1])
    assert not any("Fetching" in line for line in outputs[1])


def test_an_older_environment_goes_when_nobody_uses_it(
    indexes: PackageIndexes, environment: dict[str, str], script: Path, tmp_path: Path
) -> None:
    _, old = result(run_worker(script, "a b", "é", environment=environment, status=0))
    name, version = PINNED[0]
    for newer in ("98.0", "99.0"):
        indexes.add(f"/simple/{name}", newer, BEFORE)
    text = script.read_text()

    def install(newer: str) -> Path:
        script.write_text(text.replace(f"{name}=={version}", f"{name}=={newer}"))
        _, folder = result(run_worker(script, "a b", "é", environment=environment, status=0))
        assert list(folder.rglob(f"{name}-{newer}.dist-info"))
        return folder

    command = [UV, "run", "--quiet", script, "wait"]
    with subprocess.Popen(command, env=environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE) as user:
        assert user.stdout.readline()
        old.with_suffix(".part").mkdir()
        newer = install("98.0")
        assert made(tmp_path) == sorted([old.name, f"{old.name}.part", newer.name])
    newest = install("99.0")
    assert made(tmp_path) == [newest.name]
