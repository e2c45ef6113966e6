"""Python code that runs inside a call of the module (a __len__, a garbage-collection callback)
and changes what the call is working on: the call finishes on what it read first, or raises."""

import copy
import gc
import pickle
import sys

import pytest

import kerova
from checks import Lying, python, values


@pytest.mark.parametrize("key, length, item, expected", [
    ("initializer", 2, [1.0, 2.0], [[1, 2], [1, 2]]), ("size", 2, 2, [[0, 0], [0, 0]]), ("vector", 3, 4.0, [[4, 4, 4]]),
])
def test_dictionary_form_keeps_its_values_while_they_are_read(key, length, item, expected):
    keywords = {}
    keywords[key] = Lying([item] * length, lambda: keywords.clear() or length)  # its length empties the dictionary
    assert values(kerova.double(keywords)) == expected and keywords == {}


@pytest.fixture
def reshaping_collector():
    """Every garbage collection reshapes the array that the test gives it between two and
    three dimensions, so that a collection inside an allocation changes the geometry."""
    target, thresholds = [], gc.get_threshold()

    def callback(phase, info):
        if phase == "start" and target:
            target[0].reshape(*((2, 3, 1000) if len(target[0].size) == 2 else (2, 3000)))

    gc.collect()
    gc.callbacks.append(callback)
    gc.set_threshold(1)
    yield target
    gc.callbacks.remove(callback)
    gc.set_threshold(*thresholds)


@pytest.mark.parametrize("read", [lambda a: a.size, lambda a: a.get_bytewise_strides()], ids=["size", "strides"])
def test_geometry_tuples_are_filled_from_one_reading(reshaping_collector, read):
    a = kerova.double(size=(2, 3000))
    reshaping_collector.append(a)
    held = []
    for _ in range(300):
        held.append([[]])  # garbage to collect
        assert read(a) in ((2, 3000), (2, 3, 1000), (8, 16), (8, 16, 48))


REFUSED = "reshape() is not allowed while the array is being read."


@pytest.mark.parametrize("action", [
    lambda a: a.__reduce__()[1][1], lambda a: pickle.loads(pickle.dumps(a)), lambda a: copy.deepcopy(a),
    lambda a: a.clone(), lambda a: a[1].clone(), lambda a: memoryview(a[1]).tolist(), lambda a: a == a.clone(),
    lambda a: [list(row) for row in a],
], ids=["reduce", "pickle", "deepcopy", "clone", "clone-part", "export-part", "equality", "iteration"])
def test_reshape_during_a_walk_is_refused_or_waits(reshaping_collector, action, monkeypatch):
    """A collection inside the walk tries to reshape: the walk refuses it and ends on the
    geometry it started with; a reshape between walks goes through."""
    seen = []
    monkeypatch.setattr(sys, "unraisablehook", lambda u: seen.append(str(u.exc_value)))
    a = kerova.double(vector=range(6000), size=(2, 3000))
    reshaping_collector.append(a)
    [[] for _ in range(50)]  # garbage to collect
    result = action(a)
    assert set(seen) <= {REFUSED}
    if isinstance(result, list) and len(result) == 2 and len(result[0]) == 3000:
        assert result == [[float(2 * j + i) for j in range(3000)] for i in range(2)]
    assert a.size in ((2, 3000), (2, 3, 1000)) and values(a.reshape(2, 3000))[1][:3] == [1.0, 3.0, 5.0]


STRESS = """
import contextlib, gc, pickle, random, sys, threading, kerova
sys.setswitchinterval(1e-6)
arrays = [kerova.double(vector=range(24), size=(2, 3, 4)), kerova.int16(size=(4, 6), is_complex=True)]
shapes = [(2, 3, 4), (4, 6), (6, 4), (24, 1, 1), (3, 8)]
seen = set()

class Cycle:  # cyclic garbage whose __del__ reshapes when the collector finds it
    def __init__(self):
        self.me = self
    def __del__(self):
        with contextlib.suppress(RuntimeError):
            random.choice(arrays).reshape(*random.choice(shapes))

def work(seed):
    rng = random.Random(seed)
    for _ in range(int(sys.argv[1])):
        a = rng.choice(arrays)
        Cycle()
        try:
            part = a[rng.randrange(len(a))]
            rng.choice([
                lambda: str(a), lambda: repr(part), lambda: a == a.clone(), lambda: pickle.loads(pickle.dumps(a)),
                lambda: [list(r) if isinstance(r, type(a)) else r for r in a], lambda: part.size,
                lambda: a.get_bytewise_strides(), lambda: memoryview(part).tolist(),
                lambda: a.reshape(*rng.choice(shapes)), lambda: part.__setitem__(0, part[0]),
            ])()
        except (RuntimeError, IndexError, ValueError, TypeError) as error:
            seen.add(type(error).__name__)

threads = [threading.Thread(target=work, args=(k,)) for k in range(4)]
[t.start() for t in threads]
[t.join() for t in threads]
gc.collect()
print("done", sorted(seen))
"""


def test_threads_and_cyclic_garbage_never_crash():
    assert python("-c", STRESS, "50000").startswith("done")
