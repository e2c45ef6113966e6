// One row of element operations per library element type, built from the element types
// of the library: the bytes of one element as the Python scalar that reading it gives,
// as the text of that scalar, and compared with an element of the same kind by the rules
// of Python's ==. Every walk calls a row instead of a template stamped per kind.
#pragma once

#include <Python.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "data_array/element_types.h"
#include "kinds/element_kinds.h"

namespace kerova {

// The bytes may be unaligned (a mirror is a plain byte block), so they are loaded with
// memcpy, which compiles to a plain load.
template <typename T>
inline T loadElement(const char* bytes) noexcept {
    T value;
    std::memcpy(&value, bytes, sizeof(T));
    return value;
}

// A hint to fetch the memory `offset` bytes from `base`, where a walk is about to go. The
// address is only a hint: it may lie outside any object, so it is formed as an integer.
template <int ForWriting = 0>
inline void prefetchAt(const void* base, int64_t offset) noexcept {
    __builtin_prefetch(reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(base) + offset), ForWriting);
}

// One level of two boxes compared pair by pair: `length` positions, `strideA` bytes apart
// in the first, `strideB` in the second.
struct CompareLevel {
    int64_t length;
    int64_t strideA;
    int64_t strideB;
};

// Comparing the elements of one row with those of another.
struct ElementComparison {
    // Python's == on the scalars that the two elements read as: 1 or 0.
    int (*elements)(const char* a, const char* b) noexcept;
    // Whether every pair of the two boxes is equal; levels[0] is the innermost level and
    // levels[top] the outermost.
    bool (*levels)(const char* a, const char* b, const CompareLevel* levels, size_t top);
};

struct ElementOps {
    data::ArrayType type;
    int64_t itemSize;
    const char* format;  // the PEP 3118 format for an array class's types, null otherwise
    // The Python scalar the element reads as: int for the integer kinds, float for single
    // and double, bool for logical, complex for every complex kind (both parts through
    // double), a 16-bit unsigned int for the library's characters. Null with an error set.
    PyObject* (*toPython)(const char* bytes);
    // Appends the repr of `count` such scalars, `stride` bytes apart from `first` on, each
    // after the first behind "," (", " with `blanks`); false with MemoryError set.
    bool (*appendText)(std::string& out, const char* first, int64_t stride, int64_t count, bool blanks);
    // Against the real and the complex type of the same kind; null members where the
    // element type belongs to no kind, or the kind has no complex type.
    ElementComparison withReal;
    ElementComparison withComplex;
};

// The row of a library element type; null for a type number without an element type.
const ElementOps* elementOpsOf(data::ArrayType type) noexcept;

// The row of the elements that an array of `kind` holds (logical has no complex form).
const ElementOps& elementOpsOf(SupportedArrayEnum kind, bool isComplex) noexcept;

}  // namespace kerova
