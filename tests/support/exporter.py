"""A buffer exporter that hands out whatever Py_buffer a test describes: any format, item
size, length, number of dimensions, shape and strides, null fields included. It is a heap
type made with PyType_FromSpec whose bf_getbuffer slot is a ctypes callback."""

import ctypes
from ctypes import POINTER, c_char_p, c_int, c_ssize_t, c_uint, c_void_p

from support.consumer import Py_buffer

Py_bf_getbuffer, Py_TPFLAGS_BASETYPE = 1, 1 << 10


class _Slot(ctypes.Structure):
    _fields_ = [("slot", c_int), ("pfunc", c_void_p)]


class _Spec(ctypes.Structure):
    _fields_ = [("name", c_char_p), ("basicsize", c_int), ("itemsize", c_int), ("flags", c_uint),
                ("slots", POINTER(_Slot))]


_incref = ctypes.pythonapi.Py_IncRef
_incref.argtypes = [ctypes.py_object]


def _getbuffer(exporter, view, flags):
    """Fills the view from the exporter's description; what the view points into stays with
    the exporter. An export never fails: errors can't be raised from a ctypes callback."""
    held = exporter.fill(view.contents)
    exporter.held.append(held)
    _incref(exporter)
    view.contents.obj = id(exporter)
    return 0


_callback = ctypes.CFUNCTYPE(c_int, ctypes.py_object, POINTER(Py_buffer), c_int)(_getbuffer)
_slots = (_Slot * 2)(_Slot(Py_bf_getbuffer, ctypes.cast(_callback, c_void_p)), _Slot(0, None))
_spec = _Spec(b"support.exporter.Base", 0, 0, Py_TPFLAGS_BASETYPE, _slots)
ctypes.pythonapi.PyType_FromSpec.restype = ctypes.py_object
ctypes.pythonapi.PyType_FromSpec.argtypes = [POINTER(_Spec)]
_Base = ctypes.pythonapi.PyType_FromSpec(ctypes.byref(_spec))


class Exporter(_Base):
    """Exports `data` with the given fields; `length` defaults to the size of the data, and
    `shape` and `strides` of None are null pointers."""

    def __init__(self, data=b"", format=b"B", itemsize=1, ndim=1, shape=None, strides=None, length=None):
        self.data, self.format, self.itemsize, self.ndim = data, format, itemsize, ndim
        self.shape, self.strides, self.length, self.held = shape, strides, length, []

    def fill(self, view):
        block = ctypes.create_string_buffer(self.data, max(len(self.data), 1))
        shape = None if self.shape is None else (c_ssize_t * len(self.shape))(*self.shape)
        strides = None if self.strides is None else (c_ssize_t * len(self.strides))(*self.strides)
        view.buf, view.len = ctypes.addressof(block), len(self.data) if self.length is None else self.length
        view.itemsize, view.readonly, view.ndim, view.format = self.itemsize, 1, self.ndim, self.format
        view.shape, view.strides, view.suboffsets, view.internal = shape, strides, None, None
        return block, shape, strides
