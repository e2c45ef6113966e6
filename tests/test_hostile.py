"""Hostile input: sequences that lie about their length or change under the walk, number
protocols that raise, buffers with odd fields, impossible sizes, views held across a
reshape and parents gone during iteration. Each ends in a Python error, and the arrays
involved stay usable. The cases run in this process: the sanitizer run sees any memory
fault they provoke."""

import ctypes
import gc
import pickle
import struct
import sys

import numpy as np
import pytest

import kerova
from support.consumer import Capi
from support.exporter import Exporter

NULL_DATA = "null data pointer."
RESHAPE = "reshape() must be passed a nonempty sequence of nonnegative integers."
HUGE = 2**62


class Lying:
    """A sequence of `items` whose __len__ answers `length` (a number, a list of answers
    given in turn, or an exception to raise) and whose missing items raise `error`."""

    def __init__(self, items, length, error=IndexError):
        self.items, self.length, self.error = list(items), length, error

    def __len__(self):
        if isinstance(self.length, BaseException):
            raise self.length
        if isinstance(self.length, list):
            return self.length.pop(0) if len(self.length) > 1 else self.length[0]
        return self.length

    def __getitem__(self, i):
        if 0 <= i < len(self.items):
            return self.items[i]
        raise self.error(i)


def unchanged(a, text):
    """The array still works and holds what it held."""
    assert str(a) == text and str(a.clone()) == text and a == a.clone() and len(list(a)) == len(a)


def raises(action, error, message=None):
    with pytest.raises(error) as caught:
        action()
    if message is not None:
        assert str(caught.value) == message


# --- sequences that lie or change -------------------------------------------------------------

LYING = [
    # (construction, exception, message)
    (lambda: kerova.double(Lying([1.0, 2.0], 3)), RuntimeError, NULL_DATA),
    (lambda: kerova.double(Lying([1.0, 2.0], HUGE)), RuntimeError, NULL_DATA),
    (lambda: kerova.double(Lying([1.0], 2, KeyError)), RuntimeError, NULL_DATA),
    (lambda: kerova.double([Lying([1.0], 2), [1.0, 2.0]]), RuntimeError, NULL_DATA),
    (lambda: kerova.double([[1.0, 2.0], Lying([1.0, 2.0], [2, 1])]), ValueError, "arrays must be rectangular."),
    (lambda: kerova.double(Lying([], ValueError("no length"))), ValueError, "no length"),
    (lambda: kerova.double(Lying([], -1)), ValueError, None),
    (lambda: kerova.double(vector=Lying([1, 2], HUGE)), MemoryError,
     f"unable to allocate memory for array with number of elements = {HUGE}; type = double"),
    (lambda: kerova.int8(vector=Lying([1, 2], HUGE), is_complex=True), MemoryError,
     f"unable to allocate memory for array with number of elements = {HUGE}; type = int8"),
    (lambda: kerova.double(vector=Lying([1, 2], 3)), RuntimeError, "item 2 could not be retrieved."),
    (lambda: kerova.double(size=Lying([2, 2], HUGE)), MemoryError, None),
    (lambda: kerova.double(size=Lying([2], 2)), RuntimeError,
     "Item 1 could not be retrieved from the value associated with the 'size' keyword."),
    (lambda: kerova.double(size=Lying([], TypeError("no size"))), TypeError, "no size"),
    (lambda: kerova.double().reshape(Lying([0, 0], HUGE)), MemoryError, None),
    (lambda: kerova.double().reshape(Lying([0], 2)), RuntimeError,
     "Item 1 could not be retrieved from the value passed to reshape()."),
]


@pytest.mark.parametrize("construct, error, message", LYING)
def test_lying_sequences(construct, error, message):
    raises(construct, error, message)


def test_lying_shorter_length_reads_only_that_many():
    assert str(kerova.double(Lying([1.0, 2.0, 3.0], 2))) == "[[1.0,2.0]]"
    assert str(kerova.double(vector=Lying([1, 2, 3], 1))) == "[[1.0]]"


@pytest.mark.parametrize("index", [0, slice(0, 1), slice(None)])
def test_lying_right_sides_write_nothing(index):
    a = kerova.double([[1, 2], [3, 4]])
    raises(lambda: a.__setitem__(index, Lying([[5.0, 6.0]] * 2, 3)), RuntimeError, NULL_DATA)
    unchanged(a, "[[1.0,2.0],[3.0,4.0]]")


class Mutating:
    """A row of two whose reading runs `action` first, once."""

    def __init__(self, action):
        self.action = action

    def __len__(self):
        return 2

    def __getitem__(self, i):
        if i >= 2:
            raise IndexError(i)
        action, self.action = self.action, lambda: None
        action()
        return float(i)


def test_walked_lists_changed_under_the_walk():
    outer = [[1.0, 2.0], None, [5.0, 6.0]]
    outer[1] = Mutating(lambda: outer.append([7.0, 8.0]))  # longer than its length said
    assert str(kerova.double(outer)) == "[[1.0,2.0],[0.0,1.0],[5.0,6.0]]"
    outer = [[1.0, 2.0], None, [5.0, 6.0]]
    outer[1] = Mutating(lambda: outer.__setitem__(2, [9.0, 9.0]))  # an item replaced before it is read
    assert str(kerova.double(outer)) == "[[1.0,2.0],[0.0,1.0],[9.0,9.0]]"
    outer = [None, [5.0, 6.0]]
    outer[0] = Mutating(lambda: outer.__setitem__(1, "xy"))  # replaced by a refused item
    raises(lambda: kerova.double(outer), ValueError, "value passed to initializer must be numeric.")


@pytest.mark.parametrize("change", [
    lambda a: a.reshape(1, 4),            # the target takes another shape
    lambda a: a[1].__setitem__(1, 9.0),   # or another value
    lambda a: memoryview(a),              # or is exported
])
def test_right_side_that_changes_the_target_during_the_walk(change):
    for index in (0, slice(0, 1), slice(None)):
        a = kerova.double([[1, 2], [3, 4]])
        value = [Mutating(lambda: change(a))] if isinstance(index, slice) else Mutating(lambda: change(a))
        try:
            a[index] = value
        except (ValueError, RuntimeError, IndexError):
            pass
        assert len(str(a)) > 0 and a.clone() == a and a.size in ((2, 2), (1, 4))


# --- number protocols that raise ------------------------------------------------------------

class Raising:
    """An object whose __index__, __float__ and __complex__ all raise."""

    def __index__(self):
        raise ZeroDivisionError("index")

    def __float__(self):
        raise ZeroDivisionError("float")

    def __complex__(self):
        raise ZeroDivisionError("complex")


class Two:
    def __index__(self):
        return 2


@pytest.mark.parametrize("action, error, message", [
    (lambda a: kerova.double([Raising()]), TypeError, "type does not match."),
    (lambda a: kerova.int64(vector=[Raising()]), ValueError, "type does not match."),
    (lambda a: a[0].__setitem__(0, Raising()), TypeError, "type does not match."),
    (lambda a: a[Raising()], RuntimeError, "index is not an integer or slice."),
    (lambda a: a.__setitem__(Raising(), [1, 2, 3]), RuntimeError, "index is not an integer or slice."),
    (lambda a: a[Raising():], ZeroDivisionError, "index"),
    (lambda a: a[:Raising()], ZeroDivisionError, "index"),
    (lambda a: a[::Raising()], ValueError, "slice step cannot be zero."),
    (lambda a: a[0].__setitem__(slice(Raising(), None), [1]), ZeroDivisionError, "index"),
    (lambda a: kerova.double(size=[Raising()]), TypeError, "dimensions must be nonnegative integers."),
    (lambda a: a.reshape(Raising(), 3), ValueError, RESHAPE),
    (lambda a: a.reshape(2**63, 3), ValueError, RESHAPE),
])
def test_number_protocols_are_not_consulted_or_their_errors_stand(action, error, message):
    a = kerova.int64([[1, 2, 3], [4, 5, 6]])
    raises(lambda: action(a), error, message)
    unchanged(a, "[[1,2,3],[4,5,6]]")


def test_slice_bounds_go_through_index():
    a = kerova.int64([[1, 2, 3], [4, 5, 6]])
    assert str(a[0][Two():]) == "[3]" and str(a[:Two()]) == str(a)
    assert kerova.int64([Raising()], is_complex=True)[0][0] == 0j


def test_huge_integer_indices_end_in_an_error():
    a = kerova.double([[1, 2], [3, 4]])
    for action in (lambda: a[2**70], lambda: a[0][-2**70], lambda: a[0].__setitem__(2**70, 5.0),
                   lambda: a.__setitem__(-2**70, [5.0, 5.0]), lambda: a[0].__delitem__(2**64)):
        raises(action, OverflowError)
    raises(lambda: a[2**70:][0], IndexError, "index has an invalid value: 0")
    assert str(a[0][2**70:]) == "[]" and str(a[-2**70:][1]) == "[3.0,4.0]"
    unchanged(a, "[[1.0,2.0],[3.0,4.0]]")


# --- buffers with odd fields ----------------------------------------------------------------

def incompatible(given, expected):
    return (f"input buffer format ('{given}') is not compatible with output format ('{expected}'); "
            "use a different input or output type")


DOUBLES = struct.pack("6d", 1, 2, 3, 4, 5, 6)
BUFFERS = [
    # (kind, exporter, size or exception, text or message)
    ("double", Exporter(DOUBLES, b"d", 8, 2, (2, 3)), (2, 3), "[[1.0,2.0,3.0],[4.0,5.0,6.0]]"),  # no strides: C
    ("double", Exporter(DOUBLES, b"d", 8, 2, (2, 3), (-24, -8)), (2, 3), "[[1.0,2.0,3.0],[4.0,5.0,6.0]]"),
    ("double", Exporter(DOUBLES, b"d", 1, 1), (1, 6), "[[1.0,2.0,3.0,4.0,5.0,6.0]]"),  # item size not read
    ("double", Exporter(DOUBLES, b"d", 8, 0), BufferError, "input does not fit evenly into output type."),
    ("double", Exporter(DOUBLES[:8], b"d", 8, 0), (1, 1), "[[1.0]]"),
    ("double", Exporter(DOUBLES, b"d", 8, 2, None), BufferError, "shape is null."),
    ("double", Exporter(DOUBLES, b"d", 8, 2, (3, 3)), BufferError, "input does not fit evenly into output type."),
    ("double", Exporter(DOUBLES, b"d", 8, -1, (2, 3)), BufferError, "input buffer has an invalid shape."),
    ("double", Exporter(b"", b"d", 8, 2, (-1, 0)), BufferError, "input buffer has an invalid shape."),
    ("double", Exporter(DOUBLES[:12], b"d", 8, 1), BufferError, "input does not fit evenly into output type."),
    ("double", Exporter(DOUBLES, b"d", 8, 1, length=-8), (0, 0), "[]"),
    ("double", Exporter(DOUBLES, None, 8), BufferError, "input 'format' field is null."),
    ("double", Exporter(DOUBLES, b"", 8), BufferError, "input 'format' field is null."),
    ("double", Exporter(DOUBLES, b"Z", 16), BufferError, incompatible("Z", "d")),
    ("uint8", Exporter(b"", b"B", 0, 2, (0, 3), (0, 0)), (0, 3), "[]"),
    ("uint8", Exporter(b"", b"B", 0, 2, (2, 3), (0, 0)), BufferError, "input does not fit evenly into output type."),
    ("uint8", Exporter(b"", b"B", 0, 3, (0, HUGE, HUGE)), (0, 0, 0), "[]"),
    ("uint8", Exporter(b"\x07", b"B", 1, 64, (1,) * 64), (1, 1), "[[7]]"),
    ("logical", Exporter(b"\x00\x05\x00\x01", b"?", 0, 2, (2, 2), (0, 0)), (2, 2), "[[False,True],[False,True]]"),
    ("int8", Exporter(DOUBLES, b"Zd", 16, 1), BufferError, incompatible("Zd", "b")),
]


@pytest.mark.parametrize("kind, exporter, expected, text", BUFFERS)
def test_buffers_with_odd_fields(kind, exporter, expected, text):
    references = sys.getrefcount(exporter)
    if isinstance(expected, tuple):
        a = getattr(kerova, kind)(exporter)
        assert a.size == tuple(d % 2**32 for d in expected) and str(a) == text
    else:
        raises(lambda: getattr(kerova, kind)(exporter), expected, text)
    gc.collect()
    assert sys.getrefcount(exporter) == references  # the view was released


def test_complex_kinds_read_the_part_after_z():
    pairs = struct.pack("4d", 1, 2, 3, 4)
    assert str(kerova.double(Exporter(pairs, b"Zd", 16, 1), is_complex=True)) == "[[(1+2j),(3+4j)]]"
    raises(lambda: kerova.double(Exporter(pairs, b"Z", 16, 1), is_complex=True), BufferError, incompatible("Z", "Zd"))


@pytest.mark.parametrize("source", [
    (ctypes.c_double * 3)(1, 2, 3),                 # "<d"
    np.zeros(3, dtype=">f8"),                       # ">d"
    np.zeros(3, dtype=[("x", "f8")]),               # a structure
    np.broadcast_to(np.zeros(1), (3, 2)),           # strides of 0, refused by the exporter
])
def test_foreign_exporters_are_refused(source):
    with pytest.raises((BufferError, ValueError)):
        kerova.double(source)


def test_capsule_classifies_odd_buffers():
    capi = Capi()
    for exporter, error, message in [
        (Exporter(DOUBLES, None, 8), RuntimeError, "format field is null."),
        (Exporter(DOUBLES, b"", 8), RuntimeError, "format field is empty."),
        (Exporter(DOUBLES, b"Z?", 2), TypeError, "logical arrays must not be complex."),
        (Exporter(DOUBLES, b"Z", 16), BufferError, incompatible("Z", "Zd")),
    ]:
        references = sys.getrefcount(exporter)
        raises(lambda: capi.array_from_buffer(exporter), error, message)
        gc.collect()  # the traceback kept the exporter in a cycle
        assert sys.getrefcount(exporter) == references


# --- impossible sizes -----------------------------------------------------------------------

@pytest.mark.parametrize("construct, error", [
    (lambda: kerova.double(size=(2**40, 2**40)), MemoryError),
    (lambda: kerova.uint8(size=(2**32, 2**32)), MemoryError),
    (lambda: kerova.logical(size=(2**33, 2**33, 2)), MemoryError),
    (lambda: kerova.int16([[1, 2]], size=(2**40, 2**40)), MemoryError),
    (lambda: kerova.double(size=[2**63]), ValueError),
    (lambda: kerova.double().reshape(2**32, 2**32), kerova.ShapeError),
    (lambda: kerova.double().reshape(HUGE, 4), kerova.ShapeError),
    (lambda: kerova.double([[1]]).reshape(2**32 + 1, 2**32 - 1), kerova.ShapeError),
])
def test_impossible_sizes(construct, error):
    with pytest.raises(error):
        construct()


def test_impossible_sizes_report_the_count():
    with pytest.raises(MemoryError, match=r"^unable to allocate memory for array with number of elements = "
                                          r"18446744073709551615; type = single$"):
        kerova.single(size=(2**40, 2**40), is_complex=True)
    with pytest.raises(kerova.ShapeError, match=r"^number of elements specified by arguments to reshape\(\) "
                                                r"\(0\) does not match current number \(0\)\.$"):
        kerova.double().reshape(2**32, 2**32)


def test_empty_arrays_with_huge_dimensions():
    for a in (kerova.double(size=(HUGE, 0)), kerova.double().reshape(2**61, 2**61, 0)):
        assert len(a) in (HUGE, 2**61) and a.size[0] == 0 and a == a  # lengths in size are cut to 32 bits
        for action in (str, repr, pickle.dumps, lambda x: x.clone()):  # a list that long can't be made
            raises(lambda: action(a), MemoryError)
        last = a[len(a) - 1]
        raises(lambda: last[0] if len(a.size) == 2 else last[0][0], IndexError)
    a = kerova.double(size=(HUGE, 0))
    assert a.reshape(0, HUGE) is a and str(a) == "[]" and a.clone().size == (0, 0)


# --- views across a reshape, parents gone during iteration ----------------------------------

def test_views_held_across_reshapes_fail_cleanly():
    a = kerova.int32([[[1, 2], [3, 4]], [[5, 6], [7, 8]]])
    views = [a[1][1], a[1], a[1][0:2], a[0:1], a[1][1][::-1]]
    walks = [iter(a[1]), iter(a[1][1]), iter(a)]
    next(walks[1])
    exported = memoryview(a)
    a.reshape(8, 1)
    for view in views:  # records that fit the new shape read it, the others fail
        for action in (str, list, len, view.clone, memoryview, lambda: view == view, lambda: view[0],
                       lambda: view.__setitem__(0, [9]), lambda: view.__setitem__(0, 9), pickle.dumps):
            try:
                action(view) if action in (str, list, len, memoryview, pickle.dumps) else action()
            except (RuntimeError, IndexError, ValueError, TypeError):
                pass
    for walk in walks:
        try:
            for item in walk:
                str(item)
        except (RuntimeError, IndexError):
            pass
    assert exported.tolist() == [[[1, 2], [3, 4]], [[5, 6], [7, 8]]]
    assert a.size == (8, 1) and a.reshape(2, 2, 2) is a and a.clone() == a and len(str(a)) == 29


def test_reshape_during_iteration_and_while_exported():
    a = kerova.double([[1, 2, 3], [4, 5, 6]])
    seen = []
    for row in a:  # the walk reads the shape at each step
        seen.append(str(row))
        a.reshape(3, 2)
    assert seen == ["[1.0,2.0,3.0]", "[4.0,3.0]", "[2.0,6.0]"]
    with memoryview(a) as view:  # the view keeps the block and the geometry it was given
        a.reshape(6, 1)
        a[5][0] = 60.0
        assert view.shape == (3, 2) and view.tolist() == [[1.0, 5.0], [4.0, 3.0], [2.0, 6.0]]
    a[5][0] = 6.0
    unchanged(a.reshape(2, 3), "[[1.0,2.0,3.0],[4.0,5.0,6.0]]")


def test_parents_gone_during_iteration():
    def rows():
        return iter(kerova.int16([[1, 2, 3], [4, 5, 6]])[::-1])

    walk = rows()
    gc.collect()
    first = next(walk)
    inner = iter(first[1:])
    del first
    gc.collect()
    assert list(inner) == [5, 6] and [str(r) for r in walk] == ["[1,2,3]"]
    a = kerova.double([[1, 2], [3, 4]], is_complex=True)
    walks = [iter(a), iter(a[0]), iter(a[1][::-1])]
    del a
    gc.collect()
    assert [str(r) for r in walks[0]] == ["[(1+0j),(2+0j)]", "[(3+0j),(4+0j)]"]
    assert list(walks[1]) == [1, 2] and list(walks[2]) == [4, 3]


@pytest.mark.parametrize("index, error, message", [
    (5, IndexError, "index has an invalid value: 5"),
    ((0, 1), RuntimeError, "index is not an integer or slice."),
    (slice(0, 1, 0), ValueError, "slice step cannot be zero."),
    (slice(None), RuntimeError, NULL_DATA),
])
def test_del_reports_index_errors_first(index, error, message):
    a = kerova.uint16([[1, 2], [3, 4]])
    raises(lambda: a.__delitem__(index), error, message)
    raises(lambda: a[1].__delitem__(index), error, message)
    unchanged(a, "[[1,2],[3,4]]")
