"""Building arrays: the constructor forms that the property tests do not draw (positional and dictionary forms,
buffers, the module's own arrays), exact failure texts, and buffer import."""

import array
import functools
import itertools
import math
import struct

import numpy as np
import pytest

import kerova
from checks import FORMS, allocation, check, elements, evaluate, incompatible, raises, same
from model import DIFFERENT, FORMATS, KINDS, RECTANGULAR, TOO_LARGE, drop_trailing_ones
from support.consumer import Capi
from support.exporter import Exporter


# The kinds that formats 'l' and 'L' stand for by their item size, and the ones they don't.
LONG, OTHER = ("int32", "int64") if array.array("l").itemsize == 4 else ("int64", "int32")
CHAR = {"int32": "i", "int64": "q"}

NEGATIVE = "size cannot contain negative dimensions. Use nonnegative integers for dimensions."
NUMERIC = "value passed to initializer must be numeric."


def mismatch(dims, size):
    return f"dimensions of initializer ({dims}) do not match dimensions specified by 'size' ({size})."


FORMS_AND_FAILURES = [
    # (call, its size and elements read back by index, or (exception, message)); no array made here is complex
    ("double(range(3))", "(1, 3) [[0.0, 1.0, 2.0]]"), ("double(size=[True, 2])", "(1, 2) [[0.0, 0.0]]"),
    ("double([1, 2], size=(2, 1))", "(2, 1) [[1.0], [2.0]]"), ("double([], size=(0, 3))", "(0, 3) []"),
    ("double([1], vector=None, size=None, is_complex=False)", "(1, 1) [[1.0]]"),
    ("double(None, vector=[1])", "(1, 1) [[1.0]]"), ("double({'size': (1, 1)}, [1])", "(1, 1) [[1.0]]"),
    ("double(None, (2, 2), [1, 2, 3, 4])", "(2, 2) [[1.0, 3.0], [2.0, 4.0]]"),
    # the module's own arrays, walked and converted item by item
    ("double(uint8([[1, 2], [3, 250]]))", "(2, 2) [[1.0, 2.0], [3.0, 250.0]]"),
    ("int16(uint8([[1, 2], [3, 250]])[1])", "(1, 2) [[3, 250]]"),
    ("int8(uint8([[1, 250]]))", (OverflowError, "value (250) cannot be stored in a variable of type int8.")),
    # buffers, imported as they are
    ("uint8(b'')", "(0, 0) []"), ("int64(array.array('q', [-5]))", "(1, 1) [[-5]]"),
    ("uint64(array.array('Q', [2**64 - 1]))", "(1, 1) [[18446744073709551615]]"),
    (f"{LONG}(array.array('l', [-5]))", "(1, 1) [[-5]]"), (f"u{LONG}(array.array('L', [7]))", "(1, 1) [[7]]"),
    ("int16(array.array('h', [1, 2, 3, 4, 5, 6]), size=(2, 3))", "(2, 3) [[1, 3, 5], [2, 4, 6]]"),
    ("double(np.ones((2, 3, 1, 1)))", "(2, 3) [[1.0, 1.0, 1.0], [1.0, 1.0, 1.0]]"),
    ("uint8(vector=b'ab')", "(1, 2) [[97, 98]]"), ("uint8([b'ab', b'cd'])", "(2, 2) [[97, 98], [99, 100]]"),
    ("int8(b'a')", (BufferError, incompatible("B", "b"))),
    (f"u{LONG}(array.array('l', [7]))", (BufferError, incompatible("l", CHAR[LONG].upper()))),
    (f"{LONG}(array.array('L', [7]))", (BufferError, incompatible("L", CHAR[LONG]))),
    (f"{OTHER}(array.array('l', [7]))", (BufferError, incompatible("l", CHAR[OTHER]))),
    (f"u{OTHER}(array.array('L', [7]))", (BufferError, incompatible("L", CHAR[OTHER].upper()))),
    ("double(np.zeros(2), is_complex=True)",
     (BufferError, "input buffer format ('d') does not begin with 'Z', but output type is complex")),
    ("double(np.zeros(2, dtype=np.complex64), is_complex=True)", (BufferError, incompatible("Zf", "Zd"))),
    ("double(np.arange(6.0).reshape(2, 3), size=(3, 2))", (kerova.SizeError, mismatch("2, 3", "3, 2"))),
    ("double(np.arange(6.0), size=(2, 2))", (kerova.ShapeError, mismatch("6", "2, 2"))),
    # failures; None: the argument parser's own message
    ("double(1, 2, 3, 4, 5)", (TypeError, None)), ("double({'a': 1})", (TypeError, None)),
    ("double([1], None, [2], is_complex=False)", (TypeError, "more than two positional arguments must not be "
     "specified. A third will be treated as 'vector', which must not be specified when an initializer is specified.")),
    ("double([1], 5, vector=[2])", (TypeError, "initializer and 'vector' must not both be specified.")),
    ("double({'a': 1}, is_complex=False)", (TypeError, "type does not match.")),
    ("double([1], {'size': (1, 1)})", (TypeError, "value of 'size' must be a sequence.")),
    # later rows that leave the all-numbers road partway keep the general order of checks
    ("int64([[1, 2], [3, 2**70]])", (OverflowError, TOO_LARGE)), ("double([['a']])", (ValueError, NUMERIC)),
    ("double([[1, 2], [3, 'a']])", (ValueError, DIFFERENT)), ("double('ab')", (ValueError, NUMERIC)),
    *((call, (ValueError, RECTANGULAR)) for call in ["double([[[1, 2]], [[3]]])", "double([[[1]], [2]])",
                                                      "double([[[]], [[1]]])"]),
    ("double([[1, 2], [3, 4], [5, 6]], size=(2, 3))", (kerova.SizeError, mismatch("3, 2", "2, 3"))),
    ("double([[[1, 2]]], size=(1, 2))", (kerova.SizeError, mismatch("1, 1, 2", "1, 2"))),
    ("double(size=[2, -1, 2.0])", (ValueError, NEGATIVE)), ("double(size=[2**63])", (ValueError, NEGATIVE)),
    ("double(size=[2**31, 2**31])", (MemoryError, allocation(4611686018427387904, "double"))),
    ("int8([1], size=[2**40, 2**40])", (MemoryError, allocation(18446744073709551615, "int8"))),
]


@pytest.mark.parametrize("call, expected", FORMS_AND_FAILURES, ids=[row[0] for row in FORMS_AND_FAILURES])
def test_forms_give_shape_and_elements_or_fail_with_exact_type_and_text(call, expected):
    check(lambda: "%s %s%s" % ((a := evaluate(call, globals())).size, elements(a), " complex" * a._is_complex),
          expected)


# (kind, is_complex, numpy type of the source): every kind's own format, and the aliases
OWN = [np.float64, np.float32, *map(np.dtype, KINDS[2:-1]), np.bool_]
IMPORTS = [*((kind, False, dtype) for kind, dtype in zip(KINDS, OWN)), ("logical", False, np.uint8),
           ("uint8", False, np.bool_), ("double", True, np.complex128), ("single", True, np.complex64)]


@pytest.mark.parametrize("shape", [(2, 3), (3, 1), (2, 3, 4), (4,), (0, 3), ()], ids=str)
@pytest.mark.parametrize("order", ["C", "F"])
@pytest.mark.parametrize("kind, is_complex, dtype", IMPORTS,
                         ids=[f"{k}{'-complex' * c}-from-{np.dtype(t).name}" for k, c, t in IMPORTS])
def test_numpy_arrays_import_with_their_indices(kind, is_complex, dtype, order, shape):
    flat = np.arange(1, math.prod(shape) + 1)
    if kind == "logical" or dtype is np.bool_:
        flat %= 3  # zeros, ones and a 2 that logical reads as true
    values = flat * (1 - 2j) if is_complex else flat
    source = np.asarray(values.astype(dtype).reshape(shape), order=order)
    a = getattr(kerova, kind)(source, is_complex=is_complex)
    size = {(): (1, 1), (4,): (1, 4)}.get(shape, shape)
    expected = source.reshape(size).astype({"logical": np.bool_, "uint8": np.uint8}.get(kind, dtype))
    assert a.size == size and same(elements(a), expected.tolist())
    assert memoryview(a).tobytes("F") == expected.tobytes("F")  # logical holds 0 and 1 only


# Buffers with every legal choice of strides for their dimensions of length 1, which no element is reached through:
# the array must read back with the source's own indices.
LAYOUTS = [(2, 3), (1, 2, 3), (1, 1, 2, 3), (1, 1, 1, 2, 3), (2, 1, 3), (1, 2, 1, 3), (3, 1), (2, 3, 1)]


@pytest.mark.parametrize("lying", [0, 1], ids=["c-strides", "f-strides"])  # what the length-1 dims claim
@pytest.mark.parametrize("shape", LAYOUTS, ids=str)
@pytest.mark.parametrize("order", ["C", "F"])
@pytest.mark.parametrize("kind, is_complex", FORMS)
def test_buffer_order_follows_the_dimensions_longer_than_one(kind, is_complex, order, shape, lying):
    code, width = FORMATS[kind], 2 if is_complex else 1
    size = struct.calcsize(code) * width
    values = [v % 3 if kind == "logical" else v for v in range(1, math.prod(shape) * width + 1)]
    data = struct.pack(f"{len(values)}{code}", *values)
    strides, other = (np.empty(shape, f"V{size}", order=o).strides for o in (order, "CF"[lying]))  # contiguous
    strides = [o if n == 1 else s for s, o, n in zip(strides, other, shape)]
    source = Exporter(data, (b"Z" if is_complex else b"") + code.encode(), size, len(shape), shape, strides)
    a = getattr(kerova, kind)(source, is_complex=is_complex)
    if lying:  # the native modules' road reads the same buffer the same way
        assert Capi().array_from_buffer(source)[0] == a
    kept = drop_trailing_ones(list(shape))
    assert a.size == tuple(kept)
    for index in itertools.product(*map(range, kept)):  # each element read from the raw bytes through the strides
        parts = struct.unpack_from(code * width, data, sum(i * s for i, s in zip(index, strides)))
        expected = complex(*parts) if is_complex else bool(parts[0]) if kind == "logical" else parts[0]
        assert same(functools.reduce(lambda x, i: x[i], index, a), expected), index


NEITHER = "input buffer strides describe neither C nor Fortran order."
REFUSED_STRIDES = [(2, 2), (1, 1), (0, 0), (-3, -1), (3, -1), (1, 4), (2, 6),  # in elements
                   (-2**63, 1), (1, -2**63), (2**62, 2**62)]  # in bytes


@pytest.mark.parametrize("strides", REFUSED_STRIDES, ids=str)
@pytest.mark.parametrize("kind, is_complex, itemsize, road", [
    ("double", False, 8, {}), ("double", False, -1, {}), ("double", False, 8, {"size": (3, 2)}),
    ("int8", False, 1, {}), ("uint16", False, 0, {}), ("single", True, 8, {}), ("logical", False, 1, {}),
])
def test_buffer_whose_strides_describe_neither_order_is_refused(kind, is_complex, itemsize, road, strides):
    element = struct.calcsize(FORMATS[kind]) * (2 if is_complex else 1)
    fmt = (b"Z" if is_complex else b"") + FORMATS[kind].encode()
    strides = [s if abs(s) >= 2**62 else s * element for s in strides]
    source = Exporter(bytes(6 * element), fmt, itemsize, 2, (2, 3), strides)
    raises(lambda: getattr(kerova, kind)(source, is_complex=is_complex, **road), BufferError, NEITHER)
    if not road and itemsize > 0:
        raises(lambda: Capi().array_from_buffer(source), BufferError, NEITHER)
