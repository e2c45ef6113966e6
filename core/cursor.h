// MDACursor: what an array object holds. It joins the shared whole-array store with the
// index records that say which sub-array the object stands for.
#pragma once

#include <Python.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>

#include <boost/container/small_vector.hpp>

#include "core/index_item.h"
#include "core/store.h"
#include "kinds/element_kinds.h"
#include "kinds/element_ops.h"

namespace kerova {

// The records of a cursor. Two fit in place, which covers every partial array of a
// two-dimensional array without a separate allocation.
using IndexItems = boost::container::small_vector<IndexItem, 2>;

class MDACursor {
public:
    // Cursors are made and freed for every index step, always under the interpreter's
    // lock: they come from the interpreter's small-object allocator.
    static void* operator new(std::size_t size) {
        if (void* memory = PyObject_Malloc(size)) return memory;
        throw std::bad_alloc();
    }
    static void operator delete(void* memory) noexcept { PyObject_Free(memory); }

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
    const ElementOps* m_ops;  // the row of the kind's elements, real or complex as the flag says
    IndexItems m_indexItems;
    int64_t m_numberOfIntegerIndicesSoFar = 0;
    std::optional<data::Array> m_indexedArrayAsMDA;
    std::unique_ptr<MDACursor> m_materializedCursor;
};

// A new whole-array cursor, or null with MemoryError set when the mirror can't be had.
MDACursor* makeCursor(data::Array&& array, SupportedArrayEnum kind, bool isComplex, bool columnMajor);
MDACursor* makeCursor(const data::Array& array, SupportedArrayEnum kind, bool isComplex, bool columnMajor);

}  // namespace kerova
