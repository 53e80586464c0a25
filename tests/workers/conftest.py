"""Hypothesis tries the same few examples each time, or with HYPOTHESIS_PROFILE=long many others."""

import os

from hypothesis import HealthCheck, settings

settings.register_profile(
    "default", database=None, deadline=None, derandomize=True, max_examples=50, suppress_health_check=list(HealthCheck)
)
settings.register_profile("long", settings.get_profile("default"), derandomize=False, max_examples=1000)
settings.load_profile(os.environ.get("HYPOTHESIS_PROFILE", "default"))
