"""What a second block beside each source costs NumPy's own copy, timed as the sweep times clone().

    python bench/two_blocks.py

A kerova array holds two blocks of its elements (the library's and the mirror), and a
clone reads one and writes one, as NumPy's copy does. This runs NumPy alone both ways:
sources held by themselves, and sources held beside a second block of the same size,
written after them. The ratio shows how much of the clone() row's excess at a size is the
footprint of two blocks rather than the clone itself.
"""

import numpy

from sweep import Fresh


def main():
    for exponent in range(4, 8):
        side = round(10 ** (exponent / 2))
        f = numpy.asfortranarray(numpy.arange(side * side, dtype=numpy.float64).reshape(side, side) + 0.5)

        def with_second_block():
            source = f.copy(order="F")
            return source, source.copy(order="F")

        alone = Fresh(lambda: (f.copy(order="F"), None), lambda held: held[0].copy(order="F"), f.nbytes)
        beside = Fresh(with_second_block, lambda held: held[0].copy(order="F"), f.nbytes)
        ratios = [beside.timed(5) / alone.timed(5) for _ in range(3)]
        print(f"1e{exponent}  copy beside a second block / alone: " + "  ".join(f"{r:.2f}" for r in ratios))


if __name__ == "__main__":
    main()
