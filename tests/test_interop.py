"""Buffer export and import, methods and attributes, reshape and pickling."""

import array
import copy
import gc
import multiprocessing
import pickle
import re
import sys
import time

import numpy as np
import pytest

import kerova
import kvexceptions
from support.consumer import (PyBUF_ANY_CONTIGUOUS, PyBUF_C_CONTIGUOUS, PyBUF_F_CONTIGUOUS, PyBUF_FORMAT,
                              PyBUF_FULL_RO, PyBUF_ND, PyBUF_SIMPLE, PyBUF_STRIDES, PyBUF_WRITABLE, buffer_of)

# name, format character, element size, numpy type, array.array typecode
KINDS = [("double", "d", 8, np.float64, "d"), ("single", "f", 4, np.float32, "f"), ("int8", "b", 1, np.int8, "b"),
         ("uint8", "B", 1, np.uint8, "B"), ("int16", "h", 2, np.int16, "h"), ("uint16", "H", 2, np.uint16, "H"),
         ("int32", "i", 4, np.int32, "i"), ("uint32", "I", 4, np.uint32, "I"), ("int64", "q", 8, np.int64, "q"),
         ("uint64", "Q", 8, np.uint64, "Q"), ("logical", "?", 1, np.bool_, "B")]
FORMS = [(k, False) for k in KINDS] + [(k, True) for k in KINDS[:-1]]
FORM_IDS = [k[0] + ("-complex" if c else "") for k, c in FORMS]
KIND_IDS = [k[0] for k in KINDS]
BAD_DIMS = "reshape() must be passed a nonempty sequence of nonnegative integers."


def values_2x3(kind, is_complex):
    if kind == "logical":
        return [[True, False, True], [False, True, True]]
    return [[1 + 2j, 2, 3 + 1j], [4, 5 + 3j, 6]] if is_complex else [[1, 2, 3], [4, 5, 6]]


def sample(kind, is_complex=False):
    return getattr(kerova, kind)(values_2x3(kind, is_complex), is_complex=is_complex)


def exactly(message):
    return "^" + re.escape(message) + "$"


# ---------------------------------------------------------------- buffer export

@pytest.mark.parametrize("form", FORMS, ids=FORM_IDS)
def test_export_is_a_readonly_column_major_view_of_the_mirror(form):
    (kind, fmt, size, dtype, _), is_complex = form
    a, item = sample(kind, is_complex), size * (2 if is_complex else 1)
    m = memoryview(a)
    assert (m.format, m.itemsize, m.shape, m.strides) == ("Z" * is_complex + fmt, item, (2, 3), (item, 2 * item))
    assert m.readonly and m.f_contiguous and not m.c_contiguous and m.obj is a and a.itemsize == item
    assert a.tomemoryview().tobytes("F") == m.tobytes("F")
    if not is_complex or kind in ("double", "single"):  # numpy has no complex integers
        view = np.asarray(a)
        assert view.ctypes.data == a.buffer_info()[0] and not view.flags.writeable
        np.testing.assert_array_equal(view, np.array(values_2x3(kind, is_complex), dtype=view.dtype))
        a[1][2] = 0
        assert view[1, 2] == 0


def test_partial_array_exports_a_snapshot_with_its_own_shape():
    a = kerova.double([[1, 2, 3], [4, 5, 6]])
    b = a[1]
    assert memoryview(b).shape == (1, 3)
    a[1][1] = 50
    assert memoryview(b).tolist() == [[4.0, 5.0, 6.0]] and memoryview(a[1]).tolist() == [[4.0, 50.0, 6.0]]


@pytest.mark.parametrize("flags", [PyBUF_SIMPLE, PyBUF_ND, PyBUF_STRIDES, PyBUF_F_CONTIGUOUS, PyBUF_ANY_CONTIGUOUS,
                                   PyBUF_FULL_RO, PyBUF_STRIDES | PyBUF_FORMAT])
def test_consumer_requests_that_are_served(flags):
    a = kerova.int16([[1, 2, 3], [4, 5, 6]], is_complex=True)
    before = sys.getrefcount(a)
    with buffer_of(a, flags) as view:
        assert (view.obj, view.buf, view.len, view.itemsize, view.readonly) == (id(a), a.buffer_info()[0], 24, 4, 1)
        assert view.format == (b"Zh" if flags & PyBUF_FORMAT else None)
        assert view.geometry() == ((2, 3), (4, 8))  # whatever the flags ask
    assert sys.getrefcount(a) == before


@pytest.mark.parametrize("flags, message", [
    (PyBUF_WRITABLE, "underlying buffer is not writable."), (PyBUF_FULL_RO | PyBUF_WRITABLE, "underlying buffer is not writable."),
    (PyBUF_C_CONTIGUOUS, "underlying buffer not C-contiguous."),
])
@pytest.mark.parametrize("build", [lambda: kerova.double([1, 2, 3]), lambda: kerova.double(7),
                                   lambda: kerova.double([[1, 2], [3, 4]])[0]], ids=["1xN", "1x1", "partial"])
def test_consumer_requests_that_are_refused(flags, message, build):
    a = build()
    before = sys.getrefcount(a)
    with pytest.raises(ValueError, match=exactly(message)), buffer_of(a, flags):
        pass
    assert sys.getrefcount(a) == before


def test_views_survive_reshapes_and_their_array():
    a = kerova.int32([[1, 2, 3], [4, 5, 6]])
    m, n = memoryview(a), np.asarray(a)
    a[0:1].reshape(1, 6)  # through another cursor on the store
    m2 = memoryview(a)
    assert a.reshape(3, 2) is a
    a[0][0] = 100
    del a
    gc.collect()
    assert m.shape == (2, 3) and m.tolist() == [[1, 2, 3], [4, 5, 6]] and n.tolist() == m.tolist()
    assert m2.tolist() == [[1, 4, 2, 5, 3, 6]]


# ---------------------------------------------------------------- buffer import

@pytest.mark.parametrize("kind_row", KINDS, ids=KIND_IDS)
@pytest.mark.parametrize("order", ["C", "F"])
@pytest.mark.parametrize("shape", [(2, 3), (2, 3, 4), (4,), ()])
def test_numpy_sources_round_trip(kind_row, order, shape):
    kind, dtype = kind_row[0], kind_row[3]
    flat = np.arange(int(np.prod(shape))) + 1
    source = np.asarray(flat % 3 > 0 if kind == "logical" else flat, dtype=dtype).reshape(shape, order=order)
    a = getattr(kerova, kind)(source)
    expected = source.reshape({(): (1, 1), (4,): (1, 4)}.get(shape, shape))
    np.testing.assert_array_equal(np.asarray(a), expected)
    if kind in ("double", "single"):
        z = getattr(kerova, kind)(source * (1 + 1j), is_complex=True)
        np.testing.assert_array_equal(np.asarray(z), expected * (1 + 1j))


@pytest.mark.parametrize("source, kind, expected", [
    (b"\x00\x02", "logical", [[False, True]]), (array.array("d", [1.5, 2.5]), "double", [[1.5, 2.5]]),
    (memoryview(bytes(range(6))).cast("B", (2, 3)), "uint8", [[0, 1, 2], [3, 4, 5]]),
    (memoryview(kerova.uint8([[1, 2], [3, 4]])), "uint8", [[1, 2], [3, 4]]),
])
def test_other_exporters(source, kind, expected):
    assert np.asarray(getattr(kerova, kind)(source)).tolist() == expected


# ---------------------------------------------------------------- methods and attributes

def test_attributes_are_read_only_and_the_odd_doc_string_stays():
    assert kerova.int8.noncomplex.__doc__.startswith("noncomplex returns the the input object")
    for name in ("size", "_size", "itemsize", "_real", "_imag", "_data", "_is_complex"):
        with pytest.raises(AttributeError):
            setattr(kerova.uint16([1]), name, 1)


@pytest.mark.parametrize("index, size", [
    ((), (2, 3, 4)), ((0,), (3, 4)), ((1, 2), (4,)), ((slice(0, 1),), (1, 3, 4)),
    ((1, slice(None, None, 2)), (2, 4)), ((1, 0, slice(1, 4)), (3,)), ((slice(2, 2),), (0, 3, 4)),
])
def test_size_follows_the_open_dimensions(index, size):
    a = kerova.int8(size=(2, 3, 4))
    for i in index:
        a = a[i]
    assert a.size == a._size == size


def test_whole_store_rule():
    a = kerova.double([[1, 2, 3], [4, 5, 6]])
    for part in (a[1], a[0:1], a[1][0:2]):
        assert part.buffer_info() == a.buffer_info() and part.buffer_info()[1] == 6
        assert part.get_bytewise_strides() == (8, 16) and list(part.noncomplex()) == [1, 4, 2, 5, 3, 6]


@pytest.mark.parametrize("form", FORMS, ids=FORM_IDS)
def test_flattening_in_storage_order(form):
    (kind, *_), is_complex = form
    a = sample(kind, is_complex)
    storage = [complex(v) if is_complex else v for column in zip(*values_2x3(kind, is_complex)) for v in column]
    reads = {"real": [v.real for v in storage], "imag": [v.imag for v in storage]} if is_complex else {
        "noncomplex": storage}
    for name, expected in reads.items():
        for flat in (getattr(a, name)(), getattr(a, {"noncomplex": "_data"}.get(name, "_" + name))):
            assert type(flat) is type(a) and not flat._is_complex and flat.size == (6,) and len(flat) == 6
            assert list(flat) == expected and flat[5] == expected[5]
    refused = ["noncomplex", "_data"] if is_complex else ["real", "imag", "_real", "_imag"]
    message = ("noncomplex() must not be called on a complex array." if is_complex
               else "real() and imag() can be called only on a complex array.")
    for name in refused:
        with pytest.raises(ValueError, match=exactly(message)):
            value = getattr(a, name)
            value()


def test_clone_is_independent_and_whole():
    a = kerova.int64([[1, 2, 3], [4, 5, 6]])
    c = a.clone()
    c[0][0], a[1][2] = 10, 60
    assert list(c.noncomplex()) == [10, 4, 2, 5, 3, 6] and list(a.noncomplex()) == [1, 4, 2, 5, 3, 60]
    row = a[1].clone()
    assert row.size == (1, 3) and list(row.noncomplex()) == [4, 5, 60]
    z = kerova.single([[1 + 1j, 2]], is_complex=True).clone()
    assert z._is_complex and type(z) is kerova.single and list(z[0]) == [1 + 1j, 2]


@pytest.mark.parametrize("kind_row", KINDS, ids=KIND_IDS)
def test_toarray_typecodes(kind_row):
    kind, typecode = kind_row[0], kind_row[4]
    values = [True, False, True] if kind == "logical" else [1, 2, 3]
    for source in (getattr(kerova, kind)(values).noncomplex(), getattr(kerova, kind)([values])[0]):
        result = source.toarray()
        assert result.typecode == typecode and list(result) == [int(v) for v in values]


@pytest.mark.parametrize("build, message", [
    (lambda: kerova.double([[1, 2], [3, 4]]), "toarray() can be called only on a one-dimensional sequence."),
    (lambda: kerova.double([[1, 2]], is_complex=True)[0], "toarray() failed."),
])
def test_toarray_failures_print_the_reason_first(build, message, capsys):
    with pytest.raises(RuntimeError, match=exactly(message)):
        build().toarray()
    assert "Error" in capsys.readouterr().err


# ---------------------------------------------------------------- reshape

def test_reshape_keeps_storage_order_and_returns_self():
    a = kerova.double([[1, 2, 3], [4, 5, 6]])
    assert a.reshape(3, 2) is a
    assert np.asarray(a).tolist() == [[1, 5], [4, 3], [2, 6]] and a.get_bytewise_strides() == (8, 24)
    row = a[0:1]  # a slice-ended object reshapes the whole store
    assert row.reshape(2, 3) is row and a.size == (2, 3)
    with pytest.raises(RuntimeError, match=exactly("reshape() not supported for a partial array.")):
        a[0].reshape(3, 1)


@pytest.mark.parametrize("args, size", [
    ((6, 1), (6, 1)), ((1, 6), (1, 6)), (((3, 2),), (3, 2)), (([2, 3],), (2, 3)), ((2, 3, 1), (2, 3)),
    ((1, 1, 6, 1, 1), (1, 1, 6)), ((True, 6), (1, 6)), ((2, 1, 3), (2, 1, 3)),
])
def test_reshape_accepted_forms(args, size):
    a = kerova.uint8([[1, 2, 3], [4, 5, 6]])
    a.reshape(*args)
    assert a.size == size and list(a.noncomplex()) == [1, 4, 2, 5, 3, 6]


class Unfetchable:
    __len__ = lambda self: 2  # noqa: E731
    __getitem__ = lambda self, i: {}[i]  # noqa: E731


SHAPE_ERROR = "number of elements specified by arguments to reshape() ({}) does not match current number (6)."


@pytest.mark.parametrize("args, kwargs, error, message", [
    ((), {}, ValueError, BAD_DIMS), ((6,), {}, ValueError, BAD_DIMS), (([6],), {}, ValueError, BAD_DIMS),
    ((None,), {}, ValueError, BAD_DIMS), ((2.0, 3), {}, ValueError, BAD_DIMS), ((-2, -3), {}, ValueError, BAD_DIMS),
    ((2**70, 0), {}, ValueError, BAD_DIMS), (((2, "3"),), {}, ValueError, BAD_DIMS),
    ((Unfetchable(),), {}, RuntimeError, "Item 0 could not be retrieved from the value passed to reshape()."),
    ((2, 4), {}, kerova.ShapeError, SHAPE_ERROR.format(8)), ((2, 4), {"k": 1}, kerova.ShapeError, SHAPE_ERROR.format(8)),
    ((2**32, 2**32), {}, kerova.ShapeError, SHAPE_ERROR.format(0)),
    ((3, 2), {"k": 1}, ValueError, "reshape() does not accept keyword arguments."),
])
def test_reshape_refusals_leave_the_array(args, kwargs, error, message):
    a = kerova.int16([[1, 2, 3], [4, 5, 6]])
    with pytest.raises(error, match=exactly(message)):
        a.reshape(*args, **kwargs)
    assert a.size == (2, 3) and list(a.noncomplex()) == [1, 4, 2, 5, 3, 6]


@pytest.mark.parametrize("kind", KIND_IDS)
def test_reshape_every_kind_and_empty_shapes(kind):
    cls = getattr(kerova, kind)
    assert cls(size=(0, 3)).reshape(3, 0).size == (3, 0)
    if kind != "logical":
        z = cls([[1 + 1j, 2], [3, 4j]], is_complex=True).reshape(1, 4)
        assert z.size == (1, 4) and list(z[0]) == [1 + 1j, 3, 2, 4j]


def test_reshape_of_ten_million_elements_costs_about_a_copy():
    a = kerova.double(np.arange(10**7, dtype=np.float64))
    block = bytearray(8 * 10**7)
    copy_time = min(_timed(lambda: block[:]) for _ in range(3))
    reshape_time = min(_timed(lambda s=s: a.reshape(*s)) for s in [(10**4, 10**3), (10**3, 10**4), (1, 10**7)])
    assert reshape_time < 4 * copy_time + 0.01 and np.asarray(a)[0, -1] == 10**7 - 1


def _timed(action):
    start = time.perf_counter()
    action()
    return time.perf_counter() - start


# ---------------------------------------------------------------- pickling

def test_reduce_value_without_surplus_references():
    assert kerova.double([[1, 2], [3, 4]]).__reduce__() == (kerova.double, ({}, [[1.0, 2.0], [3.0, 4.0]]))
    assert kerova.int8([1j], is_complex=True).__reduce__() == (kerova.int8, ({"is_complex": True}, [[1j]]))
    assert type(kerova.logical([True]).__reduce__()[1][1][0][0]) is bool
    _, args = kerova.uint32([[1, 2]]).__reduce__()
    keywords, elements = args
    assert (sys.getrefcount(args), sys.getrefcount(keywords), sys.getrefcount(elements)) == (2, 3, 3)


@pytest.mark.parametrize("form", FORMS, ids=FORM_IDS)
def test_pickle_and_copy_round_trips(form):
    a = sample(form[0][0], form[1])
    for b in (pickle.loads(pickle.dumps(a)), copy.copy(a), copy.deepcopy(a)):
        assert type(b) is type(a) and b._is_complex == a._is_complex and b.size == a.size and b == a
        assert b.buffer_info()[0] != a.buffer_info()[0]


@pytest.mark.parametrize("build, reduced, size", [
    (lambda: kerova.double(size=(0, 0)), [], (0, 0)), (lambda: kerova.double([[]]), [[]], (1, 0)),
    (lambda: kerova.double(size=(0, 3)), [], (0, 0)), (lambda: kerova.double([[1, 2, 3]]), [[1.0, 2.0, 3.0]], (1, 3)),
    (lambda: kerova.double([[1, 2, 3], [4, 5, 6]])[1], [4.0, 5.0, 6.0], (1, 3)),
    (lambda: kerova.double([[1, 2], [3, 4]])[0:1], [[1.0, 2.0], [3.0, 4.0]], (2, 2)),
    (lambda: kerova.double(size=(2, 1, 2)), [[[0.0, 0.0]], [[0.0, 0.0]]], (2, 1, 2)),
])
def test_pickle_keeps_only_what_the_nesting_shows(build, reduced, size):
    a = build()
    assert a.__reduce__()[1][1] == reduced and pickle.loads(pickle.dumps(a)).size == size


def test_arrays_and_errors_cross_processes():
    sent = [kerova.int32([[1, 2], [3, 4]]), kerova.double([1j], is_complex=True),
            kvexceptions.ShapeError("shape"), kvexceptions.SizeError("size")]
    with multiprocessing.get_context("spawn").Pool(1) as pool:
        back = pool.map(copy.deepcopy, sent)
    assert back[:2] == sent[:2] and back[1]._is_complex
    assert [(type(e), e.args) for e in back[2:]] == [(kerova.ShapeError, ("shape",)), (kerova.SizeError, ("size",))]
