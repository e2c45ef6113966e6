// The four constructor arguments of every array class, read once per construction.
#pragma once

#include <Python.h>

#include <array>
#include <optional>

#include "core/py_ref.h"

namespace kerova {

struct ConstructorArguments {
    // Null when not passed. Each is also held in `held` for the whole construction: a
    // dictionary of keywords could drop its values while Python code runs in a scan.
    PyObject* initializer = nullptr;
    PyObject* size = nullptr;
    PyObject* vector = nullptr;
    PyObject* isComplex = nullptr;
    // The keyword dictionary the arguments were read from, or null.
    PyObject* keywords = nullptr;
    std::array<PyRef, 4> held;

    // An argument counts as given if it is passed and is not None.
    static bool given(PyObject* value) noexcept { return value != nullptr && value != Py_None; }
};

// Reads args and kwds with the format "|OOOO" and the keywords "initializer", "size",
// "vector", "is_complex". False with Python's error set on too many arguments or an
// unknown keyword.
bool parseConstructorArguments(PyObject* args, PyObject* kwds, ConstructorArguments& arguments);

// The truth of `value`, which must be exactly True or False; empty with TypeError set
// otherwise.
std::optional<bool> parseBoolArgument(PyObject* value, const char* name);

}  // namespace kerova
