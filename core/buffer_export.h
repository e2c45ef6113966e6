// Export of array objects as read-only, column-major buffers.
#pragma once

#include <Python.h>

#include "data_array/function_table.h"

namespace kerova {

// bf_getbuffer and bf_releasebuffer of every array class.
int arrayGetBuffer(PyObject* self, Py_buffer* view, int flags);
void arrayReleaseBuffer(PyObject* self, Py_buffer* view);

// The PEP 3118 format of an element type: "d", "Zd", "?" ...; null for a type that no
// array class holds. Never throws.
const char* formatForArrayType(data::ArrayType type) noexcept;

}  // namespace kerova
