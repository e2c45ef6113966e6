"""Buffer export, methods and attributes, reshape, copies and pickling."""

import copy
import gc
import multiprocessing
import pickle
import re
import sys
import timeit

import numpy as np
import pytest

import kerova
import kvexceptions
from support.consumer import (PyBUF_ANY_CONTIGUOUS, PyBUF_C_CONTIGUOUS, PyBUF_F_CONTIGUOUS, PyBUF_FORMAT,
                              PyBUF_FULL_RO, PyBUF_ND, PyBUF_SIMPLE, PyBUF_STRIDES, PyBUF_WRITABLE, buffer_of)

# name, format character, element size, array.array typecode
KINDS = [("double", "d", 8, "d"), ("single", "f", 4, "f"), ("int8", "b", 1, "b"), ("uint8", "B", 1, "B"),
         ("int16", "h", 2, "h"), ("uint16", "H", 2, "H"), ("int32", "i", 4, "i"), ("uint32", "I", 4, "I"),
         ("int64", "q", 8, "q"), ("uint64", "Q", 8, "Q"), ("logical", "?", 1, "B")]
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
    (kind, fmt, size, _), is_complex = form
    a, item = sample(kind, is_complex), size * (2 if is_complex else 1)
    m = memoryview(a)
    assert (m.format, m.itemsize, m.shape, m.strides) == ("Z" * is_complex + fmt, item, (2, 3), (item, 2 * item))
    assert m.readonly and m.f_contiguous and not m.c_contiguous and m.obj is a and a.itemsize == item
    assert a.get_bytewise_strides() == m.strides
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
    (PyBUF_C_CONTIGUOUS | PyBUF_WRITABLE, "underlying buffer is not writable."),  # the first refusal wins
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


# ---------------------------------------------------------------- methods and attributes

def test_attributes_are_read_only_and_the_odd_doc_string_stays():
    assert kerova.int8.noncomplex.__doc__.startswith("noncomplex returns the the input object")
    part = kerova.int8(size=(2, 3, 4))[1][::2]
    assert part.size == part._size == (2, 4)
    for name in ("size", "_size", "itemsize", "_real", "_imag", "_data", "_is_complex"):
        with pytest.raises(AttributeError):
            setattr(kerova.uint16([1]), name, 1)


def test_whole_store_rule():
    a = kerova.double([[1, 2, 3], [4, 5, 6]])
    for part in (a[1], a[0:1], a[1][0:2]):
        assert part.buffer_info() == a.buffer_info() and part.buffer_info()[1] == 6
        assert part.get_bytewise_strides() == (8, 16) and list(part.noncomplex()) == [1, 4, 2, 5, 3, 6]


FLAT_ATTRIBUTES = {"noncomplex": "_data", "real": "_real", "imag": "_imag"}


@pytest.mark.parametrize("form", FORMS, ids=FORM_IDS)
def test_flattening_in_storage_order(form):
    (kind, *_), is_complex = form
    a = sample(kind, is_complex)
    storage = [complex(v) if is_complex else v for column in zip(*values_2x3(kind, is_complex)) for v in column]
    flats = {"real": [v.real for v in storage], "imag": [v.imag for v in storage]} if is_complex else {
        "noncomplex": storage}
    refusal = exactly("noncomplex() must not be called on a complex array." if is_complex
                      else "real() and imag() can be called only on a complex array.")
    for name, attribute in FLAT_ATTRIBUTES.items():
        for read in (lambda: getattr(a, name)(), lambda: getattr(a, attribute)):
            if name not in flats:
                with pytest.raises(ValueError, match=refusal):
                    read()
                continue
            flat = read()
            assert type(flat) is type(a) and not flat._is_complex and flat.size == (6,) and len(flat) == 6
            assert list(flat) == flats[name] and flat[5] == flats[name][5]


@pytest.mark.parametrize("kind_row", KINDS, ids=KIND_IDS)
def test_toarray_typecodes(kind_row):
    kind, typecode = kind_row[0], kind_row[3]
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

def test_reshape_recomputes_strides_and_refuses_partial_arrays():
    a = kerova.double([[1, 2, 3], [4, 5, 6]])
    assert a.reshape(3, 2) is a and a.get_bytewise_strides() == (8, 24)
    with pytest.raises(RuntimeError, match=exactly("reshape() not supported for a partial array.")):
        a[0].reshape(3, 1)


SHAPE_ERROR = "number of elements specified by arguments to reshape() ({}) does not match current number (6)."


@pytest.mark.parametrize("args, kwargs, outcome", [
    # accepted: the new size; refused: (exception, message), the array left as it was
    ((6, 1), {}, (6, 1)), (((3, 2),), {}, (3, 2)), (([2, 3],), {}, (2, 3)), ((1, 1, 6, 1, 1), {}, (1, 1, 6)),
    ((True, 6), {}, (1, 6)), ((2, 1, 3), {}, (2, 1, 3)),
    ((), {}, (ValueError, BAD_DIMS)), ((6,), {}, (ValueError, BAD_DIMS)), (([6],), {}, (ValueError, BAD_DIMS)),
    ((2.0, 3), {}, (ValueError, BAD_DIMS)), ((-2, -3), {}, (ValueError, BAD_DIMS)),
    ((2**70, 0), {}, (ValueError, BAD_DIMS)),
    ((2, 4), {"k": 1}, (kerova.ShapeError, SHAPE_ERROR.format(8))),  # before the keyword refusal
    ((3, 2), {"k": 1}, (ValueError, "reshape() does not accept keyword arguments.")),
], ids=str)
def test_reshape_forms_keep_the_storage_order(args, kwargs, outcome):
    a = kerova.int16([[1, 2, 3], [4, 5, 6]])
    size = (2, 3)
    if isinstance(outcome[0], type):
        with pytest.raises(outcome[0], match=exactly(outcome[1])):
            a.reshape(*args, **kwargs)
    else:
        assert a.reshape(*args) is a
        size = outcome
    assert a.size == size and list(a.noncomplex()) == [1, 4, 2, 5, 3, 6]


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
    copy_time = min(timeit.repeat(lambda: block[:], number=1, repeat=3))
    reshape_time = min(timeit.timeit(lambda s=s: a.reshape(*s), number=1)
                       for s in [(10**4, 10**3), (10**3, 10**4), (1, 10**7)])
    assert reshape_time < 4 * copy_time + 0.01 and np.asarray(a)[0, -1] == 10**7 - 1


# ---------------------------------------------------------------- pickling

def test_reduce_gives_python_scalars_without_surplus_references():
    assert type(kerova.logical([True]).__reduce__()[1][1][0][0]) is bool
    _, args = kerova.uint32([[1, 2]]).__reduce__()
    keywords, elements = args
    assert (sys.getrefcount(args), sys.getrefcount(keywords), sys.getrefcount(elements)) == (2, 3, 3)


@pytest.mark.parametrize("form", FORMS, ids=FORM_IDS)
def test_pickle_copy_and_clone_round_trips(form):
    a = sample(form[0][0], form[1])
    for b in (pickle.loads(pickle.dumps(a)), copy.copy(a), copy.deepcopy(a), a.clone()):
        assert type(b) is type(a) and b._is_complex == a._is_complex and b.size == a.size and b == a
        assert b.buffer_info()[0] != a.buffer_info()[0]


@pytest.mark.parametrize("build, keywords, elements, size", [
    (lambda: kerova.double([[1, 2], [3, 4]]), {}, [[1.0, 2.0], [3.0, 4.0]], (2, 2)),
    (lambda: kerova.int8([1j], is_complex=True), {"is_complex": True}, [[1j]], (1, 1)),
    (lambda: kerova.double([[]]), {}, [[]], (1, 0)), (lambda: kerova.double(size=(0, 3)), {}, [], (0, 0)),
    (lambda: kerova.double([[1, 2, 3], [4, 5, 6]])[1], {}, [4.0, 5.0, 6.0], (1, 3)),
    (lambda: kerova.double([[1, 2], [3, 4]])[0:1], {}, [[1.0, 2.0], [3.0, 4.0]], (2, 2)),
    (lambda: kerova.double(size=(2, 1, 2)), {}, [[[0.0, 0.0]], [[0.0, 0.0]]], (2, 1, 2)),
])
def test_pickle_keeps_only_what_the_nesting_shows(build, keywords, elements, size):
    a = build()
    assert a.__reduce__() == (type(a), (keywords, elements)) and pickle.loads(pickle.dumps(a)).size == size


def test_arrays_and_errors_cross_processes():
    sent = [kerova.int32([[1, 2], [3, 4]]), kerova.double([1j], is_complex=True),
            kvexceptions.ShapeError("shape"), kvexceptions.SizeError("size")]
    with multiprocessing.get_context("spawn").Pool(1) as pool:
        back = pool.map(copy.deepcopy, sent)
    assert back[:2] == sent[:2] and back[1]._is_complex
    assert [(type(e), e.args) for e in back[2:]] == [(kerova.ShapeError, ("shape",)), (kerova.SizeError, ("size",))]
