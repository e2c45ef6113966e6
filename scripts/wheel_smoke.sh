#!/usr/bin/env bash
# Builds the kerova wheel, installs it into a fresh virtual environment outside the
# source tree and runs a smoke test there. This proves the packaging: the wheel carries
# libKerovaDataArray next to the extension, whose RUNPATH of $ORIGIN finds it.
# NumPy comes from the system site (the venv is made with --system-site-packages).
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/build_env.sh
source_tree=$(pwd)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

echo "== wheel: build"
# A build directory of its own, so that the wheel never mixes with an editable build.
python -m pip wheel . -q --disable-pip-version-check --no-build-isolation --no-deps \
  -C build-dir=build/wheel -w "$work/dist"
wheel=$(ls "$work"/dist/kerova-*.whl)
echo "built $(basename "$wheel")"

echo "== wheel: contents"
python - "$wheel" <<'EOF'
import sys
import zipfile

names = set(zipfile.ZipFile(sys.argv[1]).namelist())
required = ["libKerovaDataArray.so", "kvexceptions.py", "kvexceptions-stubs/__init__.pyi",
            "kerovamultidimarrayforpython-stubs/__init__.pyi", "kerova/__init__.py", "kerova/__main__.py",
            "kerova/__init__.pyi", "kerova/py.typed"]
missing = [name for name in required if name not in names]
extension = [name for name in names if name.startswith("kerovamultidimarrayforpython.") and name.endswith(".so")]
if missing or len(extension) != 1:
    sys.exit(f"wheel lacks {missing or 'the extension module'}; it holds {sorted(names)}")
print("wheel holds the extension, libKerovaDataArray.so, the kerova package and its stubs")
EOF

echo "== wheel: install into a fresh venv"
python -m venv --system-site-packages "$work/venv"
venv_python="$work/venv/bin/python"
"$venv_python" -m pip install -q --disable-pip-version-check --force-reinstall --no-deps "$wheel"
site=$("$venv_python" -c 'import sysconfig; print(sysconfig.get_paths()["platlib"])')

echo "== wheel: linkage"
extension=$(ls "$site"/kerovamultidimarrayforpython.*.so)
runpath=$(readelf -d "$extension" | grep -E 'RUNPATH|RPATH' || true)
echo "$runpath"
if ! grep -q '\[\$ORIGIN\]' <<<"$runpath"; then
  echo "the extension's RUNPATH is not \$ORIGIN" >&2
  exit 1
fi
provider=$(ldd "$extension" | awk '/libKerovaDataArray/ {print $3}')
echo "libKerovaDataArray resolves to $provider"
if [ "$provider" != "$site/libKerovaDataArray.so" ]; then
  echo "libKerovaDataArray.so does not resolve inside the venv" >&2
  exit 1
fi

echo "== wheel: smoke test"
mkdir "$work/elsewhere"
cat >"$work/elsewhere/smoke.py" <<'EOF'
import os
import pickle
import sys

import kerova
import kerovamultidimarrayforpython
import kvexceptions

source_tree, prefix = sys.argv[1], os.path.realpath(sys.prefix)
for module in (kerova, kerovamultidimarrayforpython, kvexceptions):
    where = os.path.realpath(module.__file__)
    print(f"{module.__name__}: {where}")
    assert where.startswith(prefix + os.sep), f"{module.__name__} is not imported from the venv"
    assert not where.startswith(source_tree + os.sep), f"{module.__name__} comes from the source tree"

a = kerova.double([[1, 2, 3], [4, 5, 6]])
assert a.size == (2, 3) and a[1][2] == 6.0 and a.get_bytewise_strides() == (8, 16)
a[0][1:3] = [20, 30]
assert str(a) == "[[1.0,20.0,30.0],[4.0,5.0,6.0]]"

import numpy

view = numpy.asarray(a)
assert view.shape == (2, 3) and view.flags.f_contiguous and view[0, 2] == 30.0
a[1][0] = 40
assert view[1, 0] == 40.0, "the NumPy view does not share the array's memory"
back = kerova.int64(numpy.arange(6, dtype=numpy.int64).reshape(2, 3))
assert back == kerova.int64([[0, 1, 2], [3, 4, 5]])
assert kerova.double(view) == a

z = kerova.int16([[1, -2]], is_complex=True)
for original in (a, z, kerova.logical([True, False])):
    copy = pickle.loads(pickle.dumps(original))
    assert type(copy) is type(original) and copy == original
try:
    a.reshape(4, 4)
except kvexceptions.ShapeError as error:
    assert pickle.loads(pickle.dumps(error)).args == error.args
print("smoke test passed")
EOF
(cd "$work/elsewhere" && "$venv_python" smoke.py "$source_tree")

