"""A pure-Python model of the arrays, written from their documented behaviour: a store (kind, complex flag, shape,
column-major elements) and views holding a cursor's records, integers and at most one final slice. Each operation
returns or raises what the extension does, with the same text: reads normalise against the final slice, writes
against the whole dimension, and a failed assignment keeps what it wrote. A complex element is the pair of its exact
parts. A view made before a reshape reads its records against the new shape; where they no longer fit it, nothing is
promised, and `fits()` says so."""

import array
import itertools
import math
import struct
from functools import partialmethod
from math import prod

from kerova import ShapeError, SizeError

RANGES = {f"{u}int{b}": (0, 2**b - 1) if u else (-2**(b - 1), 2**(b - 1) - 1)
          for b in (8, 16, 32, 64) for u in ("", "u")}
KINDS = ["double", "single", *RANGES, "logical"]
TOO_LARGE = "Python int too large to convert to C long long"
FLT_MAX = 3.4028234663852886e38
DELETE, ABSENT = object(), object()  # the value of a `del` statement, an argument not passed

DIFFERENT, RECTANGULAR = "elements of array are of different lengths or types.", "arrays must be rectangular."
SHAPE = "unable to perform assignment because the left and right sides have a different shape."
RESHAPE = "reshape() must be passed a nonempty sequence of nonnegative integers."


def is_sequence(x):
    """What PySequence_Check says of an object."""
    return isinstance(x, View) or (not isinstance(x, dict) and hasattr(type(x), "__getitem__"))


def single(x):
    """A double as a 32-bit float: beyond the float range, infinities included, it is +inf."""
    return math.inf if abs(x) > FLT_MAX else x if math.isnan(x) else struct.unpack("f", struct.pack("f", x))[0]


def single_of_int(v):
    """A 64-bit integer as the nearest 32-bit float, ties to even."""
    shift = max(abs(v).bit_length() - 24, 0)
    (q, r), half = divmod(abs(v), 1 << shift), (1 << shift) >> 1
    q += bool(shift and (r > half or (r == half and q & 1)))
    return math.copysign(float(q << shift), v)


def out_of_range(value, name):
    text = "%g" % value if isinstance(value, float) else str(value)
    return OverflowError("value (%s) cannot be stored in a variable of type %s." % (text, name))


def from_int(kind, v):
    """An int read into 64 bits (unsigned kinds: also up to 2**64), then into the kind."""
    lo, hi = RANGES.get(kind, (-2**63, 2**63 - 1))
    if not -2**63 <= v < (2**64 if lo == 0 else 2**63):
        if kind == "single":
            return math.inf
        raise OverflowError(TOO_LARGE)
    if kind in ("double", "single", "logical"):
        return {"double": float, "single": single_of_int, "logical": bool}[kind](v)
    if not lo <= v <= hi:
        raise out_of_range(v, kind)
    return v


def part(kind, v):
    """A double as one part of a complex element: a float, or an int for the integer kinds."""
    if kind in ("double", "single"):
        return v if kind == "double" else single(v)
    if math.isnan(v):
        return 0
    lo, hi = RANGES[kind]
    if not float(lo - 1) < v < float(hi + 1):
        raise out_of_range(v, kind)
    return int(v)


def convert(kind, is_complex, x, allow_float):
    """The element that `x` becomes: a scalar, or for a complex array the pair of its parts."""
    if is_complex:  # lax: complex, float and int convert, anything else is 0
        if isinstance(x, complex):
            return part(kind, x.real), part(kind, x.imag)
        if isinstance(x, (float, int)):
            return (part(kind, x) if isinstance(x, float) else from_int(kind, int(x))), part(kind, 0.0)
        return part(kind, 0.0), part(kind, 0.0)
    if kind in ("double", "single") and isinstance(x, float):
        return x if kind == "double" else single(x)
    if isinstance(x, int):
        return from_int(kind, int(x))
    if isinstance(x, (float, complex)):  # a real kind's own floats returned above
        if kind == "logical" and allow_float:
            return x != 0.0
        raise TypeError("kerova.%s does not accept %s." % (kind, "floating-point values" if isinstance(x, float)
                                                          else "complex values if 'is_complex' is not set to 'True'"))
    raise TypeError("value is not numeric." if isinstance(x, str) else "sequence passed when scalar was expected."
                    if is_sequence(x) else "value must not be 'None'." if x is None else "type does not match.")


class Scan:
    """One walk over a nested sequence: its shape, and its elements in row order."""

    def __init__(self, kind, is_complex, allow_float, value):
        self.kind, self.is_complex, self.allow_float = kind, is_complex, allow_float
        self.dims, self.elements, self.depth, self.leaf = [], [], 0, 0
        if value is DELETE:
            raise RuntimeError("null data pointer.")
        self.scan(to_list(value) if isinstance(value, View) else value)

    def scan(self, x):
        if not is_sequence(x):
            element = convert(self.kind, self.is_complex, x, self.allow_float)
            self.leaf = self.leaf or self.depth
            if self.leaf != self.depth:
                raise ValueError(RECTANGULAR)
            self.elements.append(element)
            self.dims = self.dims or [1, 1]
            return
        if isinstance(x, str):
            raise ValueError("value passed to initializer must be numeric.")
        n = len(x)
        if n >= 2 and len({(is_sequence(item), len(item) if is_sequence(item) else 0) for item in x}) > 1:
            raise ValueError(DIFFERENT)
        d, self.depth = self.depth, self.depth + 1
        self.dims += [0] * (self.depth - len(self.dims))  # 0: not known until a sequence there has items
        for i in range(n):
            self.scan(x[i])
        self.dims[d] = self.dims[d] or n
        if self.dims[d] != n:
            raise ValueError(RECTANGULAR)
        self.depth -= 1
        if self.depth == 0 and prod(self.dims) != len(self.elements):
            raise ValueError(RECTANGULAR)  # siblings that differ only below an empty one


def column_major(row_order, dims):
    """Elements met last-index-fastest, placed first-index-fastest."""
    strides = [prod(dims[:k]) for k in range(len(dims))]
    out = [None] * len(row_order)
    for value, coords in zip(row_order, itertools.product(*map(range, dims))):
        out[sum(c * s for c, s in zip(coords, strides))] = value
    return out


def mismatch(error, dims, size):
    return error("dimensions of initializer (%s) do not match dimensions specified by 'size' (%s)."
                 % (", ".join(map(str, dims)), ", ".join(map(str, size))))


def check_size(size, dims):
    """Whether flat data fills `size` column by column; raises when they disagree."""
    if prod(size) != prod(dims):
        raise mismatch(ShapeError, dims, size)
    if len(dims) == 1 and dims[0] > 1:  # `size` has two dimensions or more
        return True
    if size == dims or (len(size) == 2 and size[0] == 1 and dims == [1]) or prod(dims) == 0:
        return False
    raise mismatch(SizeError, dims, size)


def drop_trailing_ones(dims):
    while len(dims) > 2 and dims[-1] == 1:
        dims.pop()
    return dims


def parse_size(size):
    if not is_sequence(size):
        raise TypeError("value of 'size' must be a sequence.")
    if len(size) == 0:
        raise ValueError("sequence passed to 'size' must not be empty.")
    dims = []
    for d in size:
        if not isinstance(d, int):
            raise TypeError("dimensions must be nonnegative integers.")
        if not 0 <= d < 2**63:
            raise ValueError("size cannot contain negative dimensions. Use nonnegative integers for dimensions.")
        dims.append(int(d))
    return drop_trailing_ones([1] + dims if len(dims) == 1 else dims)


def construct(kind, initializer=None, size=None, vector=None, is_complex=ABSENT):
    """The view that kerova.<kind>(...) gives, all arguments passed by keyword, not both initializer and vector."""
    if is_complex is not ABSENT and type(is_complex) is not bool:
        raise TypeError("value passed to 'is_complex' must be a bool.")
    cplx = is_complex is True
    if kind == "logical" and cplx:
        raise TypeError("logical arrays must not be complex.")
    if initializer is None and size is None and vector is None:
        return View(Store(kind, cplx, [0, 0], []))
    sizes = parse_size(size) if size is not None else []
    if initializer is None and vector is None:
        return View(Store(kind, cplx, sizes, [convert(kind, cplx, 0, True)] * prod(sizes)))
    if vector is None:
        if isinstance(initializer, str):
            raise ValueError("value passed to initializer must be numeric.")
        scan = Scan(kind, cplx, True, initializer)
        dims, elements = scan.dims, scan.elements
        if len(dims) == 1:
            if sizes and len(elements) != prod(sizes):
                raise mismatch(ShapeError, dims, sizes)
            if not sizes:
                dims = [1, dims[0]] if dims[0] else [0, 0]
        drop_trailing_ones(dims)
        final, by_column = sizes or dims, sizes and check_size(sizes, dims)
        return View(Store(kind, cplx, final, elements if by_column else column_major(elements, final)))
    if not is_sequence(vector):
        raise ValueError("value of 'vector' must be a sequence.")
    if isinstance(vector, str):
        raise ValueError("value passed to 'vector' must be numeric.")
    dims = ([] if sizes else [1]) + [len(vector)]
    if sizes:
        check_size(sizes, dims)
    elements = []
    for item in vector:
        if is_sequence(item):
            raise TypeError("value of 'vector' must be an unnested sequence.")
        try:
            elements.append(convert(kind, cplx, item, True))
        except (TypeError, OverflowError) as refusal:
            raise ValueError(str(refusal)) from None
    return View(Store(kind, cplx, sizes or dims, elements))


class Store:
    def __init__(self, kind, is_complex, shape, data):
        self.kind, self.is_complex, self.shape, self.data = kind, is_complex, list(shape), list(data)

    def linear(self, coords):
        return sum(c * prod(self.shape[:k]) for k, c in enumerate(coords))

    def at(self, coords):
        """The element at `coords` as a read gives it: a complex from its two parts."""
        x = self.data[self.linear(coords)]
        return complex(*x) if self.is_complex else x

    def write(self, coords, value):
        """A write beyond the elements (an empty store's) does nothing; one before the first
        element (a region that runs below 0) is refused."""
        linear = self.linear(coords)
        if linear < 0:
            raise RuntimeError("unable to set value.")
        if linear < len(self.data):
            self.data[linear] = value


def normalize(start, stop, step, length, n):
    """A slice record made whole against a dimension of length n."""
    if start == stop or length == 0:
        return (0, 0, 1, 0)
    start = n - 1 if start >= n else start
    start = start + n if start < 0 else start
    return (max(start, 0), stop, step, length)


def from_python(index, n):
    if index.step == 0:
        raise ValueError("slice step cannot be zero.")
    start, stop, step = index.indices(n)
    return normalize(start, stop, step, len(range(start, stop, step)), n)


def walk(s):
    """The indices that a slice record selects."""
    return list(range(*s[:3]))


def compose(outer, inner):
    """A slice taken within the final slice `outer`, as one slice of the dimension."""
    start, stop, step, length = normalize(*inner, outer[3])
    values = walk(outer)
    if not values:
        return outer
    step, start, length = step * outer[2], values[start], min(length, len(values))
    return (start, length * step + start, step, length)


def odometer(ints, final, shape):
    """The positions that a region assignment writes: an odometer over the box of the integer records, the slice and
    the whole of each later dimension, the last dimension moving first. It starts from the start of each record and
    yields that position before it looks at any bound; it stops where a dimension can't move and the one in front is
    held by an integer record, or where a coordinate stands outside its bounds."""
    bounds = [(i, i + 1, 0) for i in ints] + [final[:3]] + [(0, d, 1) for d in shape[len(ints) + 1:]]
    coords = [lo for lo, _, _ in bounds]
    while True:
        yield list(coords)
        for d in reversed(range(len(bounds))):
            (lo, hi, step), c = bounds[d], coords[d]
            if (c > lo or c <= hi) if step < 0 else (c < lo or c >= hi):
                return
            if step and (c + step > hi if step < 0 else c + step < hi):
                coords[d:] = [c + step] + [b[0] for b in bounds[d + 1:]]
                break
            if d == 0 or step == 0:
                return


FORMATS = dict(zip(KINDS, "dfbBhHiIqQ?"))


class View:
    """An array object: a store and the records of the sub-array it stands for."""

    def __init__(self, store, ints=(), final=None):
        self.store, self.ints, self.final, self.cache = store, list(ints), final, None

    def axes(self):
        """The coordinates that the records select in each dimension of the store as it is now;
        the integer records stand first, one coordinate each."""
        shape, n = self.store.shape, len(self.ints)
        first = walk(self.final) if self.final else range(shape[n])
        return [[i] for i in self.ints] + [list(first)] + [range(d) for d in shape[n + 1:]]

    def fits(self):
        """Whether the records still select a sub-array of the store: a reshape since they were
        made can leave them outside it, and then nothing is promised of this view."""
        shape, n = self.store.shape, len(self.ints)
        return n < len(shape) and all(0 <= c < d for axis, d in zip(self.axes(), shape) for c in axis)

    def size(self):
        return tuple(len(axis) for axis in self.axes()[len(self.ints):])

    def pick(self, index, length):
        """The position in the dimension of an integer index wrapped against `length`."""
        if not -length <= index < length:
            raise IndexError("index has an invalid value: %d" % index)
        i = index % length
        if self.final is not None:
            values = walk(self.final)
            if i >= len(values):
                raise RuntimeError("unable to index into slice.")
            i = values[i]
        return i

    def read(self, index):
        st, n = self.store, len(self.ints)
        if isinstance(index, int):
            i = self.pick(index, self.size()[0])
            return st.at(self.ints + [i]) if n == len(st.shape) - 1 else View(st, self.ints + [i])
        if type(index) is not slice:
            raise RuntimeError("index is not an integer or slice.")
        s = from_python(index, self.size()[0])
        return View(st, self.ints, compose(self.final, s) if self.final else s)

    def assign(self, index, value):
        st, n = self.store, len(self.ints)
        length, last = st.shape[n], n == len(st.shape) - 1
        if isinstance(index, int):
            i = self.pick(index, length)  # wrapped against the whole dimension, then mapped
            if last:  # the element road
                if value is DELETE:
                    raise RuntimeError("null data pointer.")
                return st.write(self.ints + [i], convert(st.kind, st.is_complex, value, False))
            scan = Scan(st.kind, st.is_complex, False, value)  # the sub-array road
            rest = st.shape[n + 1:]
            if scan.dims != rest:
                raise ValueError(SHAPE)
            for element, coords in zip(scan.elements, itertools.product(*map(range, rest))):
                st.write(self.ints + [i] + list(coords), element)
            return None
        if type(index) is not slice:
            raise RuntimeError("index is not an integer or slice.")
        s = from_python(index, length)
        scan = Scan(st.kind, st.is_complex, False, value)
        if last:  # the row-slice road: the final slice plays no part
            indices = walk(s)
            if len(scan.dims) != 1 or len(scan.elements) != len(indices):
                raise ValueError(SHAPE)
            for i, element in zip(indices, scan.elements):
                st.write(self.ints + [i], element)
            return None
        count = len(scan.elements)  # the region road
        if count == 0:
            if s[3] == 0:
                return None
            raise ValueError("slice is nonempty but values are empty.")
        if s[3] == 0:
            raise ValueError("slice is empty, but number of elements assigned is greater than zero.")
        r = compose(self.final, s) if self.final else s
        visited = list(itertools.islice(odometer(self.ints, r, st.shape), count + 1))
        for coords, element in zip(visited, scan.elements):
            st.write(coords, element)
        if len(visited) != count:  # the writes stay
            raise ValueError("length of slice does not match number of elements.")

    def items(self):
        """What iterating the view yields: partial arrays, or scalars on the last dimension."""
        st, n = self.store, len(self.ints)
        return [View(st, self.ints + [p]) if len(st.shape) - n > 1 else st.at(self.ints + [p]) for p in self.axes()[n]]

    def reshape(self, *args):
        if self.ints:
            raise RuntimeError("reshape() not supported for a partial array.")
        seq = args[0] if len(args) == 1 else args
        if (seq is None or not is_sequence(seq) or len(seq) < 2
                or not all(isinstance(d, int) and 0 <= d < 2**63 for d in seq)):
            raise ValueError(RESHAPE)
        dims = drop_trailing_ones([int(d) for d in seq])
        if prod(dims) != len(self.store.data):
            raise ShapeError("number of elements specified by arguments to reshape() (%d) does not match "
                             "current number (%d)." % (prod(dims), len(self.store.data)))
        self.store.shape = dims
        return self

    def materialize(self):
        """What the view stands for as dimensions and column-major data, rebuilt from its nested
        list; made once and kept, through later writes and reshapes."""
        if self.cache is None:
            st = self.store
            scan = Scan(st.kind, st.is_complex, False, to_list(self))
            dims = [0] + st.shape[1:] if not scan.elements else [1] + scan.dims if len(scan.dims) == 1 else scan.dims
            self.cache = (dims, column_major(scan.elements, dims))
        return self.cache

    def clone(self):
        dims, data = self.materialize()
        return View(Store(self.store.kind, self.store.is_complex, dims, data))

    def flatten(self, part):
        """The whole store in storage order as row 0 of a 1-by-N array, whatever the records."""
        st = self.store
        if part == "noncomplex" and st.is_complex:
            raise ValueError("noncomplex() must not be called on a complex array.")
        if part != "noncomplex" and not st.is_complex:
            raise ValueError("real() and imag() can be called only on a complex array.")
        data = [x[part == "imag"] for x in st.data] if st.is_complex else st.data
        return View(Store(st.kind, False, [1, len(data)], data), [0])

    real, imag, noncomplex = map(partialmethod, [flatten] * 3, ["real", "imag", "noncomplex"])

    def toarray(self):
        """An array.array of the items; it takes numbers only."""
        try:
            return array.array("B" if self.store.kind == "logical" else FORMATS[self.store.kind], self.items())
        except (TypeError, OverflowError):
            one = len(self.store.shape) - len(self.ints) == 1
            raise RuntimeError("toarray() failed." if one else "toarray() can be called only on a "
                               "one-dimensional sequence.") from None

    def tomemoryview(self):
        """The buffer of the store, or a partial array's snapshot: format, item size, shape,
        strides and the bytes in storage order."""
        st = self.store
        if self.ints or self.final:
            try:
                dims, data = self.materialize()
            except Exception:  # noqa: BLE001 - reported as the export's own failure
                raise RuntimeError("null data pointer.") from None
        else:
            dims, data = st.shape, st.data
        code = FORMATS[st.kind]
        size = struct.calcsize(code) * (1 + st.is_complex)
        parts = [p for x in data for p in x] if st.is_complex else data
        return [("Z" if st.is_complex else "") + code, size, tuple(dims),
                tuple(size * prod(dims[:k]) for k in range(len(dims))),
                struct.pack("=%d%s" % (len(parts), code), *parts)]

    def text(self, frame):
        """The nested list's text with every blank removed, framed as a constructor call."""
        body = str(to_list(self)).replace(" ", "")
        suffix = ", is_complex=True" if self.store.is_complex else ""
        return "kerova.%s(%s%s)" % (self.store.kind, body, suffix) if frame else body

    def pickled(self):
        """pickle.loads(pickle.dumps(a)): the whole dimension at the final slice, rebuilt from nested lists."""
        st = self.store
        listed = to_list(View(st, self.ints))
        return construct(st.kind, listed, is_complex=True if st.is_complex else ABSENT)


def to_list(view):
    """Nested lists over the open dimensions, the last one innermost; scalars at the leaves."""
    axes, st = view.axes(), view.store

    def level(coords, d):
        return [st.at(coords + [c]) if d == len(axes) - 1 else level(coords + [c], d + 1) for c in axes[d]]
    return level(list(view.ints), len(view.ints))


def equal(a, b):
    """== by two parallel walks, Python's == on the scalars."""
    x, y = a.items(), b.items()
    if a.store.kind != b.store.kind or len(x) != len(y):
        return False
    return all(equal(p, q) if isinstance(p, View) and isinstance(q, View)
               else not isinstance(p, View) and not isinstance(q, View) and p == q
               for p, q in zip(x, y))
