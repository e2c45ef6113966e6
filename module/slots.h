// The slot functions of the eleven array classes, by the folder that defines them.
// Per-class slots are templates over the kind, explicitly instantiated for every kind
// where they are defined; shared slots exist once.
#pragma once

#include <Python.h>

#include "module/element_kinds.h"

namespace kerova {

// construction/constructor.h: tp_new, the constructor body (one instance per kind).
template <SupportedArrayEnum K>
PyObject* newArray(PyTypeObject* type, PyObject* args, PyObject* kwds);

// indexing/: reading, assignment, rendering, comparison (one instance per kind).
template <SupportedArrayEnum K>
PyObject* readByInteger(PyObject* self, Py_ssize_t index);
template <SupportedArrayEnum K>
PyObject* readByIndexObject(PyObject* self, PyObject* index);
template <SupportedArrayEnum K>
int assignByIndexObject(PyObject* self, PyObject* index, PyObject* value);
template <SupportedArrayEnum K>
PyObject* arrayStr(PyObject* self);
template <SupportedArrayEnum K>
PyObject* arrayRepr(PyObject* self);
template <SupportedArrayEnum K>
PyObject* arrayRichCompare(PyObject* self, PyObject* other, int op);

// Shared by all classes.
Py_ssize_t arrayLength(PyObject* self);               // module/array_type.cpp
PyObject* arrayIter(PyObject* self);                  // indexing/iterator.cpp
int arrayGetBuffer(PyObject* self, Py_buffer* view, int flags);  // core/buffer_export.cpp
void arrayReleaseBuffer(PyObject* self, Py_buffer* view);        // core/buffer_export.cpp
extern PyMethodDef g_arrayMethods[];                  // module/methods.cpp
extern PyGetSetDef g_arrayGetSet[];                   // module/methods.cpp
extern void* g_capiTable[5];                          // module/capsule.cpp

// Explicit instantiation of a per-class slot template for every kind.
#define KEROVA_INSTANTIATE_FOR_KINDS(INSTANTIATE_ONE) KEROVA_ARRAY_KINDS(INSTANTIATE_ONE)

}  // namespace kerova
