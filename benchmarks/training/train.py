"""Learns the weights of the tempo and key detectors from labelled clips.

    train.py WORKERS FOLDER...

WORKERS is the folder that has analyze.py. Each FOLDER has wav/ and labels.csv, as compose.py writes them. Prints the
accuracy in five-fold cross-validation, and writes WORKERS/detection/weights.json. Needs av, numpy and scipy.
"""

import csv
import json
import os
import sys
from dataclasses import dataclass
from multiprocessing import Pool
from pathlib import Path

os.environ["OPENBLAS_NUM_THREADS"] = "1"
sys.path.insert(0, sys.argv[1])

import numpy as np
from detection.key import key_features, profiles
from detection.logit_model import Weights, utilities
from detection.onsets import onset_envelopes
from detection.rhythm import Periodicity, features
from detection.spectrum import RATE
from detection.tempo import candidates
from scipy.optimize import minimize
from worker import read_audio

NUM_FOLDS = 5
TEMPO_MODEL = {"penalty": 5e-3, "num_hidden": 16}
KEY_MODEL = {"penalty": 3e-3, "num_hidden": 0}


@dataclass
class Choice:
    """One clip's alternatives: their features, of shape (alternatives, features), and which of them are right."""

    features: np.ndarray
    is_right: np.ndarray


def main() -> None:
    clips = []
    for folder in map(Path, sys.argv[2:]):
        with open(folder / "labels.csv", newline="") as file:
            clips += [(folder, row) for row in csv.DictReader(file)]
    with Pool(2) as pool:
        tempos, keys = zip(*pool.map(describe, clips, chunksize=4), strict=True)
    tempos = [choice for choice in tempos if choice is not None and choice.is_right.any()]

    keys = [choice for choice in keys if choice is not None]

    report("tempo", tempos, TEMPO_MODEL)
    report("key", keys, KEY_MODEL)
    weights = {"tempo": learn(tempos, **TEMPO_MODEL), "key": learn(keys, **KEY_MODEL)}
    rounded = {name: {part: np.round(v, 4).tolist() for part, v in parts.items()} for name, parts in weights.items()}
    (Path(sys.argv[1]) / "detection" / "weights.json").write_text(json.dumps(rounded) + "\n")


def describe(clip: tuple[Path, dict[str, str]]) -> tuple[Choice | None, Choice | None]:
    folder, row = clip
    samples = read_audio(str(folder / "wav" / f"{row['file']}.wav"), RATE, "mono")[0]
    tempo = tempo_choice(samples, float(row["bpm"])) if row["bpm"] else None
    return tempo, key_choice(samples, row) if row["key_index"] else None


def tempo_choice(samples: np.ndarray, bpm: float) -> Choice:
    periodicity = Periodicity.of(onset_envelopes(samples))
    beats = candidates(periodicity)
    return Choice(features(periodicity, beats), np.abs(60 * beats / bpm - 1) < 0.03)


def key_choice(samples: np.ndarray, row: dict[str, str]) -> Choice:
    is_right = np.zeros((2, 12), bool)
    is_right[int(row["mode"] not in ("major", "mixolydian")), int(row["key_index"])] = True
    return Choice(key_features(profiles(samples)), is_right.ravel())


def learn(choices: list[Choice], penalty: float, num_hidden: int) -> Weights:
    """Returns the weights that maximize the mean log-likelihood minus penalty times their squared norm."""
    rows = np.concatenate([choice.features for choice in choices])
    is_right = np.concatenate([choice.is_right for choice in choices])
    starts = np.cumsum([0] + [len(choice.is_right) for choice in choices[:-1]])
    clip = np.repeat(np.arange(len(choices)), [len(choice.is_right) for choice in choices])
    means, scales = rows.mean(axis=0), rows.std(axis=0) + 1e-6
    rows = (rows - means) / scales
    num_features = rows.shape[1]

    def unpacked(flat: np.ndarray) -> Weights:
        linear, inner, bias, outer = np.split(flat, np.cumsum([num_features, num_features * num_hidden, num_hidden]))
        return {"linear": linear, "inner": inner.reshape(num_features, num_hidden), "bias": bias, "outer": outer}

    def loss(flat: np.ndarray) -> tuple[float, np.ndarray]:
        weights = unpacked(flat)
        values = utilities(rows, weights)
        odds = np.exp(values - np.maximum.reduceat(values, starts)[clip])
        shares = odds / np.add.reduceat(odds, starts)[clip]
        right = np.add.reduceat(shares * is_right, starts) + 1e-12
        slope = (shares - shares * is_right / right[clip]) / len(choices)
        hidden = np.tanh(rows @ weights["inner"] + weights["bias"])
        hidden_slope = np.outer(slope, weights["outer"]) * (1 - hidden**2)
        gradient = [rows.T @ slope, (rows.T @ hidden_slope).ravel(), hidden_slope.sum(axis=0), hidden.T @ slope]
        return penalty * flat @ flat - np.log(right).mean(), np.concatenate(gradient) + 2 * penalty * flat

    start = np.random.default_rng(0).normal(0, 0.02, num_features + num_hidden * (num_features + 2))
    best = unpacked(minimize(loss, start, jac=True, method="L-BFGS-B", options={"maxiter": 500}).x)
    best["linear"] /= scales
    best["inner"] /= scales[:, None]
    best["bias"] -= means @ best["inner"]
    return best


def report(name: str, choices: list[Choice], model: dict[str, float]) -> None:
    folds = np.arange(len(choices)) % NUM_FOLDS
    num_right = 0
    for fold in range(NUM_FOLDS):
        weights = learn([choice for choice, other in zip(choices, folds, strict=True) if other != fold], **model)
        left_out = [choice for choice, other in zip(choices, folds, strict=True) if other == fold]
        num_right += sum(choice.is_right[np.argmax(utilities(choice.features, weights))] for choice in left_out)
    print(f"{name}: {num_right / len(choices):.3f} of {len(choices)} clips right")


if __name__ == "__main__":
    main()
