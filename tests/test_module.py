"""What importing the extension gives: classes, exceptions, the capsule, re-exports."""

import ctypes
import pickle
import subprocess
import sys
import textwrap

import pytest

import kerova
import kerovamultidimarrayforpython as ext
import kvexceptions

KIND_NAMES = ["double", "single", "int8", "uint8", "int16", "uint16",
              "int32", "uint32", "int64", "uint64", "logical"]


def test_module_namespace_holds_classes_exceptions_and_capsule_only():
    public = {name for name in dir(ext) if not name.startswith("__")}
    assert public == set(KIND_NAMES) | {"KVPyIter", "ShapeError", "SizeError", "_capi"}
    assert not any(callable(getattr(ext, n)) and not isinstance(getattr(ext, n), type) for n in public)
    assert ext.__doc__ == "kerovamultidimarrayforpython"
    assert repr(ext.KVPyIter) == "<class 'kerova.KVPyIter'>" and ext.KVPyIter.__doc__ == "Internal iterator object"


@pytest.mark.parametrize("name", KIND_NAMES)
def test_array_class_names_docs_and_reexport(name):
    cls = getattr(ext, name)
    assert getattr(kerova, name) is cls and cls.__doc__ == name
    assert (cls.__module__, cls.__qualname__, repr(cls)) == ("kerova", name, f"<class 'kerova.{name}'>")
    with pytest.raises(TypeError):
        type("Derived", (cls,), {})


@pytest.mark.parametrize("name", ["ShapeError", "SizeError"])
def test_exception_types(name):
    exc = getattr(ext, name)
    assert exc.__bases__ == (Exception,)  # siblings, neither derived from the other
    assert exc.__module__ == "kvexceptions"
    assert getattr(kerova, name) is exc and getattr(kvexceptions, name) is exc
    revived = pickle.loads(pickle.dumps(exc("message")))
    assert type(revived) is exc and revived.args == ("message",)


def test_capsule_valid_under_its_name_only():
    is_valid = ctypes.pythonapi.PyCapsule_IsValid
    is_valid.restype = ctypes.c_int
    is_valid.argtypes = [ctypes.py_object, ctypes.c_char_p]
    assert is_valid(ext._capi, b"kerovamultidimarrayforpython._capi") == 1
    assert is_valid(ext._capi, b"kerovamultidimarrayforpython.capi") == 0
    assert is_valid(ext._capi, None) == 0


def test_instances_are_unhashable():
    with pytest.raises(TypeError):
        hash(kerova.double([[1.0]]))


def test_uncallable_array_class_sets_its_error_and_initialisation_goes_on():
    # The import machinery replaces an init error by a SystemError, so the entry is
    # called directly: PyDLL raises whatever error the call left set.
    script = textwrap.dedent(f"""
        import ctypes, sys, types
        fake = types.ModuleType("array")
        fake.array = 5
        sys.modules["array"] = fake
        entry = ctypes.PyDLL({ext.__file__!r}).PyInit_kerovamultidimarrayforpython
        entry.restype = ctypes.py_object
        try:
            entry()
        except RuntimeError as error:
            print(error)
    """)
    result = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True, check=True)
    assert result.stdout == "array.array class is not callable.\n"
    assert result.stderr == ""
