"""Reading by index, slices and slices of slices, nested lists and text."""

import gc
import math
import random

import pytest

import kerova

KINDS = ["double", "single", "int8", "uint8", "int16", "uint16",
         "int32", "uint32", "int64", "uint64", "logical"]


def rss_kib():
    with open("/proc/self/status") as status:
        for line in status:
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
    raise RuntimeError("no VmRSS")


def values(x):
    """What an array or partial array stands for, as nested Python lists."""
    return eval(str(x))  # the text is the nested list without blanks


@pytest.fixture
def a23():
    return kerova.double([[1, 2, 3], [4, 5, 6]])


@pytest.mark.parametrize("cls, init, is_complex, expected", [
    ("double", 2.5, False, 2.5),
    ("single", 0.1, False, 0.10000000149011612),
    ("int8", -128, False, -128),
    ("uint8", 255, False, 255),
    ("int16", -32768, False, -32768),
    ("uint16", 65535, False, 65535),
    ("int32", -2**31, False, -2**31),
    ("uint32", 2**32 - 1, False, 2**32 - 1),
    ("int64", -2**63, False, -2**63),
    ("uint64", 2**64 - 1, False, 2**64 - 1),
    ("logical", 1, False, True),
    ("logical", 0, False, False),
    ("double", 1 - 2j, True, 1 - 2j),
    ("int8", -3, True, -3 + 0j),
    ("uint64", 2**53 + 1, True, complex(2**53)),  # both parts go through double
])
def test_scalar_read_type_follows_kind(cls, init, is_complex, expected):
    a = getattr(kerova, cls)([[0, init]], is_complex=is_complex)
    value = a[0][1]
    assert value == expected and type(value) is type(expected)


@pytest.mark.parametrize("cls", KINDS)
def test_reads_follow_row_order_of_initializer(cls):
    rows = [[1, 0, 1], [0, 1, 1]]
    a = getattr(kerova, cls)(rows)
    assert [[a[i][j] for j in range(3)] for i in range(2)] == rows
    assert [[x for x in row] for row in a] == rows


def test_partial_arrays_and_lengths(a23):
    assert len(a23) == 2 and len(a23[1]) == 3
    assert type(a23[1]) is kerova.double
    assert a23[1][2] == 6.0 and a23[True][0] == 4.0 and a23[-2][-1] == 3.0
    row = kerova.double([1, 2, 3])
    assert row.size == (1, 3) and len(row[0]) == 3 and row[0][1] == 2.0


@pytest.mark.parametrize("chain, index", [
    (lambda a: a[2], 2), (lambda a: a[-3], -3), (lambda a: a[0][3], 3),
    (lambda a: a[0][-4], -4), (lambda a: a[5:9][0], 0), (lambda a: a[0][1:3][2], 2),
    (lambda a: a[0][1:3][-3], -3), (lambda a: a[1:1][0], 0),
])
def test_index_out_of_range(a23, chain, index):
    with pytest.raises(IndexError) as error:
        chain(a23)
    assert str(error.value) == f"index has an invalid value: {index}"


@pytest.mark.parametrize("chain", [
    lambda a: a[2**70], lambda a: a[0][2**70], lambda a: a[0][-2**70], lambda a: a[0][1:3][2**64],
])
def test_index_beyond_64_bits_raises_overflow(a23, chain):
    with pytest.raises(OverflowError):
        chain(a23)
    assert a23[1][2] == 6.0  # the interpreter's error state is clean again


@pytest.mark.parametrize("index", [(1, 2), Ellipsis, None, [1, 2], 1.0, "x"])
def test_index_forms_refused(a23, index):
    with pytest.raises(RuntimeError, match=r"^index is not an integer or slice\.$"):
        a23[index]


@pytest.mark.parametrize("chain, error, message", [
    (lambda a: a[::0], ValueError, "slice step cannot be zero."),
    (lambda a: a[0][::0], ValueError, "slice step cannot be zero."),
    (lambda a: a[::1.5], ValueError, "slice step cannot be zero."),
    (lambda a: a[1.5:], TypeError, None),
    (lambda a: a[0][:"x"], TypeError, None),
])
def test_slice_errors(a23, chain, error, message):
    with pytest.raises(error) as raised:
        chain(a23)
    if message:
        assert str(raised.value) == message


def test_slices_are_partial_arrays(a23):
    assert values(a23[0:1]) == [[1, 2, 3]] and len(a23[0:1]) == 1
    assert values(a23[0:1][0]) == [1, 2, 3]
    assert len(a23[5:9]) == 0 and values(a23[5:9]) == []
    assert a23[::-1][0][0] == 4.0 and a23[::-1][-1][0] == 1.0
    assert a23[0][1:3][1] == 3.0
    assert type(a23[0][2:3]) is kerova.double and len(a23[0][2:3]) == 1


ROW = list(range(10))

# Chains of slices and integers on a row of ten; the expected values are Python's.
SLICE_CHAINS = [
    "[1:8]", "[::-1]", "[::3]", "[-3:]", "[8:2:-2]", "[2:2]", "[2:2:-1]", "[3:1]",
    "[1:8][::-1]", "[::-1][::2]", "[1:5][::-1]", "[::2][1:]", "[::2][::-1]", "[2:2][0:1]",
    "[1:5][10:]", "[1:9][2:6][::-1]", "[::-1][1:-1][::3]", "[7:0:-2][1:]", "[::-1][3]",
    "[1:8][::-1][2]", "[::3][-1]", "[2:9][::2][::-1][0]", "[5:][::-2]", "[0:10:4][::-1][1:]",
]


@pytest.mark.parametrize("chain", SLICE_CHAINS)
def test_slice_chains_read_like_python_lists(chain):
    row = kerova.int32([ROW])[0]
    expected = eval("ROW" + chain)
    got = eval("row" + chain)
    if isinstance(expected, list):
        assert values(got) == expected and len(got) == len(expected)
        assert [x for x in got] == expected
    else:
        assert got == expected


def test_slice_of_first_dimension_then_integers():
    a = kerova.int16([[r * 10 + c for c in range(4)] for r in range(6)])
    assert values(a[1:5][::-1][1]) == [30, 31, 32, 33]
    assert values(a[::-2]) == [[50, 51, 52, 53], [30, 31, 32, 33], [10, 11, 12, 13]]
    assert a[4:0:-1][2][1:][::-1][0] == 23
    assert len(a[::-2]) == 3


@pytest.mark.parametrize("make, text, rep", [
    (lambda: kerova.double([[1, 2], [3, 4]]), "[[1.0,2.0],[3.0,4.0]]", "kerova.double([[1.0,2.0],[3.0,4.0]])"),
    (lambda: kerova.int8([[1, 2], [3, 4]]), "[[1,2],[3,4]]", "kerova.int8([[1,2],[3,4]])"),
    (lambda: kerova.logical([[1, 0]]), "[[True,False]]", "kerova.logical([[True,False]])"),
    (lambda: kerova.double([[1 + 2j]], is_complex=True), "[[(1+2j)]]",
     "kerova.double([[(1+2j)]], is_complex=True)"),
    (lambda: kerova.double([1, 2, 3]), "[[1.0,2.0,3.0]]", "kerova.double([[1.0,2.0,3.0]])"),
    (lambda: kerova.double(), "[]", "kerova.double([])"),
    (lambda: kerova.double(vector=[]), "[[]]", "kerova.double([[]])"),
    (lambda: kerova.double([[1, 2], [3, 4]])[1], "[3.0,4.0]", "kerova.double([3.0,4.0])"),
    (lambda: kerova.double([[1, 2], [3, 4]])[0:1], "[[1.0,2.0]]", "kerova.double([[1.0,2.0]])"),
    (lambda: kerova.int8([[-1]]), "[[-1]]", "kerova.int8([[-1]])"),
    (lambda: kerova.int8([[1, -2]], is_complex=True), "[[(1+0j),(-2+0j)]]",
     "kerova.int8([[(1+0j),(-2+0j)]], is_complex=True)"),
    (lambda: kerova.single([[0.1]]), "[[0.10000000149011612]]", "kerova.single([[0.10000000149011612]])"),
    (lambda: kerova.double([[float("inf"), float("nan"), -0.0]]), "[[inf,nan,-0.0]]",
     "kerova.double([[inf,nan,-0.0]])"),
    (lambda: kerova.uint64([[2**64 - 1]]), "[[18446744073709551615]]", "kerova.uint64([[18446744073709551615]])"),
    (lambda: kerova.double(size=(2, 0)), "[[],[]]", "kerova.double([[],[]])"),
    (lambda: kerova.double(size=(0, 3)), "[]", "kerova.double([])"),
    (lambda: kerova.double(size=(2, 0, 3)), "[[],[]]", "kerova.double([[],[]])"),
    (lambda: kerova.uint8([[1, 2, 3]])[0][::-1], "[3,2,1]", "kerova.uint8([3,2,1])"),
    (lambda: kerova.double([[1, 2]])[0:0], "[]", "kerova.double([])"),
    (lambda: kerova.double([[(1j)]], is_complex=True)[0], "[1j]", "kerova.double([1j], is_complex=True)"),
])
def test_str_and_repr(make, text, rep):
    a = make()
    assert str(a) == text and repr(a) == rep


def test_text_of_three_dimensions_and_large_arrays():
    a = kerova.int32(size=(2, 3, 4))
    assert str(a) == str([[[0] * 4] * 3] * 2).replace(" ", "")
    rows = [[float(i * 37 + j) / 7 for j in range(53)] for i in range(41)]
    b = kerova.double(rows)
    assert str(b) == str(rows).replace(" ", "")
    assert str(b[3:40:5]) == str(rows[3:40:5]).replace(" ", "")
    assert str(b[7][::-3]) == str(rows[7][::-3]).replace(" ", "")


SPECIAL_FLOATS = [0.0, -0.0, math.inf, -math.inf, math.nan, 1e16, 1.5e16, 1e-5, 1e-4, 0.1, 1 / 3,
                  9999999999999998.0, 5e-324, 1.7976931348623157e308, 123456789012345680.0, -2.5, 1e22]


@pytest.mark.parametrize("cls, is_complex", [
    ("double", False), ("single", False), ("double", True), ("single", True),
    ("int64", False), ("uint64", False), ("int8", True), ("uint64", True), ("logical", False),
])
def test_text_is_the_repr_of_the_scalars_read(cls, is_complex):
    rng = random.Random(cls)
    if cls in ("double", "single"):
        pool = SPECIAL_FLOATS + [rng.uniform(-1e6, 1e6) * 10.0 ** rng.randint(-40, 40) for _ in range(200)]
    else:
        pool = [0, 1, 2, 7, 100, 127] + [rng.randrange(-128, 128) for _ in range(50)]
        if cls.startswith("u"):
            pool = [abs(v) for v in pool] + [2**53 + 1, 2**63, 2**64 - 1] * (cls == "uint64")
        elif cls == "int64":
            pool += [-2**63, 2**63 - 1]
        elif cls == "logical":
            pool = [0, 1]
    if is_complex:
        pool = [complex(rng.choice(pool), rng.choice(pool)) for _ in range(120)]
        if cls in ("double", "single"):
            pool += [complex(-0.0, 1), complex(0.0, -0.0), complex(math.nan, math.nan), complex(0, math.inf)]
    rows = [[rng.choice(pool) for _ in range(9)] for _ in range(7)]
    a = getattr(kerova, cls)(rows, is_complex=is_complex)
    read = [[x for x in row] for row in a]
    assert str(a) == str(read).replace(" ", "")
    assert str(a[2][::-2]) == str(read[2][::-2]).replace(" ", "")


def test_partial_array_outlives_parent(a23):
    b = a23[1]
    del a23
    gc.collect()
    assert values(b) == [4, 5, 6]


def test_records_beyond_a_reshaped_store_are_refused():
    a = kerova.double([[1], [2], [3], [4], [5], [6]])
    b = a[5]
    a.reshape(1, 6)
    for read in (lambda: b[0], lambda: str(b), lambda: list(b)):
        with pytest.raises(IndexError, match="index has an invalid value: 5"):
            read()


@pytest.mark.rss
def test_reads_do_not_grow_memory():
    a = kerova.double([[float(i * 8 + j) for j in range(8)] for i in range(8)])
    c = kerova.double([[1 + 1j] * 8] * 8, is_complex=True)

    def reads():
        total = 0.0
        for k in range(100000):
            total += a[k % 8][k % 7] + a[k % 8][1:7][k % 6] + c[k % 8][k % 5].imag
            a[::-1][k % 8]
        return total

    reads()
    before = rss_kib()
    reads()
    assert rss_kib() - before < 2048
