"""Hostile input: lying or changing sequences, raising number protocols, odd buffers, impossible sizes, views held
across a reshape, parents gone during iteration. Each ends in a Python error and the arrays stay usable; run in this
process, so the sanitizer run sees any memory fault."""

import ast
import ctypes
import gc
import pickle
import resource
import struct

import numpy as np
import pytest

import kerova
from checks import (SANITIZED, Lying, allocation, check, evaluate, failing, incompatible, python, raises, releases,
                    reshape_count)
from model import RECTANGULAR, RESHAPE, SHAPE
from support.exporter import Exporter

HUGE, NULL, NOT_INDEX = 2**62, (RuntimeError, "null data pointer."), (RuntimeError, "index is not an integer or slice.")
SSIZE, SHAPES_DIFFER = (OverflowError, "Python int too large to convert to C ssize_t"), (ValueError, SHAPE)
MISMATCH, NO_ITEM = (TypeError, "type does not match."), (IndexError, "index has an invalid value: 0")
SIZE_ITEM = (RuntimeError, "Item 1 could not be retrieved from the value associated with the 'size' keyword.")
RESHAPE_ITEM = (RuntimeError, "Item 1 could not be retrieved from the value passed to reshape().")


def unchanged(a, text):  # the array still works and holds what it held
    assert str(a) == text and str(a.clone()) == text and a == a.clone() and len(list(a)) == len(a)


def mutated(position, change):
    """[[1, 2], [5, 6], [7, 8]] with a row [0, 1] at `position` whose first read runs change(list)."""
    outer = [[1.0, 2.0], [5.0, 6.0], [7.0, 8.0]]
    outer[position] = Lying([0.0, 1.0], 2, action=lambda: change(outer))
    return outer


Raising = type("Raising", (), {f"__{n}__": failing(ZeroDivisionError, n) for n in ("index", "float", "complex")})
Two = type("Two", (), {"__index__": lambda self: 2})


HOSTILE = [
    ("double(Lying([1.0, 2.0], 3))", NULL), ("double(Lying([1.0, 2.0], HUGE))", NULL),
    # an item that can't be fetched, first or later, is reported as missing; a length that can't be read, at the top
    # or inside, keeps its error
    ("double(Lying([], 2, LookupError))", NULL), ("double(Lying([1.0], 2, KeyError))", NULL + (KeyError,)),
    ("double([Lying([], LookupError('no length')), [1]])", (LookupError, "no length")),
    ("double([[1], Lying([], LookupError('no length'))])", (LookupError, "no length")),
    ("double([Lying([1.0], 2), [1.0, 2.0]])", NULL),
    ("double([[1.0, 2.0], Lying([1.0, 2.0], [2, 1])])", (ValueError, RECTANGULAR)),
    ("double(Lying([], ValueError('no length')))", (ValueError, "no length")),
    ("double(Lying([], -1))", (ValueError, "__len__() should return >= 0")),
    # a shorter length reads that many
    ("double(Lying([1.0, 2.0, 3.0], 2))", "[[1.0,2.0]]"), ("double(vector=Lying([1, 2, 3], 1))", "[[1.0]]"),
    ("double(vector=Lying([1, 2], HUGE))", (MemoryError, allocation(HUGE, "double"))),
    ("int8(vector=Lying([1, 2], HUGE), is_complex=True)", (MemoryError, allocation(HUGE, "int8"))),
    ("double(vector=Lying([1, 2], 3))", (RuntimeError, "item 2 could not be retrieved.")),
    ("double(size=Lying([2, 2], HUGE))", (MemoryError, "")),  # no room for the dimensions
    ("double(size=Lying([2], 2))", SIZE_ITEM), ("double(size=Lying([], TypeError('no size')))", (TypeError, "no size")),
    ("double().reshape(Lying([0, 0], HUGE))", (MemoryError, "")), ("double().reshape(Lying([0], 2))", RESHAPE_ITEM),
    # a report over a Python error keeps it as the cause, whatever its type
    ("double([[1.0, 2.0], Lying([1.0], 2, KeyError)])", NULL + (KeyError,)),
    ("int64(vector=Lying([1], 2, KeyError))", (RuntimeError, "item 1 could not be retrieved.", KeyError)),
    ("int64(size=Lying([1], 2, KeyError))", SIZE_ITEM + (KeyError,)),
    ("int64([[1, 2]]).reshape(Lying([1], 2, KeyError))", RESHAPE_ITEM + (KeyError,)),
    # a partial array that can't be made whole: its largest part reads back rounded up
    ("memoryview(uint64([[2**64 - 1, 1j]], is_complex=True)[0])", NULL + (OverflowError,)),
    # lists changed under the walk: longer than their length said, an item replaced before it is read, replaced by a
    # refused item, emptied
    ("double(mutated(1, lambda o: o.append([9.0, 9.0])))", "[[1.0,2.0],[0.0,1.0],[7.0,8.0]]"),
    ("double(mutated(1, lambda o: o.__setitem__(2, [9.0, 9.0])))", "[[1.0,2.0],[0.0,1.0],[9.0,9.0]]"),
    ("double(mutated(0, lambda o: o.__setitem__(1, 'xy')))",
     (ValueError, "value passed to initializer must be numeric.")),
    ("double(mutated(0, list.clear))", NULL),
    # impossible sizes
    ("single(size=(2**40, 2**40), is_complex=True)", (MemoryError, allocation(2**64 - 1, "single"))),
    ("logical(size=(2**33, 2**33, 2))", (MemoryError, allocation(2**64 - 1, "logical"))),
    # a product that overflows matches no count, whatever it wraps to
    ("double().reshape(2**32, 2**32)", (kerova.ShapeError, reshape_count(0, 0))),
    ("double().reshape(HUGE, 4)", (kerova.ShapeError, reshape_count(0, 0))),
    ("double([[1]]).reshape(2**32 + 1, 2**32 - 1)", (kerova.ShapeError, reshape_count(-1, 1))),
    # indices and right sides on a = int64([[1, 2, 3], [4, 5, 6]])
    ("double([Raising()])", MISMATCH), ("a[0].__setitem__(0, Raising())", MISMATCH), ("a[Raising()]", NOT_INDEX),
    ("int64(vector=[Raising()])", (ValueError, "type does not match.")), ("a[0][1:3][2**64]", SSIZE),
    ("int64([Raising()], is_complex=True)", "[[0j]]"), ("a.__setitem__(Raising(), [1, 2, 3])", NOT_INDEX),
    ("a[Raising():]", (ZeroDivisionError, "index")), ("a[:Raising()]", (ZeroDivisionError, "index")),
    ("a[0].__setitem__(slice(Raising(), None), [1])", (ZeroDivisionError, "index")),
    ("a[::Raising()]", (ValueError, "slice step cannot be zero.")),
    ("a[0][Two():]", "[3]"), ("a[:Two()]", "[[1,2,3],[4,5,6]]"),  # slice bounds go through __index__
    ("double(size=[Raising()])", (TypeError, "dimensions must be nonnegative integers.")),
    ("a.reshape(Raising(), 3)", (ValueError, RESHAPE)), ("a.reshape(2**63, 3)", (ValueError, RESHAPE)),
    ("a[2**70]", SSIZE), ("a[0].__setitem__(2**70, 5)", SSIZE), ("a.__setitem__(-2**70, [5, 5, 5])", SSIZE),
    ("a[0].__delitem__(2**64)", SSIZE), ("a[2**70:][0]", NO_ITEM), ("a[0][2**70:]", "[]"), ("a[-2**70:][1]", "[4,5,6]"),
    # a row shorter or longer than the slice of a last dimension that it goes to
    ("a[0].__setitem__(slice(0, 3), [1, 2])", SHAPES_DIFFER),
    ("a[1].__setitem__(slice(None, None, -2), [1, 2, 3])", SHAPES_DIFFER),
    # right sides that lie about their length write nothing
    *((f"a.__setitem__({i}, Lying([[5, 6, 7]] * 2, 3))", NULL) for i in ("0", "slice(0, 1)", "slice(None)")),
]


@pytest.mark.parametrize("call, expected", HOSTILE, ids=[row[0] for row in HOSTILE])
def test_hostile_input_ends_in_a_python_error_and_arrays_stay_usable(call, expected):
    a = kerova.int64([[1, 2, 3], [4, 5, 6]])
    check(lambda: evaluate(call, globals(), a=a), expected)
    unchanged(a, "[[1,2,3],[4,5,6]]")


SHORT_SLICE = (ValueError, "length of slice does not match number of elements.")


@pytest.mark.parametrize("index", [0, slice(0, 1), slice(None)])
@pytest.mark.parametrize("change, text, refusal", [
    (lambda a: a[1].__setitem__(1, 9.0), "[[0.0,1.0],[3.0,9.0]]", None),  # the target takes another value
    (memoryview, "[[0.0,1.0],[3.0,4.0]]", None),                          # or is exported
    # or another shape: the right side is read in full first, then the left side is taken on the new shape, so a row
    # is refused and a slice's row is written and found short
    (lambda a: a.reshape(1, 4), "[[0.0,1.0,2.0,4.0]]", SHORT_SLICE),
])
def test_right_side_that_changes_the_target_during_the_walk(index, change, text, refusal):
    a = kerova.double([[1, 2], [3, 4]])
    row = Lying([0.0, 1.0], 2, action=lambda: change(a))  # whose first read runs change(a)
    if index == 0 and refusal:
        text, refusal = "[[1.0,3.0,2.0,4.0]]", SHAPES_DIFFER
    if index == slice(None):  # the row is written, then found short of the slice's two
        refusal = SHORT_SLICE
    check(lambda: a.__setitem__(index, [row] if isinstance(index, slice) else row), refusal or "None")
    assert str(a) == text


DOUBLES = struct.pack("6d", 1, 2, 3, 4, 5, 6)
UNEVEN = (BufferError, "input does not fit evenly into output type.")
INVALID_SHAPE = (BufferError, "input buffer has an invalid shape.")
NO_FORMAT = (BufferError, "input 'format' field is null.")


def double_complex(exporter):
    return kerova.double(exporter, is_complex=True)


@pytest.mark.parametrize("build, exporter, expected", [(kerova.double, *row) for row in [
    # (exporter, size and text or (exception, message)) for kerova.double
    (Exporter(DOUBLES, b"d", 8, 2, (2, 3)), "(2, 3) [[1.0,2.0,3.0],[4.0,5.0,6.0]]"),  # no strides
    (Exporter(DOUBLES, b"d", 1, 1), "(1, 6) [[1.0,2.0,3.0,4.0,5.0,6.0]]"),  # item size not read
    (Exporter(DOUBLES, b"d", 8, 0), UNEVEN), (Exporter(DOUBLES[:8], b"d", 8, 0), "(1, 1) [[1.0]]"),
    (Exporter(DOUBLES, b"d", 8, 2, (3, 3)), UNEVEN),
    (Exporter(DOUBLES, b"d", 8, 2, None), (BufferError, "shape is null.")),
    (Exporter(DOUBLES, b"d", 8, -1, (2, 3)), INVALID_SHAPE), (Exporter(b"", b"d", 8, 2, (-1, 0)), INVALID_SHAPE),
    (Exporter(DOUBLES[:12], b"d", 8, 1), UNEVEN), (Exporter(DOUBLES, b"d", 8, 1, length=-8), "(0, 0) []"),
    (Exporter(DOUBLES, None, 8), NO_FORMAT), (Exporter(DOUBLES, b"", 8), NO_FORMAT),
    (Exporter(DOUBLES, b"Z", 16), (BufferError, incompatible("Z", "d"))),
    # exporters of other modules
    ((ctypes.c_double * 3)(1, 2, 3), (BufferError, incompatible("<d", "d"))),
    (np.zeros(3, dtype=">f8"), (BufferError, incompatible(">d", "d"))),
    (np.zeros(3, dtype=[("x", "f8")]), (BufferError, incompatible("T{d:x:}", "d"))),
    (np.broadcast_to(np.zeros(1), (3, 2)), (ValueError, "ndarray is not contiguous")),  # numpy's
]] + [
    (kerova.uint8, Exporter(b"", b"B", 0, 2, (0, 3), (0, 0)), "(0, 3) []"),
    (kerova.uint8, Exporter(b"", b"B", 0, 2, (2, 3), (0, 0)), UNEVEN),
    (kerova.uint8, Exporter(b"", b"B", 0, 3, (0, HUGE, HUGE)), "(0, 0, 0) []"),
    (kerova.uint8, Exporter(b"\x07", b"B", 1, 64, (1,) * 64), "(1, 1) [[7]]"),
    (kerova.logical, Exporter(b"\x00\x05\x00\x01", b"?", 0, 2, (2, 2), (0, 0)),
     (BufferError, "input buffer strides describe neither C nor Fortran order.")),
    (kerova.int8, Exporter(DOUBLES, b"Zd", 16, 1), (BufferError, incompatible("Zd", "b"))),
    # complex kinds read the part after the Z
    (double_complex, Exporter(DOUBLES[:32], b"Zd", 16, 1), "(1, 2) [[(1+2j),(3+4j)]]"),
    (double_complex, Exporter(DOUBLES[:32], b"Z", 16, 1), (BufferError, incompatible("Z", "Zd"))),
])
def test_buffers_with_odd_fields(build, exporter, expected):
    with releases(exporter):  # the view was released
        check(lambda: "%s %s" % ((a := build(exporter)).size, a), expected)


def test_empty_arrays_with_huge_dimensions():
    for a in (kerova.double(size=(HUGE, 0)), kerova.double().reshape(2**61, 2**61, 0)):
        assert len(a) in (HUGE, 2**61) and a.size[0] == 0 and a == a  # lengths in size are cut to 32 bits
        for action in (str, repr, pickle.dumps, lambda x: x.clone()):  # a list that long can't be made
            raises(lambda: action(a), MemoryError, "")
        last = a[len(a) - 1]
        raises(lambda: last[0] if len(a.size) == 2 else last[0][0], *NO_ITEM)
    a = kerova.double(size=(HUGE, 0))
    assert a.reshape(0, HUGE) is a and str(a) == "[]" and a.clone().size == (0, 0)


def test_views_held_across_reshapes_fail_cleanly():
    a = kerova.int32([[[1, 2], [3, 4]], [[5, 6], [7, 8]]])
    views, walks = [a[1][1], a[1], a[1][0:2], a[0:1], a[1][1][::-1]], [iter(a[1]), iter(a[1][1]), iter(a)]
    next(walks[1])
    exported = memoryview(a)
    a.reshape(8, 1)
    actions = (str, lambda v: str(list(v)), len, lambda v: memoryview(v).tolist(),
               lambda v: pickle.loads(pickle.dumps(v)), lambda v: v.clone(), lambda v: v == v, lambda v: v[0],
               lambda v: v.__setitem__(0, [9]), lambda v: v.__setitem__(0, 9))
    # A stale view keeps its records: each action reads the new shape through them, as far as they fit it, or fails
    # with a Python error (in this order, writes included).
    M, L, N = (RuntimeError, "too many indices."), (RuntimeError, "unable to set list item."), NULL
    S, B = (TypeError, "sequence passed when scalar was expected."), (IndexError, "index has an invalid value: 1")
    expected = [
        ["[]", M, M, "[]", "[]", "[]", "True", M, M, M],                       # a[1][1]
        ["[5]", "[5]", "1", "[[5]]", "[[5]]", "[[5]]", "True", "5", S, "None"],  # a[1]
        [L, B, "2", N, "[[9]]", L, "True", "9", S, "None"],                    # a[1][0:2]
        ["[[1]]", "[kerova.int32([1])]", "1", "[[1]]", "[[1],[9],[3],[7],[2],[6],[4],[8]]", "[[1]]", "True", "[1]",
         "None", SHAPES_DIFFER],                                               # a[0:1]
        [M, "[]", "2", N, "[]", M, "True", M, M, M],                           # a[1][1][::-1]
    ]
    for view, outcomes in zip(views, expected):
        for action, outcome in zip(actions, outcomes):
            check(lambda: action(view), outcome)
    for walk, outcome in zip(walks, (["[]"], B, ["[9]", "[9]", "[3]", "[7]", "[2]", "[6]", "[4]", "[8]"])):
        check(lambda: [str(item) for item in walk], outcome if isinstance(outcome, tuple) else str(outcome))
    assert exported.tolist() == [[[1, 2], [3, 4]], [[5, 6], [7, 8]]]
    assert a.size == (8, 1) and a.reshape(2, 2, 2) is a and a.clone() == a and len(str(a)) == 29
    b = kerova.double([[1], [2], [3], [4], [5], [6]])
    row = b[5]
    b.reshape(1, 6)  # the record 5 is beyond the new first dimension
    for read in (lambda: row[0], lambda: str(row), lambda: list(row)):
        raises(read, IndexError, "index has an invalid value: 5")


def test_iteration_goes_on_through_reshapes_and_when_the_parents_are_gone():
    a = kerova.double([[1, 2, 3], [4, 5, 6]])
    seen = []
    for row in a:  # the walk reads the shape at each step
        seen.append(str(row))
        a.reshape(3, 2)
    assert seen == ["[1.0,2.0,3.0]", "[4.0,3.0]", "[2.0,6.0]"]
    unchanged(a.reshape(2, 3), "[[1.0,2.0,3.0],[4.0,5.0,6.0]]")
    # a walk goes on when the arrays it was made from are gone
    walk = iter(kerova.int16([[1, 2, 3], [4, 5, 6]])[::-1])
    gc.collect()
    first = next(walk)
    inner, part = iter(first[1:]), first[0:2]
    del first
    gc.collect()
    assert list(inner) == [5, 6] and str(part) == "[4,5]" and [str(r) for r in walk] == ["[1,2,3]"]
    a = kerova.double([[1, 2], [3, 4]], is_complex=True)
    walks = [iter(a), iter(a[0]), iter(a[1][::-1])]
    del a
    gc.collect()
    assert [str(r) for r in walks[0]] == ["[(1+0j),(2+0j)]", "[(3+0j),(4+0j)]"]
    assert list(walks[1]) == [1, 2] and list(walks[2]) == [4, 3]


DEEP = """
import copy, functools, pickle, sys, kerova

def attempt(action, *arguments):
    try:
        action(*arguments)
    except (RecursionError, RuntimeError, MemoryError) as error:
        print(type(error).__name__, error)

a, b = kerova.double(size=[1] * 200000 + [2]), kerova.double(size=[1] * 200000 + [2])
for action in (str, repr, lambda a: a == b, lambda a: a == a.reshape(*a.size), kerova.double.clone,
               pickle.dumps, copy.deepcopy, lambda a: memoryview(a[0]), lambda a: list(a)):
    attempt(action, a)
print(len(str(a)), a == b)
sys.setrecursionlimit(10**6)  # a raised limit does not make the stack larger
attempt(kerova.double, functools.reduce(lambda inner, _: [inner], range(50000), [1.0]))
attempt(lambda: str(kerova.double(size=(2**40, 0))))
"""


def child(script):
    """The lines that `script` prints in a child interpreter under an 8 MiB stack and, outside the sanitizer run
    (whose shadow memory needs an unbounded address space), 16 GiB of address space; it must end cleanly."""
    def limit():
        resource.setrlimit(resource.RLIMIT_STACK, (8 << 20, 8 << 20))
        if not SANITIZED:
            resource.setrlimit(resource.RLIMIT_AS, (16 << 30, 16 << 30))
    return python("-c", script, preexec_fn=limit).splitlines()


def test_every_hostile_case_ends_cleanly_in_a_child_under_a_small_stack_and_a_capped_address_space():
    """The cases of this file run here too, where a crash takes down no one but the child."""
    # (The benchmark plugin would ask git about the checkout, and a sanitized run checks git too.)
    arguments = ["-q", "-p", "no:cacheprovider", "-p", "no:benchmark", "-k", "not in_a_child", __file__]
    lines = child(f"import pytest; raise SystemExit(pytest.main({arguments!r}))")
    assert " passed" in lines[-1] and "failed" not in lines[-1], lines[-1]


def test_many_dimensions_give_results_or_python_errors_in_a_child_with_a_small_stack():
    """The walks keep their place in the heap: 200,001 dimensions under an 8 MiB stack."""
    lines = child(DEEP)
    # copy.deepcopy recurses in Python code, where the interpreter words its own message (3.13 drops the reason);
    # the module's messages are the same on every version.
    depth = "RecursionError maximum recursion depth exceeded"
    assert lines[2].startswith(depth)
    assert lines[:2] + lines[3:] == [f"{depth} while reading a nested sequence", f"{depth} while pickling an object",
                                     "RuntimeError null data pointer.", "400009 True",
                                     f"{depth} while reading a nested sequence", "MemoryError "]


PRESSURE = """
import resource, kerova

def address_space():
    with open("/proc/self/status") as status:
        return next(int(line.split()[1]) << 10 for line in status if line.startswith("VmSize:"))

n = 1 << 21
rows = [[1.0, 0.0]] * (n // 2)
real, cplx = kerova.double(size=(n, 2)), kerova.double(size=(n, 2), is_complex=True)
# A part too large for the blocks that the library keeps for reuse (at most 32 MiB), so that its copy needs new
# address space however the earlier actions left the allocator.
cube = kerova.logical(size=(2, 5 * n, 4))
ACTIONS = {
    "logical": lambda: kerova.logical(rows), "double": lambda: kerova.double(rows),
    "ragged": lambda: kerova.double([[[0.0]], [range(n)]]),
    "noncomplex": real.noncomplex, "_data": lambda: real._data, "real": cplx.real, "_imag": lambda: cplx._imag,
    "clone": lambda: cube[1].clone(),
}
_, hard = resource.getrlimit(resource.RLIMIT_AS)
for name, action in ACTIONS.items():
    refusals, base = set(), address_space()
    for step in range(40):  # an address space that grows by one array of doubles at a time
        resource.setrlimit(resource.RLIMIT_AS, (base + step * (n << 1), hard))
        try:
            outcome = action().size
        except (MemoryError, RuntimeError, ValueError) as error:
            outcome = (type(error).__name__, str(error))
        finally:
            resource.setrlimit(resource.RLIMIT_AS, (hard, hard))
        if outcome[0] not in ("MemoryError", "RuntimeError"):
            break
        refusals.add(outcome)
    print((name, outcome, sorted(refusals)))
"""


@pytest.mark.skipif(SANITIZED, reason="the sanitizer's shadow memory can't live in a capped address space")
def test_memory_pressure_gives_memory_error_not_an_abort_in_a_child():
    """Under an address space that grows step by step each action is refused cleanly until it succeeds: the
    module's own blocks give MemoryError and it asks the library for no block it can do without."""
    n, m = 1 << 21, 1 << 20
    result = {name: (outcome, refusals) for name, outcome, refusals in map(ast.literal_eval, child(PRESSURE))}
    no_memory = ("MemoryError", "")
    expected = {
        "logical": ((m, 2), {("MemoryError", allocation(n, "logical"))}),
        "double": ((m, 2), {no_memory, ("MemoryError", allocation(n, "double"))}),
        "ragged": (("ValueError", "arrays must be rectangular."), {no_memory}),
        **dict.fromkeys(["noncomplex", "_data", "real", "_imag"], ((2 * n,), {no_memory})),
        "clone": ((5 * n, 4), {("MemoryError", allocation(20 * n, "logical"))}),
    }
    assert result.keys() == expected.keys()
    # Which refusals a step meets depends on the allocator; the interpreter's own bare MemoryError (a list it could
    # not make) is a clean refusal on every road.
    for name, (outcome, refusals) in expected.items():
        assert result[name][0] == outcome and set(result[name][1]) <= refusals | {no_memory} and result[name][1], name
