"""Hypothesis profiles: under CI (the CI variable set) every run draws the same examples, so a result can be replayed;
elsewhere each run draws new ones, and more of them. A failure prints its example and the blob that replays it."""

import os

from hypothesis import HealthCheck, settings

COMMON = {"deadline": None, "database": None, "print_blob": True, "suppress_health_check": list(HealthCheck)}
settings.register_profile("ci", max_examples=100, derandomize=True, **COMMON)
settings.register_profile("dev", max_examples=300, **COMMON)
settings.load_profile("ci" if os.environ.get("CI") else "dev")
