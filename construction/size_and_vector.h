// The `size` and `vector` arguments.
//
// `size` names the dimensions: alone it makes an array of zeros, with an initializer it
// must agree with the initializer's shape, with flat data it is the shape that the data
// fills in column-major order. `vector` is a flat sequence of scalars written straight
// into the output buffer, without the scratch store.
#pragma once

#include <stdexcept>
#include <string>

#include "construction/initializer.h"
#include "construction/python_access.h"
#include "core/dimension_list.h"
#include "core/python_error.h"

namespace kerova {

template <typename T>
bool MDAInitializer<T>::parseSize(PyObject* value) {
    if (value == nullptr || value == Py_None) return false;
    DimensionList list = readDimensionList(value, 1);
    switch (list.fault) {
        case DimensionFault::NONE:
            break;
        case DimensionFault::NOT_A_SEQUENCE:
            PyErr_SetString(PyExc_TypeError, "value of 'size' must be a sequence.");
            return false;
        case DimensionFault::BAD_LENGTH:
            if (list.length == 0) PyErr_SetString(PyExc_ValueError, "sequence passed to 'size' must not be empty.");
            return false;  // otherwise the length's own error stands
        case DimensionFault::NO_MEMORY:
            return false;
        case DimensionFault::ITEM_UNREAD: {
            const std::string text = "Item " + std::to_string(list.item) +
                                     " could not be retrieved from the value associated with the 'size' keyword.";
            raiseOver(PyExc_RuntimeError, text.c_str());
            return false;
        }
        case DimensionFault::NOT_AN_INT:
            PyErr_SetString(PyExc_TypeError, "dimensions must be nonnegative integers.");
            return false;
        case DimensionFault::NEGATIVE:
            PyErr_SetString(PyExc_ValueError,
                            "size cannot contain negative dimensions. Use nonnegative integers for dimensions.");
            return false;
    }
    m_size.assign(list.dims.begin(), list.dims.end());
    // One dimension n is the row (1, n); trailing ones go while more than two remain.
    if (m_size.size() == 1) m_size.insert(m_size.begin(), 1);
    dropTrailingOnes(m_size);
    return true;
}

template <typename T>
typename MDAInitializer<T>::Block MDAInitializer<T>::fromVector(PyObject* value) {
    m_isVector = true;
    if (!PySequence_Check(value)) {
        PyErr_SetString(PyExc_ValueError, "value of 'vector' must be a sequence.");
        return std::nullopt;
    }
    if (PyUnicode_Check(value)) {
        PyErr_SetString(PyExc_ValueError, "value passed to 'vector' must be numeric.");
        return std::nullopt;
    }
    const Py_ssize_t n = PySequence_Size(value);
    if (n < 0) return std::nullopt;  // the length's own error stands

    if (m_size.empty()) m_dims.push_back(1);
    m_dims.push_back(static_cast<uint64_t>(n));
    if (!checkSizeAgainstDims()) return std::nullopt;

    data::buffer_ptr_t<T> buffer = data::requestBlock<T>(m_factory, static_cast<size_t>(n));
    if (!buffer) {
        raiseNoMemory(std::to_string(n));
        return std::nullopt;
    }
    T* out = buffer.get();
    for (Py_ssize_t i = 0; i < n; ++i) {
        PyRef holder;
        PyObject* item = sequenceItem(value, i, holder);
        if (item == nullptr) {
            const std::string text = "item " + std::to_string(i) + " could not be retrieved.";
            raiseOver(PyExc_RuntimeError, text.c_str());
            return std::nullopt;  // the partly written buffer ends through its deleter
        }
        if (!PyFloat_CheckExact(item) && !PyLong_CheckExact(item) && PySequence_Check(item)) {
            PyErr_SetString(PyExc_TypeError, "value of 'vector' must be an unnested sequence.");
            return std::nullopt;
        }
        std::optional<T> element;
        try {
            element = convertScalar<T>(item, true);
        } catch (const std::runtime_error& error) {
            PyErr_SetString(PyExc_RuntimeError, error.what());
            return std::nullopt;
        }
        // Every refusal of an element of `vector` is a ValueError, an overflow as well.
        if (!element) {
            raiseWithSameText(PyExc_ValueError);
            return std::nullopt;
        }
        if (PyErr_Occurred()) return std::nullopt;
        out[i] = *element;
    }
    return buffer;
}

}  // namespace kerova
