#!/usr/bin/env bash
# Installs what a fresh machine lacks (system headers, build and test tools) and then
# builds and installs kerova into the current Python environment.
set -euo pipefail
cd "$(dirname "$0")/.."

missing=()
[ -f /usr/include/boost/numeric/conversion/cast.hpp ] || missing+=(libboost-dev)
[ -f /usr/include/gtest/gtest.h ] || missing+=(libgtest-dev)
if [ ${#missing[@]} -gt 0 ]; then
  echo "bootstrap: installing ${missing[*]}"
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}" >/dev/null
fi

python -m pip install -q --disable-pip-version-check "scikit-build-core>=0.10" cmake ninja
python -m pip install -q --disable-pip-version-check --no-build-isolation ".[test]"
