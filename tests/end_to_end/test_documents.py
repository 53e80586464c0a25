"""Compares the documents with the sources and the programs."""

import os
import re
import shutil
import subprocess
from pathlib import Path

from conftest import RENDER
from workers import DEMO_SONG, ENVIRONMENT, ROOT, SCRIPTS, UV

DOCUMENTS = [ROOT / "README.md", ROOT / "CONTRIBUTING.md", *(ROOT / "docs").glob("*.md")]
LINK = r"\]\((?!https?:)([^)#]*)#?([^)]*)\)"
PATH = r"`((?:benchmarks|docs|Resources|scripts|src|tests)/[\w./-]+)"


def anchors(document: Path) -> set[str]:
    headings = re.findall(r"^#+ (.+)$", document.read_text(), re.MULTILINE)
    return {re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-") for heading in headings}


def test_links_and_paths_exist() -> None:
    broken = []
    for document in DOCUMENTS:
        for path, anchor in re.findall(LINK, document.read_text()):
            target = document.parent / path if path else document
            if not target.exists() or (anchor and anchor not in anchors(target)):
                broken.append(f"{document.name}: {path}#{anchor}")
        broken += [path for path in re.findall(PATH, document.read_text()) if not (ROOT / path).exists()]
    assert not broken


def test_troubleshooting_quotes_the_programs() -> None:
    """Compares the first columns of its tables, where … stands for the part that varies."""
    patterns = ("src/**/*.cpp", "src/**/*.h", "Resources/python/**/*.py", "scripts/*")
    texts = [path.read_text() for pattern in patterns for path in ROOT.glob(pattern)]
    sources = re.sub(r'"\s*\n\s*f?"', "", "\n".join(texts))  # joins literals that are split over lines

    tables = (ROOT / "docs" / "troubleshooting.md").read_text()
    messages = re.findall(r"`([^`]+)`", "\n".join(re.findall(r"^\| (.+?) \|", tables, re.MULTILINE)))
    assert len(messages) > 20
    assert not [text for text in messages for part in text.split("…") if part.strip() not in sources]


def test_example_worker_runs(tmp_path: Path) -> None:
    worker = re.search(r"```python\n(# /// script\n.+?)```", (ROOT / "docs" / "workers.md").read_text(), re.DOTALL)
    assert worker
    shutil.copy(RENDER, tmp_path)
    shutil.copytree(SCRIPTS, tmp_path / "python", ignore=shutil.ignore_patterns("__pycache__"))
    (tmp_path / "python" / "analyze.py").write_text(worker[1])
    songs = [shutil.copy(DEMO_SONG, tmp_path / name) for name in ("Loop_128_F#.wav", "Loop.wav")]

    command = [tmp_path / os.path.basename(RENDER), "--analyze", *songs]
    done = subprocess.run(command, env=ENVIRONMENT | {"KELVANE_UV": UV}, capture_output=True, text=True)
    assert '"bpm": 128.0, "key_index": 6, "key": "F#"}' in done.stdout
    assert done.stderr.endswith("Analysis failed.\n\nThe file's name has no tempo: add one, as in Loop_128_F#.wav.\n")
