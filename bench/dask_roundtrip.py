"""Times a round trip of one array through a two-worker Dask cluster, kerova against NumPy.

    python bench/dask_roundtrip.py            # a 1000x1000 double, 9 repeats
    python bench/dask_roundtrip.py --quick    # a 100x100 double, 3 repeats

The cluster is local: two worker processes with one thread each, on 127.0.0.1, the
scheduler's dashboard on a free port. One round trip scatters the array to the first
worker, has the second worker run a task that returns it (so it moves from worker to
worker) and gathers the result to the client: three transfers, each a serialization and
a deserialization. The same is timed for the NumPy array of the same values in the same
run, alternating, and the medians and their ratio (kerova / NumPy) are printed. Needs
the `interop` extra (dask[distributed], NumPy).
"""

import argparse
import statistics
import time

import numpy
from distributed import Client, LocalCluster

import kerova


TARGET = 2.0  # kerova's round trip within twice the NumPy array's


def identity(x):
    return x


def round_trip(client, workers, x):
    """The time of one round trip of `x`, and what came back."""
    start = time.perf_counter()
    sent = client.scatter(x, workers=[workers[0]], direct=True)
    moved = client.submit(identity, sent, workers=[workers[1]], pure=False)
    back = moved.result()
    elapsed = time.perf_counter() - start
    del sent, moved
    return elapsed, back


def measure(side, repeats):
    """The round-trip times of a side x side double, {"kerova": [...], "numpy": [...]},
    alternating, after one untimed trip each (imports, connections)."""
    reference = numpy.asfortranarray(numpy.arange(side * side, dtype=numpy.float64).reshape(side, side))
    array = kerova.double(reference)
    with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, host="127.0.0.1",
                      dashboard_address="127.0.0.1:0") as cluster, Client(cluster) as client:
        workers = sorted(client.scheduler_info()["workers"])
        samples = {"kerova": [], "numpy": []}
        for x in (array, reference):
            round_trip(client, workers, x)
        for _ in range(repeats):
            for name, x in (("kerova", array), ("numpy", reference)):
                elapsed, back = round_trip(client, workers, x)
                assert type(back) is type(x) and bytes(memoryview(back)) == bytes(memoryview(x))
                samples[name].append(elapsed)
    return samples


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--quick", action="store_true", help="a small array and few repeats")
    options = parser.parse_args()
    side, repeats = (100, 3) if options.quick else (1000, 9)
    samples = measure(side, repeats)

    kerova_time, numpy_time = statistics.median(samples["kerova"]), statistics.median(samples["numpy"])
    print(f"round trip of a {side}x{side} double through 2 workers, medians of {repeats}")
    print(f"  kerova  {kerova_time * 1e3:8.2f} ms   (each: {' '.join(f'{t * 1e3:.1f}' for t in samples['kerova'])})")
    print(f"  numpy   {numpy_time * 1e3:8.2f} ms   (each: {' '.join(f'{t * 1e3:.1f}' for t in samples['numpy'])})")
    pairs = " ".join(f"{k / n:.2f}" for k, n in zip(samples["kerova"], samples["numpy"]))
    print(f"  ratio   {kerova_time / numpy_time:8.2f}   (each: {pairs}; target {TARGET:.2f})")


if __name__ == "__main__":
    main()
