"""Coverage-guided fuzz target: the fuzzer's bytes are decoded into short programs over a
few live arrays (whole arrays, partial arrays, views and iterators of them) that build,
index, assign, reshape, compare, print, pickle and export them in any order.

Every Python exception is an accepted outcome and is swallowed; what counts is a crash, a
sanitizer report or an abort, and a SystemError, which means the extension broke the C API
contract (returned null without an exception, or a result with one set). Arrays stay
small so that an execution takes milliseconds.

Run through scripts/fuzz.sh, which builds the instrumented extension and sets the
environment; `python fuzz/programs.py -runs=N` works against any build on the path."""

import array
import contextlib
import copy
import ctypes
import io
import pickle
import sys

import atheris

with atheris.instrument_imports():
    import kerova

try:
    import numpy
except ImportError:  # the NumPy operations are skipped
    numpy = None

CLASSES = [kerova.double, kerova.single, kerova.int8, kerova.uint8, kerova.int16, kerova.uint16,
           kerova.int32, kerova.uint32, kerova.int64, kerova.uint64, kerova.logical]
MAX_ELEMENTS = 4096
MAX_OPERATIONS = 24
LIVE = 3  # arrays (whole or partial) kept at once

# Integers at the edges of every width the extension converts to, for indices, slice
# bounds, sizes and element values.
EDGES = [0, 1, -1, 2, -2, 3, 7, 127, 128, 255, 256, -129, 2**15, 2**16, 2**31 - 1, 2**31, -2**31,
         2**32, 2**53 + 1, 2**62, 2**63 - 1, 2**63, -2**63, -2**63 - 1, 2**64 - 1, 2**64, 10**30]
# Dimensions that cannot be allocated: above what the allocator grants at all, or whose
# product overflows. (Lengths the allocator would grant are kept small.)
HUGE_DIMS = [2**41, 2**62, 2**63 - 1, 2**63, 2**64, -1]
FLOATS = [0.0, -0.0, 0.5, -1.5, 1e308, -1e308, 3.5e38, 1e-320, float("inf"), float("-inf"), float("nan")]
TYPECODES = "bBhHiIlLqQfdu"
CAST_FORMATS = ["B", "b", "c", "h", "H", "i", "I", "l", "L", "q", "Q", "n", "N", "f", "d", "e", "?", "P"]
CTYPES = [ctypes.c_double, ctypes.c_float, ctypes.c_int8, ctypes.c_uint8, ctypes.c_int16, ctypes.c_uint16,
          ctypes.c_int32, ctypes.c_uint32, ctypes.c_int64, ctypes.c_uint64, ctypes.c_bool, ctypes.c_char,
          ctypes.c_longdouble]
DTYPES = ["float64", "float32", "float16", "int8", "uint8", "int16", "uint16", "int32", "uint32", "int64",
          "uint64", "bool", "complex128", "complex64", "longdouble", "U1", "object"]


class Program:
    """The decoder of one input, and the objects its program works on."""

    def __init__(self, data):
        self.fdp = atheris.FuzzedDataProvider(data)
        self.arrays = []  # whole and partial arrays
        self.keep = []  # views, NumPy arrays and iterators held across later operations

    # ---- Decoding

    def pick(self, items):
        return items[self.fdp.ConsumeIntInRange(0, len(items) - 1)]

    def small(self, high=4):
        return self.fdp.ConsumeIntInRange(0, high)

    def flag(self):
        return self.fdp.ConsumeBool()

    def integer(self):
        kind = self.small(3)
        if kind == 0:
            return self.pick(EDGES)
        if kind == 1:
            return -self.pick(EDGES)
        return self.fdp.ConsumeIntInRange(-8, 8)

    def index(self):
        if self.small(5) == 0:
            return self.pick([None, 1.0, (0, 0), [0], ..., "0", True, numpy.int64(1) if numpy else 1])
        if self.flag():
            return self.integer()
        bound = lambda: None if self.small(3) == 0 else self.integer()  # noqa: E731
        return slice(bound(), bound(), bound())

    def scalar(self):
        kind = self.small(9)
        if kind <= 2:
            return self.integer()
        if kind == 3:
            return self.pick(FLOATS)
        if kind == 4:
            return complex(self.pick(FLOATS), self.pick(FLOATS))
        if kind == 5:
            return self.flag()
        if kind == 6:
            return self.pick([None, "x", b"", object(), 1 + 0j])
        if kind == 7 and numpy is not None:
            return self.pick([numpy.float32(1.5), numpy.float64(2), numpy.int64(-3), numpy.bool_(True),
                              numpy.complex128(1j), numpy.uint8(200)])
        return self.fdp.ConsumeIntInRange(-3, 3)

    def shape(self):
        if self.small(9) == 0:
            # No zero beside a huge dimension: that array would be empty, and any walk over
            # it (str, pickle, iteration) would make 2**62 rows.
            return [self.pick(HUGE_DIMS) if self.flag() else self.small(2) + 1 for _ in range(self.small(3) + 1)]
        dims, total = [], 1
        for _ in range(self.small(4) + (1 if self.flag() else 0)):
            d = self.small(6)
            if total * max(d, 1) > MAX_ELEMENTS:
                d = 1
            total *= max(d, 1)
            dims.append(d)
        return dims

    def count(self, shape):
        total = 1
        for d in shape:
            total *= d
        return total if 0 <= total <= MAX_ELEMENTS else 0

    def flat(self, n):
        return [self.scalar() for _ in range(n)]

    def nested(self, depth=None):
        """A nested list of at most 4**4 elements, rectangular unless the input asks for
        ragged or mixed levels."""
        if depth is None:
            depth = self.small(4)
        if depth == 0:
            return self.scalar()
        length = self.small(4)
        ragged = self.small(7) == 0
        if ragged:
            return [self.nested(self.small(depth)) for _ in range(length)]
        if depth == 1:
            return self.flat(length)
        first = self.nested(depth - 1)
        rest = [copy.deepcopy(first) if self.flag() else self.nested(depth - 1) for _ in range(length - 1)]
        container = self.pick([list, list, list, tuple])
        return container([first, *rest]) if length else container()

    def buffer(self):
        n = self.small(12)
        kind = self.small(5)
        if kind == 0:
            return self.pick([bytes, bytearray])(self.fdp.ConsumeBytes(n))
        if kind == 1:
            code = self.pick(TYPECODES)
            try:
                return array.array(code, self.fdp.ConsumeBytes(n * array.array(code).itemsize))
            except (ValueError, TypeError):
                return array.array(code)
        if kind == 2:
            raw = memoryview(bytearray(self.fdp.ConsumeBytes(n * 8)))
            fmt = self.pick(CAST_FORMATS)
            size = ctypes.sizeof(ctypes.c_void_p) if fmt in "PnN" else struct_size(fmt)
            items = len(raw) // size
            view = raw[: items * size].cast(fmt)
            if items and self.flag():
                rows = self.pick([d for d in (1, 2, 3, 4) if items % d == 0])
                view = view.cast("B").cast(fmt, [rows, items // rows])
            return view[:: self.pick([1, 1, 2, -1])] if self.flag() else view
        if kind == 3:
            element = self.pick(CTYPES)
            shape = [self.small(3) + 1 for _ in range(self.small(2) + 1)]
            for d in shape:
                element = element * d
            block = element()
            ctypes.memmove(block, self.fdp.ConsumeBytes(ctypes.sizeof(block)).ljust(ctypes.sizeof(block), b"\0"),
                           ctypes.sizeof(block))
            return block
        if numpy is not None:
            shape = [self.small(3) for _ in range(self.small(3))]
            x = numpy.zeros(shape, dtype=self.pick(DTYPES))
            if x.dtype.kind in "fciub" and x.size:
                x.flat[:] = numpy.frombuffer(self.fdp.ConsumeBytes(x.nbytes).ljust(x.nbytes, b"\0"), x.dtype)
            return self.pick([x, x, x.T, x[..., ::2], x.reshape(-1) if x.ndim else x, x[()] if not x.ndim else x])
        return memoryview(b"")

    def construct(self):
        cls = self.pick(CLASSES)
        form = self.small(11)
        if form == 0:
            return cls(self.nested())
        if form == 1:
            shape = self.shape()
            n = self.count(shape) if self.small(3) else self.small(8)
            return cls(vector=self.flat(n), size=shape) if self.flag() else cls(vector=self.flat(n))
        if form == 2:
            return cls(self.buffer(), is_complex=self.flag())
        if form == 3:
            return cls(size=self.shape(), is_complex=self.flag())
        if form == 4:
            return cls(self.nested(), is_complex=True)
        if form == 5:
            keywords = {}
            for _ in range(self.small(3)):
                key = self.pick(["size", "vector", "is_complex", "initializer", "bogus", 1])
                # A size made of arbitrary integers could ask for gigabytes the allocator grants.
                makers = [lambda: self.flat(self.small(6)), self.flag, self.nested]
                keywords[key] = self.shape() if key == "size" else self.pick(makers)()
            return cls(keywords, *([self.nested()] if self.flag() else []))
        if form == 6:
            shape = self.shape()
            return cls(self.nested(), size=shape, is_complex=self.flag())
        if form == 7:
            shape = self.shape()
            return cls(self.flat(self.count(shape)), size=shape)
        if form == 8 and self.arrays:
            return self.pick([cls, type(self.pick(self.arrays))])(self.pick(self.arrays))
        if form == 9:
            return cls(self.scalar(), is_complex=self.flag())
        # By position: initializer, size, vector, is_complex, each maybe None.
        makers = [self.nested, self.shape, lambda: self.flat(self.small(8)), self.flag]
        return cls(*[None if self.small(3) == 0 else make() for make in makers[: self.small(4)]])

    def value(self):
        """A right-hand side for an assignment."""
        kind = self.small(3)
        if kind == 0 and self.arrays:
            return self.chain(self.pick(self.arrays))
        if kind == 1:
            return self.scalar()
        return self.nested()

    def chain(self, a):
        for _ in range(self.small(3)):
            a = a[self.index()]
        return a

    # ---- Operations

    def remember(self, obj):
        if isinstance(obj, tuple(CLASSES)):
            if len(self.arrays) >= LIVE:
                self.arrays[self.small(LIVE - 1)] = obj
            else:
                self.arrays.append(obj)

    def operate(self):
        if not self.arrays or self.small(7) == 0:
            self.remember(self.construct())
            return
        a = self.pick(self.arrays)
        op = self.small(21)
        if op == 0:
            self.remember(self.chain(a))
        elif op == 1:
            target = self.chain(a)
            target[self.index()] = self.value()
        elif op == 2:
            if self.flag():
                a.reshape(self.shape())
            else:
                a.reshape(*self.shape())
        elif op == 3:
            for item in a:
                if self.flag():
                    self.remember(item)
                    break
        elif op == 4:
            iterator = iter(self.chain(a))
            self.keep.append(iterator)
            next(iterator)
        elif op == 5:
            for held in list(self.keep):
                if hasattr(held, "__next__"):
                    next(held, None)
        elif op == 6:
            other = self.pick(self.arrays) if self.flag() else self.value()
            a == other, a != other, other == a  # noqa: B015
            if self.flag():
                a < other  # noqa: B015
        elif op == 7:
            str(a), repr(a), str(self.chain(a))
        elif op == 8:
            self.remember(pickle.loads(pickle.dumps(a, protocol=self.small(5))))
        elif op == 9:
            self.remember(copy.deepcopy(a) if self.flag() else copy.copy(a))
        elif op == 10:
            self.remember(getattr(a, self.pick(["clone", "real", "imag", "noncomplex"]))())
        elif op == 11:
            self.remember(getattr(a, self.pick(["_data", "_real", "_imag"])))
        elif op == 12:
            result = a.toarray()
            result.tolist()
        elif op == 13:
            view = a.tomemoryview() if self.flag() else memoryview(a)
            view.tolist(), view.shape, view.strides, view.format
            self.keep.append(view)
        elif op == 14:
            a.buffer_info(), a.get_bytewise_strides(), a.size, a._size, a.itemsize, a._is_complex, len(a)
        elif op == 15 and numpy is not None:
            view = numpy.asarray(a) if self.flag() else numpy.array(a)
            view.sum(), view.tolist()
            self.keep.append(view)
        elif op == 16:
            del self.arrays[self.small(len(self.arrays) - 1)]
        elif op == 17:
            del a[self.index()]
        elif op == 18:
            a.__reduce__()
            self.remember(type(a)(*a.__reduce__()[1]))
        elif op == 19:
            for held in self.keep:
                if isinstance(held, memoryview):
                    held.tolist()
                elif numpy is not None and isinstance(held, numpy.ndarray):
                    held.tolist()
        elif op == 20:
            self.keep.clear()
        else:
            list(a), [list(x) if isinstance(x, tuple(CLASSES)) else x for x in a]


def struct_size(fmt):
    return memoryview(bytes(16)).cast(fmt).itemsize


class Discard(io.TextIOBase):
    def write(self, text):
        return len(text)


def TestOneInput(data):
    program = Program(data)
    failure = None
    # toarray() prints why array.array refused its iterator; the fuzzer's own output
    # goes to the file descriptor, not through sys.stderr.
    with contextlib.redirect_stderr(Discard()):
        for _ in range(MAX_OPERATIONS):
            if program.fdp.remaining_bytes() == 0:
                break
            try:
                program.operate()
            except SystemError as error:
                failure = error
                break
            except Exception:
                pass
    if failure is not None:
        raise failure


def main():
    sys.setrecursionlimit(1000)
    atheris.Setup(sys.argv, TestOneInput)
    atheris.Fuzz()


if __name__ == "__main__":
    main()
