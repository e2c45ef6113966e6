// Process-wide statics written once by module initialisation, and the small
// operations on array objects that every subsystem shares.
#pragma once

#include <Python.h>

#include "kinds/element_kinds.h"

namespace kerova {

class MDACursor;

// The instance layout of all eleven array classes.
struct ArrayObject {
    PyObject_HEAD
    MDACursor* m_cursor;
};

extern PyObject* g_arrayClass;  // array.array, called by toarray()
extern PyObject* g_shapeError;  // kvexceptions.ShapeError
extern PyObject* g_sizeError;   // kvexceptions.SizeError
extern PyTypeObject* g_arrayTypes[kNumberOfKinds];
extern PyTypeObject KVPyIter_Type;

// tp_dealloc of every array class; also the mark by which the module knows its own arrays.
void arrayDealloc(PyObject* self);

inline bool isKerovaArray(PyObject* object) {
    return object != nullptr && Py_TYPE(object)->tp_dealloc == arrayDealloc;
}

inline MDACursor* cursorOf(PyObject* object) {
    return object ? reinterpret_cast<ArrayObject*>(object)->m_cursor : nullptr;
}

// The cursor of an array object, or null with RuntimeError "object not initialized." set.
inline MDACursor* checkedCursor(PyObject* object) {
    MDACursor* cursor = cursorOf(object);
    if (!cursor) PyErr_SetString(PyExc_RuntimeError, "object not initialized.");
    return cursor;
}

// tp_alloc of the type; RuntimeError "unable to initialize C object." on failure.
PyObject* newArrayObject(PyTypeObject* type);

inline PyObject* newArrayObject(SupportedArrayEnum kind) {
    return newArrayObject(g_arrayTypes[static_cast<int>(kind)]);
}

}  // namespace kerova
