// Checks shared by the walks over what a cursor stands for (nested lists, text).
#pragma once

#include <Python.h>

#include <cstdint>
#include <string>
#include <vector>

#include "core/store.h"

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

}  // namespace kerova
