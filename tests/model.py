"""A pure-Python model of the arrays: a store (kind, complex flag, shape, column-major elements) and
views holding a cursor's records, integers and at most one final slice. Each operation returns or
raises what the extension does, with the same text: reads normalise against the final slice, writes
against the whole dimension, and a failed assignment keeps what it wrote. Views made before a
reshape are not modelled; the tests drop them."""

import itertools
import math
import struct
from math import prod

from kerova import ShapeError, SizeError

RANGES = {f"{u}int{b}": (0, 2**b - 1) if u else (-2**(b - 1), 2**(b - 1) - 1)
          for b in (8, 16, 32, 64) for u in ("", "u")}
KINDS = ["double", "single", *RANGES, "logical"]
TOO_LARGE = "Python int too large to convert to C long long"
FLT_MAX = 3.4028234663852886e38
DELETE = object()  # the value of a `del` statement
ABSENT = object()  # an argument not passed

DIFFERENT = "elements of array are of different lengths or types."
RECTANGULAR = "arrays must be rectangular."
SHAPE = "unable to perform assignment because the left and right sides have a different shape."
RESHAPE = "reshape() must be passed a nonempty sequence of nonnegative integers."


def is_sequence(x):
    """What PySequence_Check says of an object."""
    return isinstance(x, View) or (not isinstance(x, dict) and hasattr(type(x), "__getitem__"))


def single(x):
    """A double as a 32-bit float: beyond the float range, infinities included, it is +inf."""
    if math.isnan(x) or abs(x) > FLT_MAX:
        return x if math.isnan(x) else math.inf
    return struct.unpack("f", struct.pack("f", x))[0]


def single_of_int(v):
    """A 64-bit integer as the nearest 32-bit float, ties to even."""
    m = abs(v)
    shift = max(m.bit_length() - 24, 0)
    q, r = divmod(m, 1 << shift)
    half = (1 << shift) >> 1
    if shift and (r > half or (r == half and q & 1)):
        q += 1
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
    """A double as one part of a complex element."""
    if kind in ("double", "single") or math.isnan(v):
        return v if kind == "double" else single(v) if kind == "single" else 0.0
    lo, hi = RANGES[kind]
    if not float(lo - 1) < v < float(hi + 1):
        raise out_of_range(v, kind)
    return float(int(v))


def convert(kind, is_complex, x, allow_float):
    """The element that `x` becomes, as reading it gives it back."""
    if is_complex:  # lax: complex, float and int convert, anything else is 0
        if isinstance(x, complex):
            return complex(part(kind, x.real), part(kind, x.imag))
        if isinstance(x, float):
            return complex(part(kind, x), 0.0)
        if isinstance(x, int):
            return complex(from_int(kind, int(x)), 0.0)
        return 0j
    if kind in ("double", "single") and isinstance(x, float):
        return x if kind == "double" else single(x)
    if isinstance(x, int):
        return from_int(kind, int(x))
    name = "kerova." + kind
    if isinstance(x, float):
        if kind == "logical" and allow_float:
            return x != 0.0
        if kind not in ("double", "single"):
            raise TypeError(name + " does not accept floating-point values.")
    if isinstance(x, complex):
        if kind == "logical" and allow_float:
            return x.real != 0.0 or x.imag != 0.0
        raise TypeError(name + " does not accept complex values if 'is_complex' is not set to 'True'.")
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
            if self.leaf == 0:
                self.leaf = self.depth
            elif self.leaf != self.depth:
                raise ValueError(RECTANGULAR)
            self.elements.append(element)
            self.dims = self.dims or [1, 1]
            return
        if isinstance(x, str):
            raise ValueError("value passed to initializer must be numeric.")
        n = len(x)
        if n >= 2:
            kinds = [(is_sequence(item), len(item) if is_sequence(item) else 0) for item in x]
            if any(k != kinds[0] for k in kinds):
                raise ValueError(DIFFERENT)
        self.depth += 1
        d = self.depth - 1
        self.dims += [0] * (self.depth - len(self.dims))  # 0: not known until a sequence there has items
        for i in range(n):
            self.scan(x[i])
        if self.dims[d] == 0:
            self.dims[d] = n
        elif self.dims[d] != n:
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
    """The view that kerova.<kind>(...) gives, all arguments passed by keyword."""
    if is_complex is not ABSENT and type(is_complex) is not bool:
        raise TypeError("value passed to 'is_complex' must be a bool.")
    cplx = is_complex is True
    if kind == "logical" and cplx:
        raise TypeError("logical arrays must not be complex.")
    if initializer is None and size is None and vector is None:
        return View(Store(kind, cplx, [0, 0], []))
    if initializer is not None and vector is not None:
        raise TypeError("initializer and 'vector' must not both be specified.")
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
        by_column = check_size(sizes, dims) if sizes else False
        final = sizes or dims
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
        return self.data[self.linear(coords)]

    def write(self, coords, value):
        linear = self.linear(coords)
        if linear < 0:  # a slice of a slice can step below the start of the dimension
            raise RuntimeError("unable to set value.")
        if linear < len(self.data):  # beyond the elements the write is skipped
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


class View:
    """An array object: a store and the records of the sub-array it stands for."""

    def __init__(self, store, ints=(), final=None):
        self.store, self.ints, self.final, self.cache = store, list(ints), final, None

    def length(self):
        return self.final[3] if self.final is not None else self.store.shape[len(self.ints)]

    def size(self):
        rest = tuple(self.store.shape[len(self.ints):])
        return (self.final[3],) + rest[1:] if self.final is not None else rest

    def records(self):
        return [("i", i) for i in self.ints] + ([("s",) + self.final] if self.final else [])

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
            i = self.pick(index, self.length())
            if n == len(st.shape) - 1:
                return st.at(self.ints + [i])
            return View(st, self.ints + [i])
        if type(index) is not slice:
            raise RuntimeError("index is not an integer or slice.")
        s = from_python(index, self.length())
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
        # An odometer over the region's box, last dimension fastest, from the start of each record;
        # it stops where it would carry into an empty dimension. Writing stops when either runs out.
        r = compose(self.final, s) if self.final else s
        rest = st.shape[n + 1:]
        axes = [[i] for i in self.ints] + [walk(r)] + [range(k) for k in rest]
        empty = max((d for d, axis in enumerate(axes) if not axis), default=-1)
        starts = self.ints + [r[0]] + [0] * len(rest)
        slots = list(itertools.product(*([c] for c in starts[:empty + 1]), *axes[empty + 1:]))
        for coords, element in zip(slots, scan.elements):
            st.write(list(coords), element)
        if len(slots) != count:
            raise ValueError("length of slice does not match number of elements.")

    def items(self):
        """What iterating the view yields: partial arrays, or scalars on the last dimension."""
        st = self.store
        positions = walk(self.final) if self.final else range(st.shape[len(self.ints)])
        if len(st.shape) - len(self.ints) > 1:
            return [View(st, self.ints + [p]) for p in positions]
        return [st.at(self.ints + [p]) for p in positions]

    def reshape(self, *args, **kwargs):
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
        if kwargs:
            raise ValueError("reshape() does not accept keyword arguments.")
        self.store.shape = dims
        return self

    def materialize(self):
        """What the view stands for, as dimensions and column-major data; cached for good."""
        if self.cache is None:
            st = self.store
            scan = Scan(st.kind, st.is_complex, False, to_list(self))
            dims = [1] + scan.dims if len(scan.dims) == 1 else scan.dims
            if not scan.elements:
                dims = [0] + st.shape[1:]
            self.cache = (dims, column_major(scan.elements, dims))
        return self.cache

    def clone(self):
        dims, data = self.materialize()
        return View(Store(self.store.kind, self.store.is_complex, dims, data))

    def exported(self):
        """memoryview(a).tolist(): the store as it is, or a partial array's snapshot."""
        dims, data = self.materialize() if self.records() else (self.store.shape, self.store.data)
        return nested(Store(self.store.kind, False, dims, data), [], 0)

    def text(self, frame):
        body = str(to_list(self)).replace(" ", "")
        suffix = ", is_complex=True" if self.store.is_complex else ""
        return "kerova.%s(%s%s)" % (self.store.kind, body, suffix) if frame else body

    def pickled(self):
        """pickle.loads(pickle.dumps(a)): the whole dimension at the final slice, rebuilt from nested lists."""
        st = self.store
        return construct(st.kind, nested(st, self.ints, len(self.ints)), is_complex=True if st.is_complex else ABSENT)


def nested(store, coords, depth):
    """The elements below `coords` as nested lists, from dimension `depth` on."""
    shape = store.shape
    if depth == len(shape) - 1:
        return [store.at(coords + [i]) for i in range(shape[depth])]
    return [nested(store, coords + [i], depth + 1) for i in range(shape[depth])]


def to_list(view):
    st, n = view.store, len(view.ints)
    if view.final is None:
        return nested(st, view.ints, n)
    if n + 1 == len(st.shape):
        return [st.at(view.ints + [v]) for v in walk(view.final)]
    return [nested(st, view.ints + [v], n + 1) for v in walk(view.final)]


def equal(a, b):
    """== by two parallel walks, Python's == on the scalars."""
    x, y = a.items(), b.items()
    if a.store.kind != b.store.kind or len(x) != len(y):
        return False
    return all(equal(p, q) if isinstance(p, View) and isinstance(q, View)
               else not isinstance(p, View) and not isinstance(q, View) and p == q
               for p, q in zip(x, y))
