"""The protocols other array libraries look for: shape, ndim, dtype, __array__, DLPack and
__sizeof__, against NumPy and, where installed, pandas and PyTorch."""

import ctypes
import gc
import sys
import threading

import numpy as np
import pytest

import kerova
from checks import elements, library, raises, releases
from model import KINDS

REAL = dict(zip(KINDS, "float64 float32 int8 uint8 int16 uint16 int32 uint32 int64 uint64 bool".split()))
# The NumPy (and PyTorch) type name of every kind and complexity that NumPy and DLPack have a type for.
NAMES = {**{(k, False): n for k, n in REAL.items()}, ("double", True): "complex128", ("single", True): "complex64"}
# NumPy 2.1 and later ask for versioned DLPack tensors and take copy and device; 2.0 (the
# last for CPython 3.9) asks for the legacy capsule and takes neither.
MODERN_DLPACK = np.lib.NumpyVersion(np.__version__) >= "2.1.0"
DLPACK_TYPES = dict(zip(KINDS, [(2, 64), (2, 32), (0, 8), (1, 8), (0, 16), (1, 16), (0, 32), (1, 32), (0, 64),
                                (1, 64), (6, 8)]))  # (type code, bits)


def make(kind, is_complex=False, shape=(2, 3, 2)):
    values = np.arange(int(np.prod(shape))).reshape(shape, order="F")
    values = values % 3 == 1 if kind == "logical" else values % 50 + 1 + (1j * values[..., ::-1] if is_complex else 0)
    return getattr(kerova, kind)(values.tolist(), **({"is_complex": True} if is_complex else {}))


def expected(a, name):
    """The elements as a NumPy array, read one by one through indexing."""
    return np.array(elements(a), dtype=name)


class DLTensor(ctypes.Structure):
    _fields_ = [("data", ctypes.c_void_p), ("device", ctypes.c_int32 * 2), ("ndim", ctypes.c_int32),
                ("type", ctypes.c_uint8 * 2), ("lanes", ctypes.c_uint16), ("shape", ctypes.POINTER(ctypes.c_int64)),
                ("strides", ctypes.POINTER(ctypes.c_int64)), ("byte_offset", ctypes.c_uint64)]


DELETER = ctypes.CFUNCTYPE(None, ctypes.c_void_p)  # a call through it releases the GIL
LEGACY = type("Legacy", (ctypes.Structure,), {"_fields_": [
    ("dl_tensor", DLTensor), ("manager_ctx", ctypes.c_void_p), ("deleter", DELETER)]})
VERSIONED = type("Versioned", (ctypes.Structure,), {"_fields_": [
    ("version", ctypes.c_uint32 * 2), ("manager_ctx", ctypes.c_void_p), ("deleter", DELETER),
    ("flags", ctypes.c_uint64), ("dl_tensor", DLTensor)]})
USED = {b"dltensor": b"used_dltensor", b"dltensor_versioned": b"used_dltensor_versioned"}  # alive while renamed
API = ctypes.PyDLL(None)  # the interpreter's functions, typed here without touching ctypes.pythonapi's
API.PyCapsule_GetName.restype, API.PyCapsule_GetName.argtypes = ctypes.c_char_p, [ctypes.py_object]
API.PyCapsule_GetPointer.restype = ctypes.c_void_p
API.PyCapsule_GetPointer.argtypes = API.PyCapsule_SetName.argtypes = [ctypes.py_object, ctypes.c_char_p]


def consume(capsule):
    """Takes the tensor out of `capsule` as a consumer does; the caller then calls its deleter."""
    name = API.PyCapsule_GetName(capsule)
    structure = VERSIONED if name == b"dltensor_versioned" else LEGACY
    tensor = structure.from_address(API.PyCapsule_GetPointer(capsule, name))
    API.PyCapsule_SetName(capsule, USED[name])
    return name, tensor


@pytest.mark.parametrize("kind, is_complex", NAMES)
def test_numpy_reads_the_array_by_its_protocols(kind, is_complex):
    a, name = make(kind, is_complex), NAMES[kind, is_complex]
    assert (a.shape, a.ndim, a.dtype, a[1].shape, a[1].ndim) == (a.size, 3, np.dtype(name), (3, 2), 2)
    view = a.__array__()
    assert not view.flags.writeable and view.flags.f_contiguous and np.array_equal(view, expected(a, name))
    assert np.shares_memory(view, np.asarray(memoryview(a))) and np.shares_memory(np.array(a, copy=False), view)
    for copied in (a.__array__(copy=True), np.array(a, copy=True)):
        assert copied.flags.writeable and not np.shares_memory(copied, view) and np.array_equal(copied, view)
    tensor, part = np.from_dlpack(a), np.from_dlpack(a[1])  # a partial array exports as its buffer export does
    assert not tensor.flags.writeable and np.shares_memory(tensor, view) and tensor.strides == view.strides
    assert tensor.dtype == view.dtype and np.array_equal(tensor, view) and np.array_equal(part, expected(a[1], name))
    assert part.strides == memoryview(a[1]).strides
    assert not MODERN_DLPACK or np.from_dlpack(a, copy=True).flags.writeable


@pytest.mark.parametrize("kind", KINDS[2:-1])
def test_complex_integer_kinds_have_no_numpy_or_dlpack_type(kind):
    a = getattr(kerova, kind)([[1, 2]], is_complex=True)
    assert (a.shape, a.ndim) == ((1, 2), 2)
    raises(lambda: a.dtype, TypeError, f"complex {kind} arrays have no NumPy dtype.")
    raises(a.__array__, TypeError, f"complex {kind} arrays have no NumPy dtype.")
    raises(lambda: a.__dlpack__(max_version=(1, 0)), BufferError, f"complex {kind} arrays have no DLPack type.")


@pytest.mark.parametrize("args, copy, dtype, shared", [
    ((), None, "int16", True), ((), False, "int16", True), (("i2",), False, "int16", True),
    ((), True, "int16", False), ((np.float32,), None, "float32", False), ((np.float32,), True, "float32", False)])
def test_array_converts_and_copies_only_as_asked(args, copy, dtype, shared):
    a = kerova.int16([[1, 2], [3, 4]])
    result = a.__array__(*args, copy=copy) if copy is not None else a.__array__(*args)  # as NumPy 1 calls it
    assert result.dtype == dtype and result.flags.f_contiguous and result.tolist() == [[1, 2], [3, 4]]
    assert np.shares_memory(result, np.asarray(a)) == shared and result.flags.writeable != shared


def test_array_refuses_a_needed_copy_and_needs_numpy(monkeypatch):
    a = kerova.int16([[1, 2], [3, 4]])
    raises(lambda: a.__array__(np.float64, copy=False), ValueError,
           "converting a kerova.int16 array to float64 needs a copy.")
    monkeypatch.setitem(sys.modules, "numpy", None)
    for action in (lambda: a.dtype, a.__array__):
        raises(action, ImportError, "NumPy is needed for the dtype of a kerova array and for __array__.")
    assert a.__dlpack__() is not None and a.ndim == 2


@pytest.mark.parametrize("kind, is_complex", NAMES)
@pytest.mark.parametrize("max_version, copy, name, flags", [
    (None, None, b"dltensor", None), ((0, 8), True, b"dltensor", None),
    ((1, 0), False, b"dltensor_versioned", 1), ((1, 3), True, b"dltensor_versioned", 2)])  # read-only, copied
def test_dlpack_capsule_holds_the_tensor_until_it_is_let_go(kind, is_complex, max_version, copy, name, flags):
    a = make(kind, is_complex, (3, 4))
    baseline = sys.getrefcount(a)
    a.__dlpack__(max_version=max_version)  # never consumed: freed with the capsule
    capsule = a.__dlpack__(max_version=max_version, copy=copy)
    found, tensor = consume(capsule)
    assert found == name and (flags is None or (tuple(tensor.version), tensor.flags) == ((1, 0), flags))
    t, (code, bits) = tensor.dl_tensor, DLPACK_TYPES[kind]
    assert (tuple(t.device), t.ndim, tuple(t.type), t.lanes, t.byte_offset, t.shape[:2], t.strides[:2]) == (
        (1, 0), 2, (5, 2 * bits) if is_complex else (code, bits), 1, 0, [3, 4], [1, 3])
    assert (t.data == a.buffer_info()[0]) == (not copy)
    del capsule
    assert sys.getrefcount(a) == baseline + (not copy)  # the tensor holds the array's export
    worker = threading.Thread(target=tensor.deleter, args=(ctypes.addressof(tensor),))
    worker.start()
    worker.join()
    assert sys.getrefcount(a) == baseline


@pytest.mark.parametrize("call, error, message", [
    (lambda a: a.__dlpack__(stream=1), ValueError, "stream must be None for arrays in CPU memory."),
    (lambda a: a.__dlpack__(dl_device=(1, 1)), BufferError,
     "arrays can only be exported to the CPU, dl_device (1, 0)."),
    (lambda a: a.__dlpack__(dl_device="cpu"), TypeError, "dl_device must be None or a tuple (device_type, device_id)."),
    (lambda a: a.__dlpack__(max_version=(1,)), TypeError, "max_version must be None or a tuple (major, minor)."),
    (lambda a: a.__dlpack__(max_version=(2 ** 70, 0)), OverflowError, None),
    (lambda a: a.__dlpack__(copy=np.array([1, 2])), ValueError, None),  # no truth value
    (lambda a: a.__dlpack__(None), TypeError, None),  # keyword-only
    (lambda a: a.__array__(None, None, None), TypeError, None)])
def test_refusals_leave_the_array_as_it_was(call, error, message):
    a = make("double")
    with releases(a):
        raises(lambda: call(a), error, message)
    where = {"device": "cpu"} if MODERN_DLPACK else {}
    assert a.__dlpack_device__() == (1, 0) and np.array_equal(np.from_dlpack(a, **where), expected(a, "float64"))


def test_exports_outlive_a_reshape_and_the_array():
    a = make("double", False, (3, 4))  # its storage holds 1 to 12
    before, capsule = np.asarray(a).copy(), a.__dlpack__(**({"max_version": (1, 0)} if MODERN_DLPACK else {}))
    pending = type("Pending", (), {"__dlpack__": lambda self, **_: capsule, "__dlpack_device__": lambda self: (1, 0)})
    exports, row = [np.from_dlpack(a), a.__array__(), np.asarray(a), memoryview(a)], memoryview(a[1])
    a[0:1].reshape(2, 6)  # a cursor with only a final slice reshapes the store
    assert (a.size, a.get_bytewise_strides()) == ((2, 6), (8, 16))
    a[0][0] = -1.0  # written to the array's memory, not to the exports'
    assert [list(r) for r in a] == np.asarray(a).tolist() == [[-1, 3, 5, 7, 9, 11], [2, 4, 6, 8, 10, 12]]
    del a
    gc.collect()
    assert row.shape == (1, 4) and row.tolist() == [before[1].tolist()]
    for result in (*exports, np.from_dlpack(pending())):  # the capsule was made before the reshape
        assert result.shape == (3, 4) and np.array_equal(result, before)


def test_sizeof_counts_the_element_blocks():
    small, large = kerova.double(size=(2, 2)), kerova.double(size=(1000, 1000))
    assert sys.getsizeof(large) - sys.getsizeof(small) == 2 * 8 * (10 ** 6 - 4)  # the library's and the mirror
    row = large[0]
    assert sys.getsizeof(row) == sys.getsizeof(large)  # a partial array counts the store it refers to
    memoryview(row)  # and then its materialised copy, 1 by 1000
    assert sys.getsizeof(row) == sys.getsizeof(large) + 2 * 8 * 1000
    row = large[1]
    row.clone()  # a copy kept for the clone alone, without a mirror
    assert sys.getsizeof(row) == sys.getsizeof(large) + 8 * 1000


@pytest.mark.parametrize("kind", ["double", "int8", "uint16", "logical"])
def test_pandas_takes_the_values_with_their_type(kind):
    pandas, a = library("pandas"), make(kind, False, (3, 4))
    frame = pandas.DataFrame(a)
    assert set(frame.dtypes) == {np.dtype(REAL[kind])} and np.array_equal(frame.to_numpy(), expected(a, REAL[kind]))


@pytest.mark.parametrize("kind, is_complex", NAMES)
def test_torch_takes_the_memory_through_dlpack(kind, is_complex):
    torch, a, name = library("torch"), make(kind, is_complex), NAMES[kind, is_complex]
    tensor = torch.from_dlpack(a)
    assert tensor.dtype == getattr(torch, name) and tensor.stride() == (1, 2, 6)
    assert tensor.data_ptr() == a.buffer_info()[0] and np.array_equal(tensor.numpy(), expected(a, name))
