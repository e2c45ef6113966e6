// Nested sequences: one recursive pass that finds the shape and collects the elements,
// the completion of a one-dimensional shape, and the agreement with `size`.
//
// Elements are collected in the order the walk meets them, the last index of the
// nesting fastest: row-major relative to the nested list. m_isColumnMajor stays false
// for such data, and the library array built from it reads back with the indices of
// the nested list.
#pragma once

#include <stdexcept>

#include "construction/initializer.h"
#include "construction/python_access.h"
#include "core/python_error.h"
#include "kinds/object.h"

namespace kerova {

namespace scan_detail {
// A sequence for the walk; exact floats and ints are settled without the protocol test.
inline bool isSequence(PyObject* object) {
    return !PyFloat_CheckExact(object) && !PyLong_CheckExact(object) && PySequence_Check(object);
}
// convertScalar, with a standard runtime error turned into a RuntimeError.
template <typename T>
std::optional<T> convertForScan(PyObject* object, bool allowFloatForLogical) {
    try {
        return convertScalar<T>(object, allowFloatForLogical);
    } catch (const std::runtime_error& error) {
        PyErr_SetString(PyExc_RuntimeError, error.what());
        return std::nullopt;
    }
}

inline constexpr int kMaxNesting = 10000;

inline bool raiseNullDataPointer() {
    raiseOver(PyExc_RuntimeError, "null data pointer.");
    return false;
}
}  // namespace scan_detail

template <typename T>
bool MDAInitializer<T>::scan(PyObject* object, bool allowFloatForLogical) {
    if (object == nullptr) return scan_detail::raiseNullDataPointer();
    if (scan_detail::isSequence(object)) {
        if (PyUnicode_Check(object)) {
            PyErr_SetString(PyExc_ValueError, "value passed to initializer must be numeric.");
            return false;
        }
        // Deep nesting ends in RecursionError rather than in a stack overflow: at Python's
        // recursion limit, or at the depth that a thread's stack of 8 MiB surely holds,
        // whichever comes first, since a raised limit does not make the stack larger.
        if (m_nesting >= scan_detail::kMaxNesting) {
            PyErr_SetString(PyExc_RecursionError, "maximum recursion depth exceeded while reading a nested sequence");
            return false;
        }
        if (Py_EnterRecursiveCall(" while reading a nested sequence")) return false;
        ++m_nesting;
        const bool walked = scanSequence(object, allowFloatForLogical);
        --m_nesting;
        Py_LeaveRecursiveCall();
        return walked;
    }
    return scanScalar(object, allowFloatForLogical);
}

template <typename T>
bool MDAInitializer<T>::scanScalar(PyObject* object, bool allowFloatForLogical) {
    const std::optional<T> element = scan_detail::convertForScan<T>(object, allowFloatForLogical);
    return element && acceptElement(*element);
}

// Places a converted scalar: all scalars stand at one depth, and the first one tells how
// many elements a rectangular input holds, for the one reservation.
template <typename T>
bool MDAInitializer<T>::acceptElement(const T& element) {
    if (m_leafDepth == 0) {
        m_leafDepth = m_depth;
    } else if (m_leafDepth != m_depth) {
        PyErr_SetString(PyExc_ValueError, "arrays must be rectangular.");
        return false;
    }
    appendElement(element);
    if (m_dims.empty()) {  // the whole initializer is this one scalar
        m_dims.push_back(1);
        m_dims.push_back(1);
    }
    if (!m_isReserved) return reserveElements(productOfDims(m_lengths));
    return true;
}

// A row of exact numbers met once the scalars' depth is known and the store reserved:
// one pass converts the items, and all of them converting proves the row uniform, so
// the separate test of the items is skipped (it would touch every item twice). Any
// other item undoes the row, which then takes the general walk with its order of
// checks. Empty when the row was not taken; the result of the level otherwise.
template <typename T>
std::optional<bool> MDAInitializer<T>::scanNumberRow(PyObject* sequence) {
    if (!m_isReserved || m_leafDepth != m_depth + 1) return std::nullopt;
    if (!PyList_CheckExact(sequence) && !PyTuple_CheckExact(sequence)) return std::nullopt;
    const Py_ssize_t length = PySequence_Fast_GET_SIZE(sequence);
    PyObject* const* items = PySequence_Fast_ITEMS(sequence);
    const size_t start = m_elements.size();
    if (length == 0 || m_elements.capacity() - start < static_cast<size_t>(length)) return std::nullopt;
    for (Py_ssize_t i = 0; i < length; ++i) {
        T element;
        if (!fastConvert<T>(items[i], element)) {
            m_elements.resize(start);
            return std::nullopt;
        }
        m_elements.push_back(element);
    }
    ++m_depth;
    m_lengths[m_depth - 1] = static_cast<uint64_t>(length);
    return finishLevel();
}

template <typename T>
bool MDAInitializer<T>::scanSequence(PyObject* sequence, bool allowFloatForLogical) {
    if (const std::optional<bool> row = scanNumberRow(sequence)) return *row;
    const ChildCheck children = checkChildren(sequence);
    if (children.failed) return false;
    if (!children.uniform) {
        PyErr_SetString(PyExc_ValueError, "elements of array are of different lengths or types.");
        return false;
    }

    ++m_depth;
    if (m_dims.size() < m_depth) m_dims.push_back(0);
    if (m_lengths.size() < m_depth) m_lengths.push_back(0);
    const size_t d = m_depth - 1;
    m_lengths[d] = static_cast<uint64_t>(children.length);

    for (Py_ssize_t i = 0; i < children.length; ++i) {
        PyRef holder;
        PyObject* item = sequenceItem(sequence, i, holder);
        if (item == nullptr) return scan_detail::raiseNullDataPointer();
        T element;
        if (fastConvert<T>(item, element)) {
            // The settled case of every scalar after the first: right depth, reserved.
            if (m_leafDepth == m_depth && m_isReserved) {
                appendElement(element);
                continue;
            }
            if (!acceptElement(element)) return false;
            continue;
        }
        const bool scanned = PyFloat_CheckExact(item) || PyLong_CheckExact(item) ? scanScalar(item, allowFloatForLogical)
                                                                                 : scan(item, allowFloatForLogical);
        if (!scanned) return false;
    }
    return finishLevel();
}

// Closes the level at m_depth, whose length is in m_lengths: the first sequence of the
// level fixes its dimension, the others must match it.
template <typename T>
bool MDAInitializer<T>::finishLevel() {
    const size_t d = m_depth - 1;
    // An empty sequence fixes no dimension: 0 stands for "not yet known".
    if (m_dims[d] == 0) {
        m_dims[d] = m_lengths[d];
    } else if (m_lengths[d] != m_dims[d]) {
        PyErr_SetString(PyExc_ValueError, "arrays must be rectangular.");
        return false;
    }
    m_lengths[d] = 0;
    --m_depth;
    // Empty sequences fix no dimension, so siblings that differ only below an empty
    // one pass the tests above ([[[]], [[1]]]). The finished walk must account for
    // exactly the elements it collected, or the array would claim elements it lacks.
    if (m_depth == 0 && productOfDims(m_dims) != elementCount()) {
        PyErr_SetString(PyExc_ValueError, "arrays must be rectangular.");
        return false;
    }
    return true;
}

// Compares the direct items only: all sequences of one length, or no sequence at all.
template <typename T>
ChildCheck MDAInitializer<T>::checkChildren(PyObject* sequence) {
    ChildCheck result{true, PySequence_Size(sequence), false};
    if (result.length < 0) {
        result.failed = true;  // the length's own error stands
        return result;
    }
    if (result.length < 2) return result;

    PyRef firstHolder;
    PyObject* first = sequenceItem(sequence, 0, firstHolder);
    if (first == nullptr) {
        scan_detail::raiseNullDataPointer();
        result.failed = true;
        return result;
    }
    const bool firstIsSequence = scan_detail::isSequence(first);
    const Py_ssize_t firstLength = firstIsSequence ? PySequence_Size(first) : 0;
    if (firstLength < 0) {
        result.failed = true;
        return result;
    }
    for (Py_ssize_t i = 1; i < result.length; ++i) {
        PyRef holder;
        PyObject* item = sequenceItem(sequence, i, holder);
        if (item == nullptr) {
            scan_detail::raiseNullDataPointer();
            result.failed = true;
            return result;
        }
        if (scan_detail::isSequence(item) != firstIsSequence) {
            result.uniform = false;
            return result;
        }
        if (firstIsSequence) {
            const Py_ssize_t length = PySequence_Size(item);
            if (length < 0) {
                result.failed = true;
                return result;
            }
            if (length != firstLength) {
                result.uniform = false;
                return result;
            }
        }
    }
    return result;
}

// Completes a one-dimensional shape: n elements are the row (1, n), none are (0, 0).
// With `size` given, only the number of elements is held against it here.
template <typename T>
bool MDAInitializer<T>::finishShape() {
    if (m_dims.size() != 1) return true;
    if (!m_size.empty()) {
        if (elementCount() != numElements()) return raiseSizeMismatch(g_shapeError);
        return true;
    }
    const uint64_t n = m_dims[0];
    m_dims = n > 0 ? Dims{1, n} : Dims{0, 0};
    return true;
}

// ShapeError for a different number of elements, SizeError for the same number in a
// different shape. A flat initializer fills the `size` shape in column-major order; a
// nested one is never reshaped.
template <typename T>
bool MDAInitializer<T>::checkSizeAgainstDims() {
    const Dims& S = m_size;
    const Dims& D = m_dims;
    if (S.empty() || S == D) return true;
    const uint64_t pS = productOfDims(S);
    const uint64_t pD = productOfDims(D);
    if (pS != pD) return raiseSizeMismatch(g_shapeError);
    if (S.size() == 2 && S[0] == 1 && D.size() == 1 && D[0] == 1) return true;
    if (D.size() == 1 && D[0] > 1) {
        m_isColumnMajor = true;
        return true;
    }
    if (pD == 0) return true;  // empty data fits any empty shape
    return raiseSizeMismatch(g_sizeError);
}

}  // namespace kerova
