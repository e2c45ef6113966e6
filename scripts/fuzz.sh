#!/usr/bin/env bash
# Coverage-guided fuzzing of the extension: builds the provider library and the extension
# with clang, AddressSanitizer, UndefinedBehaviorSanitizer and libFuzzer's coverage
# instrumentation (build/fuzz), then runs fuzz/programs.py under Atheris for a limited
# time. Run on demand, not in CI.
#
#   bash scripts/fuzz.sh [SECONDS] [more libFuzzer options...]
#
# SECONDS defaults to 300. The corpus grows in build/fuzz/corpus; crashing inputs land in
# build/fuzz/crashes. To replay one input:
#   bash scripts/fuzz.sh 0 build/fuzz/crashes/crash-...
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/build_env.sh

seconds=${1:-300}
shift || true

# clang and its compiler-rt (sanitizer runtimes and libFuzzer), in the version apt has.
if ! command -v clang >/dev/null || ! clang -print-file-name=libclang_rt.fuzzer_no_main-x86_64.a | grep -q /; then
    apt-get update -qq
    version=$(apt-cache policy clang | sed -n 's/^  Candidate: [0-9]*:\([0-9]*\).*/\1/p')
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq clang "libclang-rt-$version-dev" >/dev/null
fi

# Atheris built from source against this clang: the source build also makes
# asan_with_fuzzer.so, the ASan runtime merged with libFuzzer, so that the coverage
# counters of an instrumented extension reach the fuzzer. The prebuilt wheel lacks it.
python=$(python3 -c 'import sys; print(sys.executable)')
atheris_dir() { "$python" -c 'import atheris; print(atheris.path())' 2>/dev/null; }
if [ ! -f "$(atheris_dir)/asan_with_fuzzer.so" ]; then
    CLANG_BIN=$(command -v clang) "$python" -m pip install -q --disable-pip-version-check \
        --force-reinstall --no-deps --no-binary atheris atheris
fi
runtime="$(atheris_dir)/asan_with_fuzzer.so"

# The flags of KEROVA_SANITIZE, set here rather than through the option: its
# -fsanitize=undefined would come after, and so undo, the -fno-sanitize below. The checks
# of function types and of dynamic types need the C++ part of the UBSan runtime, which the
# preloaded shared runtime lacks (the gcc sanitizer run has them). The instrumented
# objects take the runtime from the preload, so no link flags are needed.
flags="-fsanitize=address,undefined,fuzzer-no-link -fno-sanitize=function,vptr"
flags+=" -fno-sanitize-recover=undefined -fno-omit-frame-pointer"
CC=clang CXX=clang++ cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DKEROVA_SANITIZE=OFF -DCMAKE_CXX_FLAGS="$flags" -Wno-dev >/dev/null
nice cmake --build build/fuzz

mkdir -p build/fuzz/corpus build/fuzz/crashes
# Files among the arguments are inputs to replay; otherwise the corpus is fuzzed.
inputs=(build/fuzz/corpus)
for argument in "$@"; do
    [ -f "$argument" ] && inputs=()
done
# Leak detection is the sanitizer run's job; an impossible allocation that a program asks
# for on purpose must come back as null (a MemoryError), not stop the run.
# The C++ runtime is preloaded with the sanitizer, which binds its exception hooks when
# it starts.
exec nice env \
    LD_PRELOAD="$runtime $(clang++ -print-file-name=libstdc++.so)" \
    ASAN_OPTIONS="detect_leaks=0:allocator_may_return_null=1" \
    UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1" \
    PYTHONPATH="build/fuzz/stage:python" \
    "$python" fuzz/programs.py -max_total_time="$seconds" -rss_limit_mb=4096 \
    -artifact_prefix=build/fuzz/crashes/ "$@" "${inputs[@]}"
