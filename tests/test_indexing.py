"""Reading, writing, iterating and == / != beyond the property tests: index forms, kinds, complex flags and shapes
that they do not draw or mix, chains of slices against Python's own, walks over stores reshaped under partial arrays
held from before, and arrays large enough for the store's huge-page block. == is defined by iteration: two arrays are
equal when walking both side by side finds no difference, so `walk` below is the yardstick for it."""

import itertools

import pytest

import kerova
import kerovamultidimarrayforpython as ext
from checks import check, evaluate, raises, values


INEQUALITY = (NotImplementedError, "inequality operators not supported.")


@pytest.mark.parametrize("expression, expected", [
    ("a[True]", "[4.0,5.0,6.0]"), ("a[::1.5]", (ValueError, "slice step cannot be zero.")),
    *((f"a[{index}]", (RuntimeError, "index is not an integer or slice.")) for index in ["...", "[1]", "'x'"]),
    ("a[1.5:]", (TypeError, None)), ("a[0][:'x']", (TypeError, None)),
    # == and != against other objects answer, the orderings are refused
    ("a == 5", "False"), ("a != 5", "True"), ("a == [[1, 2, 3], [4, 5, 6]]", "False"), ("a != None", "True"),
    ("a < a", INEQUALITY), ("a <= 5", INEQUALITY), ("a > [1]", INEQUALITY), ("a >= a", INEQUALITY),
])
def test_index_forms_and_comparisons_that_the_model_does_not_draw(expression, expected):
    check(lambda: evaluate(expression, globals(), a=kerova.double([[1, 2, 3], [4, 5, 6]])), expected)


# Chains of slices and integers on a row of ten read as Python reads them.
SLICE_CHAINS = ["[8:2:-2]", "[2:2:-1]", "[3:1]", "[1:8][::-1]", "[::-1][::2]", "[::2][1:]", "[2:2][0:1]",
                "[1:5][10:]", "[1:9][2:6][::-1]", "[::-1][1:-1][::3]", "[7:0:-2][1:]", "[1:8][::-1][2]",
                "[::3][-1]", "[2:9][::2][::-1][0]", "[5:][::-2]", "[0:10:4][::-1][1:]",
                # steps far beyond the row, alone and composed: each reaches one element
                "[::2**63-1]", "[::-2**63]", "[9:0:-2**63]", "[3::2**62][::2**62]", "[::-2**62][::-2**63]",
                "[::-1][::2**63-1][::-2**63]", "[1::2**62][0]", "[-2**63:2**63:2**63-1]"]
# On a row of five: second slices that start at or past the first one's length, or run the other way.
NESTED = ["[1:3][5:]", "[1:3][2:]", "[1:3][-5:]", "[1:3][:-5]", "[3:0:-1][4:]", "[::-1][7:][1:]",
          "[::2][3:]", "[::-2][1:][::-1]", "[4:1:-1][1:][::-1]", "[1:4][::-1][1:9]"]


@pytest.mark.parametrize("n, chain", [(10, c) for c in SLICE_CHAINS] + [(5, c) for c in NESTED])
def test_slice_chains_read_like_python_lists(n, chain):
    row = list(range(n))
    got, expected = eval("x" + chain, {"x": kerova.int32([row])[0]}), eval("x" + chain, {"x": row})
    if isinstance(expected, list):
        assert values(got) == expected and len(got) == len(expected) and list(got) == expected
        assert got == got and got == kerova.int32([expected])[0]
        if not expected:
            raises(lambda: got[0], IndexError, "index has an invalid value: 0")
    else:
        assert got == expected
    grid = [[r * 10 + c for c in range(4)] for r in row]  # the same on the first dimension
    assert values(eval("x" + chain, {"x": kerova.int16(grid)})) == eval("x" + chain, {"x": grid})


def test_writes_through_huge_steps_reach_one_element_and_empty_regions_take_nothing():
    a = kerova.single(size=(3, 3))
    a[1:1], a[::-1][5:] = [], kerova.single(size=(0, 0))
    raises(lambda: a.__setitem__(slice(0, 2), []), ValueError, "slice is nonempty but values are empty.")
    raises(lambda: a.__setitem__(slice(2, 2), [[1]]), ValueError,
           "slice is empty, but number of elements assigned is greater than zero.")
    a[0][::-2**63] = [7]
    a[::2**63 - 1] = kerova.single([[1, 2, 3]])
    a[2][1::2**62] = [5]
    assert values(a) == [[1, 2, 3], [0, 0, 0], [0, 5, 0]] and a[::-2**63] == a[2:] and a[0:None:-2**63] == a[:1]


def test_iteration_goes_through_the_iterator_object_and_sees_later_writes():
    assert list(kerova.double()) == [] and [list(r) for r in kerova.double(size=(2, 0))] == [[], []]
    it = iter(kerova.double([[1, 2]])[0])
    assert type(it) is ext.KVPyIter and iter(it) is it and next(it) == 1.0 and next(it) == 2.0
    for _ in range(3):
        raises(lambda: next(it), StopIteration)
    raises(ext.KVPyIter, TypeError)
    a = kerova.double([[0, 1, 2], [10, 11, 12]])
    it = iter(a[1])
    a[0][1], a[1][0] = 7, 8
    assert next(it) == 8 and list(it) == [11, 12] and values(a) == [[0, 7, 2], [8, 11, 12]]


NAN_ROW = kerova.double([[1, float("nan")]])
UNSIGNED = [kerova.uint8, kerova.uint16, kerova.uint32, kerova.uint64]

EQUALITY_CASES = [
    # (left, right, equal)
    (kerova.double([1]), kerova.single([1]), False), (NAN_ROW, NAN_ROW, False),  # no shortcut for the same object
    (NAN_ROW[0][0:1], NAN_ROW[0][0:1], True), (kerova.double([[1, 2]]), kerova.double([[1, 2]], is_complex=True), True),
    (kerova.double([[1, 2]]), kerova.double([[1, 2 + 1j]], is_complex=True), False),
    (kerova.int64([[2**53 + 1]]), kerova.int64([[2**53 + 1]], is_complex=True), False),
    (kerova.int64([[2**53 + 1]], is_complex=True), kerova.int64([[2**53]], is_complex=True), True),
    (kerova.uint64([[2**64 - 1]]), kerova.uint64([[2**64 - 1]], is_complex=True), False),
    (kerova.single([[0.1]]), kerova.single([[0.1]], is_complex=True), True),
    (kerova.double(), kerova.double(size=(0, 5)), True), (kerova.double(), kerova.double(size=(2, 0)), False),
    (kerova.double(size=(2, 0)), kerova.double(size=(2, 0, 3)), True),
    # unsigned arrays against their complex form
    *((k([[0, 3], [200, 7]]), k([[0, 3], [200, 7]], is_complex=True), True) for k in UNSIGNED),
    *((k([[0, 3], [200, 7]])[1], k([[200, 7]], is_complex=True)[0], True) for k in UNSIGNED),
    *((k([[0, 3], [200, 7]]), k([[0, 3], [201, 7]], is_complex=True), False) for k in UNSIGNED),
]


@pytest.mark.parametrize("left, right, equal", EQUALITY_CASES, ids=[str(k) for k in range(len(EQUALITY_CASES))])
def test_equality(left, right, equal):
    assert (left == right) is equal and (right == left) is equal and (left != right) is (not equal)


def walk(x):
    """What iterating gives, sub-arrays as lists. An item that cannot be read (a position outside a reshaped store)
    ends the walk, as it ends the walk of ==."""
    items, it = [], iter(x)
    while True:
        try:
            item = next(it)
        except (StopIteration, IndexError):
            return items
        items.append(walk(item) if isinstance(item, type(x)) else item)


def cube(last=112):
    """int32 of shape (2, 2, 3) holding 100*i + 10*j + k at [i][j][k], but `last` at [1][1][2]."""
    a = kerova.int32([[[100 * i + 10 * j + k for k in range(3)] for j in range(2)] for i in range(2)])
    a[1][1][2] = last
    return a


# Storage order of the cube: 0 100 10 110 1 101 11 111 2 102 12 112. Reshaped to (2, 1, 6), [i][0][k] is
# storage[i + 2k]; to (1, 2, 6), [0][j][k] is storage[j + 2k]. A view whose records now lie past a dimension walks its
# readable part and yields empty sub-arrays for the rest.
ROW0, ROW1 = [0, 10, 1, 11, 2, 12], [100, 110, 101, 111, 102, 112]
STALE = [
    # (view of the cube taken before the reshape, new shape, what it walks as afterwards)
    (lambda a: a[1][0:2], (2, 1, 6), [ROW1, []]), (lambda a: a[1][::-1], (2, 1, 6), [[], ROW1]),
    (lambda a: a[1], (1, 2, 6), [[], []]), (lambda a: a[0:2], (1, 2, 6), [[ROW0, ROW1], [[], []]]),
    (lambda a: a[::-1], (1, 2, 6), [[[], []], [ROW0, ROW1]]),
]


def stale_views(last=112):
    views = []
    for chain, shape, _ in STALE:
        a = cube(last)
        views.append(chain(a))
        a.reshape(*shape)
    return views


def test_views_held_across_a_reshape_walk_and_compare_by_iteration():
    for view, (_, _, expected) in zip(stale_views(), STALE):
        assert walk(view) == expected
    fresh = cube().reshape(2, 1, 6)
    pool = [*stale_views(), *stale_views(), *stale_views(last=-1), fresh[1], fresh[1][0], fresh[0:1],
            kerova.int32(size=(2, 0)), kerova.int32(size=(3, 0)), kerova.int32([ROW1])]
    for x, y in itertools.product(pool, repeat=2):
        expected = walk(x) == walk(y)
        assert (x == y) is expected and (x != y) is (not expected), (walk(x), walk(y))


def test_reads_through_views_held_across_a_reshape(capfd):
    a = kerova.double([[1, 2, 3], [4, 5, 6]])
    s, row = a[0][1:3], a[1]
    a.reshape(3, 2)  # storage 1 4 2 5 3 6 read as [[1, 5], [4, 3], [2, 6]]
    assert s[0] == 5.0 and walk(s) == [5.0] and values(row) == [4.0, 3.0] and s.size == (2,)
    for index in (1, -1):  # position 2 of the row lies past the new dimension of length 2
        raises(lambda: s[index], IndexError, "index has an invalid value: 2")
    raises(lambda: str(s), RuntimeError, "unable to set list item.")
    cursor = a.reshape(1, 2, 3)[0][1]  # then deeper than its store: no items, and a guard line
    a.reshape(6, 1)
    assert [x for x in cursor] == []
    raises(lambda: len(cursor), RuntimeError, "too many indices.")
    assert capfd.readouterr().out == "numDims (3) >= numShapeDims (2)\n"


def test_large_arrays_compare_and_print_in_full_and_arrays_of_four_mebibytes_and_more():
    rows = [[float(i * 300 + j) for j in range(300)] for i in range(200)]
    a, b = kerova.double(rows), kerova.double(rows)
    assert str(a) == str(rows).replace(" ", "") and str(a[5][::-3]) == str(rows[5][::-3]).replace(" ", "")
    assert a == b and a[::-1] == kerova.double(rows[::-1]) and a[5][::3] == b[5][::3]
    b[199][299] = -1.0
    assert a != b and a[:199] == b[:199] and a[199] != b[199]
    a, b = kerova.uint8(size=(2048, 2048)), kerova.uint8(bytes(4 << 20))  # blocks on huge-page bounds
    a[2047][2047], a[0][1] = 7, 3
    assert a[2047][2047] == 7 and memoryview(a)[2047, 2047] == 7 and b.size == (1, 4 << 20) and b[0][-1] == 0
    assert a != kerova.uint8(size=(2048, 2048)) and a[5] == kerova.uint8(size=(2048, 2048))[5]
    a.reshape(4096, 1024)  # column-major: linear 2048 and the last element keep their places
    assert a[2048][0] == 3 and a[4095][1023] == 7 and a[0][1] == 0
