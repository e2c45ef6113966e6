"""Walks over stores reshaped under partial arrays held from before, == going into sub-arrays
where the strided shortcut does not apply, slices of slices, and arrays large enough for the
store's huge-page block. == is defined by iteration: two arrays are equal when walking both
side by side finds no difference, so `walk` below is the yardstick for it."""

import itertools

import pytest

import kerova
from checks import raises, values


def walk(x):
    """What iterating gives, sub-arrays as lists. An item that cannot be read (a position
    outside a reshaped store) ends the walk, as it ends the walk of ==."""
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


# Storage order of the cube: 0 100 10 110 1 101 11 111 2 102 12 112. Reshaped to (2, 1, 6),
# [i][0][k] is storage[i + 2k]; to (1, 2, 6), [0][j][k] is storage[j + 2k]. A view whose
# records now lie past a dimension walks its readable part and yields empty sub-arrays for
# the rest.
ROW0, ROW1 = [0, 10, 1, 11, 2, 12], [100, 110, 101, 111, 102, 112]
STALE = [
    # (view of the cube taken before the reshape, new shape, what it walks as afterwards)
    (lambda a: a[1][0:2], (2, 1, 6), [ROW1, []]),
    (lambda a: a[1][::-1], (2, 1, 6), [[], ROW1]),
    (lambda a: a[1], (1, 2, 6), [[], []]),
    (lambda a: a[0:2], (1, 2, 6), [[ROW0, ROW1], [[], []]]),
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


def test_reads_through_a_slice_held_across_a_reshape():
    a = kerova.double([[1, 2, 3], [4, 5, 6]])
    s, row = a[0][1:3], a[1]
    a.reshape(3, 2)  # storage 1 4 2 5 3 6 read as [[1, 5], [4, 3], [2, 6]]
    assert s[0] == 5.0 and walk(s) == [5.0] and values(row) == [4.0, 3.0] and s.size == (2,)
    for index in (1, -1):  # position 2 of the row lies past the new dimension of length 2
        raises(lambda: s[index], IndexError, "index has an invalid value: 2")
    raises(lambda: str(s), RuntimeError, "unable to set list item.")


ROW = list(range(5))
# Slices of slices whose second slice starts at or past the first one's length, or runs the
# other way: they read as the same slices of a Python list.
NESTED = ["[1:3][5:]", "[1:3][2:]", "[1:3][-5:]", "[1:3][:-5]", "[3:0:-1][4:]", "[::-1][7:][1:]",
          "[::2][3:]", "[::-2][1:][::-1]", "[4:1:-1][1:][::-1]", "[1:4][::-1][1:9]"]


@pytest.mark.parametrize("chain", NESTED)
def test_slices_of_slices(chain):
    got, expected = eval("kerova.int16([ROW, ROW])[0]" + chain), eval("ROW" + chain)
    assert values(got) == walk(got) == expected and len(got) == len(expected) and got == kerova.int16([expected])[0]
    if not expected:
        raises(lambda: got[0], IndexError, "index has an invalid value: 0")


@pytest.mark.parametrize("kind", [kerova.uint8, kerova.uint16, kerova.uint32, kerova.uint64])
def test_unsigned_arrays_against_their_complex_form(kind):
    real = kind([[0, 3], [200, 7]])
    assert real == kind([[0, 3], [200, 7]], is_complex=True) and real[1] == kind([[200, 7]], is_complex=True)[0]
    assert real != kind([[0, 3], [201, 7]], is_complex=True)


def test_arrays_of_four_mebibytes_and_more():
    a, b = kerova.uint8(size=(2048, 2048)), kerova.uint8(bytes(4 << 20))  # blocks on huge-page bounds
    a[2047][2047], a[0][1] = 7, 3
    assert a[2047][2047] == 7 and memoryview(a)[2047, 2047] == 7 and b.size == (1, 4 << 20) and b[0][-1] == 0
    assert a != kerova.uint8(size=(2048, 2048)) and a[5] == kerova.uint8(size=(2048, 2048))[5]
    a.reshape(4096, 1024)  # column-major: linear 2048 and the last element keep their places
    assert a[2048][0] == 3 and a[4095][1023] == 7 and a[0][1] == 0


class Items:
    """A sequence of `items` whose __len__ raises if they are None and whose __getitem__
    raises at position `broken`."""

    def __init__(self, items, broken=-1):
        self.items, self.broken = items, broken

    def __len__(self):
        if self.items is None:
            raise LookupError("no length")
        return len(self.items)

    def __getitem__(self, i):
        if i == self.broken:
            raise LookupError("no item")
        return self.items[i]


@pytest.mark.parametrize("initializer, error", [
    # an item that cannot be fetched is reported as missing; a length that cannot be read keeps its error
    (Items([1, 2], broken=0), (RuntimeError, "null data pointer.")),
    (Items([1, 2], broken=1), (RuntimeError, "null data pointer.")),
    ([Items(None), [1]], (LookupError, "no length")),
    ([[1], Items(None)], (LookupError, "no length")),
], ids=["first-item", "second-item", "first-length", "second-length"])
def test_sequences_that_fail_while_the_initializer_is_checked(initializer, error):
    raises(lambda: kerova.double(initializer), *error)
