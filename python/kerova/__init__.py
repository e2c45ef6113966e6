"""kerova: column-major N-dimensional numeric arrays.

The eleven array classes live in the extension module ``kerovamultidimarrayforpython``;
this package re-exports them under the names that pickling and ``repr`` use.

The user guide covers constructing, indexing, assignment, NumPy, pickling, the capsule
for native code and the exceptions: ``guide.md`` beside this file in an installed
package (``kerova.GUIDE`` is its path), ``docs/guide.md`` in the source tree.
``python -m kerova`` gives a short tour.
"""

import os as _os
from importlib import metadata as _metadata

from kerovamultidimarrayforpython import (  # noqa: F401
    ShapeError,
    SizeError,
    double,
    int8,
    int16,
    int32,
    int64,
    logical,
    single,
    uint8,
    uint16,
    uint32,
    uint64,
)

try:  # the version lives in pyproject.toml only; an installed package carries it
    __version__ = _metadata.version("kerova")
except _metadata.PackageNotFoundError:  # run from a tree that was never installed
    __version__ = "0+unknown"

#: Where the user guide lies: installed beside the package, or in the source tree.
GUIDE = next((p for p in (_os.path.join(_os.path.dirname(__file__), "guide.md"),
                          _os.path.join(_os.path.dirname(__file__), "..", "..", "docs", "guide.md"))
              if _os.path.exists(p)), "docs/guide.md")



def get_include():
    """The directory of the headers for native modules that use kerova's capsule:
    ``kerova/capi.h`` (the table of entries) and ``data_array/function_table.h`` (the
    library's types and operations). ``python -m kerova --includes`` prints the flags."""
    installed = _os.path.join(_os.path.dirname(__file__), "include")
    if _os.path.isdir(installed):
        return installed
    return _os.path.join(_os.path.dirname(__file__), "..", "..", "include")  # a source tree


# Dask sends the arrays as their raw bytes and tokenizes them by those (see _dask.py).
from kerova import _dask  # noqa: E402

_dask.install()


__all__ = [
    "double", "single", "int8", "uint8", "int16", "uint16",
    "int32", "uint32", "int64", "uint64", "logical",
    "ShapeError", "SizeError",
]
