"""kerova: column-major N-dimensional numeric arrays.

The eleven array classes live in the extension module ``kerovamultidimarrayforpython``;
this package re-exports them under the names that pickling and ``repr`` use.
"""

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

__all__ = [
    "double", "single", "int8", "uint8", "int16", "uint16",
    "int32", "uint32", "int64", "uint64", "logical",
    "ShapeError", "SizeError",
]
