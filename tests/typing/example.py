"""Uses the whole public surface of kerova; checked by `mypy --strict` and also run.

The assert_type lines pin what the stubs promise. The lines marked `type: ignore` are
refused by the stubs on purpose (strict mode reports an ignore that is no longer needed),
and each of them fails at run time too.
"""

from __future__ import annotations

import array
import copy
import pickle
from typing import Any, Callable

from typing_extensions import assert_type

import numpy

import kerova
import kerovamultidimarrayforpython as kv
import kvexceptions


def construction() -> list[kerova.double]:
    forms = [
        kerova.double(),
        kerova.double(None),
        kerova.double(5),
        kerova.double([[1, 2], [3, 4]]),
        kerova.double((1.5, 2.5)),
        kerova.double(size=(2, 3)),
        kerova.double(size=[3]),
        kerova.double([1, 2, 3, 4, 5, 6], size=(2, 3)),
        kerova.double(vector=[1.0, 2.0, 3.0]),
        kerova.double(None, (2, 2), [1, 2, 3, 4]),
        kerova.double([1 + 2j, 3], is_complex=True),
        kerova.double(array.array("d", [1.0, 2.0])),
        kerova.double(memoryview(b"\x00" * 16).cast("d")),
        kerova.double({"size": (2, 2)}),
        kerova.double({"is_complex": True}, [[1j]]),
    ]
    assert [f.size for f in forms[:4]] == [(0, 0), (0, 0), (1, 1), (2, 2)]
    return forms


def every_class() -> None:
    classes: list[type[kerova.double] | type[kerova.single] | type[kerova.int8] | type[kerova.uint8]
                  | type[kerova.int16] | type[kerova.uint16] | type[kerova.int32] | type[kerova.uint32]
                  | type[kerova.int64] | type[kerova.uint64] | type[kerova.logical]] = [
        kerova.double, kerova.single, kerova.int8, kerova.uint8, kerova.int16, kerova.uint16,
        kerova.int32, kerova.uint32, kerova.int64, kerova.uint64, kerova.logical,
    ]
    for cls in classes:
        made = cls([[1, 0], [0, 1]])
        assert made.size == (2, 2) and made == cls(vector=[1, 0, 0, 1], size=(2, 2))
    assert_type(kerova.uint8(b"ab"), kerova.uint8)
    assert_type(kerova.logical([True, False]), kerova.logical)
    assert kerova.int16([1, -2], is_complex=True)[0][1] == -2 + 0j


def indexing() -> None:
    a = kerova.double([[1, 2, 3], [4, 5, 6]])
    row: kerova.double = a[1]
    value: float = a[1][2]
    assert_type(a[0:1], kerova.double)
    assert_type(row[::-1], kerova.double)
    assert value == 6.0 and len(a) == 2 and len(row) == 3
    assert a[0:2][1][2] == 6.0 and a[0:2][1:2].size == (1, 3)
    a[0][1] = 20
    a[1][0:2] = [40, 50]
    a[0] = [7, 8, 9]
    a[0:1] = [[1, 2, 3]]
    assert [list(r) for r in a] == [[1.0, 2.0, 3.0], [40.0, 50.0, 6.0]]
    assert 6.0 in a[1] and a != kerova.double(size=(2, 3))
    try:
        a[1, 2]  # type: ignore[call-overload]
    except RuntimeError as error:
        assert str(error) == "index is not an integer or slice."
    try:
        a < a  # type: ignore[operator]
    except NotImplementedError:
        pass


def storage_and_methods() -> None:
    a = kerova.double([[1, 2, 3], [4, 5, 6]])
    strides: tuple[int, ...] = a.get_bytewise_strides()
    address, count = a.buffer_info()
    assert strides == (8, 16) and address > 0 and count == 6
    assert list(a.noncomplex()) == [1.0, 4.0, 2.0, 5.0, 3.0, 6.0]
    assert list(a._data) == list(a.noncomplex())
    assert a.itemsize == 8 and a._size == a.size and not a._is_complex
    copied = a.clone()
    assert_type(copied, kerova.double)
    assert copied.reshape(3, 2) is copied and copied.reshape([2, 3]).size == (2, 3)
    a.reshape((3, 2))
    stored: array.array[Any] = a.noncomplex().toarray()
    view: memoryview = a.tomemoryview()
    assert stored.typecode == "d" and view.shape == (3, 2) and memoryview(a).readonly
    z = kerova.single([1 + 2j, 3 - 4j], is_complex=True)
    assert list(z.real()) == [1.0, 3.0] and list(z.imag()) == [2.0, -4.0]
    assert list(z._real) == list(z.real()) and list(z._imag) == list(z.imag())
    assert z._is_complex and z.itemsize == 8
    try:
        a.reshape(4)  # type: ignore[call-overload]
    except ValueError:
        pass


def numpy_interop() -> None:
    a = kerova.double([[1, 2, 3], [4, 5, 6]])
    view = numpy.asarray(a)
    a[0][0] = 100
    assert view[0, 0] == 100 and view.flags.f_contiguous and not view.flags.writeable
    back = kerova.int64(numpy.arange(6).reshape(2, 3))
    assert back[1][2] == 5 and kerova.single(numpy.float32(1.5))[0][0] == 1.5


def pickling() -> None:
    a = kerova.int8([[1, -2], [3, 4]], is_complex=True)
    cls, (keywords, values) = a.__reduce__()
    assert cls is kerova.int8 and keywords == {"is_complex": True}
    assert cls(keywords, values) == a
    restored: kerova.int8 = pickle.loads(pickle.dumps(a))
    assert restored == a and copy.deepcopy(a) == a and copy.copy(a) == a


def errors() -> None:
    failures: list[type[Exception]] = []
    attempts: list[Callable[[], kerova.double]] = [
        lambda: kerova.double([1, 2, 3], size=(2, 2)),
        lambda: kerova.double([[1, 2, 3], [4, 5, 6]], size=(3, 2)),
        lambda: kerova.double([1, 2]).reshape(3, 3),
    ]
    for attempt in attempts:
        try:
            attempt()
        except (kerova.ShapeError, kerova.SizeError) as error:
            failures.append(type(error))
    assert failures == [kv.ShapeError, kvexceptions.SizeError, kerova.ShapeError]
    assert issubclass(kerova.SizeError, Exception)


def extension_module() -> None:
    a = kv.double([[1, 2], [3, 4]])
    assert_type(a, kerova.double)
    walk = iter(a)
    assert isinstance(walk, kv.KVPyIter)
    assert_type(walk, kv.KVPyIter)
    assert iter(walk) is walk and next(walk) == a[0]
    assert kv._capi is not None


construction()
every_class()
indexing()
storage_and_methods()
numpy_interop()
pickling()
errors()
extension_module()
print("typing example: ok")
