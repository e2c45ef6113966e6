// tp_new of the eleven array classes: newArray<K>, defined and instantiated for every
// kind in construction/constructor.cpp.
#pragma once

#include <Python.h>

#include "kinds/element_kinds.h"

namespace kerova {

template <SupportedArrayEnum K>
PyObject* newArray(PyTypeObject* type, PyObject* args, PyObject* kwds);

}  // namespace kerova
