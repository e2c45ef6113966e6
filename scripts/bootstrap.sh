#!/usr/bin/env bash
# Installs what a fresh machine lacks (system headers, build and test tools) and then
# builds and installs kerova into the current Python environment.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/build_env.sh

echo "bootstrap [1/3]: system headers (Debian's libboost-dev, libgtest-dev)"
missing=()
[ -f /usr/include/boost/numeric/conversion/cast.hpp ] || missing+=(libboost-dev)
[ -f /usr/include/gtest/gtest.h ] || missing+=(libgtest-dev)
if [ ${#missing[@]} -gt 0 ]; then
  echo "  installing ${missing[*]} with apt-get (needs root)"
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}" >/dev/null
else
  echo "  present"
fi

echo "bootstrap [2/3]: build tools from PyPI (scikit-build-core, cmake, ninja)"
python -m pip install -q --disable-pip-version-check "scikit-build-core>=0.10" cmake ninja

echo "bootstrap [3/3]: build and install kerova with its test and interop extras" \
     "(about 2 minutes on 2 cores; $CMAKE_BUILD_PARALLEL_LEVEL compile jobs)"
# The compiler's progress lines are shown; the whole log is kept for a failure.
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! python -m pip install -v --disable-pip-version-check --no-build-isolation ".[test,interop]" 2>&1 | tee "$log" |
    awk '/^ *\[[0-9]+\/[0-9]+\] / { sub(/^ +/, ""); print "  " $0; fflush() }'; then
  tail -n 80 "$log"
  echo "bootstrap: the build failed (the last lines of its log are above)" >&2
  exit 1
fi
echo "bootstrap: done; try: python -m kerova"
