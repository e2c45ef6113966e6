// Making the array object that one index step gives: a new object of the source's kind
// with a partial copy of the source's cursor (same store, same records, empty caches).
#pragma once

#include <Python.h>

#include "core/cursor.h"

namespace kerova {

// A new array object holding a copy of `source`; `*cursor` receives the copy, which the
// caller then adjusts. Null with RuntimeError "unable to initialize C object." when the
// object can't be allocated, or MemoryError when the cursor can't.
PyObject* newObjectWithCursorCopy(const MDACursor& source, MDACursor*& cursor);

}  // namespace kerova
