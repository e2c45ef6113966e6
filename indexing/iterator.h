// KVPyIter: the iterator over the first open dimension of an array object.
#pragma once

#include <Python.h>

#include "core/cursor.h"

namespace kerova {

// A new KVPyIter over what `source` stands for (what iter(a) gives), or null with
// RuntimeError "unable to initialize C object." set.
PyObject* newIteratorObject(const MDACursor& source);

}  // namespace kerova
