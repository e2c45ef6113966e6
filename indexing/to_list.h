// An array, or what a cursor stands for, as nested Python lists.
#pragma once

#include <Python.h>

#include <cstdint>
#include <vector>

#include "core/cursor.h"
#include "kinds/element_ops.h"

namespace kerova {

// `ops` is the row of the elements' type. New list, or null with an error set.
PyObject* cursorToList(const MDACursor& cursor, const ElementOps& ops);
// The same with a final slice left out: its whole dimension is walked, as pickling does.
PyObject* integerRecordsToList(const MDACursor& cursor, const ElementOps& ops);

}  // namespace kerova
