// MDACursor: what an array object holds. It joins the shared whole-array store with the
// index records that say which sub-array the object stands for.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "core/store.h"
#include "indexing/index_item.h"
#include "module/element_kinds.h"

namespace kerova {

class MDACursor {
public:
    // A whole array over a new store bound to `array`. Throws std::bad_alloc when the
    // mirror cannot be allocated; makeCursor turns that into MemoryError.
    MDACursor(data::Array&& array, SupportedArrayEnum kind, bool isComplex, bool columnMajor);
    MDACursor(const data::Array& array, SupportedArrayEnum kind, bool isComplex, bool columnMajor);
    // The partial copy: same store, same records, empty caches.
    MDACursor(const MDACursor& other);
    MDACursor& operator=(const MDACursor&) = delete;
    ~MDACursor();

    bool endsInSlice() const noexcept { return !m_indexItems.empty() && isSlice(m_indexItems.back()); }
    SliceIndexItem& finalSlice() { return std::get<SliceIndexItem>(m_indexItems.back()); }
    const SliceIndexItem& finalSlice() const { return std::get<SliceIndexItem>(m_indexItems.back()); }

    // What this cursor stands for, as an array of its own; cached, never invalidated.
    // Empty with a Python error set on failure.
    std::optional<data::Array> getIndexedArrayAsMDA(int32_t mode, bool rowVectorOfOneDimension);

    std::shared_ptr<MDArrayWrapper> m_store;
    SupportedArrayEnum m_supportedArrayEnum;
    bool m_isComplex;
    std::vector<IndexItem> m_indexItems;
    int64_t m_numberOfIntegerIndicesSoFar = 0;
    std::optional<data::Array> m_indexedArrayAsMDA;
    std::unique_ptr<MDACursor> m_materializedCursor;
};

// A new whole-array cursor, or null with MemoryError set when the mirror can't be had.
MDACursor* makeCursor(data::Array&& array, SupportedArrayEnum kind, bool isComplex, bool columnMajor);
MDACursor* makeCursor(const data::Array& array, SupportedArrayEnum kind, bool isComplex, bool columnMajor);

}  // namespace kerova
