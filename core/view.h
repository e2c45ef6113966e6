// A strided view: the geometry that a walk reads, taken once. Level 0 is the outermost;
// each level has a length and a stride in bytes, and the element at indices
// (i0, i1, ...) lies at data + origin + i0 * strides[0] + i1 * strides[1] + ...
// Offsets are kept apart from the data pointer, so that a view of nothing (an empty
// level, or a store without data) never forms an address outside its block.
#pragma once

#include <cstddef>
#include <cstdint>

#include <boost/container/small_vector.hpp>

#include "core/store.h"

namespace kerova {

struct StridedView {
    using Levels = boost::container::small_vector<int64_t, 8>;

    const char* data = nullptr;  // the store's block; null when the store holds none
    int64_t origin = 0;          // offset of the element at indices all 0
    Levels lengths;
    Levels strides;

    size_t levels() const noexcept { return lengths.size(); }
    const char* at(int64_t offset) const noexcept { return data + offset; }

    // The dimensions of `store` from `count` on, below the first `count` coordinates,
    // which the caller has checked against the store.
    static StridedView below(const MDArrayWrapper& store, const int64_t* coordinates, size_t count) {
        StridedView view;
        view.data = store.buf();
        for (size_t k = 0; k < count; ++k) view.origin += store.bytewiseStrides()[k] * coordinates[k];
        for (size_t d = count; d < store.shape().size(); ++d) {
            view.lengths.push_back(store.shape()[d]);
            view.strides.push_back(store.bytewiseStrides()[d]);
        }
        return view;
    }
};

}  // namespace kerova
