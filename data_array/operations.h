// The non-template wrappers around the numbered operations. Each checks the result
// code where there is one and keeps its function pointers in function-local statics.
// The typed templates of array.h and typed_array.h are thin layers over these.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "data_array/buffer.h"
#include "data_array/function_table.h"

namespace kerova::data::detail {

// Arrays.
ArrayImpl* create_empty_array();
bool is_convertible(ArrayType target, ArrayType actual);
// Makes `handle` the only user of its storage before a write, replacing it if needed.
void unshare(std::shared_ptr<ArrayImpl>& handle);
ReferenceImpl* get_reference(ArrayImpl* array, size_t index);
raw_buffer_t release_buffer(ArrayImpl* array, bool unique);

// Iterators. The pointer functions take ownership of `iterator` and destroy it before
// they return: only the element address outlives them.
IteratorImpl* begin_iterator(ArrayImpl* array, bool writable);
IteratorImpl* end_iterator(ArrayImpl* array);
IteratorImpl* clone_iterator(IteratorImpl* iterator);
void* element_pointer(IteratorImpl* iterator);
void* complex_element_pointer(IteratorImpl* iterator);

// Element references.
void set_complex(ReferenceImpl* reference, ArrayType type, const void* real, const void* imag);

// Factories.
ArrayFactoryImpl* create_factory();
ArrayImpl* create_scalar(ArrayFactoryImpl* factory, ArrayType type, const void* value);
ArrayImpl* create_array(ArrayFactoryImpl* factory, ArrayType type, const std::vector<size_t>& dims);
raw_buffer_t create_buffer(ArrayFactoryImpl* factory, ArrayType type, size_t count);
// The buffer is spent whatever the outcome: it is the library's once handed over, and
// freed here if the request is refused before that.
ArrayImpl* create_array_from_buffer(ArrayFactoryImpl* factory, ArrayType type,
                                    std::span<const size_t> dims, raw_buffer_t buffer,
                                    MemoryLayout layout);

// Throws std::length_error unless `numElements` is the product of `dims`.
void check_block_size(std::span<const size_t> dims, size_t numElements);

}  // namespace kerova::data::detail
