#!/usr/bin/env python3
"""Mutation check of the extension's own C++ code (construction/, indexing/, core/, kinds/, module/).

Plants one fault at a time in a copy of the tree, rebuilds that copy incrementally, runs
the pytest suite against the rebuilt module and reports which faults the tests catch.
The working tree is never written: the tracked and untracked non-ignored files are
copied into a work directory, which keeps one build between runs.

    python scripts/mutate.py              # every mutant, one after the other
    python scripts/mutate.py --list       # the mutants, and whether their snippets still occur
    python scripts/mutate.py --only C03 M01

Outcomes: killed (a test failed, crashed or hung past the timeout), survived (the suite
passed), stale (the snippet does not occur exactly once any more: the code moved on),
invalid (the mutant does not build; not counted). Run on demand, not in CI: a full run
takes about an hour on two cores.
"""

import argparse
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
SCOPE = ("construction/", "indexing/", "core/", "kinds/", "module/")


@dataclass
class Mutant:
    id: str
    file: str
    find: str  # must occur exactly once in the file
    replace: str
    what: str
    equivalent: str = ""  # why the change cannot alter behaviour, for a survivor that cannot be killed


# A survivor either gets a test that kills it (in the test module of its road) or a note in
# `equivalent` saying why no test can tell the mutant from the original.
MUTANTS = [
    # construction/: arguments, sizes, conversions, nested sequences
    Mutant("C01", "construction/constructor_arguments.cpp", "if (Py_TYPE(value) != &PyBool_Type) {",
           "if (!PyLong_Check(value)) {", "is_complex takes any int, not only a bool"),
    Mutant("C02", "construction/constructor_arguments.cpp", "' must be a bool.\"", "' must be bool.\"",
           "message text of a non-bool is_complex"),
    Mutant("C03", "construction/size_and_vector.h", "if (list.length == 0) PyErr", "if (list.length == 0 && false) PyErr",
           "empty `size` no longer refused"),
    Mutant("C04", "core/dimension_list.h", "if (dimension < 0) return", "if (dimension < -1) return",
           "negative dimension bound shifted by one (size= and reshape)"),
    Mutant("C05", "construction/size_and_vector.h", "    dropTrailingOnes(m_size);\n", "",
           "trailing ones of `size` kept"),
    Mutant("C06", "construction/size_and_vector.h", "if (m_size.size() == 1) m_size.insert(m_size.begin(), 1);",
           "if (m_size.size() == 1) m_size.push_back(1);", "one-dimensional `size` becomes a column"),
    Mutant("C07", "construction/size_and_vector.h", "raiseWithSameText(PyExc_ValueError);",
           "raiseWithSameText(PyExc_TypeError);", "`vector` refusals raise TypeError"),
    Mutant("C08", "construction/sequence_scan.h", "if (pS != pD) return raiseSizeMismatch(g_shapeError);",
           "if (pS != pD) return raiseSizeMismatch(g_sizeError);", "element-count mismatch raises SizeError"),
    Mutant("C09", "construction/sequence_scan.h", "if (D.size() == 1 && D[0] > 1) {",
           "if (D.size() == 1 && D[0] > 2) {", "flat data of two elements no longer fills `size`"),
    Mutant("C10", "construction/sequence_scan.h", "Dims{1, n} : Dims{0, 0}",
           "Dims{1, n} : Dims{1, 0}", "empty initializer shaped (1, 0)"),
    Mutant("C11", "construction/sequence_scan.h", "if (m_depth == 0 && productOfDims(m_dims) != elementCount()) {",
           "if (false) {", "ragged nesting below an empty list accepted"),
    Mutant("C12", "construction/scalar_conversion.h", "if (value >= 0) return static_cast<uint64_t>(value);",
           "if (value >= -1) return static_cast<uint64_t>(value);", "unsigned kinds take -1"),
    Mutant("C13", "construction/scalar_conversion.h",
           "if (static_cast<Wide>(value) > static_cast<Wide>(std::numeric_limits<T>::max())) return false;",
           "if (static_cast<Wide>(value) > static_cast<Wide>(std::numeric_limits<T>::max()) + 1) return false;",
           "fast path takes max + 1 (wraps)"),
    Mutant("C14", "construction/scalar_conversion.h", "if (std::isnan(value)) return P{0};",
           "if (std::isnan(value)) return P{1};", "NaN part of an integer complex reads 1"),
    Mutant("C15", "construction/scalar_conversion.h", "return C(*real, *imag);",
           "return C(*imag, *real);", "complex parts swapped"),
    Mutant("C16", "construction/scalar_conversion.h", "return C(P{0}, P{0});",
           "return C(P{1}, P{0});", "non-number in a complex kind reads 1"),
    Mutant("C17", "construction/scalar_conversion.h",
           "    } catch (const boost::numeric::bad_numeric_cast&) {\n        return std::numeric_limits<float>::infinity();",
           "    } catch (const boost::numeric::bad_numeric_cast&) {\n        return -std::numeric_limits<float>::infinity();",
           "single saturates to -inf"),
    Mutant("C18", "construction/scalar_conversion.h", "return *read != 0;",
           "return *read > 0;", "negative int is a false logical"),
    Mutant("C19", "construction/scalar_conversion.h",
           "if (allowFloatForLogical) return PyFloat_AS_DOUBLE(object) != 0.0;",
           "return PyFloat_AS_DOUBLE(object) != 0.0;",
           "logical takes floats also on assignment"),
    Mutant("C20", "construction/scalar_conversion.cpp", "\" does not accept floating-point values.\"",
           "\" does not accept floating point values.\"", "message text of a refused float"),
    Mutant("C21", "construction/constructor.cpp", "        if (isComplex) {\n            PyErr_SetString",
           "        if (false) {\n            PyErr_SetString", "complex logical no longer refused"),

    # indexing/: index normalisation, slice arithmetic, assignment, equality, text
    Mutant("I01", "indexing/index_ops.cpp", "if (item.m_index >= len) {", "if (item.m_index > len) {",
           "upper index bound shifted by one (write side)"),
    Mutant("I02", "indexing/index_ops.cpp", "if (item.m_index < 0 && item.m_index + len < 0) {",
           "if (item.m_index < 0 && item.m_index + len <= 0) {", "lower index bound shifted by one (write side)"),
    Mutant("I03", "indexing/read.cpp", "if (record.m_index >= -len && record.m_index < len) {",
           "if (record.m_index >= -len && record.m_index <= len) {", "upper index bound shifted by one (read side)"),
    Mutant("I04", "indexing/index_ops.cpp", "if (item.m_index < 0 || item.m_index >= sliceWalkCount(slice)) {",
           "if (item.m_index < 0 || item.m_index > sliceWalkCount(slice)) {",
           "index through a slice may reach one past it"),
    Mutant("I05", "indexing/slice_values.h", "if (start < stop) count = (wide(stop) - start - 1) / step + 1;",
           "if (start < stop) count = (wide(stop) - start) / step + 1;", "upward slice count off by one"),
    Mutant("I06", "indexing/slice_values.h", "if (start > stop) count = (wide(start) - stop - 1) / -wide(step) + 1;",
           "if (start >= stop) count = (wide(start) - stop - 1) / -wide(step) + 1;",
           "downward slice with equal bounds counts"),
    Mutant("I07", "indexing/assign.cpp",
           "if (dims[k] != static_cast<uint64_t>(store.shape()[n + 1 + k])) return raiseShapeMismatch();",
           "if (dims[k] > static_cast<uint64_t>(store.shape()[n + 1 + k])) return raiseShapeMismatch();",
           "sub-array assignment takes a shorter row"),
    Mutant("I08", "indexing/assign.cpp", "values.elementCount() != indices.size()",
           "values.elementCount() > indices.size()", "row-slice assignment takes fewer values"),
    Mutant("I09", "indexing/assign.cpp", "        if (sliceLength == 0) return 0;",
           "        if (sliceLength == 0) return -1;", "empty region assignment of no values fails"),
    Mutant("I10", "indexing/equality.cpp",
           "if (first.m_supportedArrayEnum != second.m_supportedArrayEnum) return Outcome::UNEQUAL;",
           "if (false) return Outcome::UNEQUAL;", "arrays of different classes compared by value"),
    Mutant("I11", "kinds/element_ops.cpp", "    if (im != 0.0) return false;", "",
           "real equals complex regardless of the imaginary part"),
    Mutant("I12", "kinds/element_ops.cpp", "static_cast<double>(a.imag()) == static_cast<double>(b.imag())",
           "static_cast<double>(a.imag()) == static_cast<double>(b.real())", "complex == compares imag with real"),
    Mutant("I13", "indexing/equality.cpp", "if (la == 0 && lb == 0) return Shapes::EQUAL;",
           "if (la == 0 && lb == 0) return Shapes::UNEQUAL;", "empty arrays unequal"),
    Mutant("I14", "kinds/element_ops.cpp", "if (real == 0.0 && std::copysign(1.0, real) == 1.0) {",
           "if (real == 0.0) {", "complex with real part -0.0 drops it"),
    Mutant("I15", "kinds/element_ops.cpp", "appendFloat(out, static_cast<double>(loadElement<T>(bytes)), Py_DTSF_ADD_DOT_0);",
           "appendFloat(out, static_cast<double>(loadElement<T>(bytes)), 0);", "integral floats print without .0"),
    Mutant("I16", "indexing/text.cpp", "kComplexMark[] = \", is_complex=True\"", "kComplexMark[] = \",is_complex=True\"",
           "repr of a complex array loses its blank"),
    Mutant("I17", "indexing/to_list.cpp", "const int64_t end = std::min(rows, first + kTile);",
           "const int64_t end = std::min(rows, first + kTile - 1);", "nested lists skip a row per tile of 16"),
    Mutant("I18", "indexing/materialize.cpp", "        bits |= 0x00400000u;\n", "",
           "a clone keeps a signalling NaN of a single"),
    Mutant("I19", "indexing/materialize.cpp", "    if constexpr (kReturnsUnchanged<T>) {\n        if (sharesStoreArray",
           "    if constexpr (true) {\n        if (sharesStoreArray", "a whole single array is shared as it is"),
    Mutant("I20", "indexing/materialize.cpp", "reversed.lengths.assign(view.lengths.rbegin(), view.lengths.rend());",
           "reversed.lengths.assign(view.lengths.begin(), view.lengths.end());", "a part is copied in row order"),
    Mutant("I21", "indexing/materialize.cpp", "    if (cursorView.endsInSlice && cursorView.inStore < view.lengths[0]) return result;\n",
           "", "a slice past a reshaped store is copied"),

    # core/: reshape, buffer export
    Mutant("K01", "core/reshape.cpp", "readDimensionList(value, 2)", "readDimensionList(value, 1)",
           "reshape takes a single dimension"),
    Mutant("K02", "core/dimension_list.h", "if (list.length < minLength)", "if (list.length <= minLength)",
           "a dimension list of the least length refused"),
    Mutant("K03", "core/dimension_list.h", "while (dims.size() > 2 && dims.back() == 1) dims.pop_back();",
           "while (dims.size() > 3 && dims.back() == 1) dims.pop_back();", "a third trailing one kept"),
    Mutant("K04", "core/reshape.cpp", "fits = hasZero || (!overflowed", "fits = (!overflowed",
           "overflowing product with a zero dimension refused"),
    Mutant("K05", "core/reshape.cpp", "\") does not match current number (\"", "\") does not match the current number (\"",
           "message text of a reshape count mismatch"),
    Mutant("K06", "core/reshape.cpp", "    if (kwargs != nullptr) {", "    if (false) {",
           "reshape accepts keyword arguments"),
    Mutant("K07", "core/reshape.cpp", "if (cursor->m_numberOfIntegerIndicesSoFar > 0) {",
           "if (cursor->m_numberOfIntegerIndicesSoFar > 1) {", "reshape of a row of a matrix allowed"),
    Mutant("K08", "core/buffer_export.cpp", "view->readonly = store->isReadOnly();", "view->readonly = 1;",
           "exports are read-only", equivalent="every store is read-only: isReadOnly() is 1 and nothing sets it"),
    Mutant("K09", "kinds/element_kinds.h", r"{{'Z', format, '\0'}}", r"{{format, 'Z', '\0'}}",
           "complex format written after the character"),
    Mutant("K10", "core/buffer_export.cpp",
           "view->len = static_cast<Py_ssize_t>(store->bufferSizeInBytes());",
           "view->len = static_cast<Py_ssize_t>(store->numElems());", "export length counts elements, not bytes"),
    Mutant("K11", "core/buffer_export.cpp",
           "if ((flags & PyBUF_C_CONTIGUOUS) == PyBUF_C_CONTIGUOUS)",
           "if ((flags & PyBUF_F_CONTIGUOUS) == PyBUF_F_CONTIGUOUS)", "refuses Fortran instead of C requests"),
    Mutant("K12", "core/buffer_export.cpp", "if ((flags & PyBUF_WRITABLE) != 0 && store->isReadOnly() != 0)",
           "if ((flags & PyBUF_WRITABLE) != 0 && store->isReadOnly() == 0)", "writable requests refused"),

    # the one walk over a strided view, and the view of a cursor
    Mutant("W01", "core/walker.h", "offset -= view.strides[level] * (view.lengths[level] - 1);",
           "offset -= view.strides[level] * view.lengths[level];", "walker returns one entry too far"),
    Mutant("W02", "core/walker.h", "if (level + leafLevels < n) {", "if (level + leafLevels <= n) {",
           "walker hands the visitor one level fewer"),
    Mutant("W03", "indexing/cursor_view.h", "result.inStore = std::min(count, (length - 1 - start) / step + 1);",
           "result.inStore = count;", "stale upward slice read past its dimension"),
    # module/: capsule, pickling, methods and attributes
    Mutant("M01", "module/capsule.cpp", "static_cast<int32_t>(*kind) + 3", "static_cast<int32_t>(*kind) + 2",
           "capsule type numbers shifted by one"),
    Mutant("M02", "module/capsule.cpp", "constexpr int32_t kComplexOffset = 10;", "constexpr int32_t kComplexOffset = 11;",
           "complex type number offset"),
    Mutant("M03", "module/capsule.cpp", "character = view.view().itemsize == 4 ? 'I' : 'Q';",
           "character = view.view().itemsize == 8 ? 'I' : 'Q';", "'L' of 4 bytes read as uint64"),
    Mutant("M04", "module/capsule.cpp", "character = format[1] != '\\0' ? format[1] : 'd';",
           "character = format[1] != '\\0' ? format[1] : 'f';", "bare 'Z' read as complex single"),
    Mutant("M05", "module/capsule.cpp", "if (typeNumber != nullptr) *typeNumber = kNoTypeNumber;", "",
           "type number not reset on refusal"),
    Mutant("M07", "module/pickle.cpp", "if (cursor->m_isComplex && PyDict_SetItemString",
           "if (false && PyDict_SetItemString", "pickle drops is_complex"),
    Mutant("M08", "module/pickle.cpp", "return integerRecordsToList(*cursor,", "return cursorToList(*cursor,",
           "pickle of a partial array honours its final slice"),
    Mutant("M09", "module/methods.cpp", "target[k] = mode == FlattenMode::REAL ? elements[k].real() : elements[k].imag();",
           "target[k] = mode == FlattenMode::IMAG ? elements[k].real() : elements[k].imag();", "real() and imag() swapped"),
    Mutant("M10", "module/methods.cpp", "cursor->m_numberOfIntegerIndicesSoFar == 1;",
           "cursor->m_numberOfIntegerIndicesSoFar == 2;", "toarray() failure messages swapped"),
    Mutant("M11", "module/methods.cpp", "PyObject* item = PyLong_FromLong(static_cast<int32_t>(lengths[k]));",
           "PyObject* item = PyLong_FromLong(static_cast<long>(lengths[k]));", "size reports lengths past 32 bits"),
    Mutant("M12", "module/methods.cpp", "static_cast<long long>(store.numElems()));",
           "static_cast<long long>(store.bufferSizeInBytes()));", "buffer_info counts bytes"),
    Mutant("M13", "module/methods.cpp", "if (mode == FlattenMode::ALL && cursor->m_isComplex) {",
           "if (mode == FlattenMode::ALL && false) {", "noncomplex() of a complex array allowed"),
    Mutant("M14", "module/methods.cpp", "pushIntegerIndex(*row, IntegerIndexItem{0, false});", "",
           "real()/imag()/noncomplex() give the 1-by-N matrix"),
    Mutant("M15", "module/module.cpp", "\"kvexceptions.SizeError\", \"SizeError\"",
           "\"kvexceptions.ShapeError\", \"SizeError\"", "SizeError named ShapeError"),
    Mutant("M16", "module/array_type.cpp", "methods.sq_item = guarded<readByInteger>;", "",
           "no sequence item slot (iteration by index, `in`)"),
]


def run(cmd, **kw):
    return subprocess.run(cmd, text=True, capture_output=True, **kw)


def tree_files(src):
    listed = run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=src, check=True)
    return [f for f in listed.stdout.split("\0") if f]


def sync_copy(src, dst):
    """Makes dst a copy of the tree, writing only files whose bytes differ (keeps the build
    incremental) and removing files that the tree no longer has (sources are globbed)."""
    names = tree_files(src)
    keep = set(names)
    for path in sorted(dst.rglob("*"), reverse=True):
        name = path.relative_to(dst).as_posix()
        if name == "build" or name.startswith("build/"):
            continue
        if path.is_file() and name not in keep:
            path.unlink()
    for name in names:
        source, target = src / name, dst / name
        if not source.is_file():
            continue  # deleted in the work tree but still in the index
        data = source.read_bytes()
        if target.is_file() and target.read_bytes() == data:
            continue
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(data)
        shutil.copymode(source, target)


def configure(copy, build, native=False):
    if (build / "build.ninja").exists():
        return
    flags = (["-DKEROVA_EXTENSION=OFF", "-DKEROVA_NATIVE_TESTS=ON"] if native else
             ["-DKEROVA_EXTENSION=ON", f"-DPython_EXECUTABLE={sys.executable}"])
    result = run(["cmake", "-S", str(copy), "-B", str(build), "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release", *flags])
    if result.returncode != 0:
        sys.exit(f"configure failed:\n{result.stdout}\n{result.stderr}")


def build(build_dir, jobs):
    return run(["nice", "cmake", "--build", str(build_dir), f"-j{jobs}"])


def test_env(copy):
    env = dict(os.environ)
    path = [str(copy / "build" / "stage"), str(copy / "python")]
    env["PYTHONPATH"] = os.pathsep.join(path + ([env["PYTHONPATH"]] if env.get("PYTHONPATH") else []))
    env.pop("PYTEST_ADDOPTS", None)
    return env


def run_limited(cmd, cwd, env, timeout):
    """Runs cmd in its own process group; (returncode or None on timeout, output)."""
    proc = subprocess.Popen(cmd, cwd=cwd, env=env, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                            start_new_session=True)
    try:
        out, _ = proc.communicate(timeout=timeout)
        return proc.returncode, out
    except subprocess.TimeoutExpired:
        os.killpg(proc.pid, signal.SIGKILL)
        out, _ = proc.communicate()
        return None, out


def run_pytest(copy, timeout, deselect=(), stop_early=True):
    cmd = ["nice", sys.executable, "-m", "pytest", *(["-x"] if stop_early else []), "-q", "-p", "no:cacheprovider",
           "tests", *(f"--deselect={t}" for t in deselect)]
    return run_limited(cmd, copy, test_env(copy), timeout)


def run_native(copy, timeout, jobs):
    native = copy / "build" / "native"
    configure(copy, native, native=True)
    built = build(native, jobs)
    if built.returncode != 0:
        return None, "build"
    return run_limited(["ctest", "--test-dir", str(native), "--stop-on-failure", "-Q"], copy, None, timeout)


def killer(code, out):
    """Which test failed, from pytest's summary, or how the run ended."""
    if code is None:
        return "timeout (hang)"
    found = re.findall(r"^(?:FAILED|ERROR) (.+?)(?: - .*)?$", out, re.M)
    if found:
        return found[0].removeprefix("tests/")[:110]
    if code < 0:
        return f"crash (signal {-code})"
    crashed = re.search(r"^(?:Fatal Python error|Segmentation fault)[^\n]*", out, re.M)
    if crashed:
        current = re.search(r'File "[^"]*/(tests/[^"]+)", line (\d+)', out[crashed.start():])
        return crashed.group(0)[:40] + (f" in {current.group(1)}:{current.group(2)}" if current else "")
    return f"exit {code}"


def occurrences(copy, mutant):
    return (copy / mutant.file).read_text().count(mutant.find)


def line_of(text, snippet):
    return text[:text.index(snippet)].count("\n") + 1


def run_mutant(copy, mutant, args):
    path = copy / mutant.file
    original = path.read_text()
    count = original.count(mutant.find)
    if count != 1:
        return "stale", 0, f"snippet occurs {count} times"
    line = line_of(original, mutant.find)
    path.write_text(original.replace(mutant.find, mutant.replace))
    try:
        built = build(copy / "build", args.jobs)
        if built.returncode != 0:
            errors = re.findall(r"error: [^\n]*", built.stdout + built.stderr)
            return "invalid", line, (errors[0] if errors else "build failed")[:70]
        code, out = run_pytest(copy, args.timeout, args.deselect)
        if code == 0 and mutant.file.startswith("data_array/"):
            code, out = run_native(copy, args.timeout, args.jobs)
        if code == 0:
            return "survived", line, ""
        return "killed", line, killer(code, out)
    finally:
        path.write_text(original)


def table(rows):
    widths = [max(len(str(r[k])) for r in rows) for k in range(len(rows[0]))]
    return "\n".join("  ".join(str(v).ljust(w) for v, w in zip(r, widths)).rstrip() for r in rows)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--only", nargs="+", metavar="ID", help="run only these mutants")
    parser.add_argument("--list", action="store_true", help="list the mutants and exit")
    parser.add_argument("--workdir", type=Path, default=Path(tempfile.gettempdir()) / "kerova-mutate",
                        help="where the copy and its build live (kept between runs)")
    parser.add_argument("--timeout", type=float, default=300, help="seconds per test run; past it the mutant is killed")
    parser.add_argument("--jobs", type=int, default=2, help="parallel build jobs")
    args = parser.parse_args()

    ids = [m.id for m in MUTANTS]
    assert len(ids) == len(set(ids)), "duplicate mutant ids"
    for m in MUTANTS:
        assert m.file.startswith(SCOPE) or m.file.startswith("data_array/"), m.id
    chosen = MUTANTS
    if args.only:
        unknown = set(args.only) - set(ids)
        if unknown:
            sys.exit(f"unknown mutant ids: {' '.join(sorted(unknown))}")
        chosen = [m for m in MUTANTS if m.id in args.only]

    if args.list:
        rows = [("id", "file", "line", "change", "snippet")]
        for m in chosen:
            text = (ROOT / m.file).read_text()
            n = text.count(m.find)
            rows.append((m.id, m.file, line_of(text, m.find) if n == 1 else "-", m.what,
                         "ok" if n == 1 else f"stale ({n} occurrences)"))
        print(table(rows))
        return

    copy = args.workdir.resolve() / "tree"
    copy.mkdir(parents=True, exist_ok=True)
    print(f"copying the tree into {copy}", flush=True)
    sync_copy(ROOT, copy)
    configure(copy, copy / "build")
    started = time.monotonic()
    built = build(copy / "build", args.jobs)
    if built.returncode != 0:
        sys.exit(f"the unmutated copy does not build:\n{built.stdout[-3000:]}\n{built.stderr[-3000:]}")
    probe = run([sys.executable, "-c", "import kerovamultidimarrayforpython as m, kerova; print(m.__file__); "
                 "print(kerova.__file__)"], cwd=copy / "tests", env=test_env(copy))
    print("tests import:", " ".join(probe.stdout.split()) or probe.stderr.strip(), flush=True)
    if not probe.stdout.startswith(str(copy / "build" / "stage")):
        sys.exit("the tests would not import the copy's build")
    # Tests that already fail on the unmutated copy (the tree is shared and may be caught
    # mid-change) are left out of the mutant runs, and named.
    code, out = run_pytest(copy, args.timeout, stop_early=False)
    args.deselect = re.findall(r"^(?:FAILED|ERROR) (.+?)(?: - .*)?$", out, re.M)
    if code != 0 and not args.deselect:
        sys.exit(f"the suite fails on the unmutated copy ({killer(code, out)}):\n{out[-3000:]}")
    for name in args.deselect:
        print(f"fails unmutated, left out: {name}", flush=True)
    print(f"baseline built and passing in {time.monotonic() - started:.0f} s", flush=True)

    rows = [("id", "file", "line", "change", "outcome", "killed by / note")]
    counts = {}
    for m in chosen:
        started = time.monotonic()
        outcome, line, note = run_mutant(copy, m, args)
        if outcome == "survived" and m.equivalent:
            note = "equivalent: " + m.equivalent
        counts[outcome] = counts.get(outcome, 0) + 1
        rows.append((m.id, m.file, line or "-", m.what, outcome, note))
        print(f"{m.id:5} {outcome:8} {time.monotonic() - started:5.0f} s  {m.file}:{line}  {m.what}  {note}",
              flush=True)
    build(copy / "build", args.jobs)  # leave the copy's build unmutated for the next run

    print()
    print(table(rows))
    valid = counts.get("killed", 0) + counts.get("survived", 0)
    print()
    print(", ".join(f"{k} {v}" for k, v in sorted(counts.items())))
    if valid:
        print(f"score: {counts.get('killed', 0)}/{valid} killed = {100 * counts.get('killed', 0) / valid:.0f}%")
    return 1 if counts.get("survived") else 0


if __name__ == "__main__":
    sys.exit(main())
