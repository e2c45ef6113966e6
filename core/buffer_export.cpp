// The buffer protocol of the eleven array classes. A whole array exports its store's
// mirror as it stands, without a copy; a partial array exports a snapshot of its
// materialised copy, made at its first export.
//
// Every export keeps what its view points into: the mirror block, and private copies
// of the shape and the strides. A reshape of the store while the view lives then leaves
// the view reading the old elements with the old geometry instead of freed memory.
#include "core/buffer_export.h"

#include <memory>
#include <new>
#include <string>
#include <vector>

#include <boost/container/small_vector.hpp>

#include "core/cursor.h"
#include "core/python_error.h"
#include "kinds/object.h"

namespace kerova {

namespace {

// What one export holds, in view->internal from getbuffer to releasebuffer.
// Up to four dimensions it is one allocation.
struct ExportRecord {
    using Lengths = boost::container::small_vector<Py_ssize_t, 4>;
    std::shared_ptr<MDArrayWrapper> store;  // the store whose export count this export raised
    std::shared_ptr<MirrorBlock> mirror;
    Lengths shape;
    Lengths strides;
};

// Fails the export after the view was filled: the protocol wants obj null then.
int refuse(Py_buffer* view, PyObject* type, const char* message) {
    PyErr_SetString(type, message);
    view->obj = nullptr;
    return -1;
}

}  // namespace

int arrayGetBuffer(PyObject* self, Py_buffer* view, int flags) {
    MDACursor* cursor = checkedCursor(self);
    if (cursor == nullptr) {
        if (view != nullptr) view->obj = nullptr;
        return -1;
    }
    if (view == nullptr) {
        PyErr_SetString(PyExc_RuntimeError, "null pointer to view object null.");
        return -1;
    }

    MDACursor* exported = cursor;
    if (!cursor->m_indexItems.empty()) {
        if (!cursor->m_materializedCursor) {
            if (const std::optional<data::Array> copy = cursor->getIndexedArrayAsMDA(0, true)) {
                cursor->m_materializedCursor.reset(makeCursor(*copy, cursor->m_supportedArrayEnum,
                                                              cursor->m_isComplex,
                                                              cursor->m_store->order() == 'F'));
            }
        }
        if (!cursor->m_materializedCursor) {
            raiseOver(PyExc_RuntimeError, "null data pointer.");
            return -1;
        }
        exported = cursor->m_materializedCursor.get();
    }
    const std::shared_ptr<MDArrayWrapper>& store = exported->m_store;

    view->obj = self;
    view->buf = store->buf();
    view->len = static_cast<Py_ssize_t>(store->bufferSizeInBytes());
    view->itemsize = static_cast<Py_ssize_t>(store->elemSizeInBytes());
    view->ndim = store->nDim();
    if ((flags & PyBUF_WRITABLE) != 0 && store->isReadOnly() != 0)
        return refuse(view, PyExc_ValueError, "underlying buffer is not writable.");
    view->readonly = store->isReadOnly();
    view->format = nullptr;
    if ((flags & PyBUF_FORMAT) != 0) {
        const char* format = store->format();
        if (format == nullptr) return refuse(view, PyExc_ValueError, "format field is null.");
        view->format = const_cast<char*>(format);
    }
    if ((flags & PyBUF_C_CONTIGUOUS) == PyBUF_C_CONTIGUOUS)
        return refuse(view, PyExc_ValueError, "underlying buffer not C-contiguous.");

    ExportRecord* record = nullptr;
    try {
        record = new ExportRecord{store, store->mirror(), {store->shape().begin(), store->shape().end()},
                                  {store->bytewiseStrides().begin(), store->bytewiseStrides().end()}};
    } catch (const std::bad_alloc&) {
        PyErr_NoMemory();
        view->obj = nullptr;
        return -1;
    }
    view->shape = record->shape.data();
    view->strides = record->strides.data();
    view->suboffsets = nullptr;
    view->internal = record;
    Py_IncRef(self);
    store->exportTaken();
    return 0;
}

void arrayReleaseBuffer(PyObject*, Py_buffer* view) {
    if (view == nullptr || view->internal == nullptr) return;
    auto* record = static_cast<ExportRecord*>(view->internal);
    record->store->exportReleased();
    view->internal = nullptr;
    delete record;
}

}  // namespace kerova
