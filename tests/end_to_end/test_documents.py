"""Compares the documents with the sources and the programs."""

import re
import shutil
import subprocess
from pathlib import Path

from conftest import RENDER
from workers import DEMO_SONG, ENVIRONMENT, ROOT, SCRIPTS, UV, run_uv

LINK = r"\]\((?!https?:)([^)#]*)#?([^)]*)\)"
PATH = r"`((?:benchmarks|docs|Resources|scripts|src|tests)/[\w./-]+)"


def test_links_and_paths_exist() -> None:
    broken = []
    for document in [ROOT / "README.md", ROOT / "CONTRIBUTING.md", *(ROOT / "docs").glob("*.md")]:
        for path, anchor in re.findall(LINK, document.read_text()):
            target = document.parent / path if path else document
            headings = re.findall(r"^#+ (.+)$", target.read_text(), re.MULTILINE) if anchor and target.exists() else []
            anchors = {re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-") for heading in headings}
            if not target.exists() or (anchor and anchor not in anchors):
                broken.append(f"{document.name}: {path}#{anchor}")
        broken += [path for path in re.findall(PATH, document.read_text()) if not (ROOT / path).exists()]
    assert not broken


def test_troubleshooting_quotes_the_programs() -> None:
    """Looks in the sources for the messages in the first columns, where … stands for the part that varies."""
    patterns = ("src/**/*.cpp", "src/**/*.h", "Resources/python/**/*.py", "scripts/*")
    texts = [path.read_text() for pattern in patterns for path in ROOT.glob(pattern)]
    sources = re.sub(r'"\s*\n\s*f?"', "", "\n".join(texts))  # joins literals that are split across lines

    tables = (ROOT / "docs" / "troubleshooting.md").read_text()
    messages = re.findall(r"`([^`]+)`", "\n".join(re.findall(r"^\| (.+?) \|", tables, re.MULTILINE)))
    assert len(messages) > 20
    assert not [text for text in messages for part in text.split("…") if part.strip() not in sources]


def test_example_worker_runs(tmp_path: Path) -> None:
    worker = re.search(r"```python\n(# /// script\n.+?)```", (ROOT / "docs" / "workers.md").read_text(), re.DOTALL)
    program = shutil.copy(RENDER, tmp_path)
    shutil.copytree(SCRIPTS, tmp_path / "python", ignore=shutil.ignore_patterns("__pycache__"))
    (tmp_path / "python" / "analyze.py").write_text(worker[1])
    songs = [shutil.copy(DEMO_SONG, tmp_path / name) for name in ("Loop_128_F#.wav", "Loop.wav")]

    environment = ENVIRONMENT | {"KELVANE_UV": UV}
    done = subprocess.run([program, "--analyze", *songs], env=environment, capture_output=True, text=True)
    assert '"bpm": 128.0, "key_index": 6, "key": "F#"}' in done.stdout
    assert done.stderr.endswith("Analysis failed.\n\nThe file's name has no tempo: add one, as in Loop_128_F#.wav.\n")


def test_workflows_are_valid_and_safe() -> None:
    options = ("--quiet", "--offline", "--no-progress", "--no-config", "--strict-collection")
    run_uv("the workflows", "tool", "run", "--quiet", "zizmor==1.32.0", *options, ROOT / ".github")
