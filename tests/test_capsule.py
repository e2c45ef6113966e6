"""The five entries of the native capsule, called as another extension module calls them."""

import ctypes

import numpy as np
import pytest

import kerova
from support.consumer import Capi, Provider

PARTS = {3: np.float64, 4: np.float32, 5: np.int8, 6: np.uint8, 7: np.int16, 8: np.uint16, 9: np.int32,
         10: np.uint32, 11: np.int64, 12: np.uint64}
KIND_OF = dict(zip(range(3, 13), ["double", "single", "int8", "uint8", "int16", "uint16", "int32", "uint32",
                                  "int64", "uint64"]))
# ArrayType number, class, complex, part type
LIBRARY_TYPES = ([(0, "logical", False, np.bool_)] + [(n, KIND_OF[n], False, PARTS[n]) for n in PARTS]
                 + [(n + 10, KIND_OF[n], True, PARTS[n]) for n in PARTS])


@pytest.fixture(scope="module")
def capi():
    return Capi()


@pytest.fixture(scope="module")
def provider():
    return Provider()


@pytest.mark.parametrize("number, kind, is_complex, part", LIBRARY_TYPES, ids=[str(t[0]) for t in LIBRARY_TYPES])
def test_wrap_takes_over_library_arrays_of_every_type(capi, provider, number, kind, is_complex, part):
    parts = np.arange(1, 13 if is_complex else 7).astype(part)  # column-major 2 by 3, pairs interleaved
    impl = provider.make(number, (2, 3), parts.tobytes(), parts.itemsize * (2 if is_complex else 1))
    a = capi.wrap(impl)
    assert type(a) is getattr(kerova, kind) and a._is_complex is is_complex and a.size == (2, 3)
    assert memoryview(a).tobytes("F") == parts.tobytes()
    assert capi.unwrap(a) == impl and capi.unwrap(a) == impl  # lent, not handed over


def test_destroy_object_ends_an_unshared_array(capi, provider):
    capi.destroy_address(capi.wrap_address(provider.make(3, (1, 1), np.float64(2.0).tobytes(), 8)))


@pytest.mark.parametrize("number", [1, 2, 23])
def test_wrap_refuses_kinds_without_a_class(capi, provider, number):
    impl = provider.make(1, (1, 2), b"a\x00b\x00", 2)  # a text array, released by the refusal
    provider.retag(impl, number)
    with pytest.raises(RuntimeError, match=r"^invalid type\.$"):
        capi.wrap(impl)


def test_wrap_refuses_no_array(capi):
    with pytest.raises(RuntimeError, match=r"^null data pointer\.$"):
        capi.wrap(None)


def test_unwrap_lends_the_store_or_the_cached_copy_of_a_partial_array(capi, provider):
    a = kerova.int32([[1, 2, 3], [4, 5, 6]])
    whole = capi.unwrap(a)
    assert provider.describe(whole, 24) == (9, (2, 3), np.int32([1, 4, 2, 5, 3, 6]).tobytes())
    row = a[1]
    lent = capi.unwrap(row)
    assert lent not in (None, whole) and capi.unwrap(row) == lent
    assert provider.describe(lent, 12) == (9, (1, 3), np.int32([4, 5, 6]).tobytes())
    for foreign in (None, 5, "text"):
        with pytest.raises(RuntimeError, match=r"^object not initialized\.$"):
            capi.unwrap(foreign)


@pytest.mark.parametrize("source, kind, is_complex, number, listed", [
    (b"\x01\x02\x03", "uint8", False, 6, [[1, 2, 3]]),
    (np.array([[1.5, 2], [3, 4]]), "double", False, 3, [[1.5, 2.0], [3.0, 4.0]]),
    (np.array([[1, 2j]], dtype=np.complex128, order="F"), "double", True, 13, [[1, 2j]]),
    (np.array([1 + 1j], dtype=np.complex64), "single", True, 14, [[1 + 1j]]),
    (np.array([True, False]), "logical", False, 13, [[True, False]]),
    (np.array([-1], dtype=np.int64), "int64", False, 11, [[-1]]),  # exported as "l" of 8 bytes
    (np.array([7], dtype=np.uint64), "uint64", False, 12, [[7]]),  # exported as "L" of 8 bytes
])
def test_array_from_buffer(capi, source, kind, is_complex, number, listed):
    a, reported = capi.array_from_buffer(source)
    assert reported == number and type(a) is getattr(kerova, kind) and a._is_complex is is_complex
    assert np.asarray(a).tolist() == listed


def test_array_from_buffer_failures(capi, capfd):
    for nothing in (5, None, [1, 2]):
        assert capi.array_from_buffer(nothing) == (None, 32)
    with pytest.raises(RuntimeError, match=r"^format character not supported: <$"):
        capi.array_from_buffer((ctypes.c_double * 2)(1.0, 2.0))  # format "<d"
    assert capfd.readouterr().err == "Format character not found in enum: <\n"
    with pytest.raises(BufferError):
        capi.array_from_buffer(memoryview(b"\x01\x02\x03")[::2])  # not contiguous


@pytest.mark.parametrize("obj, expected", [(None, False), ("text", False), (b"", True), (kerova.double([1]), True)])
def test_check_buffer(capi, obj, expected):
    assert capi.check_buffer(obj) is expected
