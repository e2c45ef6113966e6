// One element's bytes as the Python scalar that reading it gives: int for the integer
// kinds, float for single and double, bool for logical, complex for every complex kind
// (both parts through double), and a 16-bit unsigned int for the library's character
// arrays. The bytes may be unaligned (a mirror is a plain byte block), so they are
// loaded with memcpy, which compiles to a plain load.
#pragma once

#include <Python.h>

#include <complex>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "data_array/element_types.h"
#include "kinds/element_kinds.h"

namespace kerova {

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

template <typename T>
inline PyObject* elementToPython(const char* bytes) {
    if constexpr (data::is_complex_v<T>) {
        const T value = loadElement<T>(bytes);
        return PyComplex_FromDoubles(static_cast<double>(value.real()), static_cast<double>(value.imag()));
    } else if constexpr (std::is_same_v<T, bool>) {
        // The stored byte, read as a byte: any non-zero value is true.
        return PyBool_FromLong(static_cast<unsigned char>(*bytes));
    } else if constexpr (std::is_same_v<T, char16_t>) {
        return PyLong_FromUnsignedLongLong(loadElement<uint16_t>(bytes));
    } else if constexpr (std::is_floating_point_v<T>) {
        return PyFloat_FromDouble(static_cast<double>(loadElement<T>(bytes)));
    } else if constexpr (std::is_signed_v<T>) {
        return PyLong_FromLongLong(static_cast<long long>(loadElement<T>(bytes)));
    } else {
        return PyLong_FromUnsignedLongLong(static_cast<unsigned long long>(loadElement<T>(bytes)));
    }
}

// The element type that a cursor of kind K holds (logical has no complex form).
template <SupportedArrayEnum K, bool Complex>
using stored_element_t =
    std::conditional_t<Complex && K != SupportedArrayEnum::LOGICAL, std::complex<element_t<K>>, element_t<K>>;

using ElementReader = PyObject* (*)(const char*);

// The reader for a library element type; null for a type number without one.
inline ElementReader readerForType(data::ArrayType type) noexcept {
    return data::visitElementType<ElementReader>(
        type, nullptr, [](auto tag) -> ElementReader { return &elementToPython<typename decltype(tag)::type>; });
}

// The reader for a kind and complexity, as the cursor records them.
inline ElementReader readerForKind(SupportedArrayEnum kind, bool isComplex) noexcept {
    const KindDescriptor& info = kindInfo(kind);
    return readerForType(isComplex && info.hasComplex ? info.complexType : info.realType);
}

}  // namespace kerova
