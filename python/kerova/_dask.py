"""Dask's distributed scheduler sends kerova arrays as their raw column-major bytes.

An array travels as a header (class name, complex flag, shape) and one frame, the
array's own memoryview, which Dask writes to the wire without a copy. The receiver
builds the array from the frame in one copy, through the buffer road with `size` set
to the shape, so that the flat bytes fill it column by column.

Dask's tokenize, which names the data of ``scatter`` and the arguments of ``submit``,
is given the class, flag, shape and a hash of the bytes, as for a NumPy array.

Registration. Importing ``distributed`` takes a few hundred milliseconds, more than ten
times kerova's own import, so kerova never imports it (nor Dask). Instead:

- where Dask's modules are already imported, kerova registers when it is imported;
- otherwise, where Dask is installed, kerova puts a finder on ``sys.meta_path`` that
  finds nothing but registers as soon as Dask's dispatchers exist, that is while Dask
  or distributed is being imported;
- a worker imports kerova when it unpickles the class named in a message's header
  (or a task's code imports it), after its own distributed, so it registers then.

Both ends of a transfer therefore have the family, whatever the order of imports.
"""

import importlib.util
import sys

from kerovamultidimarrayforpython import (double, int8, int16, int32, int64, logical, single, uint8, uint16, uint32,
                                          uint64)

CLASSES = {cls.__name__: cls for cls in (double, single, int8, uint8, int16, uint16, int32, uint32, int64, uint64,
                                         logical)}
# The buffer format of each class's elements (of each part, for a complex array), as the
# classes' own buffer exports state it.
FORMATS = {name: memoryview(cls(size=(1, 1))).format for name, cls in CLASSES.items()}
SERIALIZE_MODULE = "distributed.protocol.serialize"


def serialize(a):
    """The header and the one frame of `a`: its memoryview, column-major, not copied, seen
    as flat bytes (so that whoever copies the frame copies it in storage order). A
    partial array sends what its buffer stands for, as ``numpy.asarray`` shows it."""
    from pickle import PickleBuffer  # here, not at kerova's import

    view = memoryview(a)
    header = {"class": type(a).__name__, "is_complex": bool(a._is_complex), "shape": list(view.shape)}
    return header, [PickleBuffer(view).raw()]


def deserialize(header, frames):
    """The array that `serialize` described."""
    from pickle import PickleBuffer

    cls, is_complex, shape = CLASSES[header["class"]], bool(header["is_complex"]), tuple(header["shape"])
    data = PickleBuffer(frames[0]).raw()  # its bytes, flat, whichever contiguous order
    if not data.nbytes:
        return cls(size=shape, is_complex=is_complex)
    parts = data.cast(FORMATS[header["class"]])
    if not is_complex:
        return cls(parts, size=shape)
    numpy = _numpy() if header["class"] in ("double", "single") else None
    if numpy is not None:  # a complex buffer, read as it lies
        return cls(numpy.frombuffer(data, numpy.dtype(FORMATS[header["class"]].upper())), size=shape, is_complex=True)
    # Without a complex buffer (NumPy is missing, or has no complex integers) the
    # elements go as Python complex numbers: exact for every part that a double holds
    # exactly, which is all of them but int64 and uint64 parts beyond 2**53.
    return cls(vector=list(map(complex, parts[0::2], parts[1::2])), size=shape, is_complex=True)


def _numpy():
    try:
        import numpy
    except ImportError:
        return None
    return numpy


def token(a):
    """What Dask's tokenize makes of `a` (for the keys of `scatter` and `submit`): the
    class, the complex flag, the shape and a hash of the column-major bytes, as it does
    for a NumPy array; without it Dask would pickle the array's nested list twice."""
    from pickle import PickleBuffer

    from dask.hashing import hash_buffer_hex

    view = memoryview(a)
    return type(a).__name__, bool(a._is_complex), view.shape, hash_buffer_hex(PickleBuffer(view).raw())


def _register_serialization(module):
    for cls in CLASSES.values():
        module.dask_serialize.register(cls)(serialize)
        module.dask_deserialize.register(cls)(deserialize)


def _register_tokenization(module):
    for cls in CLASSES.values():
        module.normalize_token.register(cls)(token)


# The modules that define Dask's dispatchers, the names each must have bound (it may be
# mid-import) and the registration; an entry goes once it is done.
_PENDING = {
    SERIALIZE_MODULE: (("dask_serialize", "dask_deserialize"), _register_serialization),
    "dask.tokenize": (("normalize_token",), _register_tokenization),
}


def register():
    """Registers with each of Dask's dispatchers that has arrived; True when none is left."""
    for name, (attributes, registration) in list(_PENDING.items()):
        module = sys.modules.get(name)
        if module is not None and all(hasattr(module, attribute) for attribute in attributes):
            registration(module)
            _PENDING.pop(name, None)
    return not _PENDING


def _try_register():
    """register(), for the moments when a failure must not propagate: kerova's import and
    the imports that the finder below is asked about. A Dask that refuses the
    registration leaves the arrays to its pickling."""
    try:
        return register()
    except Exception:
        return False


class _RegisterWithDask:
    """A finder that finds nothing: each import it is asked about is a moment to see
    whether Dask's dispatchers have arrived. Once all are registered it answers at once;
    it stays in ``sys.meta_path``, because the import system is iterating over that list
    whenever it is called, and removing an entry then would skip another."""

    @staticmethod
    def find_spec(name, path=None, target=None):
        if _PENDING:
            _try_register()
        return None


def install():
    """Called by ``import kerova``: registers now, or arranges to when Dask arrives."""
    if _try_register():
        return
    try:
        present = "dask" in sys.modules or importlib.util.find_spec("dask") is not None
    except (ImportError, ValueError):  # a module in sys.modules that importlib cannot describe
        present = False
    if present:
        sys.meta_path.insert(0, _RegisterWithDask)
