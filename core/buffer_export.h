// Export of array objects as read-only, column-major buffers.
#pragma once

#include <Python.h>

namespace kerova {

// bf_getbuffer and bf_releasebuffer of every array class.
int arrayGetBuffer(PyObject* self, Py_buffer* view, int flags);
void arrayReleaseBuffer(PyObject* self, Py_buffer* view);

}  // namespace kerova
