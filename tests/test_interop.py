"""Buffer export, methods and attributes, reshape, copies and pickling."""

import copy
import math
import multiprocessing
import pickle
import sys

import numpy as np
import pytest

import kerova
import kvexceptions
from checks import FORM_IDS, FORMS, check, evaluate, raises, releases, reshape_count
from model import RESHAPE
from support.consumer import (PyBUF_ANY_CONTIGUOUS, PyBUF_C_CONTIGUOUS, PyBUF_F_CONTIGUOUS, PyBUF_FORMAT,
                              PyBUF_FULL_RO, PyBUF_ND, PyBUF_SIMPLE, PyBUF_STRIDES, PyBUF_WRITABLE, buffer_of)


def values_2x3(kind, is_complex):
    if kind == "logical":
        return [[True, False, True], [False, True, True]]
    return [[1 + 2j, 2, 3 + 1j], [4, 5 + 3j, 6]] if is_complex else [[1, 2, 3], [4, 5, 6]]


@pytest.mark.parametrize("kind, is_complex", FORMS, ids=FORM_IDS)
def test_export_flattening_and_copies_of_every_form(kind, is_complex, capsys):
    a = getattr(kerova, kind)(values_2x3(kind, is_complex), is_complex=is_complex)
    m = memoryview(a)  # a read-only column-major view of the mirror, whose fields test_properties checks
    assert m.readonly and m.f_contiguous and not m.c_contiguous and m.obj is a and a.itemsize == m.itemsize
    assert a.get_bytewise_strides() == m.strides
    for part in (a[1], a[0:1], a[1][0:2]):  # these answer for the whole array
        assert (part.buffer_info(), part.get_bytewise_strides()) == ((a.buffer_info()[0], 6), m.strides)
    # The methods' flat copies are checked against the model in test_properties; the attributes give the same.
    for name, attribute in {"noncomplex": "_data", "real": "_real", "imag": "_imag"}.items():
        try:
            expected = repr(getattr(a, name)())
        except ValueError as refusal:
            expected = (ValueError, str(refusal))
        check(lambda: repr(getattr(a, attribute)), expected)
    # toarray() takes one open dimension of real numbers and prints the reason of a refusal first
    raises(a.toarray, RuntimeError, "toarray() can be called only on a one-dimensional sequence.")
    if is_complex:
        raises(a[0].toarray, RuntimeError, "toarray() failed.")
    assert capsys.readouterr().err.count("Error: ") == 1 + is_complex
    for b in (pickle.loads(pickle.dumps(a)), copy.copy(a), copy.deepcopy(a), a.clone()):
        assert type(b) is type(a) and b._is_complex == a._is_complex and b.size == a.size and b == a
        assert b.buffer_info()[0] != a.buffer_info()[0]
    if not is_complex or kind in ("double", "single"):  # numpy has no complex integers
        view = np.asarray(a)
        assert view.ctypes.data == a.buffer_info()[0] and not view.flags.writeable
        np.testing.assert_array_equal(view, np.array(values_2x3(kind, is_complex), dtype=view.dtype))
        a[1][2] = 0
        assert view[1, 2] == 0


@pytest.mark.parametrize("flags", [PyBUF_SIMPLE, PyBUF_ND, PyBUF_STRIDES, PyBUF_F_CONTIGUOUS, PyBUF_ANY_CONTIGUOUS,
                                   PyBUF_FULL_RO, PyBUF_STRIDES | PyBUF_FORMAT])
def test_consumer_requests_that_are_served(flags):
    a = kerova.int16([[1, 2, 3], [4, 5, 6]], is_complex=True)
    with releases(a), buffer_of(a, flags) as view:
        assert (view.obj, view.buf, view.len, view.itemsize, view.readonly) == (id(a), a.buffer_info()[0], 24, 4, 1)
        assert view.format == (b"Zh" if flags & PyBUF_FORMAT else None)
        assert view.geometry() == ((2, 3), (4, 8))  # whatever the flags ask


@pytest.mark.parametrize("flags, message", [
    (PyBUF_C_CONTIGUOUS | PyBUF_WRITABLE, "underlying buffer is not writable."),  # the first refusal wins
    (PyBUF_C_CONTIGUOUS, "underlying buffer not C-contiguous."),
])
@pytest.mark.parametrize("build", [lambda: kerova.double([1, 2, 3]), lambda: kerova.double(7),
                                   lambda: kerova.double([[1, 2], [3, 4]])[0]], ids=["1xN", "1x1", "partial"])
def test_consumer_requests_that_are_refused(flags, message, build):
    a = build()
    with releases(a):
        raises(lambda: buffer_of(a, flags).__enter__(), ValueError, message)


def test_attributes_are_read_only_and_the_odd_doc_string_stays():
    assert kerova.int8.noncomplex.__doc__.startswith("noncomplex returns the the input object")
    part = kerova.int8(size=(2, 3, 4))[1][::2]
    assert part.size == part._size == (2, 4)
    for name in ("size", "_size", "itemsize", "_real", "_imag", "_data", "_is_complex"):
        raises(lambda: setattr(kerova.uint16([1]), name, 1), AttributeError,
               f"attribute '{name}' of 'kerova.uint16' objects is not writable")


@pytest.mark.parametrize("arguments, outcome", [
    # accepted: the new size; refused: (exception, message), the array left as it was
    ("6, 1", (6, 1)), ("(3, 2)", (3, 2)), ("[2, 3]", (2, 3)), ("1, 1, 6, 1, 1", (1, 1, 6)), ("True, 6", (1, 6)),
    ("2, 1, 3", (2, 1, 3)), ("2, 4, k=1", (kerova.ShapeError, reshape_count(8, 6))),  # before the keyword refusal
    ("3, 2, k=1", (ValueError, "reshape() does not accept keyword arguments.")),
    *((arguments, (ValueError, RESHAPE)) for arguments in ["", "6", "[6]", "2.0, 3", "-2, -3", "2**70, 0"]),
])
def test_reshape_forms_keep_the_storage_order(arguments, outcome):
    a, refused = kerova.int16([[1, 2, 3], [4, 5, 6]]), isinstance(outcome[0], type)
    check(lambda: evaluate(f"a.reshape({arguments}) is a", {}, a=a), outcome if refused else "True")
    size = (2, 3) if refused else outcome
    assert a.size == size and list(a.noncomplex()) == [1, 4, 2, 5, 3, 6]
    assert a.get_bytewise_strides() == tuple(2 * math.prod(size[:k]) for k in range(len(size)))


def test_reduce_gives_python_scalars_without_surplus_references():
    assert type(kerova.logical([True]).__reduce__()[1][1][0][0]) is bool
    _, args = kerova.uint32([[1, 2]]).__reduce__()
    _, twin = (kerova.uint32, ({}, [[1, 2]]))  # the same made by Python

    def counts(t):
        return [sys.getrefcount(x) for x in (t, *t, *t[1])]
    assert args == twin and counts(args) == counts(twin)
    part = kerova.double([[1, 2], [3, 4]])[0:1]  # a final slice pickles its whole dimension
    assert part.__reduce__() == (kerova.double, ({}, [[1.0, 2.0], [3.0, 4.0]]))
    assert pickle.loads(pickle.dumps(part)).size == (2, 2)


def test_arrays_and_errors_cross_processes():
    sent = [kerova.int32([[1, 2], [3, 4]]), kerova.double([1j], is_complex=True),
            kvexceptions.ShapeError("shape"), kvexceptions.SizeError("size")]
    with multiprocessing.get_context("spawn").Pool(1) as pool:
        back = pool.map(copy.deepcopy, sent)
    assert back[:2] == sent[:2] and back[1]._is_complex
    assert [(type(e), e.args) for e in back[2:]] == [(kerova.ShapeError, ("shape",)), (kerova.SizeError, ("size",))]
