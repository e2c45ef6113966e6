# The extension module behind kerova; see the kerova package for the classes.
import kerova
from kerova import (
    double as double,
    single as single,
    int8 as int8,
    uint8 as uint8,
    int16 as int16,
    uint16 as uint16,
    int32 as int32,
    uint32 as uint32,
    int64 as int64,
    uint64 as uint64,
    logical as logical,
    ShapeError as ShapeError,
    SizeError as SizeError,
)

class KVPyIter:
    def __iter__(self) -> KVPyIter: ...
    def __next__(self) -> object: ...

_capi: object
