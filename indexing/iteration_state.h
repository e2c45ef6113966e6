// The walk behind iteration and equality: the first open dimension of what a cursor
// stands for, position by position. Iteration yields what indexing that dimension
// would give; equality runs two such walks side by side.
#pragma once

#include <Python.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

#include "core/cursor.h"
#include "kinds/element_ops.h"
#include "indexing/slice_values.h"

namespace kerova {

// Whether the first `numDims` coordinates lie in the box that `boundsAt(d)` describes.
// Negative coordinates and starts count from the end of their dimension; a downward
// walk with a negative bound is taken as in range without looking further.
template <typename BoundsAt>
bool positionInRange(const MDArrayWrapper& store, const int64_t* coordinates, int64_t numDims,
                     BoundsAt&& boundsAt) {
    if (numDims > store.nDim()) {
        std::printf("numDims (%lld) >= numShapeDims (%d)\n", static_cast<long long>(numDims), store.nDim());
        std::fflush(stdout);
        return false;
    }
    if (numDims < 1) return true;
    for (int64_t d = 0; d < numDims; ++d) {
        const int64_t length = store.shape()[static_cast<size_t>(d)];
        DimensionBounds bounds = boundsAt(static_cast<size_t>(d));
        int64_t c = coordinates[d];
        if (c < 0) c += length;
        if (bounds.lo < 0) bounds.lo += length;
        if (bounds.step < 0) {
            if (c > bounds.lo) return false;
            if (bounds.hi < 0) return true;
            if (c <= bounds.hi) return false;
        } else {
            if (c < bounds.lo) return false;
            if (bounds.hi < 0) bounds.hi += length;
            if (c >= bounds.hi) return false;
        }
    }
    return true;
}

// One step of the walked dimension, by the odometer rule with every dimension in front
// held by an integer record: the walk ends where the walked dimension can't move.
inline bool advanceWalk(int64_t& c, const DimensionBounds& bounds) noexcept {
    const __int128 next = static_cast<__int128>(c) + bounds.step;
    if (bounds.step < 0) {
        if (c > bounds.lo || c <= bounds.hi || next <= bounds.hi) return false;
    } else {
        if (c < bounds.lo || c >= bounds.hi || bounds.step == 0 || next >= bounds.hi) return false;
    }
    c = static_cast<int64_t>(next);
    return true;
}

// The address of the element at `coordinates`, or null when they don't lie in the store
// (which only a reshape since the walk began can bring about).
inline const char* elementAddressChecked(const MDArrayWrapper& store, const int64_t* coordinates,
                                         size_t count) noexcept {
    if (!store.buf() || count > store.shape().size()) return nullptr;
    const char* p = store.buf();
    for (size_t k = 0; k < count; ++k) {
        if (coordinates[k] < 0 || coordinates[k] >= store.shape()[k]) return nullptr;
        p += store.bytewiseStrides()[k] * coordinates[k];
    }
    return p;
}

// The native state of a KVPyIter: a cursor over the source's store and records, and the
// position of the next item.
struct ArrayIterationState : MDACursor {
    explicit ArrayIterationState(const MDACursor& source);

    int64_t baseDepth;
    std::vector<int64_t> coordinates;  // baseDepth + 1 entries
    bool isExhausted;
    bool yieldsSubArrays;

    // Bounds of the walked dimension; `hasRecord` false means the whole dimension, whose
    // length is read from the store at each step.
    DimensionBounds walk;
    bool hasRecord;
    // Scalar items: the row of the store's element type, chosen once.
    const ElementOps* scalarOps;
    std::unique_ptr<MDACursor> prototype;  // sub-array items: the records of the next one

    DimensionBounds currentBounds() const noexcept {
        if (hasRecord) return walk;
        const auto d = static_cast<size_t>(baseDepth);
        return {0, d < m_store->shape().size() ? m_store->shape()[d] : 0, 1};
    }
    // The next item, or null: StopIteration at the end, or the error of the item.
    PyObject* next() { return yieldsSubArrays || isExhausted ? nextSubArray() : nextScalar(); }
    PyObject* nextSubArray();
    PyObject* nextScalar();
    // The error of a scalar item outside the store, and the step past it.
    PyObject* refuseScalar();
};

// Whether the first `numDims` coordinates lie in the box of the cursor's records.
bool isPositionInRange(const MDACursor& cursor, const int64_t* coordinates, size_t count, int64_t numDims);

}  // namespace kerova
