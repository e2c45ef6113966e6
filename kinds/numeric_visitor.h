// apply_numeric_visitor: turns the run-time ArrayType of a library array into the
// compile-time element type, and calls the visitor with the matching TypedArray.
#pragma once

#include <utility>

#include "data_array/array.h"

namespace kerova {

template <typename T>
struct typed_array_for {
    using type = data::TypedArray<T>;
};
template <>
struct typed_array_for<char16_t> {
    using type = data::CharArray;
};

// The element type of a TypedArray (CharArray included), for visitors:
// `using T = typed_element_t<decltype(typed)>;`
template <typename T>
T typedElementTag(const data::TypedArray<T>&);
template <typename TypedArrayRef>
using typed_element_t = decltype(typedElementTag(std::declval<const std::decay_t<TypedArrayRef>&>()));

// `array` is a data::Array, passed as an lvalue (the TypedArray shares the handle) or
// an rvalue (the TypedArray takes it over, so the handle stays unique).
template <typename ArrayRef, typename Visitor>
decltype(auto) apply_numeric_visitor(ArrayRef&& array, Visitor&& visitor) {
    switch (array.type()) {
#define KEROVA_VISIT_CASE(element, name) \
    case data::ArrayType::name:       \
        return visitor(typename typed_array_for<element>::type(std::forward<ArrayRef>(array)));
        KEROVA_ELEMENT_TYPES(KEROVA_VISIT_CASE)
#undef KEROVA_VISIT_CASE
        default:
            break;
    }
    throw data::detail::ArrayException<Exception, 9>("Invalid type of array passed to apply_numeric_visitor.");
}

}  // namespace kerova
