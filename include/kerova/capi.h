// The native interface of kerova for other extension modules: the table of five entries
// published as the capsule "kerovamultidimarrayforpython._capi", by position, and the
// library types they pass. Installed with the package under kerova.get_include().
//
//     void** table = (void**)PyCapsule_Import(KEROVA_CAPI_CAPSULE, 0);
//     PyObject* array = ((kerova_capi::arrayFromBuffer_t)table[kerova_capi::ARRAY_FROM_BUFFER])(obj, &number);
//
// Hold the interpreter lock for every call.
#pragma once

#include <Python.h>

#include <cstdint>

#include "data_array/function_table.h"  // ArrayImpl, get_function_ptr, the operation types

#define KEROVA_CAPI_CAPSULE "kerovamultidimarrayforpython._capi"

namespace kerova_capi {

// A new array object that takes over `impl` (released also on failure); null with an
// error set on failure.
typedef PyObject* (*wrapArray_t)(ArrayImpl* impl);
// The library array behind an array object, borrowed: valid while the object lives.
typedef ArrayImpl* (*unwrapArray_t)(PyObject* array);
// A new array built by the constructor from a buffer object, and the format's number;
// null without an error when the object exports no buffer.
typedef PyObject* (*arrayFromBuffer_t)(PyObject* object, int32_t* typeNumber);
// Destroys an array object at once, whatever its reference count.
typedef void (*destroyObject_t)(PyObject* array);
// Whether the object exports the buffer protocol; sets no error.
typedef bool (*checkBuffer_t)(PyObject* object);

enum Entry { WRAP_ARRAY = 0, UNWRAP_ARRAY = 1, ARRAY_FROM_BUFFER = 2, DESTROY_OBJECT = 3, CHECK_BUFFER = 4 };
constexpr int kEntries = 5;

}  // namespace kerova_capi
