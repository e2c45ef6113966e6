// Handles on the library's arrays, element references and factories.
#pragma once

#include <complex>
#include <cstddef>
#include <initializer_list>
#include <memory>
#include <span>
#include <vector>

#include "data_array/buffer.h"
#include "data_array/element_types.h"
#include "data_array/exceptions.h"
#include "data_array/function_table.h"
#include "data_array/handle.h"
#include "data_array/operations.h"

namespace kerova::data {

template <typename T>
class TypedArray;

// Dimensions read where they stand: a vector, a span, or a braced list that lives
// until the end of the call.
struct DimensionSpan : std::span<const size_t> {
    using std::span<const size_t>::span;
    DimensionSpan(std::span<const size_t> dims) noexcept : std::span<const size_t>(dims) {}
    DimensionSpan(std::initializer_list<size_t> dims) noexcept : std::span<const size_t>(dims.begin(), dims.size()) {}
};

// A counted handle on one library array. Copies share the array; writers make it
// their own through the unshare step of TypedArray.
class Array {
public:
    // A placeholder array without elements, to be assigned over.
    Array();
    Array(const Array& other);
    Array(Array&& other) noexcept;
    Array& operator=(const Array& other);
    Array& operator=(Array&& other) noexcept;
    virtual ~Array();

    std::vector<size_t> dimensions() const;
    // The library's own list of dimensions, valid until the array changes: reading the
    // shape through it copies nothing.
    std::span<const size_t> dimensionView() const;
    size_t numberOfElements() const;
    ArrayType type() const;

    ArrayImpl* impl() const noexcept { return pImpl.get(); }
    long use_count() const noexcept { return pImpl.use_count(); }

    // Takes ownership of a pointer that came from the library.
    static Array adopt(ArrayImpl* impl);

protected:
    explicit Array(ArrayImpl* impl);

    std::shared_ptr<ArrayImpl> pImpl;
};

// A counted handle on one element reference.
class ReferenceHolder {
public:
    ReferenceImpl* impl() const noexcept { return pImpl.get(); }

protected:
    explicit ReferenceHolder(ReferenceImpl* impl);

    std::shared_ptr<ReferenceImpl> pImpl;
};

// Makes arrays and raw buffers. Cheap and stateless: make one where needed; the
// arrays it made outlive it.
class ArrayFactory {
public:
    ArrayFactory();

    // A 1 by 1 array holding `value`, for a real T.
    template <typename T>
        requires(!is_complex_v<T>)
    TypedArray<T> createScalar(T value);

    // A 1 by 1 array of std::complex<T> holding `value`.
    template <typename T>
    TypedArray<std::complex<T>> createComplexScalar(std::complex<T> value);

    // An array of the given dimensions; element values are unspecified.
    template <typename T>
    TypedArray<T> createArray(std::vector<size_t> dims);

    // Room for `count` elements, with unspecified contents.
    template <typename T>
    buffer_ptr_t<T> createBuffer(size_t count);

    // Adopts `buffer` as the storage of a new array, without copying. The buffer is
    // spent whatever the outcome.
    template <typename T>
    TypedArray<T> createArrayFromBuffer(DimensionSpan dims, buffer_ptr_t<T> buffer,
                                        MemoryLayout layout = MemoryLayout::COLUMN_MAJOR);

    ArrayFactoryImpl* impl() const { return pImpl.get(); }

private:
    std::shared_ptr<ArrayFactoryImpl> pImpl;
};

}  // namespace kerova::data

// The factory's templates need the complete TypedArray.
#include "data_array/typed_array.h"
