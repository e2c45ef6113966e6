// Turning a filled element block into an array, gathering row-major blocks into the
// column-major order that every array is stored in.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "data_array/array.h"
#include "data_array/exceptions.h"
#include "data_array/gather.h"

namespace kerova::data {

// Writes the row-major block `source` of `dims` into `target` in column-major order.
template <typename T>
void gatherRowMajor(const T* source, T* target, DimensionSpan dims) {
    gather::gatherRowMajor(source, target, sizeof(T), dims);
}

// A raw buffer of `count` elements, or a null one when the library has no memory for it
// (its code 19). Callers report that as Python's MemoryError: a request for an array's
// storage is the module's to refuse, unlike a failure inside an operation on an array.
template <typename T>
buffer_ptr_t<T> requestBlock(ArrayFactory& factory, size_t count) {
    try {
        return factory.createBuffer<T>(count);
    } catch (const detail::ArrayException<Exception, 19>&) {
        return buffer_ptr_t<T>(nullptr, nullptr);
    }
}

// A new column-major array holding the row-major block `data` of `dims`. The block is
// left to its owner. `numElements` must be the product of `dims`.
template <typename T>
TypedArray<T> makeColumnMajorFromRowMajor(ArrayFactory& factory, const T* data, DimensionSpan dims,
                                          size_t numElements) {
    detail::check_block_size(dims, numElements);
    buffer_ptr_t<T> gathered = factory.createBuffer<T>(numElements);
    gather::gatherRowMajor(data, gathered.get(), sizeof(T), dims);
    return factory.createArrayFromBuffer<T>(dims, std::move(gathered), MemoryLayout::COLUMN_MAJOR);
}

// The array of a filled block: adopted as it is if it is column-major or has fewer
// than two elements, gathered into a new block otherwise.
template <typename T>
TypedArray<T> makeArrayFromRawBlock(buffer_ptr_t<T> buffer, bool isColumnMajor, ArrayFactory& factory,
                                    DimensionSpan dims, size_t numElements) {
    if (numElements >= 2 && !isColumnMajor) {
        return makeColumnMajorFromRowMajor<T>(factory, buffer.get(), dims, numElements);
    }
    return factory.createArrayFromBuffer<T>(dims, std::move(buffer), MemoryLayout::COLUMN_MAJOR);
}

}  // namespace kerova::data
