// Initializers that hold their data behind `__dlpack__` or `__array__` instead of the
// buffer protocol: tensors, data frames, labelled arrays. Read as sequences they would
// come out wrong (a data frame iterates over its column labels, a series is indexed by
// its labels) or not at all, so their data is taken instead: NumPy is asked for an array
// of it, which then takes the buffer road like any NumPy array given directly. The
// values, the element conversion and every refusal are therefore the buffer road's.
#pragma once

#include <Python.h>

#include <optional>

#include "core/py_ref.h"

namespace kerova {

namespace detail {

// True when the type of `object` or one of its bases defines `name` as anything but
// None (which, as for __hash__, says that the type has none). Special methods are looked
// up on the type, as the interpreter does: no Python code runs, and an instance attribute
// or a catch-all __getattr__ does not make an array-like.
inline bool typeDefines(PyObject* object, PyObject* name) {
    PyObject* found = _PyType_Lookup(Py_TYPE(object), name);  // borrowed
    return found != nullptr && found != Py_None;
}

}  // namespace detail

// For an initializer that is no buffer but whose type defines `__dlpack__` (taken
// first) or `__array__`: a NumPy array of its data, from `numpy.from_dlpack(object)` or
// `numpy.asarray(object)`, in the order the object states. An empty reference for every
// other object, and where NumPy cannot be imported, so that those are read as they
// always were. NumPy is imported only here, when such an object arrives. Nothing, with
// the Python error set, when NumPy or the object refuses (a tensor on another device,
// one that needs a gradient, ...).
inline std::optional<PyRef> arrayLikeData(PyObject* object) {
    if (PyList_CheckExact(object) || PyTuple_CheckExact(object) || PyObject_CheckBuffer(object)) return PyRef();
    static PyObject* const dlpackName = PyUnicode_InternFromString("__dlpack__");  // kept for the process
    static PyObject* const arrayName = PyUnicode_InternFromString("__array__");
    if (dlpackName == nullptr || arrayName == nullptr) {
        if (!PyErr_Occurred()) PyErr_NoMemory();
        return std::nullopt;
    }
    const char* reader = detail::typeDefines(object, dlpackName)  ? "from_dlpack"
                         : detail::typeDefines(object, arrayName) ? "asarray"
                                                                  : nullptr;
    if (reader == nullptr) return PyRef();
    const PyRef numpy = PyRef::steal(PyImport_ImportModule("numpy"));
    if (!numpy) {
        if (!PyErr_ExceptionMatches(PyExc_ImportError)) return std::nullopt;
        PyErr_Clear();
        return PyRef();
    }
    const PyRef read = PyRef::steal(PyObject_GetAttrString(numpy.get(), reader));
    if (!read) return std::nullopt;
    PyRef data = PyRef::steal(PyObject_CallOneArg(read.get(), object));
    if (!data) return std::nullopt;
    return data;
}

}  // namespace kerova
