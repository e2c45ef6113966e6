"""Building arrays from Python values: constructor forms, element conversion, shape
inference from nested sequences, buffer import, and the size and vector arguments."""

import array
import math
import re
import struct

import pytest

import kerova

np = pytest.importorskip("numpy")

INF = float("inf")
NAN = float("nan")


def read(a):
    """The elements as nested lists, read through indexing, one level per dimension."""
    dims = a.size

    def walk(obj, depth):
        if depth == len(dims) - 1:
            return [obj[i] for i in range(dims[depth])]
        return [walk(obj[i], depth + 1) for i in range(dims[depth])]

    return walk(a, 0)


def build(kind, args=(), kwargs=None):
    """kind(*args, **kwargs), passing no keyword dictionary at all when there are none:
    a leading dictionary only stands for the keywords when no other keywords exist."""
    construct = getattr(kerova, kind)
    return construct(*args, **kwargs) if kwargs else construct(*args)


def same(x, y):
    """Equality of element values that also holds for NaN."""
    if isinstance(x, list):
        return isinstance(y, list) and len(x) == len(y) and all(same(p, q) for p, q in zip(x, y))
    if isinstance(x, float) and math.isnan(x):
        return isinstance(y, float) and math.isnan(y)
    return type(x) is type(y) and x == y


def as_single(value):
    return struct.unpack("f", struct.pack("f", value))[0]


class Seq:
    """A sequence whose item `bad` cannot be read."""

    def __init__(self, items, bad):
        self.items, self.bad = items, bad

    def __len__(self):
        return len(self.items)

    def __getitem__(self, i):
        if i == self.bad:
            raise KeyError(i)
        return self.items[i]


# --- constructor forms -------------------------------------------------------------

FORMS = [
    # (args, kwargs, size, elements read back by index)
    ((), {}, (0, 0), []),
    ((None,), {}, (0, 0), []),
    ((5,), {}, (1, 1), [[5.0]]),
    (([],), {}, (0, 0), []),
    (([1, 2, 3],), {}, (1, 3), [[1.0, 2.0, 3.0]]),
    (([[1, 2], [3, 4]],), {}, (2, 2), [[1.0, 2.0], [3.0, 4.0]]),
    (([[[1, 2], [3, 4]], [[5, 6], [7, 8]]],), {}, (2, 2, 2),
     [[[1.0, 2.0], [3.0, 4.0]], [[5.0, 6.0], [7.0, 8.0]]]),
    (((1, 2),), {}, (1, 2), [[1.0, 2.0]]),
    ((range(3),), {}, (1, 3), [[0.0, 1.0, 2.0]]),
    (([[]],), {}, (1, 0), [[]]),
    (([[], []],), {}, (2, 0), [[], []]),
    (([[[]]],), {}, (1, 1, 0), [[[]]]),
    (([5],), {}, (1, 1), [[5.0]]),
    (([[5]],), {}, (1, 1), [[5.0]]),
    (([[[5]]],), {}, (1, 1), [[5.0]]),
    (([[1], [2], [3]],), {}, (3, 1), [[1.0], [2.0], [3.0]]),
    (([[[1, 2]]],), {}, (1, 1, 2), [[[1.0, 2.0]]]),
    (([[[[1]], [[2]]]],), {}, (1, 2), [[1.0, 2.0]]),
    ((), {"size": (2, 3)}, (2, 3), [[0.0] * 3] * 2),
    ((), {"size": (3,)}, (1, 3), [[0.0] * 3]),
    ((), {"size": (0, 3)}, (0, 3), []),
    ((), {"size": [True, 2]}, (1, 2), [[0.0, 0.0]]),
    ((), {"size": (2, 3, 1, 1)}, (2, 3), [[0.0] * 3] * 2),
    ((), {"size": (1, 1, 1)}, (1, 1), [[0.0]]),
    ((), {"size": (2, 1, 3)}, (2, 1, 3), [[[0.0] * 3]] * 2),
    ((), {"size": None}, (0, 0), []),
    (([1, 2, 3, 4, 5, 6],), {"size": (2, 3)}, (2, 3), [[1.0, 3.0, 5.0], [2.0, 4.0, 6.0]]),
    (([1, 2],), {"size": (1, 2)}, (1, 2), [[1.0, 2.0]]),
    (([1, 2],), {"size": (2, 1)}, (2, 1), [[1.0], [2.0]]),
    (([1, 2],), {"size": (2,)}, (1, 2), [[1.0, 2.0]]),
    (([[1, 2], [3, 4]],), {"size": (2, 2)}, (2, 2), [[1.0, 2.0], [3.0, 4.0]]),
    (([[7]],), {"size": (1,)}, (1, 1), [[7.0]]),
    (([],), {"size": (0, 3)}, (0, 3), []),
    (([[], []],), {"size": (0, 5)}, (0, 5), []),
    ((), {"vector": [1, 2, 3]}, (1, 3), [[1.0, 2.0, 3.0]]),
    ((), {"vector": []}, (1, 0), [[]]),
    ((), {"vector": (1, 2, 3, 4), "size": (2, 2)}, (2, 2), [[1.0, 3.0], [2.0, 4.0]]),
    ((), {"vector": [5], "size": (1, 1)}, (1, 1), [[5.0]]),
    ((), {"vector": [], "size": (0, 3)}, (0, 3), []),
    ((None, (2, 2), [1, 2, 3, 4]), {}, (2, 2), [[1.0, 3.0], [2.0, 4.0]]),
    (([1],), {"vector": None}, (1, 1), [[1.0]]),
    ((None,), {"vector": [1]}, (1, 1), [[1.0]]),
    (({"size": (2, 2)},), {}, (2, 2), [[0.0, 0.0], [0.0, 0.0]]),
    (({"size": (1, 1)}, [1]), {}, (1, 1), [[1.0]]),
    (({"vector": [1, 2], "size": [2]},), {}, (1, 2), [[1.0, 2.0]]),
]


@pytest.mark.parametrize("args, kwargs, size, elements", FORMS)
def test_forms_give_shape_and_elements(args, kwargs, size, elements):
    a = build("double", args, kwargs)
    assert a.size == size
    assert same(read(a), elements)
    assert a._is_complex is False


def test_text_and_strides_follow_the_nested_list():
    a = kerova.double([[1, 2, 3], [4, 5, 6]])
    assert str(a) == "[[1.0,2.0,3.0],[4.0,5.0,6.0]]"
    assert a.get_bytewise_strides() == (8, 16)
    c = kerova.double([[1, 2, 3], [4, 5, 6]], is_complex=True)
    assert c.get_bytewise_strides() == (16, 32)
    assert c._is_complex is True
    assert read(c) == [[1 + 0j, 2 + 0j, 3 + 0j], [4 + 0j, 5 + 0j, 6 + 0j]]


def test_array_initializer_is_walked_and_converted_item_by_item():
    source = kerova.uint8([[1, 2], [3, 250]])
    assert read(kerova.double(source)) == [[1.0, 2.0], [3.0, 250.0]]
    assert read(kerova.int16(source[1])) == [[3, 250]]
    with pytest.raises(OverflowError, match=r"^value \(250\) cannot be stored in a variable of type int8\.$"):
        kerova.int8(source)
    assert read(kerova.int8(kerova.uint8([1, 2]))) == [[1, 2]]


def test_constructed_array_does_not_share_its_source():
    source = [[1, 2], [3, 4]]
    buffer = np.array(source, dtype=np.float64)
    a, b = kerova.double(source), kerova.double(buffer)
    source[0][0] = 9
    buffer[0, 0] = 9
    assert a[0][0] == 1.0 and b[0][0] == 1.0


def test_large_nested_list_round_trips():
    rows = [[float(i * 1000 + j) for j in range(1000)] for i in range(300)]
    a = kerova.double(rows)
    assert a.size == (300, 1000)
    assert a[299][999] == 299999.0 and a[1][0] == 1000.0
    assert a.get_bytewise_strides() == (8, 2400)


# --- element conversion ------------------------------------------------------------

FLOAT_REFUSED = "kerova.{} does not accept floating-point values."
COMPLEX_REFUSED = "kerova.{} does not accept complex values if 'is_complex' is not set to 'True'."
TOO_LARGE = "Python int too large to convert to C long long"


def out_of_range(value, kind):
    return f"value ({value}) cannot be stored in a variable of type {kind}."


CONVERSIONS = [
    # (kind, is_complex, input, stored element or (exception, message))
    ("int8", False, True, 1),
    ("int8", False, -128, -128),
    ("int8", False, 127, 127),
    ("int8", False, 128, (OverflowError, out_of_range(128, "int8"))),
    ("int8", False, -129, (OverflowError, out_of_range(-129, "int8"))),
    ("int8", False, 1.0, (TypeError, FLOAT_REFUSED.format("int8"))),
    ("int8", False, 1j, (TypeError, COMPLEX_REFUSED.format("int8"))),
    ("uint8", False, 255, 255),
    ("uint8", False, -1, (OverflowError, out_of_range(-1, "uint8"))),
    ("uint8", False, 256, (OverflowError, out_of_range(256, "uint8"))),
    ("uint8", False, 2**70, (OverflowError, TOO_LARGE)),
    ("uint8", False, -2**70, (OverflowError, TOO_LARGE)),
    ("int16", False, -32768, -32768),
    ("int16", False, 32768, (OverflowError, out_of_range(32768, "int16"))),
    ("uint16", False, 65535, 65535),
    ("uint16", False, -5, (OverflowError, out_of_range(-5, "uint16"))),
    ("int32", False, -2**31, -2**31),
    ("int32", False, 2**31, (OverflowError, out_of_range(2**31, "int32"))),
    ("uint32", False, 2**32 - 1, 2**32 - 1),
    ("uint32", False, 2**32, (OverflowError, out_of_range(2**32, "uint32"))),
    ("int64", False, -2**63, -2**63),
    ("int64", False, 2**63, (OverflowError, TOO_LARGE)),
    ("uint64", False, 2**64 - 1, 2**64 - 1),
    ("uint64", False, 2**63, 2**63),
    ("uint64", False, 2**64, (OverflowError, TOO_LARGE)),
    ("uint64", False, -1, (OverflowError, out_of_range(-1, "uint64"))),
    ("uint64", False, 2.5, (TypeError, FLOAT_REFUSED.format("uint64"))),
    ("double", False, 2.0**70, 2.0**70),
    ("double", False, 3, 3.0),
    ("double", False, True, 1.0),
    ("double", False, 2**63 - 1, float(2**63 - 1)),
    ("double", False, -INF, -INF),
    ("double", False, NAN, NAN),
    ("double", False, 2**70, (OverflowError, TOO_LARGE)),
    ("double", False, 1j, (TypeError, COMPLEX_REFUSED.format("double"))),
    ("double", False, None, (TypeError, "value must not be 'None'.")),
    ("double", False, object(), (TypeError, "type does not match.")),
    ("double", False, {}, (TypeError, "type does not match.")),
    ("single", False, 0.1, as_single(0.1)),
    ("single", False, 3.4028234663852886e38, 3.4028234663852886e38),
    ("single", False, -3.4028234663852886e38, -3.4028234663852886e38),
    ("single", False, 3.4028235e38, INF),
    ("single", False, -1e300, INF),
    ("single", False, -INF, INF),
    ("single", False, NAN, NAN),
    ("single", False, 2**70, INF),
    ("single", False, -2**70, INF),
    ("single", False, 7, 7.0),
    ("single", False, 1j, (TypeError, COMPLEX_REFUSED.format("single"))),
    ("logical", False, 0.0, False),
    ("logical", False, 2.5, True),
    ("logical", False, NAN, True),
    ("logical", False, 0j, False),
    ("logical", False, 1j, True),
    ("logical", False, 0, False),
    ("logical", False, -7, True),
    ("logical", False, 2**70, (OverflowError, TOO_LARGE)),
    ("logical", False, None, (TypeError, "value must not be 'None'.")),
    ("int8", True, 127.9, 127 + 0j),
    ("int8", True, -128.9, -128 + 0j),
    ("int8", True, 128.0, (OverflowError, out_of_range(128, "int8"))),
    ("int8", True, -129.0, (OverflowError, out_of_range(-129, "int8"))),
    ("int8", True, INF, (OverflowError, out_of_range("inf", "int8"))),
    ("int8", True, 3 - 4j, 3 - 4j),
    ("int8", True, 128, (OverflowError, out_of_range(128, "int8"))),
    ("int8", True, None, 0j),
    ("uint8", True, -0.5, 0j),
    ("uint8", True, -1.0, (OverflowError, out_of_range(-1, "uint8"))),
    ("uint8", True, complex(300, -1), (OverflowError, out_of_range(300, "uint8"))),
    ("uint8", True, complex(1, 300.5), (OverflowError, out_of_range(300.5, "uint8"))),
    ("uint8", True, -1, (OverflowError, out_of_range(-1, "uint8"))),
    ("int32", True, 1.5 + 2.5j, 1 + 2j),
    ("int64", True, -9223372036854775808.0, (OverflowError, out_of_range("-9.22337e+18", "int64"))),
    ("int64", True, -2**63, complex(-2**63, 0)),
    ("uint64", True, 2.0**64, (OverflowError, out_of_range("1.84467e+19", "uint64"))),
    ("uint64", True, 2**70, (OverflowError, TOO_LARGE)),
    ("single", True, 2**70, complex(INF, 0)),
    ("single", True, complex(1e300, 1), complex(INF, 1)),
    ("single", True, complex(-1e300, -INF), complex(INF, INF)),
    ("double", True, 2**70, (OverflowError, TOO_LARGE)),
    ("double", True, 1e300, 1e300 + 0j),
    ("double", True, True, 1 + 0j),
    ("double", True, None, 0j),
    ("double", True, object(), 0j),
    ("double", True, {}, 0j),
]


@pytest.mark.parametrize("road", ["initializer", "vector"])
@pytest.mark.parametrize("kind, is_complex, value, expected", CONVERSIONS)
def test_element_conversion(kind, is_complex, value, expected, road):
    """Both roads store the same elements; every refusal on the vector road is a ValueError."""
    def construct():
        return getattr(kerova, kind)(**{road: [value]}, is_complex=is_complex)

    if isinstance(expected, tuple):
        exception = expected[0] if road == "initializer" else ValueError
        with pytest.raises(exception) as caught:
            construct()
        assert type(caught.value) is exception and str(caught.value) == expected[1]
    else:
        stored = construct()[0][0]
        assert stored is expected if isinstance(expected, bool) else same(stored, expected)


def test_float_subclasses_count_and_number_protocol_is_not_consulted():
    class F(float):
        pass

    class I(int):
        pass

    class Indexable:
        def __index__(self):
            return 3

        def __float__(self):
            return 3.0

    assert kerova.double([F(1.5)])[0][0] == 1.5
    assert kerova.int8([I(7)])[0][0] == 7
    with pytest.raises(TypeError, match=r"^kerova\.int8 does not accept floating-point values\.$"):
        kerova.int8([F(1.0)])
    with pytest.raises(TypeError, match=r"^type does not match\.$"):
        kerova.int8([Indexable()])
    with pytest.raises(TypeError, match=r"^type does not match\.$"):
        kerova.double([Indexable()])
    assert kerova.int8([Indexable()], is_complex=True)[0][0] == 0j


# --- failures -----------------------------------------------------------------------

POSITIONAL_VECTOR = ("more than two positional arguments must not be specified. A third will be treated as "
                     "'vector', which must not be specified when an initializer is specified.")
NOT_RECTANGULAR = "arrays must be rectangular."
DIFFERENT = "elements of array are of different lengths or types."
NOT_NUMERIC = "value passed to initializer must be numeric."
NEGATIVE = "size cannot contain negative dimensions. Use nonnegative integers for dimensions."


def mismatch(dims, size):
    return f"dimensions of initializer ({dims}) do not match dimensions specified by 'size' ({size})."


FAILURES = [
    # (kind, args, kwargs, exception, message)
    ("double", (), {"is_complex": None}, TypeError, "value passed to 'is_complex' must be a bool."),
    ("double", ([1],), {"is_complex": 1}, TypeError, "value passed to 'is_complex' must be a bool."),
    ("logical", ("x",), {"is_complex": True}, TypeError, "logical arrays must not be complex."),
    ("logical", (), {"size": "bad", "is_complex": True}, TypeError, "logical arrays must not be complex."),
    ("double", ([1], None, [2]), {}, TypeError, POSITIONAL_VECTOR),
    ("double", ([1],), {"vector": [2]}, TypeError, "initializer and 'vector' must not both be specified."),
    ("double", ([1], 5), {"vector": [2]}, TypeError, "initializer and 'vector' must not both be specified."),
    ("double", ({"a": 1},), {"is_complex": False}, TypeError, "type does not match."),
    ("double", ([1], {"size": (1, 1)}), {}, TypeError, "value of 'size' must be a sequence."),
    ("double", ([1, [2]],), {}, ValueError, DIFFERENT),
    ("double", ([[1], 2],), {}, ValueError, DIFFERENT),
    ("double", ([[1, 2], [3]],), {}, ValueError, DIFFERENT),
    ("double", ([[[1, 2]], [[3]]],), {}, ValueError, NOT_RECTANGULAR),
    ("double", ([[[1]], [2]],), {}, ValueError, NOT_RECTANGULAR),
    ("double", ([[[]], [[1]]],), {}, ValueError, NOT_RECTANGULAR),
    ("double", ([[[]], [[1, 2]]],), {}, ValueError, NOT_RECTANGULAR),
    ("double", (["ab", "cd"],), {}, ValueError, NOT_NUMERIC),
    ("double", ("ab",), {}, ValueError, NOT_NUMERIC),
    ("double", ([["a"]],), {}, ValueError, NOT_NUMERIC),
    ("double", ([Seq([1, 2, 3], 1)],), {}, RuntimeError, "null data pointer."),
    ("double", ([1, 2, 3],), {"size": (2, 2)}, kerova.ShapeError, mismatch("3", "2, 2")),
    ("double", ([[1, 2], [3, 4], [5, 6]],), {"size": (2, 3)}, kerova.SizeError, mismatch("3, 2", "2, 3")),
    ("double", ([[1, 2, 3]],), {"size": (3, 1)}, kerova.SizeError, mismatch("1, 3", "3, 1")),
    ("double", ([[[1, 2]]],), {"size": (1, 2)}, kerova.SizeError, mismatch("1, 1, 2", "1, 2")),
    ("double", ([[1, 2]],), {"size": (3,)}, kerova.ShapeError, mismatch("1, 2", "1, 3")),
    ("double", ([],), {"size": (2, 2)}, kerova.ShapeError, mismatch("0", "2, 2")),
    ("double", (), {"size": 5}, TypeError, "value of 'size' must be a sequence."),
    ("double", (), {"size": {2: 2}}, TypeError, "value of 'size' must be a sequence."),
    ("double", (), {"size": ()}, ValueError, "sequence passed to 'size' must not be empty."),
    ("double", (), {"size": [2.0]}, TypeError, "dimensions must be nonnegative integers."),
    ("double", (), {"size": [2, -1, 2.0]}, ValueError, NEGATIVE),
    ("double", (), {"size": [-1]}, ValueError, NEGATIVE),
    ("double", (), {"size": [2**63]}, ValueError, NEGATIVE),
    ("double", (), {"size": Seq([1, 2], 1)}, RuntimeError,
     "Item 1 could not be retrieved from the value associated with the 'size' keyword."),
    ("double", ("ab",), {"size": [-1]}, ValueError, NEGATIVE),
    ("double", (), {"size": [2**31, 2**31]}, MemoryError,
     "unable to allocate memory for array with number of elements = 4611686018427387904; type = double"),
    ("double", (), {"size": [2**40, 2**40], "is_complex": True}, MemoryError,
     "unable to allocate memory for array with number of elements = 18446744073709551615; type = double"),
    ("int8", ([1],), {"size": [2**40, 2**40]}, MemoryError,
     "unable to allocate memory for array with number of elements = 18446744073709551615; type = int8"),
    ("double", (), {"vector": 5}, ValueError, "value of 'vector' must be a sequence."),
    ("double", (), {"vector": {1: 1}}, ValueError, "value of 'vector' must be a sequence."),
    ("double", (), {"vector": "ab"}, ValueError, "value passed to 'vector' must be numeric."),
    ("double", (), {"vector": [[1]]}, TypeError, "value of 'vector' must be an unnested sequence."),
    ("double", (), {"vector": [1, "a"]}, TypeError, "value of 'vector' must be an unnested sequence."),
    ("double", (), {"vector": [None]}, ValueError, "value must not be 'None'."),
    ("int8", (), {"vector": [1.0]}, ValueError, "kerova.int8 does not accept floating-point values."),
    ("double", (), {"vector": [1, 2, 3], "size": (2, 2)}, kerova.ShapeError, mismatch("3", "2, 2")),
    ("double", (), {"vector": Seq([1, 2], 1)}, RuntimeError, "item 1 could not be retrieved."),
    ("double", (), {"vector": [1], "size": [0.5]}, TypeError, "dimensions must be nonnegative integers."),
]


@pytest.mark.parametrize("kind, args, kwargs, exception, message", FAILURES)
def test_failures_raise_exact_type_and_text(kind, args, kwargs, exception, message):
    with pytest.raises(exception) as caught:
        build(kind, args, kwargs)
    assert type(caught.value) is exception
    assert str(caught.value) == message


@pytest.mark.parametrize("args, kwargs", [
    ((1, 2, 3, 4, 5), {}),
    ((), {"shape": (2, 2)}),
    (({"a": 1},), {}),
    (({"size": (1, 1)}, 1, 2, 3, 4), {}),
])
def test_argument_parsing_errors_come_from_python(args, kwargs):
    with pytest.raises(TypeError):
        build("double", args, kwargs)


def test_logical_without_complex_and_is_complex_false():
    assert read(kerova.logical([1, 0], is_complex=False)) == [[True, False]]
    assert read(kerova.double([1], is_complex=False)) == [[1.0]]


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
    with pytest.raises(RuntimeError, match=r"^null data pointer\.$"):
        kerova.double(target)


# --- buffer import -----------------------------------------------------------------

INCOMPATIBLE = "input buffer format ('{}') is not compatible with output format ('{}'); use a different input or output type"

NUMPY_KINDS = [
    # (kind, is_complex, numpy dtype)
    ("double", False, np.float64),
    ("single", False, np.float32),
    ("int8", False, np.int8),
    ("uint8", False, np.uint8),
    ("int16", False, np.int16),
    ("uint16", False, np.uint16),
    ("int32", False, np.int32),
    ("uint32", False, np.uint32),
    ("int64", False, np.int64),
    ("uint64", False, np.uint64),
    ("logical", False, np.bool_),
    ("uint8", False, np.bool_),
    ("double", True, np.complex128),
    ("single", True, np.complex64),
]


@pytest.mark.parametrize("shape", [(2, 3), (3, 1), (1, 4), (2, 3, 4), (4,), (0, 3)])
@pytest.mark.parametrize("order", ["C", "F"])
@pytest.mark.parametrize("kind, is_complex, dtype", NUMPY_KINDS)
def test_numpy_arrays_import_with_their_indices(kind, is_complex, dtype, order, shape):
    count = math.prod(shape)
    values = np.arange(count) % 3 if dtype is np.bool_ else np.arange(count)
    if is_complex:
        values = values + 1j * (np.arange(count) + 1)
    source = np.asarray(np.asarray(values, dtype=dtype).reshape(shape), order=order)
    a = getattr(kerova, kind)(source, is_complex=is_complex)
    expected = source.tolist()
    if kind == "uint8" and dtype is np.bool_:
        expected = source.astype(np.uint8).tolist()
    if source.ndim == 1:
        expected = [expected]
    elif count == 0:
        expected = []
    assert a.size == ((1, count) if source.ndim == 1 else shape)
    assert same(read(a), expected)


def test_fortran_and_c_ordered_exporters_give_equal_arrays():
    c = np.arange(24, dtype=np.float64).reshape(2, 3, 4)
    f = np.asfortranarray(c)
    assert str(kerova.double(c)) == str(kerova.double(f)) == str(kerova.double(c.tolist()))


BUFFER_CASES = [
    # (kind, args, kwargs, size, elements)
    ("uint8", (b"abc",), {}, (1, 3), [[97, 98, 99]]),
    ("uint8", (b"",), {}, (0, 0), []),
    ("uint8", (bytearray(b"\x01\x02"),), {}, (1, 2), [[1, 2]]),
    ("logical", (b"\x00\x02\x01",), {}, (1, 3), [[False, True, True]]),
    ("logical", (np.array([0, 1, 2], dtype=np.uint8),), {}, (1, 3), [[False, True, True]]),
    ("double", (array.array("d", [1.0, 2.0]),), {}, (1, 2), [[1.0, 2.0]]),
    ("double", (memoryview(array.array("d", [1.0, 2.0])),), {}, (1, 2), [[1.0, 2.0]]),
    ("double", (list(array.array("f", [1.5])),), {}, (1, 1), [[1.5]]),
    ("int32", (array.array("i", [-5, 6]),), {}, (1, 2), [[-5, 6]]),
    ("uint32", (array.array("I", [5]),), {}, (1, 1), [[5]]),
    ("int64", (array.array("q", [-5]),), {}, (1, 1), [[-5]]),
    ("uint64", (array.array("Q", [2**64 - 1]),), {}, (1, 1), [[2**64 - 1]]),
    ("int16", (array.array("h", [1, 2, 3, 4, 5, 6]),), {"size": (2, 3)}, (2, 3), [[1, 3, 5], [2, 4, 6]]),
    ("double", (np.array(5.0),), {}, (1, 1), [[5.0]]),
    ("double", (np.arange(6.0).reshape(2, 3),), {"size": (2, 3)}, (2, 3), [[0.0, 1.0, 2.0], [3.0, 4.0, 5.0]]),
    ("double", (np.ones((2, 3, 1, 1)),), {}, (2, 3), [[1.0] * 3] * 2),
    ("uint8", ([b"ab", b"cd"],), {}, (2, 2), [[97, 98], [99, 100]]),
    ("uint8", (), {"vector": b"ab"}, (1, 2), [[97, 98]]),
]


@pytest.mark.parametrize("kind, args, kwargs, size, elements", BUFFER_CASES)
def test_buffer_import(kind, args, kwargs, size, elements):
    a = build(kind, args, kwargs)
    assert a.size == size
    assert same(read(a), elements)


LONG_IS_4 = array.array("l").itemsize == 4


@pytest.mark.parametrize("kind, typecode, accepted", [
    ("int32", "l", LONG_IS_4),
    ("int64", "l", not LONG_IS_4),
    ("uint32", "L", LONG_IS_4),
    ("uint64", "L", not LONG_IS_4),
    ("int32", "L", False),
    ("uint64", "l", False),
])
def test_long_formats_are_aliases_by_item_size(kind, typecode, accepted):
    source = array.array(typecode, [7, 8])
    construct = getattr(kerova, kind)
    if accepted:
        assert read(construct(source)) == [[7, 8]]
    else:
        kind_char = {"int32": "i", "uint32": "I", "int64": "q", "uint64": "Q"}[kind]
        with pytest.raises(BufferError, match="^" + re.escape(INCOMPATIBLE.format(typecode, kind_char)) + "$"):
            construct(source)


BUFFER_FAILURES = [
    # (kind, args, kwargs, exception, message)
    ("int8", (b"a",), {}, BufferError, INCOMPATIBLE.format("B", "b")),
    ("double", (array.array("f", [1.0]),), {}, BufferError, INCOMPATIBLE.format("f", "d")),
    ("double", (np.zeros(2, dtype=">f8"),), {}, BufferError, INCOMPATIBLE.format(">d", "d")),
    ("double", (np.zeros(2, dtype=np.complex128),), {}, BufferError, INCOMPATIBLE.format("Zd", "d")),
    ("double", (np.zeros(2),), {"is_complex": True}, BufferError,
     "input buffer format ('d') does not begin with 'Z', but output type is complex"),
    ("double", (np.zeros(2, dtype=np.complex64),), {"is_complex": True}, BufferError, INCOMPATIBLE.format("Zf", "Zd")),
    ("int8", (np.zeros(2, dtype=np.complex128),), {"is_complex": True}, BufferError, INCOMPATIBLE.format("Zd", "Zb")),
    ("int16", (memoryview(b"abc"),), {}, BufferError, INCOMPATIBLE.format("B", "h")),
    ("double", (np.arange(6.0).reshape(2, 3),), {"size": (3, 2)}, kerova.SizeError, mismatch("2, 3", "3, 2")),
    ("double", (np.arange(6.0).reshape(2, 3),), {"size": (7,)}, kerova.ShapeError, mismatch("2, 3", "1, 7")),
    ("double", (np.arange(6.0),), {"size": (2, 2)}, kerova.ShapeError, mismatch("6", "2, 2")),
]


@pytest.mark.parametrize("kind, args, kwargs, exception, message", BUFFER_FAILURES)
def test_buffer_import_failures(kind, args, kwargs, exception, message):
    with pytest.raises(exception) as caught:
        build(kind, args, kwargs)
    assert type(caught.value) is exception and str(caught.value) == message


def test_non_contiguous_exporter_is_refused_by_the_exporter():
    strided = np.arange(12.0).reshape(3, 4)[:, ::2]
    with pytest.raises(Exception) as caught:
        kerova.double(strided)
    assert not isinstance(caught.value, (kerova.ShapeError, kerova.SizeError, SystemError))
    assert read(kerova.double(strided.tolist())) == strided.tolist()


def test_buffer_is_released_after_import_and_after_failure():
    source = bytearray(b"\x01\x02")
    kerova.uint8(source)
    with pytest.raises(BufferError):
        kerova.int8(source)
    source.extend(b"\x03")  # a held export would make this raise
    assert read(kerova.uint8(source)) == [[1, 2, 3]]
