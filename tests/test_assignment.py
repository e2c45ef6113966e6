"""Assignment by index: the element, sub-array, row-slice and region roads."""

import pickle

import pytest

import kerova
from test_indexing import rss_kib, values

SHAPE_TEXT = "unable to perform assignment because the left and right sides have a different shape."


def grid(rows, cols, cls=kerova.double):
    return cls([[r * 10 + c for c in range(cols)] for r in range(rows)])


@pytest.mark.parametrize("cls, is_complex, value, expected", [
    ("double", False, 2.5, 2.5),
    ("single", False, 1e300, float("inf")),
    ("int8", False, -128, -128),
    ("uint64", False, 2**64 - 1, 2**64 - 1),
    ("logical", False, 5, True),
    ("logical", False, True, True),
    ("double", True, 1 + 2j, 1 + 2j),
    ("int16", True, -7.9, -7 + 0j),
    ("uint8", True, None, 0j),  # complex kinds take anything else as 0
])
def test_element_write(cls, is_complex, value, expected):
    a = getattr(kerova, cls)([[1, 1], [1, 1]], is_complex=is_complex)
    a[1][0] = value
    got = a[1][0]
    assert got == expected and type(got) is type(expected)
    assert a[0][0] == a[0][1] == a[1][1] == 1


@pytest.mark.parametrize("cls, value, error, message", [
    ("int8", 128, OverflowError, "value (128) cannot be stored in a variable of type int8."),
    ("uint8", -1, OverflowError, "value (-1) cannot be stored in a variable of type uint8."),
    ("int32", 1.0, TypeError, "kerova.int32 does not accept floating-point values."),
    ("logical", 1.0, TypeError, "kerova.logical does not accept floating-point values."),
    ("logical", 1j, TypeError,
     "kerova.logical does not accept complex values if 'is_complex' is not set to 'True'."),
    ("double", [1], TypeError, "sequence passed when scalar was expected."),
    ("double", "1", TypeError, "value is not numeric."),
    ("double", None, TypeError, "value must not be 'None'."),
])
def test_element_write_refused_leaves_array(cls, value, error, message):
    a = getattr(kerova, cls)([[0, 0]])
    with pytest.raises(error) as raised:
        a[0][1] = value
    assert str(raised.value) == message
    assert values(a) == [[0, 0]]


@pytest.mark.parametrize("target, index, error, message", [
    (lambda a: a, (1, 2), RuntimeError, "index is not an integer or slice."),
    (lambda a: a, "x", RuntimeError, "index is not an integer or slice."),
    (lambda a: a, 2, IndexError, "index has an invalid value: 2"),
    (lambda a: a[0], -6, IndexError, "index has an invalid value: -6"),
    (lambda a: a[0][1:3], 5, IndexError, "index has an invalid value: 5"),
    # the write side normalises against the whole dimension, not the final slice
    (lambda a: a[0][1:3], -1, RuntimeError, "unable to index into slice."),
    (lambda a: a[0][1:3], 3, RuntimeError, "unable to index into slice."),
    # an int beyond 64 bits is refused before anything is written
    (lambda a: a, 2**70, OverflowError, "Python int too large to convert to C ssize_t"),
    (lambda a: a[0], 2**70, OverflowError, "Python int too large to convert to C ssize_t"),
    (lambda a: a[0], -2**70, OverflowError, "Python int too large to convert to C ssize_t"),
])
def test_index_errors(target, index, error, message):
    a = grid(2, 5)
    with pytest.raises(error) as raised:
        target(a)[index] = 1
    assert str(raised.value) == message
    assert values(a) == values(grid(2, 5))


@pytest.mark.parametrize("delete", [
    lambda a: a.__delitem__(0),                 # sub-array
    lambda a: a[0].__delitem__(1),              # element
    lambda a: a[0].__delitem__(slice(0, 2)),    # row slice
    lambda a: a.__delitem__(slice(0, 1)),       # region
])
def test_del_is_refused(delete):
    a = grid(2, 3)
    with pytest.raises(RuntimeError, match=r"^null data pointer\.$"):
        delete(a)
    assert values(a) == values(grid(2, 3))


def test_element_through_slice_maps_into_dimension():
    a = grid(2, 5)
    b = a[0][1:4]
    b[1] = 99
    assert a[0][2] == 99 and b[1] == 99


def test_sub_array_road():
    a = grid(2, 3)
    a[1] = [7, 8, 9]
    assert values(a) == [[0, 1, 2], [7, 8, 9]]
    a[0] = kerova.double([[4, 5, 6]])[0]
    assert values(a[0]) == [4, 5, 6]
    for bad in ([1, 2], [[1, 2, 3]], 5, kerova.double([[1, 2, 3]])):
        with pytest.raises(ValueError, match=SHAPE_TEXT.replace(".", r"\.")):
            a[1] = bad
    assert values(a) == [[4, 5, 6], [7, 8, 9]]


def test_sub_array_conversion_failure_writes_nothing():
    a = grid(2, 3, kerova.uint8)
    with pytest.raises(OverflowError):
        a[1] = [1, 2, 300]
    assert values(a) == [[0, 1, 2], [10, 11, 12]]


def test_sub_array_of_three_dimensions_in_row_order():
    a = kerova.int32(size=(2, 2, 3))
    a[1] = [[1, 2, 3], [4, 5, 6]]
    assert values(a) == [[[0, 0, 0], [0, 0, 0]], [[1, 2, 3], [4, 5, 6]]]
    a[0][1] = [7, 8, 9]
    assert values(a[0]) == [[0, 0, 0], [7, 8, 9]]


def test_row_slice_road():
    a = grid(2, 4)
    a[0][::-1] = [1, 2, 3, 4]
    assert values(a[0]) == [4, 3, 2, 1]
    a[1][1:3] = kerova.double([[8, 9]])[0]
    assert values(a[1]) == [10, 8, 9, 13]
    a[0][2:2] = []
    with pytest.raises(ValueError, match=SHAPE_TEXT.replace(".", r"\.")):
        a[0][2:2] = 5
    for bad in ([1, 2, 3], 7, [[1, 2]], kerova.double([[1, 2]])):
        with pytest.raises(ValueError, match=SHAPE_TEXT.replace(".", r"\.")):
            a[1][0:2] = bad
    assert values(a) == [[4, 3, 2, 1], [10, 8, 9, 13]]


def test_row_slice_under_a_final_slice_takes_whole_dimension():
    a = grid(1, 5)
    b = a[0][1:3]
    b[0:1] = [99]
    assert values(a) == [[99, 1, 2, 3, 4]]


@pytest.mark.parametrize("rows, index, value, expected, message", [
    (2, slice(0, 2), [1, 2, 3, 4], [[1, 2], [3, 4]], None),
    (2, slice(None, None, -1), [1, 2, 3, 4], [[3, 4], [1, 2]], None),
    (2, slice(1, 1), [], [[0, 1], [10, 11]], None),
    (2, slice(0, 2), [[1, 2, 3, 4]], [[1, 2], [3, 4]], None),  # only the count matters
    (2, slice(0, 2), [1, 2, 3], [[1, 2], [3, 11]], "length of slice does not match number of elements."),
    (2, slice(0, 2), [1, 2, 3, 4, 5], [[1, 2], [3, 4]], "length of slice does not match number of elements."),
    (2, slice(0, 2), 7, [[7, 1], [10, 11]], "length of slice does not match number of elements."),
    (2, slice(1, 1), [1], [[0, 1], [10, 11]],
     "slice is empty, but number of elements assigned is greater than zero."),
    (2, slice(0, 1), [], [[0, 1], [10, 11]], "slice is nonempty but values are empty."),
    (3, slice(0, 3, 2), [5, 6, 7, 8], [[5, 6], [10, 11], [7, 8]], None),
])
def test_region_road(rows, index, value, expected, message):
    a = grid(rows, 2)
    if message is None:
        a[index] = value
    else:
        with pytest.raises(ValueError) as raised:
            a[index] = value
        assert str(raised.value) == message
    assert values(a) == expected


def test_region_under_a_final_slice_folds():
    a = grid(4, 2)
    b = a[::-1]
    b[1:3] = [1, 2, 3, 4]
    assert values(a) == [[0, 1], [3, 4], [1, 2], [30, 31]]


def test_region_conversion_failure_writes_nothing():
    a = grid(2, 2, kerova.int8)
    with pytest.raises(TypeError):
        a[0:2] = [1, 2, 3, 4.5]
    assert values(a) == [[0, 1], [10, 11]]


def test_writes_reach_every_view_and_every_copy():
    a = grid(2, 3)
    b = a[0]
    it = iter(a[1])
    b[1] = 7
    a[1][0] = 8
    assert a[0][1] == 7 and next(it) == 8
    assert values(pickle.loads(pickle.dumps(a))) == [[0, 7, 2], [8, 11, 12]]
    assert values(a.reshape(3, 2)) == [[0, 11], [8, 2], [7, 12]]
    assert bytes(memoryview(a)) == bytes(memoryview(kerova.double([[0, 11], [8, 2], [7, 12]])))


def test_clone_is_independent_and_cached_per_object():
    a = grid(2, 3)
    c = a.clone()
    c[0][0] = 5
    a[0][1] = 6
    assert values(c) == [[5, 1, 2], [10, 11, 12]] and values(a) == [[0, 6, 2], [10, 11, 12]]
    a[0][0] = 1
    assert a.clone()[0][0] == 0  # the first clone of `a` is cached
    assert a[0].clone()[0][0] == 1  # a fresh cursor materialises anew
    assert a[1].clone().size == (1, 3) and values(a[1].clone()) == [[10, 11, 12]]
    assert a[::-1].clone().size == (2, 3) and values(a[::-1].clone()) == [[10, 11, 12], [1, 6, 2]]


@pytest.mark.parametrize("size, expected", [((0, 5), (0, 5)), ((3, 0), (0, 0)), ((2, 3, 0), (0, 3, 0))])
def test_clone_of_empty_arrays(size, expected):
    assert kerova.double(size=size).clone().size == expected


def test_clone_of_partial_three_dimensional():
    a = kerova.int16(size=(2, 3, 4))
    a[1][0] = [1, 2, 3, 4]
    assert a[1].clone().size == (3, 4)
    assert a[1][0].clone().size == (1, 4) and values(a[1][0].clone()) == [[1, 2, 3, 4]]


@pytest.mark.rss
def test_writes_do_not_grow_memory():
    a = kerova.double([[0.0] * 8] * 8)
    c = kerova.int32([[0] * 8] * 8, is_complex=True)

    def writes():
        for k in range(100000):
            a[k % 8][k % 7] = 1.5
            c[k % 8][k % 5] = 2 + 1j
            a[k % 8][0:2] = [1.0, 2.0]

    writes()
    before = rss_kib()
    writes()
    assert rss_kib() - before < 2048
    assert a[3][1] == 2.0 and c[2][2] == 2 + 1j
