#!/usr/bin/env bash
# Builds everything and runs every test: the native GoogleTest suites and pytest.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/bootstrap.sh

echo "== native tests (GoogleTest)"
cmake -S . -B build/native -G Ninja -DKEROVA_EXTENSION=OFF -DKEROVA_NATIVE_TESTS=ON >/dev/null
cmake --build build/native -j2
ctest --test-dir build/native --output-on-failure

echo "== behaviour tests (pytest)"
python -m pytest -q
