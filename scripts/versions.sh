#!/usr/bin/env bash
# Builds kerova and runs the pytest suite on every CPython from 3.9 to 3.13 that this
# machine has (under pyenv, or on the PATH as python3.X); absent versions are skipped
# and named. Each version gets a fresh virtual environment outside the source tree and
# a build directory of its own. About 3 minutes per version on 2 cores.
#
#     bash scripts/versions.sh            # every version present
#     bash scripts/versions.sh 3.9 3.13   # only these
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/build_env.sh
source_tree=$(pwd)

versions=("$@")
[ ${#versions[@]} -gt 0 ] || versions=(3.9 3.10 3.11 3.12 3.13)

interpreter() {
    local found
    found=$(ls -d "${PYENV_ROOT:-$HOME/.pyenv}"/versions/"$1".*/bin/python"$1" 2>/dev/null | sort -V | tail -n 1)
    [ -n "$found" ] || found=$(command -v "python$1" || true)
    echo "$found"
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
passed=() skipped=() failed=()
for version in "${versions[@]}"; do
    python=$(interpreter "$version")
    if [ -z "$python" ]; then
        echo "== CPython $version: not on this machine, skipped"
        skipped+=("$version")
        continue
    fi
    echo "== CPython $version ($python)"
    venv="$work/venv-$version"
    "$python" -m venv "$venv"
    "$venv/bin/python" -m pip install -q --disable-pip-version-check --upgrade pip
    echo "   building and installing (build/py$version)"
    if ! "$venv/bin/python" -m pip install -q --disable-pip-version-check \
            -C build-dir="build/py$version" "$source_tree[test]"; then
        failed+=("$version (build)")
        continue
    fi
    echo "   pytest"
    # Run from outside the tree, so that the installed package is the one imported.
    if (cd "$work" && "$venv/bin/python" -m pytest -q -p no:cacheprovider "$source_tree/tests" \
            -c "$source_tree/pyproject.toml" --rootdir "$source_tree" | tail -n 3); then
        passed+=("$version")
    else
        failed+=("$version (tests)")
    fi
done

echo "== versions: passed ${passed[*]:-none}; skipped ${skipped[*]:-none}; failed ${failed[*]:-none}"
[ ${#failed[@]} -eq 0 ]
