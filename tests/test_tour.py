"""`python -m kerova`, the README's main command, runs its tour to the end."""

import subprocess
import sys

import pytest

# The tour as `python -m kerova` runs it, and the same with NumPy made unimportable.
WITHOUT_NUMPY = (
    "import runpy, sys; sys.modules['numpy'] = None; "
    "runpy.run_module('kerova', run_name='__main__', alter_sys=True)"
)


@pytest.mark.parametrize(
    "command, numpy_landmark",
    [
        (["-m", "kerova"], "    array([[100.,  20.,   3.],"),
        (["-c", WITHOUT_NUMPY], "# NumPy is not installed, so this part is skipped"),
    ],
    ids=["with-numpy", "without-numpy"],
)
def test_tour_runs_to_the_end(command, numpy_landmark):
    if command[0] == "-m":
        pytest.importorskip("numpy")
    done = subprocess.run([sys.executable, *command], capture_output=True, text=True, timeout=120)
    assert done.returncode == 0, done.stderr
    assert done.stderr == ""
    # A value, a refused tuple index, the NumPy part and the last section all show.
    assert ">>> a[1][2]\n    6.0\n" in done.stdout
    assert "RuntimeError: index is not an integer or slice." in done.stdout
    assert numpy_landmark in done.stdout
    assert "NotImplementedError: inequality operators not supported." in done.stdout
