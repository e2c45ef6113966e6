"""Benchmarks kerova against NumPy (or a plain copy) in the same run.

    python bench/run.py            # full sizes
    python bench/run.py --quick    # small sizes, proves the suite runs
    python bench/run.py --json out.json

Each workload is timed for kerova and for its reference; the table shows the medians,
their ratio (kerova / reference) and whether the target ratio is met. Memory is measured
as resident set size in child processes, since tracemalloc does not see native memory.
"""

import argparse
import json
import os
import pickle
import random
import statistics
import subprocess
import sys
import time
from dataclasses import dataclass
from typing import Callable

import numpy

import kerova


@dataclass
class Workload:
    name: str
    size: str
    kerova: Callable[[], object]
    reference: Callable[[], object]
    target: float


def median_time(fn, repeats, inner=1):
    samples = []
    for _ in range(repeats):
        start = time.perf_counter()
        for _ in range(inner):
            fn()
        samples.append((time.perf_counter() - start) / inner)
    return statistics.median(samples)


def nested_floats(rows, cols):
    return [[float(r * cols + c) + 0.5 for c in range(cols)] for r in range(rows)]


def workloads(quick):
    n = 200 if quick else 1000                # side of the square workloads
    big = 10**5 if quick else 10**7           # element count of the buffer workloads
    reads = 10**4 if quick else 10**5
    rng = random.Random(1)

    floats = nested_floats(n, n)
    ints = [[r * n + c for c in range(n)] for r in range(n)]
    c_ordered = numpy.arange(big, dtype=numpy.float64).reshape(big // 100, 100)
    f_ordered = numpy.asfortranarray(c_ordered)
    big_array = kerova.double(f_ordered)
    small_array = kerova.double(numpy.arange(10, dtype=numpy.float64).reshape(2, 5))
    square = kerova.double(floats)
    square_np = numpy.array(floats)
    other = kerova.double(floats)
    positions = [(rng.randrange(n), rng.randrange(n)) for _ in range(reads)]
    floats_copy = [[x + 0.0 for x in row] for row in floats]   # equal values, distinct float objects
    target = kerova.double(floats)     # written by the write workloads, so `square` stays equal to `other`
    target_np = numpy.array(floats)
    written = kerova.double(size=(1000, 1000))
    written_small = kerova.double(size=(10, 10))
    reshaped = kerova.double(f_ordered)
    shapes = [(big // 100, 100), (100, big // 100)]
    flip = [0]

    def read_kerova():
        a = square
        for i, j in positions:
            a[i][j]

    def read_numpy():
        b = square_np
        for i, j in positions:
            b[i][j]

    def write_kerova():
        a = target
        for i, j in positions:
            a[i][j] = 1.5

    def write_numpy():
        b = target_np
        for i, j in positions:
            b[i][j] = 1.5

    def iterate(a):
        for row in a:
            for _ in row:
                pass

    def reshape_kerova():
        flip[0] ^= 1
        reshaped.reshape(*shapes[flip[0]])

    return [
        Workload("nested floats -> double", f"{n}x{n}", lambda: kerova.double(floats),
                 lambda: numpy.array(floats), 0.5),
        Workload("nested ints -> int64", f"{n}x{n}", lambda: kerova.int64(ints),
                 lambda: numpy.array(ints, dtype=numpy.int64), 0.5),
        Workload("C-ordered float64 buffer -> double", f"{big:.0e}", lambda: kerova.double(c_ordered),
                 lambda: numpy.array(c_ordered, order="F"), 1.5),
        Workload("F-ordered float64 buffer -> double", f"{big:.0e}", lambda: kerova.double(f_ordered),
                 lambda: f_ordered.copy(order="F"), 2.0),
        Workload("numpy.asarray(a) (vs 10 elements)", f"{big:.0e}", lambda: numpy.asarray(big_array),
                 lambda: numpy.asarray(small_array), 1.2),
        Workload("random reads a[i][j]", f"{reads} in {n}x{n}", read_kerova, read_numpy, 0.7),
        Workload("random writes a[i][j] = v", f"{reads} in {n}x{n}", write_kerova, write_numpy, 1.0),
        Workload("one write (vs 10^2 elements)", "10^6", lambda: written.__getitem__(500).__setitem__(500, 2.0),
                 lambda: written_small.__getitem__(5).__setitem__(5, 2.0), 1.5),
        Workload("for row in a: for x in row", f"{n}x{n}", lambda: iterate(square),
                 lambda: iterate(square_np), 0.7),
        Workload("a == b (vs nested lists)", f"{n}x{n}", lambda: square == other,
                 lambda: floats == floats_copy, 1.0),
        Workload("pickle dumps+loads (vs nested list)", f"{n}x{n}",
                 lambda: pickle.loads(pickle.dumps(square)), lambda: pickle.loads(pickle.dumps(floats)), 1.3),
        Workload("str(a) (vs nested list)", f"{n}x{n}", lambda: str(square), lambda: str(floats), 1.2),
        Workload("a.reshape(...) (vs x.copy())", f"{big:.0e}", reshape_kerova, lambda: c_ordered.copy(), 1.0),
    ]


MEMORY_PROBE = r"""
import json, sys, numpy, kerova
def status(field):
    for line in open("/proc/self/status"):
        if line.startswith(field):
            return int(line.split()[1]) * 1024
n = int(sys.argv[1]); road = sys.argv[2]
source = numpy.arange(n, dtype=numpy.float64).reshape(n // 100, 100) if road == "buffer" else \
    [float(i) for i in range(n)]
kerova.double(source[:100] if road == "buffer" else source[:100])  # faults in the code of this road first
before = status("VmRSS:")
with open("/proc/self/clear_refs", "w") as f:   # resets the high-water mark
    f.write("5")
a = kerova.double(source)
print(json.dumps({"held": status("VmRSS:") - before, "peak": status("VmHWM:") - before}))
"""


def memory_report(quick):
    n = 10**5 if quick else 10**7
    rows = []
    for road, limit_name, factor in [("buffer", "peak", 4), ("buffer", "held", 2), ("list", "held", 2)]:
        out = subprocess.run([sys.executable, "-c", MEMORY_PROBE, str(n), road],
                             capture_output=True, text=True, check=True).stdout
        measured = json.loads(out)[limit_name]
        limit = factor * n * 8 + 64 * 1024
        rows.append({"road": road, "measure": limit_name, "elements": n, "bytes": measured,
                     "limit": limit, "met": measured <= limit})
    return rows


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--quick", action="store_true", help="small sizes and few repeats")
    parser.add_argument("--json", metavar="PATH", help="also write the results as JSON")
    args = parser.parse_args()
    repeats = 3 if args.quick else 7

    results = []
    # Quick mode proves that the suite runs: at its small sizes a ratio says little, so no
    # verdict is printed.
    verdicts = not args.quick
    print(f"{'workload':40} {'size':>16} {'kerova':>11} {'reference':>11} {'ratio':>7} {'target':>7}"
          + ("  met" if verdicts else ""))

    def report(name, size, ours, theirs, target):
        ratio = ours / theirs if theirs > 0 else float("inf")
        met = ratio <= target
        results.append({"workload": name, "size": size, "kerova_s": ours, "reference_s": theirs,
                        "ratio": ratio, "target": target, "met": met})
        print(f"{name:40} {size:>16} {ours * 1e3:9.3f}ms {theirs * 1e3:9.3f}ms {ratio:7.2f} "
              f"{target:7.2f}" + (f"  {'yes' if met else 'NO'}" if verdicts else ""))

    for w in workloads(args.quick):
        report(w.name, w.size, median_time(w.kerova, repeats), median_time(w.reference, repeats), w.target)

    # The Dask round trip where Dask's distributed scheduler is installed: a cluster of two
    # worker processes, timed alternately with NumPy (bench/dask_roundtrip.py).
    try:
        import dask_roundtrip
    except ImportError:
        print(f"{'Dask round trip':40} skipped: dask[distributed] is not installed")
    else:
        side, trips = (100, 3) if args.quick else (1000, 9)
        samples = dask_roundtrip.measure(side, trips)
        report("Dask round trip (vs the ndarray)", f"{side}x{side}", statistics.median(samples["kerova"]),
               statistics.median(samples["numpy"]), dask_roundtrip.TARGET)

    memory = memory_report(args.quick)
    print()
    print(f"{'memory':32} {'elements':>10} {'MiB':>9} {'limit MiB':>10}" + ("  met" if verdicts else ""))
    for row in memory:
        print(f"{row['road'] + ' construction, ' + row['measure']:32} {row['elements']:>10} "
              f"{row['bytes'] / 2**20:9.1f} {row['limit'] / 2**20:10.1f}"
              + (f"  {'yes' if row['met'] else 'NO'}" if verdicts else ""))

    if args.json:
        with open(args.json, "w") as f:
            json.dump({"machine": os.uname().machine, "cpus": os.cpu_count(), "timings": results,
                       "memory": memory}, f, indent=2)


if __name__ == "__main__":
    main()
