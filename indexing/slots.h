// The slot bodies that indexing/ defines for the eleven array classes: reading,
// assignment, rendering, comparison and iteration. The per-class ones are templates over
// the kind, instantiated for every kind where they are defined.
#pragma once

#include <Python.h>

#include "kinds/element_kinds.h"

namespace kerova {

template <SupportedArrayEnum K>
PyObject* readByInteger(PyObject* self, Py_ssize_t index);  // read.cpp
template <SupportedArrayEnum K>
PyObject* readByIndexObject(PyObject* self, PyObject* index);  // read.cpp
template <SupportedArrayEnum K>
int assignByIndexObject(PyObject* self, PyObject* index, PyObject* value);  // assign.cpp
template <SupportedArrayEnum K>
PyObject* arrayStr(PyObject* self);  // text.cpp
template <SupportedArrayEnum K>
PyObject* arrayRepr(PyObject* self);  // text.cpp
template <SupportedArrayEnum K>
PyObject* arrayRichCompare(PyObject* self, PyObject* other, int op);  // equality.cpp
PyObject* arrayIter(PyObject* self);  // iterator.cpp

}  // namespace kerova
