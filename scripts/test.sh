#!/usr/bin/env bash
# Builds everything and runs every test: the native GoogleTest suites, pytest, the
# type-stub check and the smoke test of the wheel in a fresh virtual environment.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/bootstrap.sh

echo "== native tests (GoogleTest)"
cmake -S . -B build/native -G Ninja -DKEROVA_EXTENSION=OFF -DKEROVA_NATIVE_TESTS=ON >/dev/null
cmake --build build/native -j2
ctest --test-dir build/native --output-on-failure

echo "== behaviour tests (pytest)"
python -m pytest -q

echo "== benchmark suite (quick mode: proves it runs; timings are not asserted)"
python bench/run.py --quick

echo "== type stubs (mypy --strict on the example, stubtest)"
bash scripts/typecheck.sh

echo "== wheel (built, installed in a fresh venv, smoke-tested there)"
bash scripts/wheel_smoke.sh

if [ "${KEROVA_SKIP_SANITIZE:-0}" != 1 ]; then
    echo "== sanitizers (AddressSanitizer, UndefinedBehaviorSanitizer, leak detection)"
    bash scripts/sanitize.sh
else
    echo "== sanitizers: SKIPPED (KEROVA_SKIP_SANITIZE=1); run them with: bash scripts/sanitize.sh"
fi
