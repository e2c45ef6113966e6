// What a cursor stands for, as the list and text walks read it: one strided view of its
// open dimensions, taken once with the checks those walks make, in their order.
#pragma once

#include <Python.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "core/cursor.h"
#include "core/python_error.h"
#include "core/store.h"
#include "core/view.h"
#include "indexing/index_ops.h"
#include "indexing/slice_values.h"

namespace kerova {

// Coordinates come from records settled against the shape when they were made; a store
// reshaped since can leave them outside it, and then nothing is read.
inline bool coordinatesFitStore(const MDArrayWrapper& store, const std::vector<int64_t>& coordinates) {
    if (coordinates.size() > store.shape().size()) {
        PyErr_SetString(PyExc_RuntimeError, "too many indices.");
        return false;
    }
    for (size_t k = 0; k < coordinates.size(); ++k) {
        if (coordinates[k] < 0 || coordinates[k] >= store.shape()[k]) {
            const std::string text = "index has an invalid value: " + std::to_string(coordinates[k]);
            PyErr_SetString(PyExc_IndexError, text.c_str());
            return false;
        }
    }
    return true;
}

// The failure of a walk that could not make or place one of its items.
inline std::nullptr_t failListItem() {
    raiseOver(PyExc_RuntimeError, "unable to set list item.");
    return nullptr;
}

struct CursorView {
    // Level 0 is the first open dimension: the final slice's positions, when the cursor
    // ends in one. No levels: the cursor lies beyond its store, and stands for [].
    StridedView view;
    bool endsInSlice = false;
    // For a final slice: how many of its leading positions lie inside the dimension. A
    // store reshaped since the slice was made can leave the later ones outside, and the
    // walks fail when they reach the first of them.
    int64_t inStore = 0;
};

// The view of `cursor` (a final slice left out when `wholeLastDimension`, as pickling
// walks it); false with the error set.
inline bool viewOfCursor(const MDACursor& cursor, CursorView& result, bool wholeLastDimension = false) {
    const std::optional<std::vector<int64_t>> indices = integerIndices(cursor);
    if (!indices) return false;
    const std::vector<int64_t>& coordinates = *indices;
    const MDArrayWrapper& store = *cursor.m_store;
    const size_t depth = coordinates.size();
    if (wholeLastDimension || !cursor.endsInSlice()) {
        if (depth >= store.shape().size()) return true;
        if (!coordinatesFitStore(store, coordinates)) return false;
        result.view = StridedView::below(store, coordinates.data(), depth);
        return true;
    }

    const int64_t sliceDepth = cursor.m_numberOfIntegerIndicesSoFar;
    if (sliceDepth < 0 || sliceDepth >= store.nDim()) {
        PyErr_SetString(PyExc_RuntimeError, "too many indices.");
        return false;
    }
    const SliceIndexItem& slice = cursor.finalSlice();
    const int64_t length = store.shape()[static_cast<size_t>(sliceDepth)];
    if (!requireNormalized(slice, length)) return false;
    if (!coordinatesFitStore(store, coordinates)) return false;
    result.view = StridedView::below(store, coordinates.data(), depth);
    const int64_t count = sliceWalkCount(slice);
    const int64_t start = sliceValueAt(slice, 0);
    const int64_t step = slice.m_step.value_or(1);
    result.endsInSlice = true;
    result.view.origin = wrappingAdd(result.view.origin, wrappingMul(start, result.view.strides[0]));
    result.view.strides[0] = wrappingMul(step, result.view.strides[0]);
    result.view.lengths[0] = count;
    if (start < 0 || start >= length) {
        result.inStore = 0;
    } else if (step > 0) {
        result.inStore = std::min(count, (length - 1 - start) / step + 1);
    } else if (step < 0) {
        result.inStore = std::min(count, start / -step + 1);
    } else {
        result.inStore = count;
    }
    return true;
}

// Calls entry(k, offset) for each position of a cursor's final slice, in order; false at
// the first position that lies outside a reshaped store, after the entries before it,
// or at the first entry that answers false.
template <typename Entry>
bool forEachSliceEntry(const CursorView& cursorView, Entry&& entry) {
    const StridedView& view = cursorView.view;
    int64_t offset = view.origin;
    for (int64_t k = 0; k < view.lengths[0]; ++k, offset += view.strides[0]) {
        if (k >= cursorView.inStore || !entry(k, offset)) return false;
    }
    return true;
}

}  // namespace kerova
