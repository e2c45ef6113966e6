// Raw element blocks handed out by the library, owned together with their deleter.
#pragma once

#include <memory>

#include "data_array/function_table.h"

namespace kerova::data {

// An owning pair of the library's deleter and the block; the deleter runs on a
// non-null block when the pair goes.
template <typename T>
using buffer_ptr_t = std::unique_ptr<T[], buffer_deleter_t>;

namespace detail {
// The same pair without the element type, for the non-template wrappers.
using raw_buffer_t = std::unique_ptr<void, buffer_deleter_t>;

template <typename T>
raw_buffer_t erase_type(buffer_ptr_t<T>&& buffer) noexcept {
    const buffer_deleter_t deleter = buffer.get_deleter();
    return raw_buffer_t(buffer.release(), deleter);
}

template <typename T>
buffer_ptr_t<T> restore_type(raw_buffer_t&& buffer) noexcept {
    const buffer_deleter_t deleter = buffer.get_deleter();
    return buffer_ptr_t<T>(static_cast<T*>(buffer.release()), deleter);
}
}  // namespace detail

}  // namespace kerova::data
