"""Each kind of signature that kerova's stubs declare, checked by `mypy --strict` and run. The
`type: ignore` lines are refused on purpose: strict mode reports an ignore no longer needed."""

from __future__ import annotations

import array
import pickle
from contextlib import suppress
from typing import Any

import numpy
from typing_extensions import assert_type

import kerova
import kerovamultidimarrayforpython as kv
import kvexceptions

for cls in (kerova.double, kerova.single, kerova.int8, kerova.uint8, kerova.int16, kerova.uint16,
            kerova.int32, kerova.uint32, kerova.int64, kerova.uint64, kerova.logical):
    assert cls([[1, 0], [0, 1]]) == cls(vector=[1, 0, 0, 1], size=(2, 2))
assert_type(kerova.uint8(b"ab"), kerova.uint8)
forms = [kerova.double(), kerova.double(5), kerova.double(None, (2, 2), [1, 2, 3, 4]),
         kerova.double([1 + 2j], is_complex=True), kerova.double(numpy.ones(2)),
         kerova.double({"size": (2, 2)}), kerova.double({"is_complex": True}, [[1j]])]
assert [f.size for f in forms] == [(0, 0), (1, 1), (2, 2), (1, 1), (1, 2), (2, 2), (1, 1)]

a = kerova.double([[1, 2, 3], [4, 5, 6]])
row: kerova.double = a[1]
value: float = a[1][2]
assert_type(a[0:1], kerova.double)
assert value == 6.0 and len(a) == 2 and len(row) == 3 and a != kerova.double(size=(2, 3))
a[0][1] = 20
a[0:1] = [[1, 2, 3]]
assert [list(r) for r in a] == [[1.0, 2.0, 3.0], [4.0, 5.0, 6.0]]
walk = iter(a)
assert isinstance(walk, kv.KVPyIter) and iter(walk) is walk and next(walk) == a[0]
assert_type(walk, kv.KVPyIter)
try:
    a[1, 2]  # type: ignore[call-overload]
except RuntimeError as error:
    assert str(error) == "index is not an integer or slice."
with suppress(NotImplementedError):
    a < a  # type: ignore[operator]

strides: tuple[int, ...] = a.get_bytewise_strides()
address, count = a.buffer_info()
assert strides == (8, 16) and address > 0 and count == 6 and a.itemsize == 8 and a._size == a.size
copied = a.clone()
assert_type(copied, kerova.double)
assert copied.reshape(3, 2) is copied and copied.reshape([2, 3]).size == (2, 3)
stored: array.array[Any] = a.noncomplex().toarray()
view: memoryview = a.tomemoryview()
assert stored.typecode == "d" and view.shape == memoryview(a).shape == (2, 3)
assert list(a._data) == [1.0, 4.0, 2.0, 5.0, 3.0, 6.0] and not a._is_complex
z = kerova.single([1 + 2j, 3 - 4j], is_complex=True)
assert list(z.real()) == list(z._real) == [1.0, 3.0] and list(z.imag()) == list(z._imag) == [2.0, -4.0]
with suppress(ValueError):
    a.reshape(4)  # type: ignore[call-overload]

klass, (keywords, values) = z.__reduce__()
assert klass(keywords, values) == z and pickle.loads(pickle.dumps(z)) == z
try:
    kerova.double([[1, 2, 3], [4, 5, 6]], size=(3, 2))
except (kerova.ShapeError, kv.SizeError) as refusal:
    assert type(refusal) is kvexceptions.SizeError and kv._capi is not None
print("typing example: ok")
