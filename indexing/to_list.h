// An array, or what a cursor stands for, as nested Python lists.
#pragma once

#include <Python.h>

#include <cstdint>
#include <vector>

#include "core/cursor.h"

namespace kerova {

// T is the element type (std::complex<U> for a complex array). New list, or null with an
// error set.
template <typename T>
PyObject* cursorToList(const MDACursor& cursor);
template <typename T>
PyObject* listFromDepth(const MDACursor& cursor, std::vector<int64_t>& coordinates, size_t depth);

}  // namespace kerova
