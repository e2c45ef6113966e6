// Small helpers for reading Python sequences and buffers during construction.
#pragma once

#include <Python.h>

#include "core/py_ref.h"

namespace kerova {

// Item `index` of a sequence, or null if it cannot be had (a Python error may then be
// pending; callers replace it with their own).
//
// Exact lists and tuples are read in place, without a call through the sequence
// protocol. An exact float or int taken from a list is used borrowed: reading it runs
// no Python code, so nothing can drop it from the list meanwhile. Every other item of
// a list is held in `holder` for as long as the caller works on it, because walking it
// may run Python code (a __len__, a __getitem__) that changes the list. The length of a
// list is read again for each item for the same reason. Tuple items are fixed for the
// tuple's life, which the caller guarantees.
inline PyObject* sequenceItem(PyObject* sequence, Py_ssize_t index, PyRef& holder) {
    if (PyList_CheckExact(sequence)) {
        if (index >= PyList_GET_SIZE(sequence)) return nullptr;
        PyObject* item = PyList_GET_ITEM(sequence, index);
        if (!PyFloat_CheckExact(item) && !PyLong_CheckExact(item)) holder = PyRef::borrow(item);
        return item;
    }
    if (PyTuple_CheckExact(sequence)) {
        return index < PyTuple_GET_SIZE(sequence) ? PyTuple_GET_ITEM(sequence, index) : nullptr;
    }
    holder = PyRef::steal(PySequence_GetItem(sequence, index));
    return holder.get();
}

// A Py_buffer that is released exactly once: by release(), or when the guard ends.
class BufferView {
public:
    BufferView() = default;
    BufferView(const BufferView&) = delete;
    BufferView& operator=(const BufferView&) = delete;
    ~BufferView() { release(); }

    // PyObject_GetBuffer; false with the exporter's error set.
    bool acquire(PyObject* exporter, int flags) {
        if (PyObject_GetBuffer(exporter, &m_view, flags) != 0) return false;
        m_held = true;
        return true;
    }
    void release() noexcept {
        if (m_held) {
            m_held = false;
            PyBuffer_Release(&m_view);
        }
    }
    const Py_buffer& view() const noexcept { return m_view; }

private:
    Py_buffer m_view{};
    bool m_held = false;
};

}  // namespace kerova
