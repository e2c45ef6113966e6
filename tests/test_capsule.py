"""The five entries of the native capsule, called as another extension module calls them."""

import ctypes
import os

import numpy as np
import pytest

import kerova
from checks import check, incompatible, python, raises, releases
from model import KINDS
from support.consumer import Capi, Provider
from support.exporter import Exporter

CAPI, PROVIDER = Capi(), Provider()
PARTS = [np.float64, np.float32] + [getattr(np, kind) for kind in KINDS[2:-1]]
# ArrayType number, class, complex, part type: logical is 0, the others from 3 on, and from 13 on if complex
LIBRARY_TYPES = [(0, "logical", False, np.bool_)] + [(n + 3 + 10 * c, kind, c, part) for c in (False, True)
                                                     for n, (kind, part) in enumerate(zip(KINDS, PARTS))]


@pytest.mark.parametrize("number, kind, is_complex, part", LIBRARY_TYPES, ids=[str(t[0]) for t in LIBRARY_TYPES])
def test_wrap_takes_over_library_arrays_of_every_type(number, kind, is_complex, part):
    parts = np.arange(1, 13 if is_complex else 7).astype(part)  # column-major 2 by 3, pairs interleaved
    impl = PROVIDER.make(number, (2, 3), parts.tobytes(), parts.itemsize * (2 if is_complex else 1))
    a = CAPI.wrap(impl)
    assert type(a) is getattr(kerova, kind) and a._is_complex is is_complex and a.size == (2, 3)
    assert memoryview(a).tobytes("F") == parts.tobytes()
    assert CAPI.unwrap(a) == impl and CAPI.unwrap(a) == impl  # lent, not handed over


DESTROY = """
import sys
from support.consumer import Capi, Provider
capi, provider = Capi(), Provider()
for number, size in [(3, 8), (13, 16), (0, 1), (6, 1)]:
    impl = provider.make(number, (2, 3), bytes(range(6 * size)), size, observed=True)
    (address, block), = provider.lent.items()
    references = sys.getrefcount(block)
    capi.destroy_address(capi.wrap_address(impl))
    assert provider.released == [address] and not provider.lent, provider.released
    assert sys.getrefcount(block) == references - 1  # the deleter let go of it
    provider.released.clear()
"""


def test_destroy_object_ends_the_array_and_releases_its_storage_once():
    # Under the debug allocator, where an object or a block released twice stops the
    # interpreter with a fatal error, or crashes it.
    tests = os.path.dirname(os.path.abspath(__file__))
    path = os.pathsep.join(filter(None, [tests, os.environ.get("PYTHONPATH")]))
    env = {**os.environ, "PYTHONMALLOC": "debug", "PYTHONPATH": path}
    if "ASAN_OPTIONS" in env:  # the interpreter keeps its debug-allocated blocks at exit
        env["ASAN_OPTIONS"] += ":detect_leaks=0"
    python("-c", DESTROY, env=env)


@pytest.mark.parametrize("number", [1, 2, 23])
def test_wrap_refuses_kinds_without_a_class(number):
    impl = PROVIDER.make(1, (1, 2), b"a\x00b\x00", 2)  # a text array, released by the refusal
    PROVIDER.retag(impl, number)
    raises(lambda: CAPI.wrap(impl), RuntimeError, "invalid type.")
    raises(lambda: CAPI.wrap(None), RuntimeError, "null data pointer.")


def test_unwrap_lends_the_store_or_the_cached_copy_of_a_partial_array():
    a = kerova.int32([[1, 2, 3], [4, 5, 6]])
    whole = CAPI.unwrap(a)
    assert PROVIDER.describe(whole, 24) == (9, (2, 3), np.int32([1, 4, 2, 5, 3, 6]).tobytes())
    row = a[1]
    lent = CAPI.unwrap(row)
    assert lent not in (None, whole) and CAPI.unwrap(row) == lent
    assert PROVIDER.describe(lent, 12) == (9, (1, 3), np.int32([4, 5, 6]).tobytes())
    for foreign in (None, 5, "text"):
        raises(lambda: CAPI.unwrap(foreign), RuntimeError, "object not initialized.")


@pytest.mark.parametrize("source, expected", [
    # the reported type number, the class, its complex flag and the values; or (exception, message)
    (b"\x01\x02\x03", "6 uint8 False [[1, 2, 3]]"), (kerova.int16([[1, 2]]), "7 int16 False [[1, 2]]"),
    (np.array([[1.5, 2], [3, 4]]), "3 double False [[1.5, 2.0], [3.0, 4.0]]"),
    (np.array([[1, 2j]], dtype=np.complex128, order="F"), "13 double True [[(1+0j), 2j]]"),
    (np.array([1 + 1j], dtype=np.complex64), "14 single True [[(1+1j)]]"),
    (np.array([True, False]), "13 logical False [[True, False]]"),
    (np.array([-1], dtype=np.int64), "11 int64 False [[-1]]"),  # exported as "l" of 8 bytes
    (np.array([7], dtype=np.uint64), "12 uint64 False [[7]]"),  # exported as "L" of 8 bytes
    ((ctypes.c_double * 2)(1.0, 2.0), (RuntimeError, "format character not supported: <")),
    (memoryview(b"\x01\x02\x03")[::2], (BufferError, None)),  # not contiguous
    (Exporter(b"\x00" * 8, None, 8), (RuntimeError, "format field is null.")),
    (Exporter(b"\x00" * 8, b"", 8), (RuntimeError, "format field is empty.")),
    (Exporter(b"\x00" * 8, b"Z?", 2), (TypeError, "logical arrays must not be complex.")),
    (Exporter(b"\x00" * 16, b"Z", 16), (BufferError, incompatible("Z", "Zd"))),
])
def test_array_from_buffer(source, expected, capfd):
    def made():
        (a, number), readable = CAPI.array_from_buffer(source), CAPI.check_buffer(source)
        return f"{number} {type(a).__name__} {a._is_complex} {np.asarray(a).tolist()}" if readable else "not readable"
    for nothing in (5, None, [1, 2], "text"):
        assert CAPI.array_from_buffer(nothing) == (None, 32) and CAPI.check_buffer(nothing) is False
    with releases(source):  # the view was released
        check(made, expected)
    assert capfd.readouterr().err == ("Format character not found in enum: <\n" if ": <" in str(expected) else "")
