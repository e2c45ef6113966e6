// Index records: what a cursor remembers of the indices applied to reach its sub-array.
#pragma once

#include <cstdint>
#include <optional>
#include <variant>

namespace kerova {

struct IntegerIndexItem {
    int64_t m_index = 0;
    bool m_isNormalized = false;
};

struct SliceIndexItem {
    std::optional<int64_t> m_start;
    std::optional<int64_t> m_stop;
    std::optional<int64_t> m_step;
    std::optional<int64_t> m_slice_len;
    bool m_isNormalized = false;
};

using IndexItem = std::variant<IntegerIndexItem, SliceIndexItem>;

inline bool isSlice(const IndexItem& item) { return std::holds_alternative<SliceIndexItem>(item); }

}  // namespace kerova
