"""A short guided tour of kerova: ``python -m kerova``.

Every line of the tour is run as a user would type it at the interpreter prompt, and
what comes back is printed under it; a line that raises prints its exception instead.
"""

import os
import pickle
import sys
import textwrap

import kerova

WIDTH = 88


def section(title):
    print()
    print(title)
    print("-" * len(title))


def note(text):
    """A remark of the tour itself, set off like a comment."""
    for line in textwrap.wrap(text, WIDTH - 2):
        print(f"# {line}")


def show(source, namespace):
    """Runs one line of the tour and prints what comes back, or the exception it raised."""
    print(f">>> {source}")
    try:
        try:
            code = compile(source, "<tour>", "eval")
        except SyntaxError:
            # A statement (an assignment): nothing comes back.
            exec(compile(source, "<tour>", "exec"), namespace)
            return
        value = eval(code, namespace)
    except Exception as error:  # the tour shows errors as a user meets them
        answer(f"{type(error).__name__}: {error}")
        return
    answer(repr(value))


def answer(text):
    """Prints a result indented under its line; long lines are folded, line breaks kept."""
    for line in text.splitlines() or [""]:
        if len(line) <= WIDTH - 4:
            print(f"    {line}")
            continue
        for part in textwrap.wrap(line, WIDTH - 4, break_on_hyphens=False, subsequent_indent="  "):
            print(f"    {part}")


def run(lines, namespace):
    """Shows each line; a line that starts with '#' is a remark."""
    for line in lines:
        if line.startswith("#"):
            note(line[1:].strip())
        else:
            show(line, namespace)


def build_flags(which):
    """The compiler flags for a native module that uses kerova's capsule: the include
    directories (kerova's headers and Python's), or the link flags for the provider
    library beside the extension and the run path to it."""
    import sysconfig

    if which == "--includes":
        return f"-I{kerova.get_include()} -I{sysconfig.get_paths()['include']}"
    import kerovamultidimarrayforpython as extension

    site = os.path.dirname(os.path.abspath(extension.__file__))
    return f"-L{site} -lKerovaDataArray -Wl,-rpath,{site}"


def main():
    if sys.argv[1:] == ["--version"]:
        print(f"kerova {kerova.__version__}")
        return 0
    if sys.argv[1:] in (["--includes"], ["--libs"]):
        print(build_flags(sys.argv[1]))
        return 0
    ns = {"kerova": kerova, "pickle": pickle}
    print("kerova: column-major N-dimensional arrays for Python")
    print("A short tour. Each line runs as typed at the prompt; its result is printed below it.")

    section("Construction: nested sequences, size, vector, is_complex")
    run([
        "a = kerova.double([[1, 2, 3], [4, 5, 6]])",
        "a",
        "a.size",
        "# Every array has at least two dimensions: a flat list is a 1-by-n row.",
        "kerova.int8([1, 2, 3]).size",
        "kerova.double(size=(2, 3))",
        "# With size, flat data fills the array column by column.",
        "kerova.double([1, 2, 3, 4, 5, 6], size=(2, 3))",
        "kerova.uint16(vector=[1, 2, 3])",
        "kerova.double([1, 2], is_complex=True)",
        "kerova.logical([[True, False], [0, 1]])",
    ], ns)

    section("Indexing is a chain: a[i][j], and no tuples")
    run([
        "a[1]",
        "a[1][2]",
        "a[-1][::-1]",
        "len(a), len(a[0])",
        "# A slice stays open until the next index: that index picks within the slice,",
        "# and a second slice narrows the same dimension, not the next one.",
        "a[0:2][1]",
        "a[0:2][1:2]",
        "a[1, 2]",
    ], ns)

    section("Storage order is column-major")
    run([
        "# One step down a column is 8 bytes, one step along a row 16.",
        "a.get_bytewise_strides()",
        "m = memoryview(a)",
        "m.format, m.shape, m.strides, m.f_contiguous, m.readonly",
        "# noncomplex() gives the elements as they lie in memory, column by column.",
        "a.noncomplex()",
    ], ns)

    section("Assignment writes through to every view of the array")
    run([
        "row = a[0]",
        "row[1] = 20",
        "a",
        "a[1][0:2] = [40, 50]",
        "a",
        "# The right side must have the exact shape of what it replaces: no broadcasting.",
        "a[0] = [1, 2]",
    ], ns)

    section("Iteration, equality, reshape, clone")
    run([
        "[list(r) for r in a]",
        "a == kerova.double([[1, 20, 3], [40, 50, 6]])",
        "# reshape works in place and keeps the storage order; clone() copies first.",
        "a.clone().reshape(3, 2)",
        "a.reshape(4, 4)",
    ], ns)

    section("NumPy, both ways, without copies where possible")
    try:
        import numpy
    except ImportError:
        note("NumPy is not installed, so this part is skipped: `pip install numpy` to see it.")
    else:
        ns["numpy"] = numpy
        run([
            "# NumPy reads a kerova array in place: a read-only, Fortran-ordered view.",
            "view = numpy.asarray(a)",
            "view.flags.f_contiguous, view.flags.writeable",
            "a[0][0] = 100",
            "view",
            "# kerova copies from NumPy; the element format must match the class exactly.",
            "kerova.int32(numpy.arange(6, dtype=numpy.int32).reshape(2, 3))",
            "kerova.double(numpy.arange(3, dtype=numpy.float32))",
            "kerova.double(numpy.arange(3, dtype=numpy.float32).astype(numpy.float64))",
        ], ns)

    section("Pickling")
    run([
        "# An array pickles as its class and a nested list of its values.",
        "a.__reduce__()",
        "pickle.loads(pickle.dumps(a)) == a",
    ], ns)

    section("The errors met most often")
    run([
        "kerova.int8([1.5])",
        "kerova.uint8([300])",
        "kerova.double([[1, 2], [3]])",
        "kerova.double([1, 2, 3], size=(2, 2))",
        "kerova.double([[1, 2, 3], [4, 5, 6]], size=(3, 2))",
        "a[5]",
        "a < a",
    ], ns)
    print()
    print(f"More in the user guide: {os.path.normpath(kerova.GUIDE)}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
