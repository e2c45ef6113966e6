"""Under the sanitizers (scripts/sanitize.sh) resident memory says nothing: freed blocks
wait in a quarantine before they are reused. The tests that measure it are marked `rss`
and skipped there; the leak detector checks the same operations at exit instead."""

import os

import pytest


def pytest_configure(config):
    config.addinivalue_line("markers", "rss: measures resident memory; skipped under the sanitizers")


def pytest_collection_modifyitems(config, items):
    if os.environ.get("KEROVA_SANITIZED"):
        skip = pytest.mark.skip(reason="resident memory says nothing under the sanitizers")
        for item in items:
            if "rss" in item.keywords:
                item.add_marker(skip)
