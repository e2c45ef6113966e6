// Checks shared by the walks over what a cursor stands for (nested lists, text).
#pragma once

#include <Python.h>

#include <cstdint>
#include <string>
#include <vector>

#include "core/cursor.h"
#include "core/store.h"
#include "indexing/index_ops.h"
#include "indexing/slice_values.h"

namespace kerova {

// Coordinates come from records settled against the shape when they were made; a store
// reshaped since can leave them outside it, and then nothing is read.
inline bool coordinatesFitStore(const MDArrayWrapper& store, const std::vector<int64_t>& coordinates) {
    if (coordinates.size() > store.m_shape.size()) {
        PyErr_SetString(PyExc_RuntimeError, "too many indices.");
        return false;
    }
    for (size_t k = 0; k < coordinates.size(); ++k) {
        if (coordinates[k] < 0 || coordinates[k] >= store.m_shape[k]) {
            const std::string text = "index has an invalid value: " + std::to_string(coordinates[k]);
            PyErr_SetString(PyExc_IndexError, text.c_str());
            return false;
        }
    }
    return true;
}

// The failure of a walk that could not make or place one of its items.
inline std::nullptr_t failListItem() {
    PyErr_SetString(PyExc_RuntimeError, "unable to set list item.");
    return nullptr;
}

// The final slice of a cursor that ends in one, settled for a walk over its positions.
struct FinalSliceWalk {
    const SliceIndexItem* slice = nullptr;
    int64_t depth = 0;   // the dimension the slice runs over
    int64_t count = 0;   // positions the slice visits
    int64_t length = 0;  // length of that dimension
};

// Checks, in the walks' order, that the slice's dimension exists, that the slice is
// normalised and that the integer coordinates in front of it lie in the store; false
// with the error set. The coordinates get room for a full set.
inline bool prepareFinalSliceWalk(const MDACursor& cursor, std::vector<int64_t>& coordinates, FinalSliceWalk& walk) {
    const MDArrayWrapper& store = *cursor.m_store;
    walk.depth = cursor.m_numberOfIntegerIndicesSoFar;
    if (walk.depth < 0 || walk.depth >= store.m_nDim) {
        PyErr_SetString(PyExc_RuntimeError, "too many indices.");
        return false;
    }
    walk.slice = &cursor.finalSlice();
    walk.length = store.m_shape[static_cast<size_t>(walk.depth)];
    if (!walk.slice->m_isNormalized) {
        bool ok = false;
        getIntegerIndexValues(*walk.slice, walk.length, ok);  // sets the error
        return false;
    }
    if (!coordinatesFitStore(store, coordinates)) return false;
    coordinates.reserve(store.m_shape.size());
    walk.count = sliceWalkCount(*walk.slice);
    return true;
}

}  // namespace kerova
