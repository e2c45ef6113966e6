// The eleven array type objects and the slots that live directly in them: allocation,
// deallocation, length. Every slot that can fail is reached through the barrier.
#include <Python.h>

#include <array>

#include "construction/constructor.h"
#include "core/barrier.h"
#include "core/buffer_export.h"
#include "core/cursor.h"
#include "indexing/index_ops.h"
#include "indexing/slots.h"
#include "kinds/object.h"
#include "module/array_types.h"
#include "module/slots.h"

namespace kerova {

PyTypeObject* g_arrayTypes[kNumberOfKinds] = {};

PyObject* newArrayObject(PyTypeObject* type) {
    PyObject* object = type->tp_alloc(type, 0);
    if (!object) {
        PyErr_SetString(PyExc_RuntimeError, "unable to initialize C object.");
        return nullptr;
    }
    return object;
}

void arrayDealloc(PyObject* self) {
    auto* object = reinterpret_cast<ArrayObject*>(self);
    delete object->m_cursor;
    object->m_cursor = nullptr;
    PyObject_Free(self);
}

Py_ssize_t arrayLength(PyObject* self) {
    MDACursor* cursor = checkedCursor(self);
    if (!cursor) return -1;
    return static_cast<Py_ssize_t>(currentDimensionLength(*cursor));
}

namespace {

PyBufferProcs g_arrayBufferProcs = {guarded<arrayGetBuffer>, arrayReleaseBuffer};

// The protocol tables are shared; the type objects differ only in their names, which
// module initialisation gives them from the kind table.
PySequenceMethods g_arraySequence = [] {
    PySequenceMethods methods{};
    methods.sq_length = guarded<arrayLength>;
    methods.sq_item = guarded<readByInteger>;
    return methods;
}();

PyMappingMethods g_arrayMapping = {guarded<arrayLength>, guarded<readByIndexObject>, guarded<assignByIndexObject>};

PyTypeObject arrayType() {
    PyTypeObject t{};
    Py_SET_REFCNT(reinterpret_cast<PyObject*>(&t), 1);  // a static type owns one reference
    t.tp_basicsize = sizeof(ArrayObject);
    t.tp_itemsize = 0;
    t.tp_dealloc = arrayDealloc;
    t.tp_repr = guarded<arrayRepr>;
    t.tp_as_sequence = &g_arraySequence;
    t.tp_as_mapping = &g_arrayMapping;
    t.tp_str = guarded<arrayStr>;
    t.tp_as_buffer = &g_arrayBufferProcs;
    t.tp_flags = Py_TPFLAGS_DEFAULT;
    t.tp_richcompare = guarded<arrayRichCompare>;
    t.tp_iter = guarded<arrayIter>;
    t.tp_methods = g_arrayMethods;
    t.tp_getset = g_arrayGetSet;
    t.tp_new = guarded<newArray>;
    return t;
}

std::array<PyTypeObject, kNumberOfKinds> g_types = [] {
    std::array<PyTypeObject, kNumberOfKinds> types;
    types.fill(arrayType());
    return types;
}();

}  // namespace

PyTypeObject* arrayTypeObject(SupportedArrayEnum kind) {
    return &g_types[static_cast<size_t>(kind)];
}

}  // namespace kerova
