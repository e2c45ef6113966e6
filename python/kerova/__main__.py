"""A short guided tour of kerova: ``python -m kerova``."""

import pickle
import textwrap

import kerova


def section(title):
    print()
    print(title)
    print("-" * len(title))


def show(expression, namespace):
    """Evaluates or executes one line of the tour and prints what comes back."""
    try:
        value = eval(expression, namespace)
    except SyntaxError:
        exec(expression, namespace)
        print(f">>> {expression}")
        return
    except Exception as error:  # the tour shows errors as a user meets them
        print(f">>> {expression}")
        print(f"    {type(error).__name__}: {error}")
        return
    print(f">>> {expression}")
    for line in textwrap.wrap(repr(value), 88) or [""]:
        print(f"    {line}")


def main():
    ns = {"kerova": kerova, "pickle": pickle}
    print("kerova: column-major N-dimensional arrays for Python")

    section("Construction: nested sequences, size, vector, is_complex")
    for line in [
        "a = kerova.double([[1, 2, 3], [4, 5, 6]])",
        "a",
        "a.size",
        "kerova.int8([1, 2, 3]).size",
        "kerova.double(size=(2, 3))",
        "kerova.double([1, 2, 3, 4, 5, 6], size=(2, 3))",
        "kerova.uint16(vector=[1, 2, 3])",
        "kerova.double([1, 2], is_complex=True)",
        "kerova.logical([[True, False], [0, 1]])",
    ]:
        show(line, ns)

    section("Indexing is a chain: a[i][j], a slice only in the last place")
    for line in ["a[1]", "a[1][2]", "a[0][::-1]", "a[0:1]", "len(a), len(a[0])", "a[1, 2]"]:
        show(line, ns)

    section("Storage order is column-major")
    for line in ["a.get_bytewise_strides()", "a.noncomplex()", "a.itemsize"]:
        show(line, ns)

    section("Assignment writes through to every view of the array")
    for line in ["row = a[0]", "row[1] = 20", "a", "a[1][0:2] = [40, 50]", "a", "a[0] = [1, 2]"]:
        show(line, ns)

    section("Iteration, equality, reshape, clone")
    for line in [
        "[list(r) for r in a]",
        "a == kerova.double([[1, 20, 3], [40, 50, 6]])",
        "a.clone().reshape(3, 2)",
        "a.reshape(4, 4)",
    ]:
        show(line, ns)

    section("NumPy, both ways, without copies where possible")
    try:
        import numpy
    except ImportError:
        print("NumPy is not installed: `pip install numpy` to see this part.")
    else:
        ns["numpy"] = numpy
        for line in [
            "view = numpy.asarray(a)",
            "view.flags.f_contiguous, view.shape",
            "a[0][0] = 100",
            "view[0, 0]",
            "kerova.int32(numpy.arange(6, dtype=numpy.int32).reshape(2, 3))",
            "kerova.double(numpy.arange(3, dtype=numpy.float32))",
        ]:
            show(line, ns)

    section("Pickling")
    for line in ["a.__reduce__()", "pickle.loads(pickle.dumps(a)) == a"]:
        show(line, ns)

    section("The errors met most often")
    for line in [
        "kerova.int8([1.5])",
        "kerova.uint8([300])",
        "kerova.double([[1, 2], [3]])",
        "kerova.double([1, 2, 3], size=(2, 2))",
        "kerova.double([[1, 2, 3], [4, 5, 6]], size=(3, 2))",
        "a[5]",
        "a < a",
    ]:
        show(line, ns)
    print()


if __name__ == "__main__":
    main()
