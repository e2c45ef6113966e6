#!/usr/bin/env bash
# Builds the provider library and the extension with AddressSanitizer and
# UndefinedBehaviorSanitizer (build/asan) and runs the whole pytest suite against that
# build with leak detection on. Any sanitizer report fails the run. Arguments are passed
# on to pytest.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/build_env.sh

cmake -S . -B build/asan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKEROVA_SANITIZE=ON >/dev/null
cmake --build build/asan

reports="$PWD/build/asan/reports"
rm -rf "$reports" && mkdir -p "$reports"

# The interpreter is not instrumented, so the sanitizer runtime is preloaded into it, and
# the C++ runtime with it: the sanitizer binds its exception hooks when it starts.
# Python's allocator hands every object to malloc, so that a leaked object is seen. The
# interpreter has no frame pointers, so allocation stacks need the slow unwinder; eight
# frames show where in the extension an object was made, at a tenth of the cost of the
# full stack. tests/sanitizer/sitecustomize.py runs at the start of every interpreter.
# Every report of every process, spawned test helpers included, lands in $reports.
sanitized=(
    env PYTHONMALLOC=malloc
    LD_PRELOAD="$(gcc -print-file-name=libasan.so) $(gcc -print-file-name=libstdc++.so)"
    ASAN_OPTIONS="detect_leaks=1:fast_unwind_on_malloc=0:malloc_context_size=8:allocator_may_return_null=1:log_path=$reports/asan"
    LSAN_OPTIONS="suppressions=$PWD/tests/sanitizer/lsan.supp:print_suppressions=0"
    UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1:log_path=$reports/ubsan"
    PYTHONPATH="build/asan/stage:python:tests/sanitizer"
    KEROVA_SANITIZED=1
    "$(python -c 'import sys; print(sys.executable)')"
)

# The installed package must not shadow the sanitized build.
"${sanitized[@]}" -c '
import os, sys, kerovamultidimarrayforpython as m
print("sanitized build:", m.__file__)
sys.exit(os.path.dirname(os.path.abspath(m.__file__)) != os.path.abspath("build/asan/stage"))'

status=0
# (The benchmark plugin asks git about the checkout, and git would be checked too.)
"${sanitized[@]}" -m pytest -q -p no:cacheprovider -p no:benchmark "$@" || status=$?

# A log may also hold warnings, such as that of an impossible allocation which a test
# provokes on purpose and which comes back as null; only errors fail the run.
failed=$(grep -l -E "ERROR: (Address|Leak)Sanitizer|runtime error:" "$reports"/* 2>/dev/null || true)
if [ -n "$failed" ]; then
    cat $failed
    echo "sanitize: $(echo "$failed" | wc -l) sanitizer report(s) in $reports" >&2
    exit 1
fi
exit "$status"
