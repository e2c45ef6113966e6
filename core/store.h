// MDArrayWrapper: one whole array, shared by every cursor that descends from it. It
// holds the handle on the library array and a raw mirror of its elements that reads
// and buffer exports use without calling the library.
#pragma once

#include <Python.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
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
    // Blocks this small live inside the object, which comes with its counter in one
    // allocation: a small array's mirror then costs no allocation of its own.
    static constexpr size_t kInlineBytes = 128;
    char* m_data;
    size_t m_size;
    alignas(std::max_align_t) char m_inline[kInlineBytes];
};

// The library array, its geometry and its element facts are read-only outside the store,
// and change only through the few operations below: so the strides, the counts and the
// mirror always describe the array they were taken from, and `buf()` is always the
// mirror's data.
class MDArrayWrapper {
public:
    // Binds the store to `array`; throws std::bad_alloc if the mirror cannot be had.
    MDArrayWrapper(data::Array&& array, bool columnMajor);
    MDArrayWrapper(const MDArrayWrapper&) = delete;
    MDArrayWrapper& operator=(const MDArrayWrapper&) = delete;
    ~MDArrayWrapper() = default;

    const data::Array& array() const noexcept { return m_array; }
    const Extents& shape() const noexcept { return m_shape; }
    const Extents& bytewiseStrides() const noexcept { return m_bytewiseStrides; }
    int32_t nDim() const noexcept { return m_nDim; }
    int64_t numElems() const noexcept { return m_numElems; }
    int64_t bufferSizeInBytes() const noexcept { return m_bufferSizeInBytes; }
    int64_t elemSizeInBytes() const noexcept { return m_elemSizeInBytes; }
    char* buf() const noexcept { return m_buf; }  // the mirror's data, kept at hand for the hot paths
    data::ArrayType type() const noexcept { return m_type; }  // the library array's element type
    const char* format() const noexcept { return m_format; }  // the element type's buffer format; null for none
    char order() const noexcept { return m_order; }
    int32_t isReadOnly() const noexcept { return m_isReadOnly; }
    // Where the library array kept its elements at the last write: only ever a prefetch
    // hint, forgotten when the store is bound to another array.
    const char* storageHint() const noexcept { return m_storageHint; }
    const std::shared_ptr<MirrorBlock>& mirror() const noexcept { return m_mirror; }
    bool isWalked() const noexcept { return m_walks > 0; }  // a reshape must wait for the walks in progress

    // Address of the element at the first `count` coordinates, which the caller has checked.
    char* elementPointerUnchecked(const int64_t* coordinates, size_t count) const noexcept {
        char* p = m_buf;
        for (size_t k = 0; k < count; ++k) p += m_bytewiseStrides[k] * coordinates[k];
        return p;
    }

    // A write of elements or a reshape through the library array: lendArray hands the
    // handle out to be moved from, so that it stays the only one and the library copies
    // nothing (and, until the writer moves it, the store still holds it).
    // giveBackArray takes the handle that was written through back, with where its
    // elements lie (or the hint it had); the writer updates the mirror's copy of what it
    // wrote. adoptReshaped takes a reshaped one. Nothing else touches the store in between.
    data::Array&& lendArray() noexcept { return std::move(m_array); }
    template <typename WrittenArray>
    void giveBackArray(WrittenArray&& array, const char* storage) noexcept {
        m_array = std::forward<WrittenArray>(array);
        m_storageHint = storage;
    }

    // Takes `reshaped`, the lent library array with the same elements in a new shape,
    // and its `shape`, and mirrors it. Throws std::bad_alloc when the strides or a new mirror
    // block cannot be had; the store then still reads the mirror by the old geometry,
    // which holds the same bytes in the same order.
    void adoptReshaped(data::Array&& reshaped, Extents&& shape);

    // Buffer exports of the mirror in progress: while any holds the current block, the
    // next refresh moves on to a block of its own.
    void exportTaken() noexcept { ++m_exports; }
    void exportReleased() noexcept { --m_exports; }

private:
    friend class WalkHold;

    void bindToArray();
    void computeStrides();
    // Copies the library array's elements into a mirror block: the current one when no
    // export holds it and its size fits, a new one otherwise.
    void refreshMirror();
    void fillMirror(void* target, size_t size) const;

    data::Array m_array;
    Extents m_shape;
    Extents m_bytewiseStrides;
    char m_order = 'F';
    int32_t m_isReadOnly = 1;
    int32_t m_exports = 0;
    int32_t m_walks = 0;
    int32_t m_nDim = 0;
    int64_t m_numElems = 0;
    int64_t m_bufferSizeInBytes = 0;
    int64_t m_elemSizeInBytes = 0;
    char* m_buf = nullptr;
    data::ArrayType m_type = data::ArrayType::DOUBLE;
    const char* m_format = nullptr;
    const char* m_storageHint = nullptr;
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
