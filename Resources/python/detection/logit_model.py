"""Chooses among alternatives by learned weights."""

import json
from pathlib import Path

import numpy as np

Weights = dict[str, np.ndarray]


def learned_weights(name: str) -> Weights:
    text = Path(__file__).with_name("weights.json").read_text(encoding="utf-8")
    return {part: np.array(values) for part, values in json.loads(text)[name].items()}


def utilities(features: np.ndarray, weights: Weights) -> np.ndarray:
    """What speaks for each alternative; features are of shape (alternatives, features).

    The utilities of a conditional logit model (McFadden, 1974): linear, with one hidden layer beside.
    """
    hidden = np.tanh(features @ weights["inner"] + weights["bias"])
    return features @ weights["linear"] + hidden @ weights["outer"]
