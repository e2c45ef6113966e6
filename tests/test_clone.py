"""clone() beyond the model programs: each element comes back as its Python form gives it back, bit for bit, on
every road (a whole array shares its library array until either side is written to; a part is copied out of the
mirror; 64-bit complex integers go through Python objects); and the copy stays independent of its source through
writes on either side and reshapes."""

import struct

import numpy
import pytest

import kerova
from checks import raises

# float32 bit patterns as stored, and as a clone holds them: the widening to a double quiets a signalling NaN
# (keeping sign and payload), the narrowing back saturates either infinity to +inf.
SINGLE_BITS = [(0x7F800000, 0x7F800000), (0xFF800000, 0x7F800000), (0x7F800001, 0x7FC00001),
               (0xFF800123, 0xFFC00123), (0x7FC00000, 0x7FC00000), (0x80000000, 0x80000000),
               (0x00000001, 0x00000001), (0x7F7FFFFF, 0x7F7FFFFF), (0xFF7FFFFF, 0xFF7FFFFF)]


def words(array):
    raw = bytes(memoryview(array))
    return list(struct.unpack(f"<{len(raw) // 4}I", raw))


@pytest.mark.parametrize("part", ["whole", "row", "slice", "reversed"])
@pytest.mark.parametrize("is_complex", [False, True])
def test_single_elements_come_back_as_their_python_form_gives_them(part, is_complex):
    back = dict(SINGLE_BITS)
    stored = [s for s, _ in SINGLE_BITS]
    if is_complex:  # each element pairs two of the patterns, each part a single of its own
        stored = [w for i, s in enumerate(stored) for w in (s, stored[(i + 4) % len(stored)])]
    width = 2 if is_complex else 1
    n = len(stored) // width
    raw = struct.pack(f"<{len(stored)}I", *stored)
    a = kerova.single(numpy.frombuffer(raw, numpy.complex64 if is_complex else numpy.float32).reshape(1, n),
                      is_complex=is_complex)
    select, positions = {"whole": (lambda x: x, range(n)), "row": (lambda x: x[0], range(n)),
                         "slice": (lambda x: x[0][1:7:2], range(1, 7, 2)),
                         "reversed": (lambda x: x[0][::-1], range(n - 1, -1, -1))}[part]
    assert words(select(a).clone()) == [back[stored[width * p + k]] for p in positions for k in range(width)]
    assert words(a) == stored  # the source keeps its bits


def test_complex_64_bit_integers_come_back_through_a_double():
    a = kerova.int64([[2**62 + 1, -(2**53) - 1, 7]], is_complex=True)
    assert str(a.clone()) == str(kerova.int64([[2**62, -(2**53), 7]], is_complex=True))
    raises(kerova.int64([[2**63 - 1]], is_complex=True).clone, OverflowError)
    raises(kerova.uint64([[2**64 - 1]], is_complex=True)[0].clone, OverflowError)


WRITES = {
    "source written": lambda a, c: a[1].__setitem__(2, 60),
    "clone written": lambda a, c: c[1].__setitem__(2, 60),
    "source reshaped": lambda a, c: a.reshape(3, 2),
    "source reshaped and written": lambda a, c: a.reshape(6, 1)[5].__setitem__(0, 60),
}


@pytest.mark.parametrize("kind", ["double", "int32", "uint8", "logical", "single"])
@pytest.mark.parametrize("write", WRITES, ids=list(WRITES))
def test_a_clone_and_its_source_stay_apart(kind, write):
    rows = [[1, 0, 3], [4, 5, 0]]
    a = getattr(kerova, kind)(rows)
    c = a.clone()
    first = str(a)
    WRITES[write](a, c)
    written = str(getattr(kerova, kind)([[1, 0, 3], [4, 5, 60 if kind != "logical" else 1]]))
    if write == "clone written":
        assert (str(a), str(c)) == (first, written)
    else:
        assert str(c) == first and c.size == (2, 3)
        if write == "source written":
            assert str(a) == written
    # A second clone of the source shows what the first one took, whatever happened since.
    assert str(a.clone()) == first and a.clone().size == (2, 3)
