// tp_new of the eleven array classes, defined in construction/constructor.cpp.
#pragma once

#include <Python.h>

namespace kerova {

PyObject* newArray(PyTypeObject* type, PyObject* args, PyObject* kwds);

}  // namespace kerova
