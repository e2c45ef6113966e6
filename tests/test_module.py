"""What importing the extension gives: classes, exceptions, the capsule, re-exports, and the
tour that `python -m kerova` runs."""

import ctypes
import textwrap

import pytest

import kerova
import kerovamultidimarrayforpython as ext
import kvexceptions
from checks import python, raises
from model import KINDS


def test_module_namespace_holds_classes_exceptions_and_capsule_only():
    public = {name for name in dir(ext) if not name.startswith("__")}
    assert public == set(KINDS) | {"KVPyIter", "ShapeError", "SizeError", "_capi"}
    assert ext.__doc__ == "kerovamultidimarrayforpython"
    assert repr(ext.KVPyIter) == "<class 'kerova.KVPyIter'>" and ext.KVPyIter.__doc__ == "Internal iterator object"
    is_valid = ctypes.pythonapi.PyCapsule_IsValid
    is_valid.restype, is_valid.argtypes = ctypes.c_int, [ctypes.py_object, ctypes.c_char_p]
    assert [is_valid(ext._capi, name) for name in (b"kerovamultidimarrayforpython._capi",
                                                   b"kerovamultidimarrayforpython.capi", None)] == [1, 0, 0]
    for exc in (ext.ShapeError, ext.SizeError):  # siblings, re-exported; pickled in test_interop
        assert exc.__bases__ == (Exception,) and exc.__module__ == "kvexceptions"
        assert getattr(kerova, exc.__name__) is exc and getattr(kvexceptions, exc.__name__) is exc


@pytest.mark.parametrize("name", KINDS)
def test_array_class_names_docs_and_reexport(name):
    cls = getattr(ext, name)
    assert getattr(kerova, name) is cls and cls.__doc__ == name
    assert (cls.__module__, cls.__qualname__, repr(cls)) == ("kerova", name, f"<class 'kerova.{name}'>")
    raises(lambda: type("Derived", (cls,), {}), TypeError, f"type 'kerova.{name}' is not an acceptable base type")
    raises(lambda: hash(cls()), TypeError, f"unhashable type: 'kerova.{name}'")


@pytest.mark.parametrize("fake, message", [
    ("types.ModuleType('array')", "unable to retrieve array.array class."),
    ("None", "unable to import array module."),  # the import itself fails
    ("types.SimpleNamespace(array=5)", "array.array class is not callable."),
])
def test_a_missing_or_broken_array_class_sets_its_error_and_initialisation_goes_on(fake, message):
    # The import machinery replaces an init error by a SystemError, so the entry is
    # called directly: PyDLL raises whatever error the call left set.
    assert python("-c", textwrap.dedent(f"""
        import ctypes, sys, types
        sys.modules["array"] = {fake}
        entry = ctypes.PyDLL({ext.__file__!r}).PyInit_kerovamultidimarrayforpython
        entry.restype = ctypes.py_object
        try:
            entry()
        except RuntimeError as error:
            print(error)
    """), quiet=True) == message + "\n"


def test_version_comes_from_the_package_metadata():
    from importlib import metadata
    assert kerova.__version__ == metadata.version("kerova") and kerova.__version__[0].isdigit()
    assert python("-m", "kerova", "--version", quiet=True) == f"kerova {kerova.__version__}\n"


@pytest.mark.parametrize("command, landmark", [
    (["-m", "kerova"], "    array([[100.,  20.,   3.],"),
    (["-c", "import runpy, sys; sys.modules['numpy'] = None; "  # NumPy made unimportable
            "runpy.run_module('kerova', run_name='__main__', alter_sys=True)"],
     "# NumPy is not installed, so this part is skipped"),
])
def test_tour_runs_to_the_end(command, landmark):
    """`python -m kerova`, the README's main command."""
    shown = python(*command, quiet=True)
    # A value, a refused tuple index, the NumPy part and the last section all show.
    assert ">>> a[1][2]\n    6.0\n" in shown and "RuntimeError: index is not an integer or slice." in shown
    assert landmark in shown and "NotImplementedError: inequality operators not supported." in shown
