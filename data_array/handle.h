// Shared handles on the library's opaque objects: one deleter per opaque type,
// calling the matching destroy operation exactly once, when the last handle goes.
#pragma once

#include <memory>

#include "data_array/exceptions.h"
#include "data_array/lookup.h"

namespace kerova::data::detail {

template <typename Impl>
struct destroy_operation;
template <>
struct destroy_operation<ArrayImpl> : std::integral_constant<int, fn::array_destroy> {};
template <>
struct destroy_operation<ArrayFactoryImpl> : std::integral_constant<int, fn::array_factory_destroy> {};
template <>
struct destroy_operation<IteratorImpl> : std::integral_constant<int, fn::iterator_destroy> {};
template <>
struct destroy_operation<ReferenceImpl> : std::integral_constant<int, fn::reference_destroy> {};

template <typename Impl>
struct LibraryDeleter {
    static constexpr int number = destroy_operation<Impl>::value;

    static operation_t<number> destroy() {
        static const auto destroyImpl = resolve_operation<number>();
        return destroyImpl;
    }

    void operator()(Impl* impl) const noexcept {
        if (impl != nullptr) {
            destroy()(impl);
        }
    }
};

// Takes ownership of `impl`. The destroy operation is found before the handle exists,
// so the deleter itself can never fail; if the control block can't be allocated,
// `impl` is destroyed and std::bad_alloc passes on.
template <typename Impl>
std::shared_ptr<Impl> adopt_handle(Impl* impl) {
    LibraryDeleter<Impl>::destroy();
    return std::shared_ptr<Impl>(impl, LibraryDeleter<Impl>{});
}

// A handle that ends its object when it goes, for the objects that live only inside
// one call: no control block, so nothing is allocated for it.
template <typename Impl>
using scoped_handle = std::unique_ptr<Impl, LibraryDeleter<Impl>>;

// Takes ownership of `impl` for the rest of the caller's scope. The destroy operation
// is found first, as for adopt_handle.
template <typename Impl>
scoped_handle<Impl> adopt_scoped(Impl* impl) {
    LibraryDeleter<Impl>::destroy();
    return scoped_handle<Impl>(impl);
}

// Hands a code to throw_if_error. The library fills no error text, so it is empty.
inline void check(int code) {
    if (code == 0) [[likely]] {
        return;
    }
    const std::string errorText;
    throw_if_error(code, errorText);
}

}  // namespace kerova::data::detail
