"""A native consumer of kerova arrays over ctypes: buffer requests with chosen flags, the
five entries of the ``_capi`` capsule, and the provider library's own operations."""

import contextlib
import ctypes
import glob
import os
from ctypes import POINTER, byref, c_bool, c_char_p, c_int, c_int32, c_size_t, c_ssize_t, c_void_p

import kerovamultidimarrayforpython as kv

CAPSULE_NAME = b"kerovamultidimarrayforpython._capi"
PyBUF_SIMPLE, PyBUF_WRITABLE, PyBUF_FORMAT, PyBUF_ND = 0, 0x1, 0x4, 0x8
PyBUF_STRIDES = 0x10 | PyBUF_ND
PyBUF_C_CONTIGUOUS, PyBUF_F_CONTIGUOUS, PyBUF_ANY_CONTIGUOUS = (bit | PyBUF_STRIDES for bit in (0x20, 0x40, 0x80))
PyBUF_FULL_RO = 0x100 | PyBUF_STRIDES | PyBUF_FORMAT


class Py_buffer(ctypes.Structure):
    _fields_ = [("buf", c_void_p), ("obj", c_void_p), ("len", c_ssize_t), ("itemsize", c_ssize_t),
                ("readonly", c_int), ("ndim", c_int), ("format", c_char_p), ("shape", POINTER(c_ssize_t)),
                ("strides", POINTER(c_ssize_t)), ("suboffsets", POINTER(c_ssize_t)), ("internal", c_void_p)]

    def geometry(self):
        return tuple(self.shape[:self.ndim]), tuple(self.strides[:self.ndim])


_api = ctypes.pythonapi
_api.PyObject_GetBuffer.argtypes = [ctypes.py_object, POINTER(Py_buffer), c_int]
_api.PyBuffer_Release.argtypes = [POINTER(Py_buffer)]
_api.PyCapsule_GetPointer.argtypes, _api.PyCapsule_GetPointer.restype = [ctypes.py_object, c_char_p], c_void_p
_api.Py_DecRef.argtypes = [c_void_p]


@contextlib.contextmanager
def buffer_of(obj, flags):
    """The view that PyObject_GetBuffer gives for `flags`; the exporter's error is raised."""
    view = Py_buffer()
    _api.PyObject_GetBuffer(obj, byref(view), flags)
    try:
        yield view
    finally:
        _api.PyBuffer_Release(byref(view))


def _take(address):
    """The object of a new reference returned as an address, now owned by Python."""
    if not address:
        return None
    obj = ctypes.cast(address, ctypes.py_object).value
    _api.Py_DecRef(address)
    return obj


class Capi:
    """The capsule's table, called with the interpreter lock held; objects go in by address."""

    def __init__(self):
        table = (c_void_p * 5).from_address(_api.PyCapsule_GetPointer(kv._capi, CAPSULE_NAME))
        entry = lambda index, *types: ctypes.PYFUNCTYPE(*types)(table[index])  # noqa: E731
        self.wrap_address, self._unwrap = entry(0, c_void_p, c_void_p), entry(1, c_void_p, c_void_p)
        self._from_buffer = entry(2, c_void_p, c_void_p, POINTER(c_int32))
        self.destroy_address, self._check = entry(3, None, c_void_p), entry(4, c_bool, c_void_p)

    def wrap(self, impl):
        return _take(self.wrap_address(impl))

    def unwrap(self, obj):
        return self._unwrap(None if obj is None else id(obj))

    def array_from_buffer(self, obj):
        number = c_int32(-1)
        return _take(self._from_buffer(None if obj is None else id(obj), byref(number))), number.value

    def check_buffer(self, obj):
        return self._check(None if obj is None else id(obj))


class Provider:
    """libKerovaDataArray, loaded from the extension's directory."""

    def __init__(self):
        # Blocks that make(observed=True) lends to the library, and the addresses that their
        # deleter was called with, in order: each must come back exactly once.
        self.lent, self.released = {}, []
        self._deleter = ctypes.CFUNCTYPE(None, c_void_p)(self._release_block)
        self.lib = ctypes.CDLL(glob.glob(os.path.join(os.path.dirname(kv.__file__), "libKerovaDataArray.so*"))[0])
        self.lib.get_function_ptr.restype = c_void_p
        op = lambda number, *types: ctypes.CFUNCTYPE(*types)(self.lib.get_function_ptr(number))  # noqa: E731
        self._create_buffer = op(13, c_int, c_void_p, POINTER(c_void_p), POINTER(c_void_p), c_int, c_size_t)
        self._from_buffer = op(11, c_int, c_void_p, c_int, POINTER(c_size_t), c_size_t, c_void_p, c_void_p,
                               POINTER(c_void_p))
        self._dimensions = op(51, c_int, c_void_p, POINTER(c_size_t), POINTER(POINTER(c_size_t)))
        self._type = op(53, c_int, c_void_p, POINTER(c_int))
        self._release = op(60, c_int, c_void_p, c_bool, POINTER(c_void_p), POINTER(c_void_p))
        self.factory = c_void_p()
        assert op(14, c_int, POINTER(c_void_p))(byref(self.factory)) == 0

    def _release_block(self, address):
        self.released.append(address)
        self.lent.pop(address, None)

    def make(self, type_number, dims, raw, element_size, observed=False):
        """A new library array of `dims` whose storage holds the bytes `raw`: a block of the
        library's, or with `observed` one of ours, whose release is recorded in `released`."""
        data, deleter, out = c_void_p(), c_void_p(), c_void_p()
        if observed:
            block = ctypes.create_string_buffer(len(raw) or 1)
            data.value, deleter.value = ctypes.addressof(block), ctypes.cast(self._deleter, c_void_p).value
            self.lent[data.value] = block
        else:
            assert self._create_buffer(self.factory, byref(data), byref(deleter), type_number,
                                       len(raw) // element_size) == 0
        ctypes.memmove(data, raw, len(raw))
        shape = (c_size_t * len(dims))(*dims)
        assert self._from_buffer(self.factory, type_number, shape, len(dims), data, deleter, byref(out)) == 0
        return out.value

    def describe(self, impl, nbytes):
        """Type number, dimensions and a copy of the storage, taken without disturbing the array."""
        count, dims, number, data, deleter = c_size_t(), POINTER(c_size_t)(), c_int(), c_void_p(), c_void_p()
        assert self._type(impl, byref(number)) == 0
        assert self._dimensions(impl, byref(count), byref(dims)) == 0
        assert self._release(impl, False, byref(data), byref(deleter)) == 0
        contents = ctypes.string_at(data, nbytes)
        ctypes.CFUNCTYPE(None, c_void_p)(deleter.value)(data)
        return number.value, tuple(dims[:count.value]), contents

    @staticmethod
    def retag(impl, type_number):
        """Overwrites the type number that our provider keeps as the first field of an array:
        a stand-in for a library array of a kind that this provider cannot make."""
        c_int.from_address(impl).value = type_number
