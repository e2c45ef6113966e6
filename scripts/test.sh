#!/usr/bin/env bash
# Builds everything and runs every test: the native GoogleTest suites, pytest, the
# type-stub check, the smoke test of the wheel in a fresh virtual environment, the release
# wheels for every CPython version present and the sdist (each tested in a fresh virtual
# environment) and the sanitizer run. About 25 minutes on 2 cores; KEROVA_SKIP_WHEELS=1
# and KEROVA_SKIP_SANITIZE=1 leave out the two longest stages.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/build_env.sh

bash scripts/bootstrap.sh

echo "== native tests (GoogleTest)"
cmake -S . -B build/native -G Ninja -DKEROVA_EXTENSION=OFF -DKEROVA_NATIVE_TESTS=ON >/dev/null
cmake --build build/native
ctest --test-dir build/native --output-on-failure

echo "== behaviour tests (pytest)"
python -m pytest -q

echo "== benchmark suite (quick mode: proves it runs; ratios only, no verdict, nothing asserted)"
python bench/run.py --quick

echo "== type stubs (mypy --strict on the example, stubtest)"
bash scripts/typecheck.sh

echo "== wheel (built, installed in a fresh venv, smoke-tested there)"
bash scripts/wheel_smoke.sh

if [ "${KEROVA_SKIP_WHEELS:-0}" != 1 ]; then
    echo "== release: a manylinux wheel for every CPython from 3.9 to 3.13 here and the sdist, each tested in a fresh venv"
    bash scripts/wheels.sh
else
    echo "== release wheels: SKIPPED (KEROVA_SKIP_WHEELS=1); run them with: bash scripts/wheels.sh"
fi

if [ "${KEROVA_SKIP_SANITIZE:-0}" != 1 ]; then
    echo "== sanitizers (AddressSanitizer, UndefinedBehaviorSanitizer, leak detection)"
    bash scripts/sanitize.sh
else
    echo "== sanitizers: SKIPPED (KEROVA_SKIP_SANITIZE=1); run them with: bash scripts/sanitize.sh"
fi
