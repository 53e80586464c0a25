"""Loads Demucs' models from the Hugging Face Hub's cache, and fetches missing models."""

import os
import ssl
from contextlib import suppress
from pathlib import Path
from typing import TYPE_CHECKING

import file_lock
import worker
from installation.setup_progress import SetupProgress

# The hub's client reads these when it is imported. Without a network, plain HTTP fails quickly, unlike Xet.
os.environ.setdefault("HF_HUB_DISABLE_TELEMETRY", "1")
os.environ.setdefault("HF_HUB_DISABLE_XET", "1")

DEFAULT_MODEL = "htdemucs"
DEFAULT_MEGABYTES = 84

_MIN_SHOWN_SIZE = 100_000  # bytes: smaller files arrive too fast to show progress

if TYPE_CHECKING:
    from demucs.api import Separator
    from tqdm import tqdm


def load(name: str) -> "Separator":
    """Loads a model, and fetches it first if it is not cached. Raises WorkerError if it cannot be loaded."""
    from huggingface_hub import constants
    from huggingface_hub.errors import LocalEntryNotFoundError

    constants.HF_HUB_DISABLE_IMPLICIT_TOKEN = True  # with an expired token the hub refuses even public files
    with suppress(LocalEntryNotFoundError):
        return _load_cached(name)
    with file_lock.take(worker.cache_folder() / f"{name}.lock", on_wait=SetupProgress().wait):
        with suppress(LocalEntryNotFoundError):  # another process may have just fetched it
            return _load_cached(name)
        _fetch(name)
    return _load_cached(name)


def _load_cached(name: str) -> "Separator":
    from demucs.api import Separator
    from huggingface_hub import constants

    is_offline, constants.HF_HUB_OFFLINE = constants.HF_HUB_OFFLINE, True
    try:
        return Separator(f"hf://{name}")  # for a bare name, Demucs may load a pickle, which can run code
    except (OSError, MemoryError):
        raise
    except Exception as error:
        raise worker.WorkerError(f"The {name} model is damaged: delete {_folder(name)} and try again.") from error
    finally:
        constants.HF_HUB_OFFLINE = is_offline


def _fetch(name: str) -> None:
    from huggingface_hub import HfApi, hf_hub_download
    from huggingface_hub.errors import RepositoryNotFoundError

    SetupProgress().step(f"Fetching the {name} model (only needed once)")
    for part in Path(_folder(name), "blobs").glob("*.incomplete"):
        part.unlink()  # the hub's client never resumes a download that was killed
    try:
        for file in HfApi().model_info(_repository(name), timeout=10).siblings:
            if Path(file.rfilename).suffix in (".yaml", ".safetensors"):
                hf_hub_download(_repository(name), file.rfilename, tqdm_class=_progress_lines())
    except RepositoryNotFoundError as error:
        raise worker.WorkerError(f'Demucs has no model called "{name}": choose {DEFAULT_MODEL}.') from error
    except Exception as error:
        if getattr(error, "errno", None):  # a disk error: network errors have no errno
            raise
        if _is_certificate_error(error):
            raise worker.WorkerError(
                f"The server of the {name} model could not prove its identity: check this computer's date, "
                "or set SSL_CERT_FILE to your network's certificate."
            ) from error
        raise worker.WorkerError(
            f"The {name} model could not be fetched: connect to the internet and try again."
        ) from error


def _is_certificate_error(error: BaseException | None) -> bool:
    """Returns True if a rejected certificate is among the error's causes: the hub's library wraps that cause twice."""
    while error is not None and not isinstance(error, ssl.SSLCertVerificationError):
        error = error.__cause__ or error.__context__
    return error is not None


def _progress_lines() -> "type[tqdm]":
    from tqdm import tqdm

    progress = SetupProgress()

    class ProgressLines(tqdm):
        """Prints lines for the program to read, instead of drawing a bar."""

        def __init__(self, *arguments: object, **options: object) -> None:
            super().__init__(*arguments, mininterval=1, **options)

        def display(self, *_: object, **__: object) -> None:
            if (self.total or 0) > _MIN_SHOWN_SIZE:
                progress.amount("Fetching the model", self.n, self.total)

    return ProgressLines


def _repository(name: str) -> str:
    from demucs.hf import DEFAULT_NAMESPACE, hf_repo_name

    return f"{DEFAULT_NAMESPACE}/{hf_repo_name(name)}"


def _folder(name: str) -> Path:
    from huggingface_hub import constants
    from huggingface_hub.file_download import repo_folder_name

    return Path(constants.HF_HUB_CACHE, repo_folder_name(repo_id=_repository(name), repo_type="model"))
