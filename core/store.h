// MDArrayWrapper: one whole array, shared by every cursor that descends from it. It
// holds the handle on the library array and a raw mirror of its elements that reads
// and buffer exports use without calling the library.
#pragma once

#include <Python.h>

#include <cstdint>
#include <memory>
#include <vector>

#include <boost/container/small_vector.hpp>

#include "data_array/array.h"

namespace kerova {

// Lengths or strides, one per dimension: four in place cover most arrays without an
// allocation of their own.
using Extents = boost::container::small_vector<int64_t, 4>;

// A block of mirrored elements. Buffer exports hold it by shared pointer, so a view
// taken before a reshape keeps the memory it points into until it is released.
class MirrorBlock {
public:
    explicit MirrorBlock(size_t sizeInBytes);
    ~MirrorBlock();
    MirrorBlock(const MirrorBlock&) = delete;
    MirrorBlock& operator=(const MirrorBlock&) = delete;
    char* data() const noexcept { return m_data; }
    size_t size() const noexcept { return m_size; }

private:
    char* m_data;
    size_t m_size;
};

class MDArrayWrapper {
public:
    // Binds the store to `array`; throws std::bad_alloc if the mirror cannot be had.
    MDArrayWrapper(data::Array&& array, bool columnMajor);
    MDArrayWrapper(const MDArrayWrapper&) = delete;
    MDArrayWrapper& operator=(const MDArrayWrapper&) = delete;
    ~MDArrayWrapper() = default;

    void bindToArray();
    void computeStrides();
    // Copies the library array's elements into a mirror block: the current one when no
    // export holds it and its size fits, a new one otherwise.
    void refreshMirror();
    void fillMirror(void* target, size_t size) const;

    // Address of the element at the first `count` coordinates, which the caller has checked.
    char* elementPointerUnchecked(const int64_t* coordinates, size_t count) const noexcept {
        char* p = m_buf;
        for (size_t k = 0; k < count; ++k) p += m_bytewiseStrides[k] * coordinates[k];
        return p;
    }

    const std::shared_ptr<MirrorBlock>& mirror() const noexcept { return m_mirror; }

    data::Array m_array;
    Extents m_shape;
    Extents m_bytewiseStrides;
    char m_order = 'F';
    int32_t m_isReadOnly = 1;
    int32_t m_exports = 0;
    int32_t m_walks = 0;  // walks in progress, which a reshape must wait for
    int32_t m_nDim = 0;
    int64_t m_numElems = 0;
    int64_t m_bufferSizeInBytes = 0;
    int64_t m_elemSizeInBytes = 0;
    char* m_buf = nullptr;  // m_mirror's data, kept at hand for the hot paths
    data::ArrayType m_type = data::ArrayType::DOUBLE;  // the library array's element type
    const char* m_format = nullptr;  // the buffer format of the element type; null for none
    // Where the library array kept its elements at the last write: only ever a prefetch
    // hint, forgotten when the store is bound to another array.
    const char* m_storageHint = nullptr;

private:
    std::shared_ptr<MirrorBlock> m_mirror;
};

// Holds a store's geometry still for one walk. Every Python object a walk makes can run
// Python code (a garbage-collection callback, a __del__, another thread), and that code
// could reshape the store under the walk: reshape refuses while any hold is in place.
class WalkHold {
public:
    explicit WalkHold(std::shared_ptr<MDArrayWrapper> store) noexcept : m_store(std::move(store)) {
        if (m_store) ++m_store->m_walks;
    }
    WalkHold(const WalkHold&) = delete;
    WalkHold& operator=(const WalkHold&) = delete;
    ~WalkHold() {
        if (m_store) --m_store->m_walks;
    }

private:
    std::shared_ptr<MDArrayWrapper> m_store;
};

}  // namespace kerova
