"""Every Python allocation of an operation made to fail in turn: the operation raises MemoryError, or succeeds with
its usual result, and leaves the arrays it was given intact. The interpreter's test hooks make the k-th and every
later allocation fail (the library's own blocks are not Python allocations and still succeed). The reduce value is
rebuilt as unpickling rebuilds it, without the interpreter's pickler, which leaks its memo table when one of its own
allocations fails; lists are made beforehand, as a call whose list display fails to allocate
leaks a tuple in the interpreter (a list's own __setitem__ shows the same under the leak checker)."""

import array
import sys

import numpy as np
import pytest

import kerova

_testcapi = pytest.importorskip("_testcapi", reason="the interpreter was built without its test module")

ROWS = [[1, 2, 3], [4, 5, 6]]
OPERATIONS = {
    "nested list": lambda a: kerova.double(ROWS), "integers": lambda a: kerova.int32(ROWS),
    "size": lambda a: kerova.double(size=(3, 3)), "vector": lambda a: kerova.double(vector=[1.0, 2.0], size=(1, 2)),
    "buffer": lambda a: kerova.double(array.array("d", ROWS[0])),
    "ndarray": lambda a: kerova.double(np.asfortranarray(ROWS, dtype="d")),
    "text": lambda a: (str(a), repr(a[1])),
    "index chain": lambda a: (a[1][0:2][1], a[::-1][0][1:]), "iteration": lambda a: [list(row) for row in a],
    "equality": lambda a: (a == a.clone(), a[0] != a[1]), "reshape": lambda a: a.clone().reshape(3, 2),
    "element write": lambda a: a.__setitem__(0, ROWS[0]),
    "region write": lambda a: a.__setitem__(slice(0, 2), kerova.double(ROWS)),
    "exports": lambda a: (memoryview(a).tolist(), a[1].tomemoryview().tolist(), np.asarray(a[0]).tolist()),
    "dlpack": lambda a: np.from_dlpack(a).tolist(),
    "complex parts": lambda a: kerova.double([[1j, 2]], is_complex=True)[0].imag(),
}
# From 3.12 on, allocations failing in this one leave the interpreter to crash soon after in its own
# unicodedata.normalize, called from Python code once the operation has returned: it runs where that stays out.
if sys.version_info < (3, 12):
    OPERATIONS["reduce"] = lambda a: (lambda cls, args: cls(*args))(*a.__reduce__())


@pytest.mark.parametrize("operation", OPERATIONS.values(), ids=OPERATIONS)
def test_allocation_failures_raise_memory_error_and_leave_arrays_intact(operation):
    a = kerova.double(ROWS)
    expected = str(operation(a))
    for k in range(200):
        _testcapi.set_nomemory(k, 0)
        try:
            got = str(operation(a))
        except MemoryError:
            got = None
        finally:
            _testcapi.remove_mem_hooks()
        assert str(a) == "[[1.0,2.0,3.0],[4.0,5.0,6.0]]"
        if got is not None:
            assert got == expected and k > 0  # the first allocation failing fails the operation
            break
    else:
        pytest.fail("the operation never succeeded")
