// Reading by index: a[i] and a[i:j] on the eleven array classes. An index that leaves
// dimensions open gives a partial array over the same store; the index that closes the
// last dimension gives a Python scalar read straight from the store's mirror, with no
// object, cursor or element copy made on the way.
#include <Python.h>

#include <new>
#include <string>

#include "core/cursor.h"
#include "core/py_ref.h"
#include "indexing/index_ops.h"
#include "indexing/slots.h"
#include "kinds/object.h"

namespace kerova {

namespace {

// A new array object of the source's kind holding a partial copy of its cursor (same
// store, same records, empty caches); `cursor` receives the copy for the caller to adjust.
PyObject* newObjectWithCursorCopy(const MDACursor& source, MDACursor*& cursor) {
    PyRef object = PyRef::steal(newArrayObject(source.m_supportedArrayEnum));
    if (!object) return nullptr;
    try {
        cursor = new MDACursor(source);
    } catch (const std::bad_alloc&) {
        return PyErr_NoMemory();
    }
    reinterpret_cast<ArrayObject*>(object.get())->m_cursor = cursor;
    return object.release();
}

void raiseInvalidIndex(int64_t index) {
    const std::string text = "index has an invalid value: " + std::to_string(index);
    PyErr_SetString(PyExc_IndexError, text.c_str());
}

// The scalar at the parent's integer records and `final` on the last dimension. The
// address is the mirror plus one multiply-add per dimension.
PyObject* readFinalElement(const MDACursor& parent, size_t depth, int64_t final) {
    if (final < 0) {
        PyErr_SetString(PyExc_RuntimeError, "index not normalized.");
        return nullptr;
    }
    const MDArrayWrapper& store = *parent.m_store;
    const int64_t* strides = store.bytewiseStrides().data();
    const int64_t* shape = store.shape().data();
    if (parent.m_indexItems.size() < depth) {
        PyErr_SetString(PyExc_RuntimeError, "too many indices.");
        return nullptr;
    }
    // Records are settled against the shape when they are made; only a reshape of the
    // store since then can leave one outside it, which is reported after the other checks.
    int64_t offset = 0;
    bool outside = false;
    int64_t outsideIndex = 0;
    for (size_t k = 0; k < depth; ++k) {
        const auto* integer = std::get_if<IntegerIndexItem>(&parent.m_indexItems[k]);
        if (!integer) {
            PyErr_SetString(PyExc_RuntimeError, "slice index unexpectedly found.");
            return nullptr;
        }
        if (!outside && static_cast<uint64_t>(integer->m_index) >= static_cast<uint64_t>(shape[k])) {
            outside = true;
            outsideIndex = integer->m_index;
        }
        offset += strides[k] * integer->m_index;
    }
    if (!store.buf()) {
        PyErr_SetString(PyExc_RuntimeError, "null data pointer.");
        return nullptr;
    }
    if (!outside && final >= shape[depth]) {
        outside = true;
        outsideIndex = final;
    }
    if (outside) {
        raiseInvalidIndex(outsideIndex);
        return nullptr;
    }
    offset += strides[depth] * final;
    return parent.m_ops->toPython(store.buf() + offset);
}

PyObject* readInteger(const MDACursor& parent, Py_ssize_t index) {
    const MDArrayWrapper& store = *parent.m_store;
    const int64_t depth = parent.m_numberOfIntegerIndicesSoFar;
    const bool dropSlice = parent.endsInSlice();
    // The length of the dimension, or of the final slice; the common case inline.
    const int64_t len = !dropSlice && depth >= 0 && depth < store.nDim() ? store.shape()[static_cast<size_t>(depth)]
                                                                          : currentDimensionLength(parent);
    if (len < 0) return nullptr;
    const int64_t nDim = store.nDim();
    if (depth >= nDim) {
        PyErr_SetString(PyExc_RuntimeError, "too many indices.");
        return nullptr;
    }
    // Against the final slice's length when there is one: a negative index counts from
    // the end of the slice. An index in range is settled inline; the rest goes through
    // the full normalisation, which fails.
    IntegerIndexItem record{static_cast<int64_t>(index), false};
    if (record.m_index >= -len && record.m_index < len) {
        if (record.m_index < 0) record.m_index += len;
        record.m_isNormalized = true;
    } else if (!normalizeIntegerIndex(record, len)) {
        raiseInvalidIndex(index);
        return nullptr;
    }
    if (dropSlice && !mapIndexThroughSlice(parent, record, len)) return nullptr;

    if (depth == nDim - 1) return readFinalElement(parent, static_cast<size_t>(depth), record.m_index);

    MDACursor* cursor = nullptr;
    PyRef object = PyRef::steal(newObjectWithCursorCopy(parent, cursor));
    if (!object) return nullptr;
    if (dropSlice) cursor->m_indexItems.pop_back();
    pushIntegerIndex(*cursor, record);
    return object.release();
}

}  // namespace

PyObject* readByInteger(PyObject* self, Py_ssize_t index) {
    const MDACursor* cursor = checkedCursor(self);
    if (!cursor) return nullptr;
    return readInteger(*cursor, index);
}

PyObject* readByIndexObject(PyObject* self, PyObject* index) {
    const MDACursor* parent = checkedCursor(self);
    if (!parent) return nullptr;
    if (PyLong_Check(index)) {
        // An int beyond the 64-bit range stops here with its OverflowError.
        const Py_ssize_t position = PyLong_AsSsize_t(index);
        if (position == -1 && PyErr_Occurred()) return nullptr;
        return readInteger(*parent, position);
    }
    if (Py_TYPE(index) != &PySlice_Type) {
        PyErr_SetString(PyExc_RuntimeError, "index is not an integer or slice.");
        return nullptr;
    }
    const int64_t len = currentDimensionLength(*parent);
    if (len < 0) return nullptr;
    SliceIndexItem item;
    if (!sliceIndexFromPython(index, len, item)) return nullptr;
    // A slice of a slice folds into one record over the same dimension.
    const bool dropSlice = parent->endsInSlice();
    if (dropSlice && !composeSliceIndex(*parent, item, len)) return nullptr;

    MDACursor* cursor = nullptr;
    PyRef object = PyRef::steal(newObjectWithCursorCopy(*parent, cursor));
    if (!object) return nullptr;
    if (dropSlice) cursor->m_indexItems.pop_back();
    pushSliceIndex(*cursor, item);
    return object.release();
}

}  // namespace kerova
