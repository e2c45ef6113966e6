// The library's element types: one C++ type per ArrayType number, and back.
#pragma once

#include <complex>
#include <cstdint>
#include <type_traits>

#include "data_array/function_table.h"

namespace kerova::data {

template <typename T>
struct is_complex : std::false_type {};
template <typename T>
struct is_complex<std::complex<T>> : std::true_type {};
template <typename T>
inline constexpr bool is_complex_v = is_complex<T>::value;

// The part type of a complex element, the type itself otherwise.
template <typename T>
struct part_type { using type = T; };
template <typename T>
struct part_type<std::complex<T>> { using type = T; };
template <typename T>
using part_type_t = typename part_type<T>::type;

// Every element type with its ArrayType number.
#define KEROVA_ELEMENT_TYPES(X)                    \
    X(bool, LOGICAL)                               \
    X(char16_t, CHAR)                              \
    X(double, DOUBLE)                              \
    X(float, SINGLE)                               \
    X(int8_t, INT8)                                \
    X(uint8_t, UINT8)                              \
    X(int16_t, INT16)                              \
    X(uint16_t, UINT16)                            \
    X(int32_t, INT32)                              \
    X(uint32_t, UINT32)                            \
    X(int64_t, INT64)                              \
    X(uint64_t, UINT64)                            \
    X(std::complex<double>, COMPLEX_DOUBLE)        \
    X(std::complex<float>, COMPLEX_SINGLE)         \
    X(std::complex<int8_t>, COMPLEX_INT8)          \
    X(std::complex<uint8_t>, COMPLEX_UINT8)        \
    X(std::complex<int16_t>, COMPLEX_INT16)        \
    X(std::complex<uint16_t>, COMPLEX_UINT16)      \
    X(std::complex<int32_t>, COMPLEX_INT32)        \
    X(std::complex<uint32_t>, COMPLEX_UINT32)      \
    X(std::complex<int64_t>, COMPLEX_INT64)        \
    X(std::complex<uint64_t>, COMPLEX_UINT64)

template <typename T>
struct array_type_of;  // undefined for types the library does not hold

#define KEROVA_ARRAY_TYPE_OF(type, name)                                          \
    template <>                                                                   \
    struct array_type_of<type> : std::integral_constant<ArrayType, ArrayType::name> {};
KEROVA_ELEMENT_TYPES(KEROVA_ARRAY_TYPE_OF)
#undef KEROVA_ARRAY_TYPE_OF

template <typename T>
inline constexpr ArrayType array_type_v = array_type_of<std::remove_const_t<T>>::value;

template <typename T>
inline constexpr int array_type_int_v = static_cast<int>(array_type_v<T>);

// The element type of a run-time ArrayType number: visitor(std::type_identity<T>{}) for
// the type the number stands for, `otherwise` for a number without one.
template <typename Result, typename Visitor>
Result visitElementType(ArrayType type, Result otherwise, Visitor&& visitor) {
    switch (type) {
#define KEROVA_VISIT_ELEMENT_TYPE(element, name) \
    case ArrayType::name:                        \
        return visitor(std::type_identity<element>{});
        KEROVA_ELEMENT_TYPES(KEROVA_VISIT_ELEMENT_TYPE)
#undef KEROVA_VISIT_ELEMENT_TYPE
        default:
            return otherwise;
    }
}

}  // namespace kerova::data
