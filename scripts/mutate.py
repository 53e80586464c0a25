#!/usr/bin/env python3
"""Measures how strong the tests are: puts one fault at a time into the sources and counts those that the tests find.

Works on a separate checkout in build/mutation, and resumes after an interruption. The faults are
textual edits, which serve both languages without a dependency: Debian has no Mull or Dextool, and mutmut and cosmic-ray
handle only Python.

Lines are drawn uniformly from all lines that an edit can change. The order depends only on the seed and the text around
each line, so two commits are compared on nearly the same faults. If an edit does not compile or does not affect the
programs, the next line is used instead. The first failure or hang ends a fault's run. A fault that survives has passed

- in C++: all unit tests, then the end-to-end tests of the window (src/app, src/ui) or of the console program;
- in Python: the workers' tests that load the changed module, then the end-to-end tests that use the real workers.

Edits without an observable effect also count as survivors, because nothing distinguishes them from faults that the
tests miss.
"""

import argparse
import contextlib
import hashlib
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import time
from collections import Counter
from collections.abc import Iterable, Iterator
from dataclasses import asdict, dataclass
from functools import cache
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
WORK = ROOT / "build" / "mutation"
TREE = WORK / "tree"
BUILD = TREE / "build" / "dev"
UNIT, RENDER, WINDOW = PROGRAMS = [
    BUILD / path for path in ("bin/kelvane_tests", "bin/kelvane-render", "src/app/Kelvane_artefacts/Debug/Kelvane")
]
PYTEST = shutil.which("pytest-3") or "pytest"

TIMEOUT = {"unit": 300, "pytest": 1800}  # seconds; a hang is a failure
WINDOW_TESTS = ["test_window.py", "test_window_jobs.py"]
CONSOLE_TESTS = ["test_audio.py", "test_render.py", "test_workers.py"]
END_TO_END = {"app": WINDOW_TESTS, "ui": WINDOW_TESTS, "python": ["test_workers.py"]}

# Text in which an edit would not be a fault: comments, strings and directives; assertions and declarations; code for
# other systems.
CPP_TEXT = [
    r'//[^\n]*|/\*.*?\*/|R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])\'|^ *#(?:[^\n]*\\\n)*[^\n]*',
    r"\b(?:jassert\w*|static_assert|using|template|namespace)\b[^;{>]*",
]
PYTHON_TEXT = [
    r'^( *)(?:def \w*(?:windows|elsewhere)\w*\(|if sys\.platform == "win32":).*?(?=^\1\S|\Z)',
    r'#[^\n]*|""".*?"""|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'',
    r"^ *(?:assert|import|from|class|@)\b[^\n]*|^if __name__[^\n]*",
]

# The sources in both languages have spaces around binary operators.
SWAPPED = ["< <=", "> >=", "== !=", "+ -", "* /", "+= -=", "&& ||", "and or", "true false", "True False"]
OPERATORS = {
    rf"\b{old}\b" if old.isalpha() else rf"(?<= ){re.escape(old)}(?= \S)": new
    for one, other in map(str.split, SWAPPED)
    for old, new in ((one, other), (other, one))
}
NEGATION = r"(?<=\()! |\bnot (?!in\b)"
NUMBER = r"(?<![\w.'])(?P<integer>\d+)(?P<rest>(?:\.\d+)?f?)(?![\w.'])"
CPP_STATEMENT = r"^ +(?:return|[\w:.\[\]>-]+(?: [-+*/|&]?= .+| ?\(.*\)));\s*$"
PYTHON_STATEMENT = (
    r"^ +(?:(?:return|raise|continue|break)\b.*|[\w.\[\]]+\(.*\)|\w+[\w.\[\]]* [-+*/|&]= .+|\w+[.\[].* = .+)$"
)
CPP_CONDITION = r"^ *(?:else )?(?:if|while) \((?P<condition>[^;={]*)\)\s*$"
PYTHON_CONDITION = r"^ *(?:if|elif|while) (?P<condition>.*):\s*$"


@dataclass
class Mutant:
    file: str
    line: int
    old: str
    new: str
    outcome: str = ""  # killed, survived, or invalid: it does not compile or change the programs
    by: str = ""  # the test that failed
    passed: int = 0  # number of test stages that it has survived


def edits(code: str, line: str, is_statement: bool, opens_block: bool, is_python: bool) -> Iterator[str]:
    """Yields all mutants of a line. code is the line with its comments and strings blanked out."""
    for pattern, new in [*OPERATORS.items(), (NEGATION, ""), (NUMBER, None)]:
        for found in re.finditer(pattern, code):
            changed = new if new is not None else str(int(found["integer"]) + 1) + found["rest"]
            yield line[: found.start()] + changed + line[found.end() :]
    if found := re.search(PYTHON_CONDITION if is_python else CPP_CONDITION, code):
        start, end = found.span("condition")
        yield line[:start] + ("not (" if is_python else "! (") + line[start:end] + ")" + line[end:]
    if is_statement and re.search(PYTHON_STATEMENT if is_python else CPP_STATEMENT, code):
        indent = line[: len(line) - len(line.lstrip())]
        yield indent + ("pass" if is_python else ";")
        if opens_block and "return" not in code:
            yield indent + ("return" if is_python else "return;")


def mutants_of(file: Path) -> Iterator[tuple[str, list[Mutant]]]:
    """Yields, for each line that has mutants, the context (the line and its neighbours) and the mutants."""
    is_python = file.suffix == ".py"
    code = text = file.read_text(encoding="utf-8")
    for pattern in PYTHON_TEXT if is_python else CPP_TEXT:
        code = re.sub(pattern, lambda found: re.sub(r"[^\n]", " ", found[0]), code, flags=re.DOTALL | re.MULTILINE)
    lines, before, depth = text.split("\n"), "{", 0
    for number, (line, part) in enumerate(zip(lines, code.split("\n"), strict=True), 1):
        change = sum(part.count(bracket) for bracket in "([") - sum(part.count(bracket) for bracket in ")]")
        is_statement = depth == change == 0 and (is_python or before[-1] in ";{}):")
        found = edits(part, line, is_statement, before[-1] in "{:", is_python)
        if mutants := [Mutant(str(file.relative_to(TREE)), number, line, new) for new in found]:
            yield "\n".join(lines[max(number - 2, 0) : number + 1]), mutants
        depth += change
        before = part.strip() or before


def draw(files: list[Path], seed: int) -> list[Mutant]:
    """Returns one mutant per line, in the order in which the mutants are tried."""

    def rank(*parts: object) -> str:
        return hashlib.sha256("\n".join(map(str, (seed, *parts))).encode()).hexdigest()

    seen: Counter[str] = Counter()
    ranked = {}
    for context, mutants in (found for file in sorted(files) for found in mutants_of(file)):
        seen[context] += 1
        ranked[rank(context, seen[context])] = min(mutants, key=lambda mutant: rank(context, mutant.new))
    return [ranked[key] for key in sorted(ranked)]


def make_home() -> None:
    """Makes a home folder with hard links to the workers' packages, so that a mutant cannot delete the real ones."""
    home, real = WORK / "home", Path.home()
    shutil.rmtree(home, ignore_errors=True)
    without_juce = shutil.ignore_patterns("juce-*")
    cache = Path(".cache", "kelvane")
    shutil.copytree(real / cache, home / cache, symlinks=True, ignore=without_juce, copy_function=os.link)
    for item in (Path(".local"), Path(".config"), Path(".cache", "uv")):
        if (real / item).exists():
            (home / item).symlink_to(real / item)


@cache
def environment() -> dict[str, str]:
    """Returns the tests' environment. CI is set, so a test that cannot run fails instead of being skipped."""
    folders = {"HOME": WORK / "home", "TMPDIR": WORK / "tmp", "KELVANE_PICTURES": WORK / "pictures"}
    folders["TMPDIR"].mkdir(exist_ok=True)
    given = {**folders, "KELVANE_RENDER": RENDER, "KELVANE_PROGRAM": WINDOW, "PYTHONDONTWRITEBYTECODE": 1, "CI": 1}
    return os.environ | {name: str(value) for name, value in given.items()}


def failure(command: list[str], timeout: float, num_shards: int = 1) -> str:
    """Runs shards of tests side by side. Returns a failed test's name, an exit status, "hang", or "" for success."""
    outputs, running = [WORK / f"output{shard}" for shard in range(num_shards)], []
    for shard, path in enumerate(outputs):
        variables = environment() | {"GTEST_TOTAL_SHARDS": str(num_shards), "GTEST_SHARD_INDEX": str(shard)}
        with path.open("wb") as output:
            streams = {"stdin": subprocess.DEVNULL, "stdout": output, "stderr": output}
            running.append(subprocess.Popen(command, cwd=TREE, env=variables, start_new_session=True, **streams))
    end = time.monotonic() + timeout
    while None in (ended := [process.poll() for process in running]) and not any(ended) and time.monotonic() < end:
        time.sleep(0.1)
    for process in running:
        with contextlib.suppress(ProcessLookupError):
            os.killpg(process.pid, signal.SIGKILL)
        process.wait()
    text = "\n".join(path.read_text(encoding="utf-8", errors="replace") for path in outputs)
    if not any(ended):
        return "hang" if None in ended else ""
    found = re.search(r"^(?:\[  FAILED  \]|FAILED|ERROR) (\S+)", text, re.MULTILINE)
    return found[1] if found else f"exit status {next(filter(None, ended))}"


def pytest(folder: str, names: Iterable[str]) -> str:
    files = [f"tests/{folder}/{name}" for name in names]
    return failure([PYTEST, "-x", "-q", "-rfE", *files], TIMEOUT["pytest"]) if files else ""


def unit_tests(file: str) -> str:
    """Runs the unit tests, starting with those for the file's folder.

    Most tests wait for processes, so there are more shards than processors.
    """
    near = (TREE / "tests" / Path(file).parts[1]).glob("*Test.cpp")
    suites = {name for test in near for name in re.findall(r"^TEST\w*\s*\((\w+)", test.read_text(), re.MULTILINE)}
    related = ":".join(f"{name}.*:*/{name}.*" for name in sorted(suites)) or "none"
    commands = [[str(UNIT), "--gtest_fail_fast", f"--gtest_filter={names}"] for names in (related, f"-{related}")]
    return next(filter(None, (failure(command, TIMEOUT["unit"], num_shards=6) for command in commands)), "")


def imports(script: Path) -> set[str]:
    """Returns the modules that a script imports. "from a import b" gives both a and a.b, as b may be a module."""
    modules = set()
    statement = r"^ *(?:from ([\w.]+) )?import ([\w.]+(?:, [\w.]+)*)"
    for package, names in re.findall(statement, script.read_text(encoding="utf-8"), re.MULTILINE):
        modules |= {package} | {f"{package}.{name}".lstrip(".") for name in names.split(", ")}
    return modules


def worker_tests(file: str) -> str:
    """Runs the tests that load the module, directly or through other modules, starting with the test named after it."""
    folder = TREE / "Resources" / "python"

    def module(script: Path) -> str:
        return ".".join(script.relative_to(folder).with_suffix("").parts)

    imported = {module(script): imports(script) for script in folder.rglob("*.py")}
    loading = {module(TREE / file)}
    while more := {name for name in imported.keys() - loading if loading & imported[name]}:
        loading |= more
    runs = re.compile(rf"\b(?:{'|'.join(map(re.escape, loading))})\.py\b")
    tests = (TREE / "tests" / "workers").glob("test_*.py")
    names = [test.name for test in tests if loading & imports(test) or runs.search(test.read_text(encoding="utf-8"))]
    return pytest("workers", sorted(names, key=lambda name: (name != f"test_{Path(file).name}", name)))


def end_to_end_tests(file: str) -> str:
    return pytest("end_to_end", END_TO_END.get(Path(file).parts[1], CONSOLE_TESTS))


STAGES = [(unit_tests, end_to_end_tests), (worker_tests, end_to_end_tests)]  # C++, Python


def build() -> list[str]:
    """Builds the programs. Returns their checksums, or an empty list if one does not compile."""
    command = ["cmake", "--build", "--preset", "dev", "-j2", "--target", *(program.name for program in PROGRAMS)]
    if subprocess.run(command, cwd=TREE, stdout=subprocess.DEVNULL).returncode != 0:
        return []
    return [hashlib.sha256(program.read_bytes()).hexdigest() for program in PROGRAMS]


def judge(mutant: Mutant, pristine: list[str]) -> None:
    """Runs the mutant's next stage of tests, and fills in its outcome."""
    is_python = mutant.file.endswith(".py")
    tests = STAGES[is_python][mutant.passed]
    if is_python:
        make_home()
    path = TREE / mutant.file
    original = path.read_text(encoding="utf-8")
    lines = original.split("\n")
    lines[mutant.line - 1] = mutant.new
    mutant.outcome = "invalid"
    try:
        path.write_text("\n".join(lines), encoding="utf-8")
        if is_python:
            compile("\n".join(lines), mutant.file, "exec")
        built = build()
        if not built or (built == pristine) != is_python:
            return
        if tests is not unit_tests or built[0] != pristine[0]:
            mutant.by = tests(mutant.file)
        mutant.outcome = "killed" if mutant.by else "survived"
        mutant.passed += not mutant.by
    except SyntaxError:
        return
    finally:
        path.write_text(original, encoding="utf-8")


def prepare(commit: str) -> list[str]:
    """Checks out the commit and builds it, with a faster linker if there is one. Returns the programs' checksums."""
    place = ["checkout", "--quiet", "--force", "--detach"] if TREE.exists() else ["worktree", "add", "--detach", TREE]
    subprocess.run(["git", "-C", TREE if TREE.exists() else ROOT, *place, commit], check=True)
    linker = next((name for name in ("mold", "lld", "gold") if shutil.which(f"ld.{name}")), "bfd")
    options = [f"-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld={linker}", "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST"]
    subprocess.run(["cmake", "--preset", "dev", *options], cwd=TREE, check=True, stdout=subprocess.DEVNULL)
    make_home()
    return build() or sys.exit("The commit does not build.")


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("commit", nargs="?", default="HEAD")
    for option, default in {"--cpp": 110, "--python": 50, "--seed": 1}.items():
        parser.add_argument(option, type=int, default=default)
    given = parser.parse_args()
    signal.signal(signal.SIGINT, signal.default_int_handler)  # background jobs ignore SIGINT, and so would the tests
    commit = subprocess.check_output(["git", "-C", ROOT, "rev-parse", given.commit], text=True).strip()
    WORK.mkdir(parents=True, exist_ok=True)
    pristine = prepare(commit)
    kept = WORK / f"{commit[:12]}-{given.seed}.json"
    known = json.loads(kept.read_text()) if kept.exists() else {}
    representatives = {"src/audio/.": 0, "src/app/.": 0, "Resources/python/worker.py": 1}
    for file, tests in ((file, tests) for file, language in representatives.items() for tests in STAGES[language]):
        if not known and (failed := tests(file)):
            sys.exit(f"{failed} fails without a fault.")

    def take(files: list[Path], count: int, stage: int) -> list[Mutant]:
        """Runs a stage of tests on count valid mutants."""
        taken: list[Mutant] = []
        for mutant in draw(files, given.seed):
            if len(taken) == count:
                break
            key = f"{mutant.file}:{mutant.line} {mutant.new.strip()}"
            mutant = Mutant(**known.get(key, asdict(mutant)))
            if mutant.outcome in ("", "survived") and mutant.passed == stage:
                judge(mutant, pristine)
                known[key] = asdict(mutant)
                kept.write_text(json.dumps(known, indent=1))
                print(f"{mutant.outcome:8} {key}  {mutant.by}", flush=True)
            if mutant.outcome != "invalid":
                taken.append(mutant)
        return taken

    sources = [file for file in (TREE / "src").rglob("*.*") if file.suffix in (".cpp", ".h")]
    scripts = list((TREE / "Resources" / "python").rglob("*.py"))
    for stage in (0, 1):
        taken = {"C++": take(sources, given.cpp, stage), "Python": take(scripts, given.python, stage)}
    taken["Both"] = taken["C++"] + taken["Python"]
    for mutant in taken["Both"]:
        if mutant.outcome == "survived":
            print(f"\n{mutant.file}:{mutant.line}\n- {mutant.old.strip()}\n+ {mutant.new.strip()}")
    print(f"\n{sum(entry['outcome'] == 'invalid' for entry in known.values())} invalid edits were replaced")
    for name, mutants in taken.items():
        killed = [mutant for mutant in mutants if mutant.outcome == "killed"]
        early = sum(mutant.passed == 0 for mutant in killed)
        print(f"{name}: {len(killed)} of {len(mutants)} killed, {early} of them by the first stage")


if __name__ == "__main__":
    main()
