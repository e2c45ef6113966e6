"""Dask's distributed scheduler moves the arrays as their raw bytes, and tokenizes them by
their bytes. The cluster runs on 127.0.0.1 only, with two worker processes."""

import pickle
import sys

import numpy as np
import pytest

import kerova
from checks import FORM_IDS, FORMS, SANITIZED, python
from model import RANGES

if SANITIZED:  # Dask keeps what its start-up allocates; the leak check would report it
    pytest.skip("Dask is not imported under the sanitizer", allow_module_level=True)
distributed = pytest.importorskip("distributed")
from dask.tokenize import tokenize  # noqa: E402
from distributed.protocol import deserialize, serialize  # noqa: E402
from distributed.protocol.serialize import merge_and_deserialize, serialize_and_split  # noqa: E402


def sample(kind, is_complex):
    """A 2x3 array of `kind` with the extremes of its range (for complex int64 and uint64,
    of what a double holds exactly)."""
    if kind == "logical":
        return kerova.logical([[True, False, True], [False, False, True]])
    low, high = RANGES.get(kind, (-1.5e30, 2.5e-30))
    if is_complex and kind in ("int64", "uint64"):
        low, high = max(low, -2**53), min(high, 2**53)
    if is_complex:
        return getattr(kerova, kind)([[complex(low, high), 1, 2j], [complex(high, low), 0, 3 + 4j]], is_complex=True)
    return getattr(kerova, kind)([[low, 1, 2], [high, 0, 3]])


def same_array(a, b):
    return (type(a) is type(b) and a._is_complex == b._is_complex and a.size == b.size
            and memoryview(a).tobytes("A") == memoryview(b).tobytes("A"))


@pytest.mark.parametrize("kind, is_complex", FORMS, ids=FORM_IDS)
def test_every_form_goes_by_its_bytes_and_comes_back_exact(kind, is_complex, monkeypatch):
    a = sample(kind, is_complex)
    part = a[1]  # comes back as pickle brings it: a whole array of its buffer's shape, (1, 3)
    for x in (a, part, a.clone().reshape((3, 1, 2)), getattr(kerova, kind)(size=(0, 3), is_complex=is_complex)):
        header, frames = serialize(x)
        assert header["serializer"] == "dask" and len(frames) == 1
        if x is a:  # the frame of a whole array is its memory, not a copy
            assert np.frombuffer(frames[0], dtype=np.uint8).ctypes.data == a.buffer_info()[0]
        assert header["sub-header"] == {"class": kind, "is_complex": is_complex, "shape": list(memoryview(x).shape)}
        assert bytes(frames[0]) == memoryview(x).tobytes("F")  # a partial array sends its buffer's snapshot
        expected = pickle.loads(pickle.dumps(x)) if x is part else x
        assert same_array(deserialize(header, frames), expected)
        header, frames = serialize_and_split(x)  # as on the wire: the frames come back as bytes
        assert same_array(merge_and_deserialize(header, [bytes(f) for f in frames]), expected)
    header, frames = serialize(a)
    monkeypatch.setitem(sys.modules, "numpy", None)  # and without NumPy, complex parts included
    assert same_array(deserialize(header, [bytes(f) for f in frames]), a)


def test_tokens_follow_class_flag_shape_and_bytes():
    a = kerova.double([[1, 2], [3, 4]])
    assert tokenize(a) == tokenize(kerova.double([[1, 2], [3, 4]])) == tokenize(a.clone())
    others = [kerova.double([[1, 2], [3, 5]]), kerova.double([[1, 2], [3, 4]], is_complex=True),
              kerova.int64([[1, 2], [3, 4]]), kerova.double([[1, 3, 2, 4]]), a[0]]
    assert len({tokenize(a), *map(tokenize, others)}) == 1 + len(others)


@pytest.mark.parametrize("imports, expected", [
    ("import kerova, distributed", "kerova._dask"), ("import distributed, kerova", "kerova._dask"),
    ("import kerova, dask; import distributed", "kerova._dask"),
    ("import kerova; print([m for m in sys.modules if m.split('.')[0] in ('dask', 'distributed')]); exit()", "[]"),
    ("import types; sys.modules['distributed.protocol.serialize'] = types.SimpleNamespace(dask_serialize=None, "
     "dask_deserialize=None); import kerova; print(kerova.double([[1]])); exit()", "[[1.0]]"),  # a refusing Dask
])
def test_registration_does_not_depend_on_the_order_of_imports_nor_import_dask(imports, expected):
    script = (f"import sys; {imports}\n"
              "from distributed.protocol import serialize\n"
              "assert serialize(kerova.int8([[1]]))[0]['serializer'] == 'dask'\n"
              "from dask.tokenize import normalize_token\n"
              "print(normalize_token.dispatch(kerova.logical).__module__)")
    assert python("-c", script).strip() == expected


@pytest.fixture(scope="module")
def client():
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True, host="127.0.0.1",
                                  dashboard_address="127.0.0.1:0", worker_dashboard_address=None, timeout=60) as cluster, \
            distributed.Client(cluster, timeout=60) as client:
        yield client


def test_arrays_go_from_client_to_worker_to_worker_and_back(client):
    first, second = sorted(client.scheduler_info()["workers"])
    for a in (sample("double", False), sample("single", True), sample("int64", True), sample("logical", False)):
        sent = client.scatter(a, workers=[first])
        moved = client.submit(lambda x: x, sent, workers=[second], allow_other_workers=False, pure=False)
        assert same_array(moved.result(timeout=60), a) and client.who_has([moved])[moved.key] == (second,)
    # The workers imported kerova when the first header named its class, and registered then.
    assert client.run(lambda: sys.modules["kerova"]._dask._PENDING) == {first: {}, second: {}}
