"""Mixed operations leave resident memory flat: nothing that the module makes for itself
on any road, errors included, stays behind."""

import gc
import pickle

import numpy as np
import pytest

import kerova
from checks import SANITIZED
from support.consumer import Capi, Provider

# Under the sanitizers resident memory says nothing (freed blocks wait in quarantine) and an operation costs twenty
# times as much: a shorter run there is checked by the leak detector at exit instead.
ROUNDS = 200 if SANITIZED else 8_000  # of the 37 operations, in the shorter measured run
# Bytes per operation: a leak of 16 bytes shows as 32 (the allocator's smallest block),
# one stray 1 MiB arena over the run as under 4, a steady run as 0.
SLOPE_LIMIT = 8


def rss_kib():
    with open("/proc/self/status") as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmRSS:"))


def refused(action, error):
    try:
        action()
    except error:
        return
    raise AssertionError("no " + error.__name__)


def mixed_operations():
    """One round of operations on fresh arrays, each entry counting as one operation."""
    capi, provider = Capi(), Provider()
    rows, one = [[1.0, 2.0, 3.0], [4.0, 5.0, 6.0]], np.float64(2.0).tobytes()
    source = np.array([[1 + 2j, 3]], dtype=np.complex128)
    a = b = c = None

    def start():
        nonlocal a, b, c
        a, b, c = kerova.double(rows), kerova.int16([[1, 2], [3, 4]], is_complex=True), kerova.logical(size=(2, 3))

    return [  # 37 operations
        start, lambda: kerova.uint8(b"\x01\x02\x03\x04"), lambda: kerova.int8(vector=[1, 2, 3, 4], size=(2, 2)),
        lambda: kerova.single([[[1, 2]], [[3, 4]]]), lambda: a[1][2] + a[0][::-1][0] + b[1][0].imag,
        lambda: a[1], lambda: a[0:1][0][1:3], lambda: a[0].__setitem__(1, 7.0), lambda: a.__setitem__(1, [4, 5, 6]),
        lambda: a[0].__setitem__(slice(0, 2), [1, 2]), lambda: a.__setitem__(slice(0, 1), [[1, 2, 3]]),
        lambda: b[0].__setitem__(1, 2 + 1j), lambda: [list(row) for row in a], lambda: list(b[::-1]),
        lambda: a == a.clone(), lambda: a[0] != b[0], lambda: a.reshape(3, 2).reshape([2, 3]),
        lambda: a[1].clone(), lambda: b.clone(), lambda: pickle.loads(pickle.dumps(b)),
        lambda: pickle.loads(pickle.dumps(a[1])), lambda: memoryview(a).tolist(), lambda: bytes(memoryview(a[1])),
        lambda: np.asarray(c), lambda: a[0].toarray(), lambda: b.real()[1] + b.imag()[0], lambda: a.noncomplex()[2],
        lambda: capi.array_from_buffer(source), lambda: capi.unwrap(a[1]),
        lambda: capi.wrap(provider.make(3, (1, 1), one, 8)), lambda: (str(b), repr(a[0]), a.size, len(c)),
        # refusals; their messages are the other suites' concern
        lambda: refused(lambda: a[5], IndexError), lambda: refused(lambda: kerova.int8([[1], [1.5]]), TypeError),
        lambda: refused(lambda: a.__setitem__(0, [1, 2]), ValueError),
        lambda: refused(lambda: a.reshape(4, 4), kerova.ShapeError),
        lambda: refused(lambda: kerova.double(vector=[1, [2]]), TypeError),
        lambda: refused(lambda: a[1].__delitem__(0), RuntimeError),
    ]


def rss_growth(operations, rounds):
    """Resident growth in bytes over `rounds` rounds of `operations`."""
    gc.collect()
    before = rss_kib()
    for _ in range(rounds):
        for operation in operations:
            operation()
    gc.collect()
    return 1024 * (rss_kib() - before)


@pytest.mark.slow
def test_mixed_operations_leave_memory_flat():
    # After a warm-up, the growth of a run twice as long less that of the shorter one, per
    # extra operation: what the allocator grows once cancels, what each operation leaves doesn't.
    operations = mixed_operations()
    rss_growth(operations, ROUNDS // 8)
    short = rss_growth(operations, ROUNDS)
    slope = (rss_growth(operations, 2 * ROUNDS) - short) / (ROUNDS * len(operations))
    if not SANITIZED:
        assert slope < SLOPE_LIMIT, f"resident memory grows by {slope:.1f} bytes per operation"
