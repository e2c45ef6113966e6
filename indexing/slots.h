// The slot bodies that indexing/ defines for the eleven array classes: reading,
// assignment, rendering, comparison and iteration. One body serves every class: what
// differs by kind comes from the cursor's row of element operations.
#pragma once

#include <Python.h>

namespace kerova {

PyObject* readByInteger(PyObject* self, Py_ssize_t index);                  // read.cpp
PyObject* readByIndexObject(PyObject* self, PyObject* index);              // read.cpp
int assignByIndexObject(PyObject* self, PyObject* index, PyObject* value);  // assign.cpp
PyObject* arrayStr(PyObject* self);                                        // text.cpp
PyObject* arrayRepr(PyObject* self);                                       // text.cpp
PyObject* arrayRichCompare(PyObject* self, PyObject* other, int op);  // equality.cpp
PyObject* arrayIter(PyObject* self);  // iterator.cpp

}  // namespace kerova
