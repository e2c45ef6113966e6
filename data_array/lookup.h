// Finding the library's numbered operations. Every wrapper keeps the pointers it
// uses in its own function-local statics:
//     static const auto getType = resolve_operation<fn::array_get_type>();
// A throwing lookup leaves the static uninitialised, so the next pass tries again;
// an absent optional operation is cached as null and never looked up again.
#pragma once

#include "data_array/function_table.h"

namespace kerova::data {
namespace detail {

// The C signature of operation `Number`.
template <int Number>
struct operation;
#define KEROVA_OPERATION_TYPE(number, name, result, ...) \
    template <>                                          \
    struct operation<number> {                           \
        using type = fn::name##_t;                       \
    };
KEROVA_DATA_OPERATIONS(KEROVA_OPERATION_TYPE)
#undef KEROVA_OPERATION_TYPE

template <int Number>
using operation_t = typename operation<Number>::type;

// Throws ArrayException<Exception, 22> "This feature requires <release>", naming the
// release that brought `number`.
[[noreturn]] void throw_missing_feature(int number);

}  // namespace detail

// The operation with this number; throws the feature exception if the library lacks it.
template <typename Fn>
Fn resolve_function(int number) {
    if (void* found = get_function_ptr(number)) {
        return reinterpret_cast<Fn>(found);
    }
    detail::throw_missing_feature(number);
}

// The operation with this number, or null: the caller picks a fallback.
template <typename Fn>
Fn optional_function(int number) {
    return reinterpret_cast<Fn>(get_function_ptr(number));
}

template <int Number>
detail::operation_t<Number> resolve_operation() {
    return resolve_function<detail::operation_t<Number>>(Number);
}

template <int Number>
detail::operation_t<Number> optional_operation() {
    return optional_function<detail::operation_t<Number>>(Number);
}

}  // namespace kerova::data
