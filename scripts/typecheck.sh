#!/usr/bin/env bash
# Checks the type stubs of kerova: an example that uses the whole public surface passes
# `mypy --strict` against the stubs in python/, stubtest finds the stubs consistent with
# the importable extension, and the example then runs.
# The extension is the installed one unless PYTHONPATH points elsewhere, for instance
# PYTHONPATH=build/<dir>/stage:python after a plain CMake build.
set -euo pipefail
cd "$(dirname "$0")/.."

export MYPYPATH=python
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# mypy's cache goes under build/, not into the source tree.
printf '[mypy]\ncache_dir = build/mypy-cache\n' >"$work/mypy.ini"
# The tour is a script, not part of the typed surface.
printf 'kerova\\.__main__(\\..*)?\n' >"$work/allowlist"

python -m mypy --strict --config-file "$work/mypy.ini" tests/typing/example.py
python -m mypy.stubtest --mypy-config-file "$work/mypy.ini" \
  --allowlist "$work/allowlist" --ignore-unused-allowlist \
  kerova kerovamultidimarrayforpython kvexceptions
python tests/typing/example.py
