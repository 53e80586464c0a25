"""Gets Demucs' models out of the hub's cache, and into it where they are missing."""

import os
import ssl
from contextlib import suppress
from pathlib import Path
from typing import TYPE_CHECKING

import file_lock
import worker
from installation.setup_progress import SetupProgress

# The hub's client reads these when it is imported. Plain HTTP gives up soon where there is no network.
os.environ.setdefault("HF_HUB_DISABLE_TELEMETRY", "1")
os.environ.setdefault("HF_HUB_DISABLE_XET", "1")

_MIN_SHOWN_SIZE = 100_000  # bytes: a file that is there at once needs no bar

if TYPE_CHECKING:
    from demucs.api import Separator
    from tqdm import tqdm


def load(name: str) -> "Separator":
    """Loads a model without a look at the network where it is cached. Raises WorkerError if it cannot be had."""
    from huggingface_hub import constants
    from huggingface_hub.errors import LocalEntryNotFoundError

    constants.HF_HUB_DISABLE_IMPLICIT_TOKEN = True  # the hub refuses what is public to a token that has expired
    with suppress(LocalEntryNotFoundError):
        return _load_cached(name)
    with file_lock.take(worker.cache_folder() / f"{name}.lock", on_wait=SetupProgress().wait):
        with suppress(LocalEntryNotFoundError):  # another process may have fetched it
            return _load_cached(name)
        _fetch(name)
    return _load_cached(name)


def _load_cached(name: str) -> "Separator":
    from demucs.api import Separator
    from huggingface_hub import constants

    is_offline, constants.HF_HUB_OFFLINE = constants.HF_HUB_OFFLINE, True
    try:
        return Separator(f"hf://{name}")  # the bare name would fall back to pickles, which can run code
    except (OSError, MemoryError):
        raise
    except Exception as error:
        raise worker.WorkerError(f"The {name} model is damaged: delete {_folder(name)} and try again.") from error
    finally:
        constants.HF_HUB_OFFLINE = is_offline


def _fetch(name: str) -> None:
    from huggingface_hub import HfApi, hf_hub_download
    from huggingface_hub.errors import RepositoryNotFoundError

    SetupProgress().step(f"Fetching the {name} model, which is needed once")
    for part in Path(_folder(name), "blobs").glob("*.incomplete"):
        part.unlink()  # the hub's client never goes on with what a killed one has left
    try:
        for file in HfApi().model_info(_repository(name), timeout=10).siblings:
            if Path(file.rfilename).suffix in (".yaml", ".safetensors"):
                hf_hub_download(_repository(name), file.rfilename, tqdm_class=_words())
    except RepositoryNotFoundError as error:
        raise worker.WorkerError(f'Demucs has no model called "{name}": choose htdemucs.') from error
    except Exception as error:
        if getattr(error, "errno", None):  # the disk's failure; the network's have no number
            raise
        if _is_distrust(error):
            raise worker.WorkerError(
                f"The site of the {name} model could not prove who it is: check this computer's date, "
                "or let SSL_CERT_FILE name your network's certificate."
            ) from error
        raise worker.WorkerError(
            f"The {name} model, which is needed once, could not be fetched: connect to the internet and try again."
        ) from error


def _is_distrust(error: BaseException | None) -> bool:
    """Whether a certificate was refused, which is the cause of the cause of what the hub's library raises."""
    while error is not None and not isinstance(error, ssl.SSLCertVerificationError):
        error = error.__cause__ or error.__context__
    return error is not None


def _words() -> "type[tqdm]":
    from tqdm import tqdm

    progress = SetupProgress()

    class Words(tqdm):
        """Progress by the worker's own lines, which the program knows."""

        def __init__(self, *arguments: object, **options: object) -> None:
            super().__init__(*arguments, mininterval=1, **options)

        def display(self, *_: object, **__: object) -> None:
            if (self.total or 0) > _MIN_SHOWN_SIZE:
                progress.amount("Fetching the model", self.n, self.total)

    return Words


def _repository(name: str) -> str:
    from demucs.hf import DEFAULT_NAMESPACE, hf_repo_name

    return f"{DEFAULT_NAMESPACE}/{hf_repo_name(name)}"


def _folder(name: str) -> Path:
    from huggingface_hub import constants
    from huggingface_hub.file_download import repo_folder_name

    return Path(constants.HF_HUB_CACHE, repo_folder_name(repo_id=_repository(name), repo_type="model"))
