"""Random programs, random initializers and the edge values of every kind, run on the extension and on
tests/model.py: values, shapes, text, buffers, exception types and messages must all agree. tests/conftest.py picks
the Hypothesis profile: fixed examples under CI, more and fresh ones else."""

import array
import itertools
import math
import pickle
from math import prod

import pytest
from hypothesis import event, given, settings
from hypothesis import strategies as st

import kerova
import model
from checks import FORMS, SANITIZED, same

SCALE = 25 if SANITIZED else 1  # an example costs some twenty times as much there


def examples(count):
    """`count` examples under the CI profile, scaled with the profile that is loaded."""
    return max(1, count * settings.default.max_examples // 100 // SCALE)


def outcome(action):
    try:
        return ("value", action())
    except Exception as error:  # noqa: BLE001 - the model must name the same one
        return ("error", type(error), str(error))


def observe(e, m):
    """An array and its model show the same text and shape."""
    assert isinstance(e, getattr(kerova, m.store.kind)) and e._is_complex is m.store.is_complex
    assert str(e) == m.text(False) and repr(e) == m.text(True) and e.size == m.size() and len(e) == m.size()[0]


def agree(ext_action, model_action):
    """Runs both; the results agree, arrays by observe. Returns both results, or None."""
    got, expected = outcome(ext_action), outcome(model_action)
    assert got[0] == expected[0] and (got[0] == "value" or got[1:] == expected[1:]), (got, expected)
    if got[0] == "error":
        return None
    if isinstance(expected[1], model.View):
        observe(got[1], expected[1])
    elif isinstance(expected[1], list) and expected[1] and isinstance(expected[1][0], model.View):
        assert len(got[1]) == len(expected[1]) and all(observe(e, m) is None for e, m in zip(got[1], expected[1]))
    else:
        assert same(plain(got[1]), plain(expected[1])), (got[1], expected[1])
    return got[1], expected[1]


def plain(x):
    """An array.array or a buffer as lists: what a consumer sees of it."""
    if isinstance(x, array.array):
        return [x.typecode, x.tolist()]
    return [x.format, x.itemsize, x.shape, x.strides, x.tobytes("A")] if isinstance(x, memoryview) else x


def valid_elements(kind, is_complex):
    """Values that a kind takes, from everywhere in its range."""
    if kind == "logical":
        return st.booleans() | st.integers(-2, 2)
    lo, hi = model.RANGES.get(kind, (-2**63, 2**63 - 1))
    ints = st.integers(lo, hi) | st.sampled_from([lo, hi, 0])
    if not is_complex:
        return ints | st.floats() if kind in ("double", "single") else ints
    if kind in ("double", "single"):
        return ints | st.floats() | st.complex_numbers()
    part = st.floats(lo / 2, hi / 2)  # clear of the bounds, where doubles round
    return ints | part | st.builds(complex, part, part)


ODD_ELEMENTS = st.sampled_from([1.5, -0.0, math.inf, math.nan, 2j, 2**63, -2**63 - 1, 2**64, -1, 256, 70000,
                                None, "x", b"", {}, (), True])


def filled(values, shape, container=list):
    """`values` in row order as nested sequences of `shape`; a scalar for no dimensions."""
    if not shape:
        return values[0]
    step = len(values) // shape[0] if shape[0] else 0
    return container(filled(values[k * step:(k + 1) * step], shape[1:], container) for k in range(shape[0]))


@st.composite
def nested_values(draw, element, shape):
    values = draw(st.lists(element, min_size=math.prod(shape), max_size=math.prod(shape)))
    return filled(values, shape, draw(st.sampled_from([list, tuple])))


SIZES = st.none() | st.lists(st.integers(0, 4), min_size=1, max_size=3) | st.sampled_from([5, "ab", [], [-1], [2.0]])


@st.composite
def initializers(draw, kind, is_complex):
    """Nested sequences: rectangular ones with odd elements here and there, and free ones."""
    element = st.one_of(valid_elements(kind, is_complex), valid_elements(kind, is_complex), ODD_ELEMENTS)
    if draw(st.booleans()):
        value = draw(nested_values(element, draw(st.lists(st.integers(0, 3), max_size=4))))
    else:
        value = draw(freely_nested(element, 3))
    return list(value) if isinstance(value, bytes) else value  # a top-level buffer is imported


def freely_nested(element, depth):
    """Elements and lists or tuples of them, nested up to `depth` levels in any way."""
    if depth == 0:
        return element
    inner = freely_nested(element, depth - 1)
    return st.one_of(element, st.lists(inner, max_size=3), st.lists(inner, max_size=3).map(tuple))


F = type("F", (float,), {})  # subclasses count as what they derive from
I = type("I", (int,), {})  # noqa: E741


def edge_values(kind):
    """The bounds of a kind and just beyond, as ints and floats, floats at corners of repr, values of every type."""
    lo, hi = model.RANGES.get(kind, (-2**63, 2**63 - 1))
    return [lo, hi, lo - 1, hi + 1, lo - 0.9, hi + 0.9, float(lo - 1), float(hi + 1), 2**70, -2**70, True, I(7),
            F(1.5), -0.5, -0.0, 1e300, -1e300, 3.4028235e38, -model.FLT_MAX, math.nan, math.inf, -math.inf, 0.1,
            1 / 3, 1e16, 1.5e16, 1e-5, 1e-4, 9999999999999998.0, 5e-324, 1.7976931348623157e308, 1e22,
            123456789012345680.0, 0j, 1j, -0.0j, 1.5 + 2.5j, complex(math.nan, 1), complex(1, 300.5),
            complex(-1e300, -math.inf), complex(0, math.inf), None, object(), "x", [1]]


@pytest.mark.parametrize("kind", model.KINDS)
def test_edge_values_agree_with_the_model_on_every_road(kind):
    for is_complex, value in itertools.product([False, True], edge_values(kind)):
        for road in ("initializer", "vector"):
            agree(lambda: getattr(kerova, kind)(**{road: [value]}, is_complex=is_complex),
                  lambda: model.construct(kind, **{road: [value]}, is_complex=is_complex))
        made = agree(lambda: getattr(kerova, kind)(initializer=[0, 0], is_complex=is_complex),
                     lambda: model.construct(kind, initializer=[0, 0], is_complex=is_complex))
        if made is not None:  # and written to an element
            agree(lambda: made[0][0].__setitem__(1, value), lambda: made[1].read(0).assign(1, value))
            observe(*made)


@settings(max_examples=examples(1200))
@given(st.data())
def test_initializers_of_every_kind_give_the_model_shape_values_or_exception(data):
    kind = data.draw(st.sampled_from(model.KINDS))
    complexity = data.draw(st.sampled_from([None, False, True, True, 1]))
    arguments = {} if complexity is None else {"is_complex": complexity}
    is_complex = complexity is True and kind != "logical"
    road = data.draw(st.sampled_from(["initializer", "initializer", "vector", "size alone"]))
    if road == "initializer":
        arguments["initializer"] = data.draw(initializers(kind, is_complex))
    elif road == "vector":
        arguments["vector"] = data.draw(st.lists(valid_elements(kind, is_complex) | ODD_ELEMENTS | st.lists(
            st.integers(), max_size=1), max_size=6) | st.sampled_from(["ab", 5, b"\x01\x02"]))
    if (size := data.draw(SIZES)) is not None:
        arguments["size"] = size
    agree(lambda: getattr(kerova, kind)(**arguments), lambda: model.construct(kind, **arguments))


def indices(m):
    """An index for `m`: integers around its length, slices with bounds around it."""
    n = m.store.shape[len(m.ints)] if len(m.ints) < len(m.store.shape) else 0
    bound = st.none() | st.integers(-n - 2, n + 2)
    integers = st.integers(-n - 1, n)
    slices = st.builds(slice, bound, bound, st.none() | st.integers(-3, 3))
    others = st.sampled_from([(0, 0), 1.0, None])
    return st.integers(0, 9).flatmap(lambda k: others if k == 9 else integers if k % 2 else slices)


def right_side_shape(m, index):
    """The shape that an assignment of `index` on `m` wants, as far as the model can tell."""
    shape, n = m.store.shape, len(m.ints)
    try:
        if isinstance(index, int):
            return shape[n + 1:]
        s = model.from_python(index, shape[n])
        if n == len(shape) - 1:
            return [len(model.walk(s))]
        return [len(model.walk(model.compose(m.final, s) if m.final else s))] + shape[n + 1:]
    except Exception:  # noqa: BLE001 - the assignment will fail before the value counts
        return [1]


@st.composite
def factorings(draw, count):
    """Two to five dimensions whose product is `count`."""
    dims = [1] * draw(st.integers(2, 5))
    if count == 0:
        dims = [draw(st.integers(0, 3)) for _ in dims]
        dims[draw(st.integers(0, len(dims) - 1))] = 0
    for p in (2, 3, 5, 7):
        while count > 1 and count % p == 0:
            count //= p
            dims[draw(st.integers(0, len(dims) - 1))] *= p
    dims[0] *= count
    return dims


def probe(e):
    """Reads of a view whose records a reshape left outside the store: they return or raise."""
    for action in (str, repr, len, list, lambda x: x.size, lambda x: x[0], lambda x: x.clone(), memoryview):
        outcome(lambda: action(e))


METHODS = ["clone", "real", "imag", "noncomplex", "toarray", "tomemoryview"]
OPS = ["read"] * 4 + ["assign"] * 4 + ["assign_array", "delete", "iterate", "equal", "reshape", "reshape", "pickle",
                                        *METHODS]
SHAPES = st.integers(2, 5).flatmap(lambda n: st.lists(st.sampled_from([1, 2, 2, 3, 0]), min_size=n, max_size=n)
                                   .map(lambda s: s if prod(s) <= 48 else [min(d, 2) for d in s]))


@settings(max_examples=examples(900))
@given(st.data())
def test_random_programs_agree_with_the_model(data):
    kind = data.draw(st.sampled_from(model.KINDS))
    is_complex = kind != "logical" and data.draw(st.booleans())
    shape = data.draw(SHAPES)
    values = data.draw(st.lists(valid_elements(kind, is_complex), min_size=prod(shape), max_size=prod(shape)))
    arguments = {"is_complex": is_complex}
    if data.draw(st.booleans()):
        arguments.update(vector=values, size=shape)
    else:
        arguments.update(initializer=filled(values, shape) if shape[0] else [])
    pool = [agree(lambda: getattr(kerova, kind)(**arguments), lambda: model.construct(kind, **arguments))]
    most = len(pool[0][1].store.shape)
    event("%d dimensions at the start" % most)

    for _ in range(data.draw(st.integers(1, 16))):
        op = data.draw(st.sampled_from(OPS))
        e, m = data.draw(st.sampled_from(pool))
        made = None
        if op == "read":
            index = data.draw(indices(m))
            made = agree(lambda: e[index], lambda: m.read(index))
        elif op in ("assign", "delete", "assign_array"):
            index = data.draw(indices(m))
            if op == "delete":
                ext_value = model_value = model.DELETE
            elif op == "assign_array":
                ext_value, model_value = data.draw(st.sampled_from(pool))
            else:
                wanted = right_side_shape(m, index)
                if data.draw(st.integers(0, 4)) == 0:
                    wanted = data.draw(st.lists(st.integers(0, 3), max_size=3))
                ext_value = model_value = data.draw(nested_values(valid_elements(kind, is_complex) | ODD_ELEMENTS,
                                                                  wanted))
            agree((lambda: e.__delitem__(index)) if op == "delete" else lambda: e.__setitem__(index, ext_value),
                  lambda: m.assign(index, model_value))
        elif op == "iterate":
            items = agree(lambda: list(e), m.items)
            if items and items[1] and isinstance(items[1][0], model.View):
                made = items[0][0], items[1][0]
        elif op == "equal":
            f, n = data.draw(st.sampled_from(pool))
            agree(lambda: (e == f, e != f), lambda: (model.equal(m, n), not model.equal(m, n)))
        elif op == "reshape":
            e, m = pool[0] if data.draw(st.booleans()) else (e, m)  # the whole array, mostly
            count = len(m.store.data)
            dims = data.draw(factorings(count) | st.sampled_from([list(reversed(m.store.shape)), [count, 1, 1]])
                             | st.lists(st.integers(0, 4), min_size=1, max_size=3))
            if agree(lambda: e.reshape(*dims) is e, lambda: m.reshape(*dims) is m) is not None:
                most = max(most, len(m.store.shape))
                for f, n in pool:  # views left outside the new shape are probed once and dropped
                    if not n.fits():
                        probe(f)
                pool = [p for p in pool if p[1].fits()]
                if any(p[1].store is m.store and (p[1].ints or p[1].final) for p in pool):
                    event("partial arrays kept across a reshape")
        elif op == "pickle":
            made = agree(lambda: pickle.loads(pickle.dumps(e)), m.pickled)
        else:  # a method: tomemoryview() is memoryview(a), the buffer export
            made = agree(getattr(e, op), getattr(m, op))
        if made is not None and isinstance(made[1], model.View):
            pool.append(made)
            del pool[1:-8]
        for e, m in pool:  # writes show through every view of a store
            observe(e, m)
    event("%d dimensions at most" % most)


@pytest.mark.parametrize("kind, is_complex", FORMS)
def test_parts_toarray_and_buffers_of_partial_arrays_agree_with_the_model(kind, is_complex):
    lo, hi = model.RANGES.get(kind, (-2**63, 2**63 - 1))
    # The bounds and 2**53 + 1 test the exact parts; a complex part beyond 2**53 reads back rounded,
    # and a partial array holding the bound of a 64-bit kind can then not be materialised.
    values = [hi, min(hi, 2**53 + 1), lo] + [complex(k, 2 * k) if is_complex else k for k in range(3, 12)]
    if kind == "logical":
        values = [k % 3 == 1 for k in range(12)]
    made = [agree(lambda: getattr(kerova, kind)(values, size=(2, 3, 2), is_complex=is_complex),
                  lambda: model.construct(kind, values, size=(2, 3, 2), is_complex=is_complex))]
    for reshaped in (False, True):
        if reshaped:  # the views made before stay, read against the new shape
            agree(lambda: made[0][0].reshape(3, 2, 2), lambda: made[0][1].reshape(3, 2, 2))
        for steps in ([1], [1, slice(0, 2)], [0, 1, slice(None, None, -1)], [slice(None, None, -1)], [-1, 0]):
            e, m = made[0]
            for step in steps:
                e, m = agree(lambda: e[step], lambda: m.read(step))
            made.append((e, m))
        for e, m in made:
            observe(e, m)
            agree(lambda: memoryview(e), m.tomemoryview)
            for method in METHODS:
                agree(getattr(e, method), getattr(m, method))
