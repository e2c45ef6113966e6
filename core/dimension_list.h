// Reading a Python sequence of dimensions, as `size=` and reshape() take them. The two
// word their refusals differently, so the reading reports what failed and each caller
// raises its own error for it.
#pragma once

#include <Python.h>

#include <cstdint>
#include <exception>
#include <boost/container/small_vector.hpp>

#include "core/py_ref.h"

namespace kerova {

enum class DimensionFault {
    NONE,
    NOT_A_SEQUENCE,
    BAD_LENGTH,   // fewer entries than asked for; PySequence_Size's own error, if any, is set
    NO_MEMORY,    // MemoryError is set: a length that no sequence of dimensions can have
    ITEM_UNREAD,  // entry `item` could not be read
    NOT_AN_INT,
    NEGATIVE,     // also an int too large for a signed word, which reads as -1
};

// Dimensions, inline up to four, so that reading the shape of an everyday array
// allocates nothing.
template <typename D>
using DimVector = boost::container::small_vector<D, 4>;

struct DimensionList {
    DimVector<int64_t> dims;
    DimensionFault fault = DimensionFault::NONE;
    Py_ssize_t length = 0;  // the sequence's length, -1 if it has none
    Py_ssize_t item = 0;
};

// The dimensions in `value`, a sequence of at least `minLength` nonnegative ints, read
// once in order; the first fault stops the reading.
inline DimensionList readDimensionList(PyObject* value, Py_ssize_t minLength) {
    DimensionList list;
    const auto fail = [&list](DimensionFault fault) {
        list.fault = fault;
        return std::move(list);
    };
    if (value == nullptr || value == Py_None || !PySequence_Check(value)) return fail(DimensionFault::NOT_A_SEQUENCE);
    list.length = PySequence_Size(value);
    if (list.length < minLength) return fail(DimensionFault::BAD_LENGTH);
    try {
        list.dims.reserve(static_cast<size_t>(list.length));
    } catch (const std::exception&) {
        PyErr_NoMemory();
        return fail(DimensionFault::NO_MEMORY);
    }
    for (; list.item < list.length; ++list.item) {
        const PyRef entry = PyRef::steal(PySequence_GetItem(value, list.item));
        if (!entry) return fail(DimensionFault::ITEM_UNREAD);
        if (!PyLong_Check(entry.get())) return fail(DimensionFault::NOT_AN_INT);
        const Py_ssize_t dimension = PyLong_AsSsize_t(entry.get());
        if (dimension < 0) return fail(DimensionFault::NEGATIVE);
        list.dims.push_back(dimension);
    }
    return list;
}

// Trailing dimensions of length 1 go while more than two remain.
template <typename Dims>
void dropTrailingOnes(Dims& dims) {
    while (dims.size() > 2 && dims.back() == 1) dims.pop_back();
}

}  // namespace kerova
