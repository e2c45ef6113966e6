"""Iteration over the first open dimension, and == / != as a parallel walk."""

import itertools
import math
import random

import pytest

import kerova
import kerovamultidimarrayforpython as ext
from test_indexing import rss_kib


def walk_equal(x, y):
    """Equality as the walk defines it, with Python's == on the scalars."""
    if type(x) is not type(y):
        return False
    ix, iy = iter(x), iter(y)
    while True:
        a, b = next(ix, None), next(iy, None)
        if a is None or b is None:
            return a is None and b is None
        a_is_array = isinstance(a, type(x))
        if a_is_array != isinstance(b, type(y)):
            return False
        if not (walk_equal(a, b) if a_is_array else a == b):
            return False


def test_iteration_yields_partial_arrays_then_scalars():
    a = kerova.int64([[1, 2, 3], [4, 5, 6]])
    rows = list(a)
    assert [type(r) for r in rows] == [kerova.int64] * 2 and [len(r) for r in rows] == [3, 3]
    assert [type(x) for x in a[0]] == [int] * 3
    assert list(kerova.int8([[1, -2]], is_complex=True)[0]) == [1 + 0j, -2 + 0j]
    assert [list(r) for r in a[::-1]] == [[4, 5, 6], [1, 2, 3]] and list(a[1:1]) == []
    assert list(kerova.double()) == [] and list(kerova.double(size=(0, 3))) == []
    empty_rows = list(kerova.double(size=(2, 0)))
    assert len(empty_rows) == 2 and all(len(r) == 0 and list(r) == [] for r in empty_rows)


def test_iterator_object():
    a = kerova.double([[1, 2]])
    it = iter(a[0])
    assert type(it) is ext.KVPyIter and iter(it) is it
    assert next(it) == 1.0 and next(it) == 2.0
    for _ in range(3):
        with pytest.raises(StopIteration):
            next(it)
    with pytest.raises(TypeError):
        ext.KVPyIter()


def test_guard_line_for_a_cursor_deeper_than_its_store(capfd):
    a = kerova.double(size=(2, 3, 4))
    c = a[0][1]
    a.reshape(24, 1)
    assert [x for x in c] == []
    with pytest.raises(RuntimeError, match=r"^too many indices\.$"):
        len(c)
    assert capfd.readouterr().out == "numDims (3) >= numShapeDims (2)\n"


def test_comparison_with_other_objects():
    a = kerova.double([[1, 2], [3, 4]])
    assert (a == 5) is False and (a != 5) is True
    assert (a == [[1, 2], [3, 4]]) is False and (a != None) is True  # noqa: E711
    for compare in (lambda: a < a, lambda: a <= 5, lambda: a > [1], lambda: a >= a):
        with pytest.raises(NotImplementedError, match=r"^inequality operators not supported\.$"):
            compare()


NAN = float("nan")
NAN_ROW = kerova.double([[1, NAN]])

EQUALITY_CASES = [
    # (left, right, equal)
    (kerova.double([[1, 2], [3, 4]]), kerova.double([[1, 2], [3, 4]]), True),
    (kerova.double([[1, 2], [3, 4]]), kerova.double([[1, 2], [3, 5]]), False),
    (kerova.double([1]), kerova.single([1]), False),
    (kerova.double([[NAN]]), kerova.double([[NAN]]), False),
    (NAN_ROW, NAN_ROW, False),  # no shortcut for the same object
    (NAN_ROW[0][0:1], NAN_ROW[0][0:1], True),
    (kerova.double([[-0.0]]), kerova.double([[0.0]]), True),
    (kerova.double([[1, 2]]), kerova.double([[1, 2]], is_complex=True), True),
    (kerova.double([[1, 2]]), kerova.double([[1, 2 + 1j]], is_complex=True), False),
    (kerova.double([[1, 2]], is_complex=True), kerova.double([[1, 2j]], is_complex=True), False),
    (kerova.int64([[2**53 + 1]]), kerova.int64([[2**53 + 1]], is_complex=True), False),
    (kerova.int64([[2**53]]), kerova.int64([[2**53]], is_complex=True), True),
    (kerova.int64([[2**53 + 1]], is_complex=True), kerova.int64([[2**53]], is_complex=True), True),
    (kerova.uint64([[2**64 - 1]]), kerova.uint64([[2**64 - 1]], is_complex=True), False),
    (kerova.single([[0.1]]), kerova.single([[0.1]], is_complex=True), True),
    (kerova.double(size=(2, 3)), kerova.double(size=(3, 2)), False),
    (kerova.double(), kerova.double(size=(0, 5)), True),
    (kerova.double(), kerova.double(size=(2, 0)), False),
    (kerova.double(size=(2, 0)), kerova.double(size=(2, 0, 3)), True),
    (kerova.double(size=(2, 3)), kerova.double(size=(2, 3, 4)), False),
    (kerova.double([[1, 2, 3]])[0], kerova.double([[1, 2, 3]]), False),
    (kerova.double([[9, 9], [1, 2]])[1], kerova.double([[1, 2, 7]])[0][0:2], True),
    (kerova.double([[1, 2], [3, 4]])[::-1], kerova.double([[3, 4], [1, 2]]), True),
]


@pytest.mark.parametrize("left, right, equal", EQUALITY_CASES, ids=[str(k) for k in range(len(EQUALITY_CASES))])
def test_equality(left, right, equal):
    assert (left == right) is equal and (right == left) is equal
    assert (left != right) is (not equal)
    assert walk_equal(left, right) is equal


def random_view(rng, kind, is_complex):
    dims = [rng.choice([0, 1, 2, 3]) for _ in range(rng.choice([2, 2, 3]))]
    pool = [0, 1] if kind in ("logical", "uint64") else [0, 1, -1, 2]
    elements = [rng.choice(pool) for _ in range(math.prod(dims))]
    view = getattr(kerova, kind)(None, dims, elements, is_complex=is_complex)
    for _ in range(rng.choice([0, 1, 2])):
        length = len(view)
        if rng.random() < 0.5 and len(view.size) > 1 and length:
            view = view[rng.randrange(-length, length)]
        else:
            bounds = [rng.randrange(-length - 1, length + 2) for _ in range(2)]
            view = view[bounds[0]:bounds[1]:rng.choice([1, 2, -1, -2])]
    return view


def test_equality_agrees_with_the_walk_on_random_views():
    rng = random.Random(2024)
    for kind, is_complex in itertools.product(["double", "int8", "uint64", "logical"], [False, True]):
        if kind == "logical" and is_complex:
            continue
        for _ in range(150):
            x = random_view(rng, kind, is_complex and rng.random() < 0.5)
            y = random_view(rng, kind, is_complex and rng.random() < 0.5)
            assert (x == y) is walk_equal(x, y), (repr(x), repr(y))
            assert (x == x) is walk_equal(x, x)


def test_large_equality_finds_single_difference():
    rows = [[float(i * 300 + j) for j in range(300)] for i in range(200)]
    a, b = kerova.double(rows), kerova.double(rows)
    assert a == b and a[::-1] == kerova.double(rows[::-1]) and a[5][::3] == b[5][::3]
    b[199][299] = -1.0
    assert a != b and a[:199] == b[:199] and a[199] != b[199]


@pytest.mark.rss
def test_loops_do_not_grow_memory():
    a = kerova.double([[1.0, 2.0, 3.0]] * 4)
    b = kerova.double([[1.0, 2.0, 3.0]] * 4, is_complex=True)

    def loops():
        hits = 0
        for _ in range(100000):
            hits += (a == b) + (a[1] != b[2][0:3])
            for row in a[1:3]:
                for x in row:
                    hits += x > 2
        return hits

    loops()
    before = rss_kib()
    loops()
    assert rss_kib() - before < 2048
