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
// The same with a final slice left out: its whole dimension is walked, as pickling does.
template <typename T>
PyObject* integerRecordsToList(const MDACursor& cursor);

}  // namespace kerova
