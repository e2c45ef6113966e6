// The native entry table published as the capsule "kerovamultidimarrayforpython._capi",
// and the buffer classification behind its arrayFromBuffer entry.
#pragma once

#include <Python.h>

#include <cstdint>
#include <optional>

#include "construction/python_access.h"
#include "data_array/function_table.h"

namespace kerova {

// The five entries, in the order of g_capiTable. Every one requires the caller to hold
// the interpreter lock.

// Takes ownership of `impl` (released also on failure) and returns a new array object
// over it, or null with an error set.
PyObject* wrapArray(ArrayImpl* impl);
// The library array behind an array object, borrowed: valid while the object lives.
// A partial array lends its cached materialised copy. Null with an error set on failure.
ArrayImpl* unwrapArray(PyObject* object);
// A new array made by the constructor from a buffer object; `*typeNumber` is the
// format's number (plus 10 for a complex format), 32 when the buffer was not classified.
// Null without an error set when `object` exports no buffer.
PyObject* arrayFromBuffer(PyObject* object, int32_t* typeNumber);
// Destroys an array object at once, whatever its reference count says.
void destroyObject(PyObject* object);
// Whether `object` exports the buffer protocol; sets no error.
bool checkBuffer(PyObject* object);

// What a buffer's format says: the number of its element kind (3 for "d" ... 12 for
// "Q", 13 for "?"), and whether a "Z" format makes it complex.
struct BufferClass {
    int32_t number;
    bool isComplex;
};

// The class of the buffer that `object` exports, through a view taken into `view`;
// empty with the exporter's error set, or RuntimeError for a null, empty or unknown
// format. `object` exports the buffer protocol.
std::optional<BufferClass> classifyBuffer(PyObject* object, BufferView& view);

// The number of a format character: the position in "dfbBhHiIqQ?" plus 3. An unknown
// character writes "Format character not found in enum: " and the character to stderr.
std::optional<int32_t> formatToArrayType(char character);

}  // namespace kerova
