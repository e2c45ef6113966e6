# Type stubs of the extension module behind kerova. The classes are documented in the
# kerova package, which re-exports them under the names that repr and pickle use.
from collections.abc import Iterator
from typing import Any, final

from typing_extensions import Self

from kerova import (
    ShapeError as ShapeError,
    SizeError as SizeError,
    double as double,
    int8 as int8,
    int16 as int16,
    int32 as int32,
    int64 as int64,
    logical as logical,
    single as single,
    uint8 as uint8,
    uint16 as uint16,
    uint32 as uint32,
    uint64 as uint64,
)

# The iterator of the array classes; it cannot be made from Python.
@final
class KVPyIter(Iterator[Any]):
    def __iter__(self) -> Self: ...
    def __next__(self) -> Any: ...

# The capsule "kerovamultidimarrayforpython._capi": the native entry table for other
# extension modules (PyCapsule_Import).
_capi: object
