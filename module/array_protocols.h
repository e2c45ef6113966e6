// The protocols of other array libraries on the eleven array classes: the attributes
// and methods that NumPy, DLPack consumers and sys.getsizeof look for.
#pragma once

#include <Python.h>

namespace kerova {

// array_protocols.cpp
PyObject* getNdim(PyObject* self, void*);
PyObject* getDtype(PyObject* self, void*);
PyObject* methodArray(PyObject* self, PyObject* args, PyObject* kwargs);
PyObject* methodSizeof(PyObject* self, PyObject*);

// dlpack_export.cpp
PyObject* methodDlpack(PyObject* self, PyObject* args, PyObject* kwargs);
PyObject* methodDlpackDevice(PyObject* self, PyObject*);

}  // namespace kerova
