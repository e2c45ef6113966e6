"""Initializers that are no buffer but have __dlpack__ or __array__ come in by their data:
exactly as the NumPy array of that data would, values, shapes and refusals alike."""

import sys

import numpy as np
import pytest

import kerova
from checks import failing, incompatible, library, raises


def outcome(action):
    """What a construction gives: the array's text and storage bytes, or the exception's type and text."""
    try:
        a = action()
    except Exception as error:  # noqa: BLE001 - the exception is the outcome
        return type(error), str(error)
    return repr(a), memoryview(a).tobytes("A")


class ByArray:
    def __init__(self, data):
        self.data = data

    def __array__(self, dtype=None, copy=None):  # NumPy 1 passes dtype alone
        return np.asarray(self.data, dtype=dtype)


ByDLPack = type("ByDLPack", (ByArray,), {"__dlpack__": lambda self, **options: self.data.__dlpack__(**options),
                                         "__dlpack_device__": lambda self: self.data.__dlpack_device__()})
NoNumbers = type("NoNumbers", (list,), {"__array__": failing(RuntimeError, "no data today")})
Elsewhere = type("Elsewhere", (ByDLPack,), {"__dlpack__": failing(BufferError, "the data is on another device"),
                                            "__array__": failing(AssertionError, "__array__ must not be called")})


GRID = np.arange(6.0).reshape(2, 3)
ROWS = [  # class, is_complex, the NumPy array of the data
    ("double", False, GRID), ("double", False, np.asfortranarray(GRID)), ("double", False, GRID.T),
    ("double", False, np.arange(4.0).reshape(1, 2, 2, 1)), ("double", False, np.arange(3.0)),
    ("double", False, np.array(2.5)), ("double", False, np.zeros((0, 3))),
    ("single", False, GRID.astype(np.float32)), ("int64", False, np.arange(6).reshape(3, 2)),
    ("uint8", False, np.array([[True, False]])), ("logical", False, np.array([[0, 2], [1, 0]], dtype=np.uint8)),
    ("double", True, np.array([[1 + 2j, -3j], [4, 5.5]])), ("single", True, np.array([[1 + 2j]], dtype=np.complex64)),
    # refusals: the buffer road's own, or NumPy's
    ("double", False, np.arange(3)), ("double", True, GRID), ("int32", False, np.arange(3)),
    ("double", False, GRID[:, ::2]),
]


@pytest.mark.parametrize("offer", [ByArray, ByDLPack])
@pytest.mark.parametrize("kind, is_complex, data", ROWS)
def test_array_likes_come_in_as_the_numpy_array_of_their_data(offer, kind, is_complex, data):
    cls = getattr(kerova, kind)
    assert outcome(lambda: cls(offer(data), is_complex=is_complex)) == outcome(lambda: cls(data, is_complex=is_complex))
    if data.size == 6 and data.ndim == 2:  # flat data and `size` too
        assert outcome(lambda: cls(offer(data.ravel()), size=(3, 2))) == outcome(lambda: cls(data.ravel(), size=(3, 2)))


def test_the_data_is_copied_on_every_road():
    rows = [[0.0, 1.0], [2.0, 3.0]]
    source = np.array(rows)
    made = [kerova.double(initializer) for initializer in (rows, source, ByDLPack(source), ByArray(source))]
    rows[0][0] = source[0, 0] = 100
    assert [repr(a) for a in made] == ["kerova.double([[0.0,1.0],[2.0,3.0]])"] * 4


@pytest.mark.parametrize("initializer, error, message", [
    (NoNumbers([1.0]), RuntimeError, "no data today"),
    (Elsewhere(GRID), BufferError, "the data is on another device"),  # __dlpack__ is taken first
    (ByArray(np.arange(3)), BufferError, incompatible("l", "d")),
    (ByArray(np.array([[1.0, "x"]], dtype=object)), BufferError, incompatible("O", "d")),
])
def test_a_refusal_is_the_objects_or_numpys_and_leaves_arrays_intact(initializer, error, message):
    kept = kerova.double([[1, 2], [3, 4]])
    raises(lambda: kerova.double(initializer), error, message)
    assert repr(kept) == "kerova.double([[1.0,2.0],[3.0,4.0]])"


def test_buffers_kerova_arrays_and_array_likes_without_numpy_keep_their_roads(monkeypatch):
    for name in ("asarray", "from_dlpack"):
        monkeypatch.setattr(np, name, failing(AssertionError, "an initializer with a buffer went through NumPy"))
    assert repr(kerova.double(GRID)) == "kerova.double([[0.0,1.0,2.0],[3.0,4.0,5.0]])"
    # A kerova array is read element by element, converted (the buffer road would refuse 'd' for 'f').
    assert repr(kerova.single(kerova.double([[0.5, 2]]))) == "kerova.single([[0.5,2.0]])"
    monkeypatch.setitem(sys.modules, "numpy", None)  # without NumPy array-likes are read as before
    assert repr(kerova.double(NoNumbers([[1.0], [2.0]]))) == "kerova.double([[1.0],[2.0]])"
    raises(lambda: kerova.double(ByArray(None)), TypeError, "type does not match.")


# answers every attribute, __array__ included, from the instance
Forwarding = type("Forwarding", (list,), {"__getattr__": lambda self, name: lambda *args, **kwargs: np.zeros(1)})


@pytest.mark.parametrize("cls", [Forwarding, type("Own", (list,), {}),
                                 type("OptedOut", (NoNumbers,), {"__array__": None})])
def test_only_a_type_that_defines_the_methods_is_read_by_its_data(cls):
    initializer = cls([[1.0, 2.0]])
    initializer.__array__ = lambda *args, **kwargs: np.zeros(1)  # an instance attribute does not count
    assert repr(kerova.double(initializer)) == "kerova.double([[1.0,2.0]])"


def test_pandas_and_xarray_objects_come_in_as_their_values():
    pandas, xarray = library("pandas"), library("xarray")
    frame = pandas.DataFrame([[1.0, 2.0, 3.0], [4.0, 5.0, 6.0]], columns=["c", "b", "a"])
    assert repr(kerova.double(frame)) == "kerova.double([[1.0,2.0,3.0],[4.0,5.0,6.0]])"
    assert repr(kerova.double(pandas.Series([1.0, 2.0], index=[1, 0]))) == "kerova.double([[1.0,2.0]])"
    labelled = xarray.DataArray(GRID, dims=("y", "x"), coords={"y": [10, 5]})
    assert repr(kerova.double(labelled.T)) == "kerova.double([[0.0,3.0],[1.0,4.0],[2.0,5.0]])"
    for data in (pandas.DataFrame({"i": [1, 2], "j": [3, 4]}), pandas.DataFrame({"x": [1.0], "s": ["t"]})):
        for cls in (kerova.double, kerova.int64):
            assert outcome(lambda: cls(data)) == outcome(lambda: cls(data.to_numpy()))


def test_torch_tensors_come_in_through_dlpack():
    torch = library("torch")
    t = torch.arange(6, dtype=torch.float64).reshape(2, 3)
    for tensor in (t, t.T, t[:, ::2], torch.tensor([[1 + 2j]], dtype=torch.complex128), torch.tensor([[True]]),
                   torch.arange(3), torch.tensor(1.5, dtype=torch.float64)):
        for cls, is_complex in ((kerova.double, False), (kerova.double, True), (kerova.logical, False)):
            assert outcome(lambda: cls(tensor, is_complex=is_complex)) == \
                outcome(lambda: cls(np.from_dlpack(tensor), is_complex=is_complex))
    raises(lambda: kerova.double(torch.ones(1, 1, dtype=torch.float64, requires_grad=True)), BufferError, None)
