// The slot tables of the eleven array classes that module/ itself defines. The slot
// bodies of the lower folders are declared beside their definitions:
// construction/constructor.h, indexing/slots.h, core/buffer_export.h.
#pragma once

#include <Python.h>

namespace kerova {

Py_ssize_t arrayLength(PyObject* self);  // array_type.cpp
extern PyMethodDef g_arrayMethods[];     // methods.cpp
extern PyGetSetDef g_arrayGetSet[];      // methods.cpp
extern void* g_capiTable[5];             // capsule.cpp

}  // namespace kerova
