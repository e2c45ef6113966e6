#!/usr/bin/env bash
# Measures line and branch coverage of the extension, the data layer and the provider
# library. Run on demand; CI does not run it.
#
# One gcc --coverage Debug build in build/coverage holds the extension and the GoogleTest
# suites. The counters are zeroed, then the GoogleTest suites (ctest) and the pytest suite
# run against that build (its stage/ before the installed package on the path), and gcovr
# reads the counters back.
#
# The counters are updated atomically: the threaded tests would otherwise race on them
# and leave counts that gcov reads back as negative.
#
# Branch counts leave out what the compiler invents rather than what the code decides:
# gcovr's --exclude-throw-branches drops the edges that exist only because a call may
# throw, and --exclude-unreachable-branches drops branches on lines that carry no code
# (closing braces, cleanup of locals). Test sources and headers outside the repository
# (the standard library, Boost, Python, GoogleTest) are not counted. A template's line
# counts once, covered when any instance runs it (--merge-lines), and so do its branches.
#
# Prints a per-folder summary and a total for the extension (construction/, indexing/,
# core/, kinds/, module/ and data_array/); writes build/coverage/html/index.html (per file, with
# the source annotated) and build/coverage/uncovered.txt (uncovered lines per file).
# Arguments are passed on to pytest.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/build_env.sh

build=build/coverage
python -m gcovr --version >/dev/null 2>&1 ||
    python -m pip install -q --disable-pip-version-check gcovr

cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
    "-DCMAKE_CXX_FLAGS=--coverage -fprofile-update=atomic" -DCMAKE_EXE_LINKER_FLAGS=--coverage \
    -DCMAKE_SHARED_LINKER_FLAGS=--coverage -DCMAKE_MODULE_LINKER_FLAGS=--coverage \
    -DKEROVA_EXTENSION=ON -DKEROVA_NATIVE_TESTS=ON >/dev/null
# Counters add up across runs, and those of objects since rebuilt no longer fit them:
# start from zero, also before the build, whose test discovery runs the GoogleTest binaries.
find "$build" -name '*.gcda' -delete 2>/dev/null || true
# Objects of sources since moved or removed would be read back as well: they go, with
# their notes files.
ninja -C "$build" -t cleandead >/dev/null
cmake --build "$build"
find "$build" -name '*.gcda' -delete
find "$build" -name '*.gcno' | while read -r notes; do [ -f "${notes%.gcno}.o" ] || rm -f "$notes"; done

echo "== native tests (GoogleTest)"
status=0
ctest --test-dir "$build" -j "$CMAKE_BUILD_PARALLEL_LEVEL" --output-on-failure >"$build/ctest.log" 2>&1 || status=$?
tail -n 3 "$build/ctest.log"

echo "== behaviour tests (pytest)"
# The instrumented build must be the one imported, not the installed package.
PYTHONPATH="$build/stage:python" python -c '
import os, sys, kerovamultidimarrayforpython as m
print("instrumented build:", m.__file__)
sys.exit(os.path.dirname(os.path.abspath(m.__file__)) != os.path.abspath(sys.argv[1]))' "$build/stage"
# (The benchmark plugin asks git about the checkout.)
PYTHONPATH="$build/stage:python" python -m pytest -q -p no:cacheprovider -p no:benchmark "$@" || status=$?

echo "== coverage (gcovr)"
mkdir -p "$build/html"
python -m gcovr --root . "$build" \
    --filter 'construction/' --filter 'indexing/' --filter 'core/' --filter 'kinds/' --filter 'module/' \
    --filter 'data_array/' --filter 'provider/' --exclude 'tests/' \
    --exclude-throw-branches --exclude-unreachable-branches --merge-lines \
    --json-summary "$build/summary.json" \
    --txt "$build/uncovered.txt" \
    --html-details "$build/html/index.html" --html-title "kerova coverage"

python - "$build/summary.json" <<'EOF'
import json, sys

files = json.load(open(sys.argv[1]))["files"]
folders = ["construction", "indexing", "core", "kinds", "module", "data_array", "provider"]
extension = folders[:6]

def add(rows):
    rows = list(rows)
    keys = ("line_covered", "line_total", "branch_covered", "branch_total")
    return [sum(r[k] for r in rows) for k in keys]

def pct(n, d):
    return f"{100 * n / d:5.1f}%" if d else "    -"

def show(name, lc, lt, bc, bt):
    print(f"{name:<12} {lc:>6}/{lt:<6} {pct(lc, lt)}   {bc:>6}/{bt:<6} {pct(bc, bt)}")

print(f"{'folder':<12} {'lines':>13} {'':>6}   {'branches':>13}")
for folder in folders:
    show(folder + "/", *add(f for f in files if f["filename"].startswith(folder + "/")))
show("extension", *add(f for f in files if f["filename"].split("/")[0] in extension))
EOF
echo "report: $build/html/index.html; uncovered lines: $build/uncovered.txt"
exit "$status"
