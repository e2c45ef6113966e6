"""Building arrays from Python values: constructor forms, element conversion, shape
inference from nested sequences, the size and vector arguments, and buffer import."""

import array
import math
import re

import pytest

import kerova

np = pytest.importorskip("numpy")

INF, NAN = float("inf"), float("nan")


def read(x):
    """The elements as nested lists, read by chained indexing."""
    items = [x[i] for i in range(len(x))]
    return [read(item) if isinstance(item, type(x)) else item for item in items]


def build(kind, args=(), kwargs=None):
    """kind(*args, **kwargs), passing no keyword dictionary at all when there are none:
    a leading dictionary only stands for the keywords when no other keywords exist."""
    construct = getattr(kerova, kind)
    return construct(*args, **kwargs) if kwargs else construct(*args)


def same(x, y):
    """Equality of element values and their types that also holds for NaN."""
    if isinstance(x, list):
        return isinstance(y, list) and len(x) == len(y) and all(map(same, x, y))
    if isinstance(x, float) and math.isnan(x):
        return isinstance(y, float) and math.isnan(y)
    return type(x) is type(y) and x == y


def raises_exactly(exception, message, action):
    with pytest.raises(exception) as caught:
        action()
    assert type(caught.value) is exception
    assert message is None or str(caught.value) == message


class Short:
    """A sequence that claims two items and holds one."""
    __len__ = lambda self: 2  # noqa: E731
    __getitem__ = lambda self, i: [1][i]  # noqa: E731


F = type("F", (float,), {})  # subclasses count as what they derive from
I = type("I", (int,), {})  # noqa: E741


# --- constructor forms -------------------------------------------------------------

# The kinds that formats 'l' and 'L' stand for by their item size, and the ones they don't.
LONG, OTHER = ("int32", "int64") if array.array("l").itemsize == 4 else ("int64", "int32")
CHAR = {"int32": "i", "int64": "q"}

FORMS = [
    # (kind, args, kwargs, size, elements read back by index)
    ("double", (), {}, (0, 0), []),
    ("double", (5,), {}, (1, 1), [[5.0]]),
    ("double", ([],), {}, (0, 0), []),
    ("double", ([1, 2, 3],), {}, (1, 3), [[1.0, 2.0, 3.0]]),
    ("double", ([[1, 2, 3], [4, 5, 6]],), {}, (2, 3), [[1.0, 2.0, 3.0], [4.0, 5.0, 6.0]]),
    ("double", ([[[1, 2], [3, 4]], [[5, 6], [7, 8]]],), {}, (2, 2, 2),
     [[[1.0, 2.0], [3.0, 4.0]], [[5.0, 6.0], [7.0, 8.0]]]),
    ("double", (range(3),), {}, (1, 3), [[0.0, 1.0, 2.0]]),
    ("double", ([[], []],), {}, (2, 0), [[], []]),
    ("double", ([[[]]],), {}, (1, 1, 0), [[[]]]),
    ("double", ([[[5]]],), {}, (1, 1), [[5.0]]),
    ("double", ([[1], [2], [3]],), {}, (3, 1), [[1.0], [2.0], [3.0]]),
    ("double", ([[[1, 2]]],), {}, (1, 1, 2), [[[1.0, 2.0]]]),
    ("double", ([[[[1]], [[2]]]],), {}, (1, 2), [[1.0, 2.0]]),
    ("double", (), {"size": (2, 3)}, (2, 3), [[0.0] * 3] * 2),
    ("double", (), {"size": (3,)}, (1, 3), [[0.0] * 3]),
    ("double", (), {"size": [True, 2]}, (1, 2), [[0.0, 0.0]]),
    ("double", (), {"size": (2, 3, 1, 1)}, (2, 3), [[0.0] * 3] * 2),
    ("double", (), {"size": (2, 1, 3)}, (2, 1, 3), [[[0.0] * 3]] * 2),
    ("double", ([1, 2, 3, 4, 5, 6],), {"size": (2, 3)}, (2, 3), [[1.0, 3.0, 5.0], [2.0, 4.0, 6.0]]),
    ("double", ([1, 2],), {"size": (2, 1)}, (2, 1), [[1.0], [2.0]]),
    ("double", ([],), {"size": (0, 3)}, (0, 3), []),
    ("double", ([1],), {"vector": None, "size": None, "is_complex": False}, (1, 1), [[1.0]]),
    ("double", (), {"vector": [1, 2, 3]}, (1, 3), [[1.0, 2.0, 3.0]]),
    ("double", (), {"vector": []}, (1, 0), [[]]),
    ("double", (), {"vector": (1, 2, 3, 4), "size": (2, 2)}, (2, 2), [[1.0, 3.0], [2.0, 4.0]]),
    ("double", (), {"vector": [5], "size": (1, 1)}, (1, 1), [[5.0]]),
    ("double", (None,), {"vector": [1]}, (1, 1), [[1.0]]),
    ("double", (None, (2, 2), [1, 2, 3, 4]), {}, (2, 2), [[1.0, 3.0], [2.0, 4.0]]),
    ("double", ({"size": (2, 2)},), {}, (2, 2), [[0.0, 0.0], [0.0, 0.0]]),
    ("double", ({"size": (1, 1)}, [1]), {}, (1, 1), [[1.0]]),
    # the module's own arrays, walked and converted item by item
    ("double", (kerova.uint8([[1, 2], [3, 250]]),), {}, (2, 2), [[1.0, 2.0], [3.0, 250.0]]),
    ("int16", (kerova.uint8([[1, 2], [3, 250]])[1],), {}, (1, 2), [[3, 250]]),
    # buffers, imported as they are
    ("uint8", (b"abc",), {}, (1, 3), [[97, 98, 99]]),
    ("uint8", (b"",), {}, (0, 0), []),
    ("logical", (b"\x00\x02\x01",), {}, (1, 3), [[False, True, True]]),
    ("double", (array.array("d", [1.0, 2.0]),), {}, (1, 2), [[1.0, 2.0]]),
    ("int64", (array.array("q", [-5]),), {}, (1, 1), [[-5]]),
    ("uint64", (array.array("Q", [2**64 - 1]),), {}, (1, 1), [[2**64 - 1]]),
    (LONG, (array.array("l", [-5]),), {}, (1, 1), [[-5]]),
    ("u" + LONG, (array.array("L", [7]),), {}, (1, 1), [[7]]),
    ("uint8", (memoryview(kerova.uint8([[1, 2], [3, 4]])),), {}, (2, 2), [[1, 2], [3, 4]]),
    ("int16", (array.array("h", [1, 2, 3, 4, 5, 6]),), {"size": (2, 3)}, (2, 3), [[1, 3, 5], [2, 4, 6]]),
    ("double", (np.ones((2, 3, 1, 1)),), {}, (2, 3), [[1.0] * 3] * 2),
    ("uint8", ([b"ab", b"cd"],), {}, (2, 2), [[97, 98], [99, 100]]),
    ("uint8", (), {"vector": b"ab"}, (1, 2), [[97, 98]]),
]


def label(*values):
    text = "-".join(v if isinstance(v, str) else repr(v) for v in values)
    return re.sub(" at 0x[0-9a-f]+", "", text)[:80]


def ids(rows):
    return [label(*row[:3]) for row in rows]


@pytest.mark.parametrize("kind, args, kwargs, size, elements", FORMS, ids=ids(FORMS))
def test_forms_give_shape_and_elements(kind, args, kwargs, size, elements):
    a = build(kind, args, kwargs)
    assert a.size == size and a._is_complex is False
    assert same(read(a), elements)


def test_constructed_array_does_not_share_its_source():
    source = [[1, 2], [3, 4]]
    buffer = np.array(source, dtype=np.float64)
    a, b = kerova.double(source), kerova.double(buffer)
    source[0][0] = buffer[0, 0] = 9
    assert a[0][0] == 1.0 and b[0][0] == 1.0


# --- element conversion ------------------------------------------------------------

FLOAT_REFUSED = "kerova.{} does not accept floating-point values."
COMPLEX_REFUSED = "kerova.{} does not accept complex values if 'is_complex' is not set to 'True'."
TOO_LARGE = "Python int too large to convert to C long long"
FLT_MAX = 3.4028234663852886e38


def out_of_range(value, kind):
    return f"value ({value}) cannot be stored in a variable of type {kind}."


CONVERSIONS = [
    # (kind, is_complex, input, stored element or (exception, message))
    ("int8", False, True, 1),
    ("int8", False, I(7), 7),
    ("int8", False, 128, (OverflowError, out_of_range(128, "int8"))),
    ("int8", False, -129, (OverflowError, out_of_range(-129, "int8"))),
    ("int8", False, F(1.0), (TypeError, FLOAT_REFUSED.format("int8"))),
    ("int8", False, 1j, (TypeError, COMPLEX_REFUSED.format("int8"))),
    ("uint8", False, -1, (OverflowError, out_of_range(-1, "uint8"))),
    ("uint8", False, 256, (OverflowError, out_of_range(256, "uint8"))),
    ("uint8", False, 2**70, (OverflowError, TOO_LARGE)),
    ("uint8", False, -2**70, (OverflowError, TOO_LARGE)),
    ("int16", False, 32768, (OverflowError, out_of_range(32768, "int16"))),
    ("uint16", False, 65536, (OverflowError, out_of_range(65536, "uint16"))),
    ("int32", False, 2**31, (OverflowError, out_of_range(2**31, "int32"))),
    ("uint32", False, 2**32, (OverflowError, out_of_range(2**32, "uint32"))),
    ("int64", False, 2**63, (OverflowError, TOO_LARGE)),
    ("uint64", False, 2**64, (OverflowError, TOO_LARGE)),
    ("double", False, True, 1.0),
    ("double", False, F(1.5), 1.5),
    ("double", False, 2**70, (OverflowError, TOO_LARGE)),
    ("double", False, 1j, (TypeError, COMPLEX_REFUSED.format("double"))),
    ("double", False, None, (TypeError, "value must not be 'None'.")),
    ("double", False, object(), (TypeError, "type does not match.")),
    ("single", False, -FLT_MAX, -FLT_MAX),
    ("single", False, 3.4028235e38, INF),
    ("single", False, -1e300, INF),
    ("single", False, NAN, NAN),
    ("single", False, -2**70, INF),
    ("logical", False, 0.0, False),
    ("logical", False, NAN, True),
    ("logical", False, 0j, False),
    ("logical", False, 1j, True),
    ("logical", False, 2**70, (OverflowError, TOO_LARGE)),
    ("int8", True, 127.9, 127 + 0j),
    ("int8", True, -128.9, -128 + 0j),
    ("int8", True, 128.0, (OverflowError, out_of_range(128, "int8"))),
    ("int8", True, INF, (OverflowError, out_of_range("inf", "int8"))),
    ("int8", True, 128, (OverflowError, out_of_range(128, "int8"))),
    ("int8", True, None, 0j),
    ("uint8", True, -0.5, 0j),
    ("uint8", True, -1.0, (OverflowError, out_of_range(-1, "uint8"))),
    ("uint8", True, complex(300, -1), (OverflowError, out_of_range(300, "uint8"))),
    ("uint8", True, complex(1, 300.5), (OverflowError, out_of_range(300.5, "uint8"))),
    ("int32", True, 1.5 + 2.5j, 1 + 2j),
    ("int32", True, complex(NAN, 1), 1j),
    ("int64", True, -9223372036854775808.0, (OverflowError, out_of_range("-9.22337e+18", "int64"))),
    ("uint64", True, 2.0**64, (OverflowError, out_of_range("1.84467e+19", "uint64"))),
    ("single", True, 2**70, complex(INF, 0)),
    ("single", True, complex(-1e300, -INF), complex(INF, INF)),
    ("double", True, 2**70, (OverflowError, TOO_LARGE)),
]


@pytest.mark.parametrize("road", ["initializer", "vector"])
@pytest.mark.parametrize("kind, is_complex, value, expected", CONVERSIONS,
                         ids=[label(k, v) + "-complex" * c for k, c, v, _ in CONVERSIONS])
def test_element_conversion(kind, is_complex, value, expected, road):
    """Both roads store the same elements; every refusal on the vector road is a ValueError."""
    def construct():
        return getattr(kerova, kind)(**{road: [value]}, is_complex=is_complex)

    if isinstance(expected, tuple):
        raises_exactly(expected[0] if road == "initializer" else ValueError, expected[1], construct)
    else:
        assert same(construct()[0][0], expected)


# --- failures -----------------------------------------------------------------------

NOT_RECTANGULAR = "arrays must be rectangular."
DIFFERENT = "elements of array are of different lengths or types."
NEGATIVE = "size cannot contain negative dimensions. Use nonnegative integers for dimensions."


def incompatible(given, expected):
    return (f"input buffer format ('{given}') is not compatible with output format ('{expected}'); "
            "use a different input or output type")


def mismatch(dims, size):
    return f"dimensions of initializer ({dims}) do not match dimensions specified by 'size' ({size})."


FAILURES = [
    # (kind, args, kwargs, exception, message); None: the argument parser's own message
    ("double", (1, 2, 3, 4, 5), {}, TypeError, None),
    ("double", ({"a": 1},), {}, TypeError, None),
    ("double", ([1],), {"is_complex": 1}, TypeError, "value passed to 'is_complex' must be a bool."),
    ("logical", (), {"size": "bad", "is_complex": True}, TypeError, "logical arrays must not be complex."),
    ("double", ([1], None, [2]), {"is_complex": False}, TypeError,
     "more than two positional arguments must not be specified. A third will be treated as "
     "'vector', which must not be specified when an initializer is specified."),
    ("double", ([1], 5), {"vector": [2]}, TypeError, "initializer and 'vector' must not both be specified."),
    ("double", ({"a": 1},), {"is_complex": False}, TypeError, "type does not match."),
    ("double", ([1], {"size": (1, 1)}), {}, TypeError, "value of 'size' must be a sequence."),
    ("double", ([1, [2]],), {}, ValueError, DIFFERENT),
    ("double", ([[1, 2], [3]],), {}, ValueError, DIFFERENT),
    # later rows that leave the all-numbers road partway keep the general order of checks
    ("int64", ([[1, 2], [3, 2**70]],), {}, OverflowError, "Python int too large to convert to C long long"),
    ("double", ([[1, 2], [3, "a"]],), {}, ValueError, DIFFERENT),
    ("double", ([[[1, 2]], [[3]]],), {}, ValueError, NOT_RECTANGULAR),
    ("double", ([[[1]], [2]],), {}, ValueError, NOT_RECTANGULAR),
    ("double", ([[[]], [[1]]],), {}, ValueError, NOT_RECTANGULAR),
    ("double", ("ab",), {}, ValueError, "value passed to initializer must be numeric."),
    ("double", ([["a"]],), {}, ValueError, "value passed to initializer must be numeric."),
    ("double", ([Short()],), {}, RuntimeError, "null data pointer."),
    ("double", ([],), {"size": (2, 2)}, kerova.ShapeError, mismatch("0", "2, 2")),
    ("double", ([[1, 2]],), {"size": (3,)}, kerova.ShapeError, mismatch("1, 2", "1, 3")),
    ("double", ([[1, 2], [3, 4], [5, 6]],), {"size": (2, 3)}, kerova.SizeError, mismatch("3, 2", "2, 3")),
    ("double", ([[[1, 2]]],), {"size": (1, 2)}, kerova.SizeError, mismatch("1, 1, 2", "1, 2")),
    ("double", (), {"size": 5}, TypeError, "value of 'size' must be a sequence."),
    ("double", (), {"size": ()}, ValueError, "sequence passed to 'size' must not be empty."),
    ("double", (), {"size": [2.0]}, TypeError, "dimensions must be nonnegative integers."),
    ("double", (), {"size": [2, -1, 2.0]}, ValueError, NEGATIVE),
    ("double", (), {"size": [2**63]}, ValueError, NEGATIVE),
    ("double", ("ab",), {"size": [-1]}, ValueError, NEGATIVE),
    ("double", (), {"size": Short()}, RuntimeError,
     "Item 1 could not be retrieved from the value associated with the 'size' keyword."),
    ("double", (), {"size": [2**31, 2**31]}, MemoryError,
     "unable to allocate memory for array with number of elements = 4611686018427387904; type = double"),
    ("int8", ([1],), {"size": [2**40, 2**40]}, MemoryError,
     "unable to allocate memory for array with number of elements = 18446744073709551615; type = int8"),
    ("double", (), {"vector": 5}, ValueError, "value of 'vector' must be a sequence."),
    ("double", (), {"vector": "ab"}, ValueError, "value passed to 'vector' must be numeric."),
    ("double", (), {"vector": [1, "a"]}, TypeError, "value of 'vector' must be an unnested sequence."),
    ("double", (), {"vector": Short()}, RuntimeError, "item 1 could not be retrieved."),
    ("double", (), {"vector": [1, 2, 3], "size": (2, 2)}, kerova.ShapeError, mismatch("3", "2, 2")),
    ("double", (), {"vector": [1], "size": [0.5]}, TypeError, "dimensions must be nonnegative integers."),
    ("int8", (kerova.uint8([[1, 250]]),), {}, OverflowError, out_of_range(250, "int8")),
    # buffer import
    ("int8", (b"a",), {}, BufferError, incompatible("B", "b")),
    ("u" + LONG, (array.array("l", [7]),), {}, BufferError, incompatible("l", CHAR[LONG].upper())),
    (LONG, (array.array("L", [7]),), {}, BufferError, incompatible("L", CHAR[LONG])),
    (OTHER, (array.array("l", [7]),), {}, BufferError, incompatible("l", CHAR[OTHER])),
    ("u" + OTHER, (array.array("L", [7]),), {}, BufferError, incompatible("L", CHAR[OTHER].upper())),
    ("double", (np.zeros(2),), {"is_complex": True}, BufferError,
     "input buffer format ('d') does not begin with 'Z', but output type is complex"),
    ("double", (np.zeros(2, dtype=np.complex64),), {"is_complex": True}, BufferError, incompatible("Zf", "Zd")),
    ("double", (np.arange(6.0).reshape(2, 3),), {"size": (3, 2)}, kerova.SizeError, mismatch("2, 3", "3, 2")),
    ("double", (np.arange(6.0),), {"size": (2, 2)}, kerova.ShapeError, mismatch("6", "2, 2")),
]


@pytest.mark.parametrize("kind, args, kwargs, exception, message", FAILURES, ids=ids(FAILURES))
def test_failures_raise_exact_type_and_text(kind, args, kwargs, exception, message):
    raises_exactly(exception, message, lambda: build(kind, args, kwargs))


def test_deep_nesting_raises_recursion_error():
    deep = [1.0]
    for _ in range(100000):
        deep = [deep]
    with pytest.raises(RecursionError):
        kerova.double(deep)


def test_initializer_mutated_during_walk_is_safe():
    target = [[1.0, 2.0], None]

    class Shrinking:
        def __len__(self):
            target.clear()
            return 2

        def __getitem__(self, i):
            if i >= 2:
                raise IndexError(i)
            return float(i)

    target[1] = Shrinking()
    raises_exactly(RuntimeError, "null data pointer.", lambda: kerova.double(target))


# --- buffer import -----------------------------------------------------------------

IMPORTS = [
    # (kind, is_complex, numpy type of the source): every kind's own format, and the aliases
    ("double", False, np.float64), ("single", False, np.float32), ("int8", False, np.int8),
    ("uint8", False, np.uint8), ("int16", False, np.int16), ("uint16", False, np.uint16),
    ("int32", False, np.int32), ("uint32", False, np.uint32), ("int64", False, np.int64),
    ("uint64", False, np.uint64), ("logical", False, np.bool_), ("logical", False, np.uint8),
    ("uint8", False, np.bool_), ("double", True, np.complex128), ("single", True, np.complex64),
]


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
    assert a.size == size
    expected = source.reshape(size).astype({"logical": np.bool_, "uint8": np.uint8}.get(kind, dtype))
    assert same(read(a), expected.tolist())
    assert memoryview(a).tobytes("F") == expected.tobytes("F")  # logical holds 0 and 1 only


def test_buffer_is_released_after_import_and_after_failure():
    source = bytearray(b"\x01\x02")
    kerova.uint8(source)
    with pytest.raises(BufferError):
        kerova.int8(source)
    source.extend(b"\x03")  # a held export would make this raise
    assert read(kerova.uint8(source)) == [[1, 2, 3]]
