"""Reading, writing, iterating and == / != beyond the property tests: index forms, kinds, complex
flags and shapes that they do not draw or mix, and chains of slices against Python's own."""

import pickle

import pytest

import kerova
import kerovamultidimarrayforpython as ext
from checks import check, raises, values


@pytest.mark.parametrize("chain, expected", [
    (lambda a: a[True], "[4.0,5.0,6.0]"),
    *((lambda a, i=index: a[i], (RuntimeError, "index is not an integer or slice.")) for index in [Ellipsis, [1], "x"]),
    (lambda a: a[::1.5], (ValueError, "slice step cannot be zero.")),
    (lambda a: a[1.5:], (TypeError, None)),
    (lambda a: a[0][:"x"], (TypeError, None)),
])
def test_index_forms_that_the_model_does_not_draw(chain, expected):
    check(lambda: chain(kerova.double([[1, 2, 3], [4, 5, 6]])), expected)


ROW = list(range(10))  # chains of slices and integers on a row of ten read as Python reads them
SLICE_CHAINS = ["[8:2:-2]", "[2:2:-1]", "[3:1]", "[1:8][::-1]", "[::-1][::2]", "[::2][1:]", "[2:2][0:1]",
                "[1:5][10:]", "[1:9][2:6][::-1]", "[::-1][1:-1][::3]", "[7:0:-2][1:]", "[1:8][::-1][2]",
                "[::3][-1]", "[2:9][::2][::-1][0]", "[5:][::-2]", "[0:10:4][::-1][1:]",
                # steps far beyond the row, alone and composed: each reaches one element
                "[::2**63-1]", "[::-2**63]", "[9:0:-2**63]", "[3::2**62][::2**62]", "[::-2**62][::-2**63]",
                "[::-1][::2**63-1][::-2**63]", "[1::2**62][0]", "[-2**63:2**63:2**63-1]"]


@pytest.mark.parametrize("chain", SLICE_CHAINS)
def test_slice_chains_read_like_python_lists(chain):
    row, expected = kerova.int32([ROW])[0], eval("ROW" + chain)
    got = eval("row" + chain)
    if isinstance(expected, list):
        assert values(got) == expected and len(got) == len(expected) and list(got) == expected
        assert got == got and got == kerova.int32([expected])[0]
    else:
        assert got == expected
    grid = kerova.int16([[r * 10 + c for c in range(4)] for r in range(10)])  # the same on the first dimension
    expected = eval("[[r * 10 + c for c in range(4)] for r in ROW]" + chain)
    assert values(eval("grid" + chain)) == expected


def test_writes_through_huge_steps_reach_one_element():
    a = kerova.single(size=(3, 3))
    a[0][::-2**63] = [7]
    a[::2**63 - 1] = kerova.single([[1, 2, 3]])
    a[2][1::2**62] = [5]
    assert values(a) == [[1, 2, 3], [0, 0, 0], [0, 5, 0]] and a[::-2**63] == a[2:] and a[0:None:-2**63] == a[:1]


def test_writes_reach_live_iterators_and_copies():
    a = kerova.double([[0, 1, 2], [10, 11, 12]])
    it = iter(a[1])
    a[0][1], a[1][0] = 7, 8
    assert next(it) == 8 and values(pickle.loads(pickle.dumps(a))) == [[0, 7, 2], [8, 11, 12]]
    assert bytes(memoryview(a.reshape(3, 2))) == bytes(memoryview(kerova.double([[0, 11], [8, 2], [7, 12]])))


def test_iteration_yields_partial_arrays_then_scalars():
    a = kerova.int64([[1, 2, 3], [4, 5, 6]])
    assert [type(r) for r in a] == [kerova.int64] * 2 and [type(x) for x in a[0]] == [int] * 3
    assert list(kerova.double()) == [] and [list(r) for r in kerova.double(size=(2, 0))] == [[], []]


def test_iterator_object():
    it = iter(kerova.double([[1, 2]])[0])
    assert type(it) is ext.KVPyIter and iter(it) is it
    assert next(it) == 1.0 and next(it) == 2.0
    for _ in range(3):
        raises(lambda: next(it), StopIteration)
    raises(ext.KVPyIter, TypeError)


def test_guard_line_for_a_cursor_deeper_than_its_store(capfd):
    a = kerova.double(size=(2, 3, 4))
    c = a[0][1]
    a.reshape(24, 1)
    assert [x for x in c] == []
    raises(lambda: len(c), RuntimeError, "too many indices.")
    assert capfd.readouterr().out == "numDims (3) >= numShapeDims (2)\n"


def test_comparison_with_other_objects():
    a = kerova.double([[1, 2], [3, 4]])
    assert (a == 5) is False and (a != 5) is True
    assert (a == [[1, 2], [3, 4]]) is False and (a != None) is True  # noqa: E711
    for compare in (lambda: a < a, lambda: a <= 5, lambda: a > [1], lambda: a >= a):
        raises(compare, NotImplementedError, "inequality operators not supported.")


NAN_ROW = kerova.double([[1, float("nan")]])

EQUALITY_CASES = [
    # (left, right, equal)
    (kerova.double([1]), kerova.single([1]), False),
    (NAN_ROW, NAN_ROW, False),  # no shortcut for the same object
    (NAN_ROW[0][0:1], NAN_ROW[0][0:1], True),
    (kerova.double([[1, 2]]), kerova.double([[1, 2]], is_complex=True), True),
    (kerova.double([[1, 2]]), kerova.double([[1, 2 + 1j]], is_complex=True), False),
    (kerova.int64([[2**53 + 1]]), kerova.int64([[2**53 + 1]], is_complex=True), False),
    (kerova.int64([[2**53 + 1]], is_complex=True), kerova.int64([[2**53]], is_complex=True), True),
    (kerova.uint64([[2**64 - 1]]), kerova.uint64([[2**64 - 1]], is_complex=True), False),
    (kerova.single([[0.1]]), kerova.single([[0.1]], is_complex=True), True),
    (kerova.double(), kerova.double(size=(0, 5)), True),
    (kerova.double(), kerova.double(size=(2, 0)), False),
    (kerova.double(size=(2, 0)), kerova.double(size=(2, 0, 3)), True),
]


@pytest.mark.parametrize("left, right, equal", EQUALITY_CASES, ids=[str(k) for k in range(len(EQUALITY_CASES))])
def test_equality(left, right, equal):
    assert (left == right) is equal and (right == left) is equal
    assert (left != right) is (not equal)


def test_large_equality_finds_single_difference():
    rows = [[float(i * 300 + j) for j in range(300)] for i in range(200)]
    a, b = kerova.double(rows), kerova.double(rows)
    assert str(a) == str(rows).replace(" ", "") and str(a[5][::-3]) == str(rows[5][::-3]).replace(" ", "")
    assert a == b and a[::-1] == kerova.double(rows[::-1]) and a[5][::3] == b[5][::3]
    b[199][299] = -1.0
    assert a != b and a[:199] == b[:199] and a[199] != b[199]
