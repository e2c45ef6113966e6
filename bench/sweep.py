"""Ratios kerova / reference for each workload at every size, from 10^2 to 10^7 elements.

    python bench/sweep.py                 # 10^2 .. 10^7 elements
    python bench/sweep.py --quick         # 10^2 .. 10^5, fewer repeats
    python bench/sweep.py --only clone str
    python bench/sweep.py --plot sweep.png  # also a picture: ratio against size, targets drawn in

A ratio at one size hides allocator, cache and fixed costs at the others, so every
workload runs on square arrays of each size, against its reference in the same run.
Each time is the median of several samples, a sample repeating the call until it takes
a few milliseconds. A ratio above the workload's target is marked with '*'. The per-call rows that follow
time single calls on 3x3 arrays, where the fixed cost of a call is all there is.
"""

import argparse
import pickle
import random
import statistics
import time

import numpy

import kerova

TARGETS = {
    "F buffer -> double": 2.0, "C buffer -> double": 1.5, "nested floats -> double": 0.5, "clone()": 1.0,
    "a == b": 1.0, "numpy.asarray(a)": 1.2, "iterate": 0.7, "random reads": 0.7, "pickle round trip": 1.6,
    "str(a)": 1.2,
}


class Fresh:
    """A call timed on objects that have not had it before, `act(make())`, with the making left out: a clone
    keeps what it made for the next clone of the same object, so timing one object over and over would time
    that kept copy. The objects are made in batches of at most a thousand and 4 MiB of elements (`nbytes`
    each), so that both sides read sources of the same warmth, as a program that has just made them would."""

    def __init__(self, make, act, nbytes):
        self.make, self.act = make, act
        self.batch = max(1, min(1000, (4 << 20) // nbytes))

    def timed(self, repeats):
        source = self.make()
        start = time.perf_counter()
        self.act(source)
        calls = max(1, int(5e-3 / max(time.perf_counter() - start, 1e-7)) + 1)
        samples = []
        for _ in range(repeats):
            elapsed, done = 0.0, 0
            while done < calls:
                sources = [self.make() for _ in range(self.batch)]
                start = time.perf_counter()
                for source in sources:
                    self.act(source)
                elapsed += time.perf_counter() - start
                done += len(sources)
                del sources
            samples.append(elapsed / done)
        return statistics.median(samples)


def timed(fn, repeats):
    """Median seconds per call; each sample runs the call until it took at least 5 ms."""
    if isinstance(fn, Fresh):
        return fn.timed(repeats)
    calls, elapsed = 1, 0.0
    while True:
        start = time.perf_counter()
        for _ in range(calls):
            fn()
        elapsed = time.perf_counter() - start
        if elapsed >= 5e-3:
            break
        calls *= 2 if elapsed == 0 else max(2, min(100, int(5e-3 / elapsed) + 1))
    samples = [elapsed / calls]
    for _ in range(repeats - 1):
        start = time.perf_counter()
        for _ in range(calls):
            fn()
        samples.append((time.perf_counter() - start) / calls)
    return statistics.median(samples)


def pairs(side):
    """(workload, kerova call, reference call) for square arrays of `side` x `side`."""
    x = numpy.arange(side * side, dtype=numpy.float64).reshape(side, side) + 0.5
    f = numpy.asfortranarray(x)
    floats = x.tolist()
    floats_copy = [[v + 0.0 for v in row] for row in floats]
    a, b = kerova.double(floats), kerova.double(floats)
    view = memoryview(x)
    rng = random.Random(1)
    positions = [(rng.randrange(side), rng.randrange(side)) for _ in range(1000)]

    def reads(target):
        for i, j in positions:
            target[i][j]

    def iterate(target):
        for row in target:
            for _ in row:
                pass

    return [
        ("F buffer -> double", lambda: kerova.double(f), lambda: f.copy(order="F")),
        ("C buffer -> double", lambda: kerova.double(x), lambda: numpy.array(x, order="F")),
        ("nested floats -> double", lambda: kerova.double(floats), lambda: numpy.array(floats)),
        ("clone()", Fresh(lambda: kerova.double(f), kerova.double.clone, f.nbytes),
         Fresh(lambda: f.copy(order="F"), lambda source: source.copy(order="F"), f.nbytes)),
        ("a == b", lambda: a == b, lambda: floats == floats_copy),
        ("numpy.asarray(a)", lambda: numpy.asarray(a), lambda: numpy.asarray(view)),
        ("iterate", lambda: iterate(a), lambda: iterate(x)),
        ("random reads", lambda: reads(a), lambda: reads(x)),
        ("pickle round trip", lambda: pickle.loads(pickle.dumps(a)), lambda: pickle.loads(pickle.dumps(floats))),
        ("str(a)", lambda: str(a), lambda: str(floats)),
    ]


PER_CALL_TARGETS = {
    "from a list": 1.0, "from an ndarray": 1.0, "size=(3, 3)": 1.5, "clone()": 1.0, "a == b": 1.5,
}


def per_call_pairs():
    """(call, kerova call, reference call) on 3 x 3 arrays."""
    floats = [[1.5, 2.5, 3.5], [4.5, 5.5, 6.5], [7.5, 8.5, 9.5]]
    floats_copy = [list(row) for row in floats]
    x = numpy.array(floats)
    a, b = kerova.double(floats), kerova.double(floats)
    return [
        ("from a list", lambda: kerova.double(floats), lambda: numpy.array(floats)),
        ("from an ndarray", lambda: kerova.double(x), lambda: numpy.array(x, order="F")),
        ("size=(3, 3)", lambda: kerova.double(size=(3, 3)), lambda: numpy.zeros((3, 3))),
        ("clone()", Fresh(lambda: kerova.double(x), kerova.double.clone, x.nbytes),
         Fresh(x.copy, numpy.ndarray.copy, x.nbytes)),
        ("a == b", lambda: a == b, lambda: floats == floats_copy),
    ]


def plot(rows, exponents, path):
    """A PNG of each workload's ratio against size on log axes, its target dashed."""
    import matplotlib  # an optional benchmark dependency

    matplotlib.use("Agg")
    from matplotlib import pyplot

    figure, axes = pyplot.subplots(figsize=(9, 5.5))
    sizes = [10 ** e for e in exponents]
    for name, ratios in rows.items():
        line, = axes.plot(sizes, [ratios[e] for e in exponents], marker="o", label=name)
        axes.axhline(TARGETS[name], color=line.get_color(), linestyle="--", linewidth=0.8)
    axes.set(xscale="log", yscale="log", xlabel="elements", ylabel="time kerova / reference",
             title="kerova against its references (dashed: each workload's target)")
    axes.legend(fontsize="small", ncol=2)
    figure.tight_layout()
    figure.savefig(path, dpi=110)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--quick", action="store_true", help="sizes up to 10^5, three samples")
    parser.add_argument("--only", nargs="+", metavar="WORD", help="workloads whose name holds one of these words")
    parser.add_argument("--plot", metavar="PATH", help="also write a PNG of the ratios (needs matplotlib)")
    args = parser.parse_args()
    exponents = range(2, 6) if args.quick else range(2, 8)
    repeats = 3 if args.quick else 5
    sides = {e: round(10 ** (e / 2)) for e in exponents}

    rows = {}
    for e, side in sides.items():
        for name, ours, reference in pairs(side):
            if args.only and not any(word in name for word in args.only):
                continue
            rows.setdefault(name, {})[e] = timed(ours, repeats) / timed(reference, repeats)
    print(f"{'workload':26} {'target':>6}" + "".join(f"{'1e%d' % e:>8}" for e in exponents))
    for name, ratios in rows.items():
        cells = "".join(f"{ratios[e]:7.2f}{'*' if ratios[e] > TARGETS[name] else ' '}" for e in exponents)
        print(f"{name:26} {TARGETS[name]:6.1f}{cells}")

    print(f"\n{'per call, 3x3':26} {'target':>6} {'ratio':>7} {'kerova':>9} {'reference':>10}")
    for name, ours, reference in per_call_pairs():
        if args.only and not any(word in name for word in args.only):
            continue
        mine, theirs = timed(ours, repeats), timed(reference, repeats)
        mark = "*" if mine / theirs > PER_CALL_TARGETS[name] else " "
        print(f"{name:26} {PER_CALL_TARGETS[name]:6.1f} {mine / theirs:6.2f}{mark} {mine * 1e9:7.0f}ns {theirs * 1e9:8.0f}ns")

    if args.plot:
        plot(rows, exponents, args.plot)
        print(f"plot: {args.plot}")


if __name__ == "__main__":
    main()
