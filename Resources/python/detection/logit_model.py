"""Rates alternatives with a conditional logit model whose weights were learned from songs."""

import json
from pathlib import Path

import numpy as np

Weights = dict[str, np.ndarray]


def learned_weights(name: str) -> Weights:
    text = Path(__file__).with_name("weights.json").read_text(encoding="utf-8")
    return {part: np.array(values) for part, values in json.loads(text)[name].items()}


def utilities(features: np.ndarray, weights: Weights) -> np.ndarray:
    """Returns the utility of each alternative. The model chooses the alternative of greatest utility.

    features has the shape (alternatives, features). The model is McFadden's conditional logit (1974), with a hidden
    layer added to its linear utilities.
    """
    hidden = np.tanh(features @ weights["inner"] + weights["bias"])
    return features @ weights["linear"] + hidden @ weights["outer"]
