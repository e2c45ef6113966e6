// Arithmetic on normalised slice records and on the box that a list of records selects.
// A slice's values are the walk from its start by its step while below its stop (above
// it, for a downward step); these helpers give the count and the k-th value of that walk
// without building it, so that the hot paths allocate nothing.
#pragma once

#include <cstdint>
#include <limits>
#include <vector>

#include "core/index_item.h"
#include "core/store.h"

namespace kerova {

// Two's-complement arithmetic for folded slices, whose products may leave the 64-bit
// range on absurd steps: the result wraps instead of being undefined.
inline int64_t wrappingMul(int64_t a, int64_t b) noexcept {
    return static_cast<int64_t>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
}
inline int64_t wrappingAdd(int64_t a, int64_t b) noexcept {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

// Number of values of the walk from `start` by `step` that stay below (above) `stop`.
inline int64_t sliceWalkCount(int64_t start, int64_t stop, int64_t step) noexcept {
    using wide = __int128;
    wide count = 0;
    if (step >= 1) {
        if (start < stop) count = (wide(stop) - start - 1) / step + 1;
    } else if (step <= -1) {
        if (start > stop) count = (wide(start) - stop - 1) / -wide(step) + 1;
    }
    constexpr wide limit = std::numeric_limits<int64_t>::max();
    return static_cast<int64_t>(count > limit ? limit : count);
}

inline int64_t sliceWalkCount(const SliceIndexItem& item) noexcept {
    return sliceWalkCount(item.m_start.value_or(0), item.m_stop.value_or(0), item.m_step.value_or(1));
}

// The k-th value of the walk, for k below its count.
inline int64_t sliceValueAt(const SliceIndexItem& item, int64_t k) noexcept {
    return item.m_start.value_or(0) + k * item.m_step.value_or(1);
}

// The walk bounds of one dimension: lo is where it starts, hi the bound it must not
// reach, step 0 for a dimension held fixed by an integer record.
struct DimensionBounds {
    int64_t lo;
    int64_t hi;
    int64_t step;
};

inline DimensionBounds boundsOf(const IndexItem& record) noexcept {
    if (const auto* integer = std::get_if<IntegerIndexItem>(&record)) {
        return {integer->m_index, wrappingAdd(integer->m_index, 1), 0};
    }
    const auto& slice = std::get<SliceIndexItem>(record);
    return {slice.m_start.value_or(0), slice.m_stop.value_or(0), slice.m_step.value_or(1)};
}

// Bounds of dimension d under `records` (a cursor's list), the whole dimension where no
// record stands.
template <typename Records>
DimensionBounds boundsOf(const Records& records, const Extents& shape, size_t d) noexcept {
    if (d < records.size()) return boundsOf(records[d]);
    return {0, d < shape.size() ? shape[d] : 0, 1};
}

}  // namespace kerova
