// Internals of our data-array library: the objects behind the opaque handles, the
// element-kind table, raw blocks, and the operations that the entry table hands out.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <optional>
#include <vector>

#include <boost/container/small_vector.hpp>

#include "data_array/function_table.h"

namespace kerova::provider {

namespace fn = kerova::data::fn;

// Codes reported beyond those named in function_table.h.
constexpr int INVALID_INDEX = 1;
constexpr int DATA_TYPE_MISMATCH = 8;
constexpr int ARRAY_TYPE_MISMATCH = 9;
constexpr int NUMBER_OF_ELEMENTS_EXCEEDS_MAX = 26;

// What the library needs to know of an element kind.
struct KindInfo {
    std::size_t size = 0;      // bytes per element; 0 for numbers that name no kind
    std::size_t partSize = 0;  // bytes per real or imaginary part; the element size if real
    bool complex = false;
};

// The kind of an ArrayType number, or null if the number names no element type.
const KindInfo* kindInfo(int type) noexcept;

// A raw block of elements with the function that ends it. A null deleter is never
// stored: blocks adopted without one get a deleter that does nothing.
using Block = std::unique_ptr<void, buffer_deleter_t>;

// The deleter of every block the library allocates itself.
void freeBlock(void* data) noexcept;

// A new block for count elements of the given size, never null, also for count 0.
// Throws std::bad_alloc if the memory can't be had or count * size overflows.
Block allocateBlock(std::size_t count, std::size_t elementSize, bool zeroed = false);

// Takes ownership of a block handed in by a caller.
Block adoptBlock(void* data, buffer_deleter_t deleter) noexcept;

// The product of the dimensions, or nothing if it or its size in bytes overflows.
std::optional<std::size_t> elementCount(const std::size_t* dims, std::size_t dimCount,
                                        std::size_t elementSize) noexcept;

// Runs an operation body so that no exception leaves the library: an allocation
// failure becomes code 19 and anything else code 20.
template <typename Body>
int guarded(Body&& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return fn::OUT_OF_MEMORY;
    } catch (...) {
        return fn::SYSTEM_ERROR;
    }
}

// The same for operations that return a new object: null if it can't be made.
template <typename Body>
auto guardedOrNull(Body&& body) noexcept -> decltype(body()) {
    try {
        return body();
    } catch (...) {
        return nullptr;
    }
}

}  // namespace kerova::provider

// The factory has no state; all factories are one object.
struct ArrayFactoryImpl {};

// One array. It owns its storage alone: no two arrays ever share a block, so that a
// copy is made only when a caller holds a shared handle on this object.
struct ArrayImpl {
    int type;
    const kerova::provider::KindInfo* kind;
    boost::container::small_vector<std::size_t, 4> dims;  // inline for everyday arrays
    std::size_t count;                  // product of dims
    kerova::provider::Block storage;    // count elements, column-major; may be null if count is 0

    std::byte* data() const noexcept { return static_cast<std::byte*>(storage.get()); }
    std::size_t bytes() const noexcept { return count * kind->size; }
};

// A position in an array: a bare element address. It holds no pointer to the array,
// so that its addresses stay usable for as long as the storage stands.
struct IteratorImpl {
    std::byte* address;
    std::byte* end;  // one past the last element of the array
    const kerova::provider::KindInfo* kind;
};

// One element of an array, or the place one past the last: an end iterator gives such
// a reference, whose addresses can be asked for but which can't be written through.
// Each kind has one KindInfo, so the kind also tells the type.
struct ReferenceImpl {
    std::byte* address;
    const kerova::provider::KindInfo* kind;
    bool pastEnd;
};

namespace kerova::provider {

// A private copy of an array's elements, never null.
Block copyStorage(const ArrayImpl& array);

// A private deep copy of an array.
std::unique_ptr<ArrayImpl> copyArray(const ArrayImpl& array);

// The operations of the entry table, by the names of their numbers.

// Factory and buffers (factory.cpp).
int array_factory_create(ArrayFactoryImpl** out) noexcept;
void array_factory_destroy(ArrayFactoryImpl* factory) noexcept;
int array_factory_create_buffer(ArrayFactoryImpl* factory, void** data, buffer_deleter_t* deleter,
                                int type, std::size_t count) noexcept;
int array_factory_create_array(ArrayFactoryImpl* factory, int type, const std::size_t* dims,
                               std::size_t dimCount, ArrayImpl** out) noexcept;
int array_factory_create_scalar(ArrayFactoryImpl* factory, int type, const void* value,
                                ArrayImpl** out) noexcept;
int array_factory_create_array_from_buffer(ArrayFactoryImpl* factory, int type, const std::size_t* dims,
                                           std::size_t dimCount, void* data, buffer_deleter_t deleter,
                                           ArrayImpl** out) noexcept;
int array_factory_create_array_from_buffer_with_layout(ArrayFactoryImpl* factory, int type,
                                                       const std::size_t* dims, std::size_t dimCount,
                                                       void* data, buffer_deleter_t deleter,
                                                       ArrayImpl** out, int layout) noexcept;

// Arrays and their storage (array.cpp).
ArrayImpl* array_create_empty() noexcept;
void array_destroy(ArrayImpl* array) noexcept;
int array_get_dimensions(ArrayImpl* array, std::size_t* dimCount, const std::size_t** dims) noexcept;
std::size_t array_get_number_of_elements(ArrayImpl* array) noexcept;
int array_get_type(ArrayImpl* array, int* type) noexcept;
int array_type_is_convertible(int target, int actual, bool* result) noexcept;
bool array_unshare(ArrayImpl* array, bool unique, ArrayImpl** out) noexcept;
int array_release_buffer(ArrayImpl* array, bool unique, void** data, buffer_deleter_t* deleter) noexcept;

// Iterators and element references (iterator.cpp).
IteratorImpl* array_begin(ArrayImpl* array, bool writable) noexcept;
IteratorImpl* array_end(ArrayImpl* array, bool writable) noexcept;
IteratorImpl* iterator_clone(IteratorImpl* iterator) noexcept;
void iterator_destroy(IteratorImpl* iterator) noexcept;
int iterator_get_pointer(IteratorImpl* iterator, void** address) noexcept;
int iterator_get_complex_pointer(IteratorImpl* iterator, void** address) noexcept;
int iterator_get_reference(IteratorImpl* iterator, ReferenceImpl** out) noexcept;
int array_get_reference(ArrayImpl* array, std::size_t index, ReferenceImpl** out) noexcept;
void reference_destroy(ReferenceImpl* reference) noexcept;
int reference_get_complex_pointers(ReferenceImpl* reference, void** real, void** imag) noexcept;
int reference_set_complex(ReferenceImpl* reference, int type, const void* real, const void* imag) noexcept;

// Both forms of begin and end are answered by one function each.
inline constexpr auto array_begin_v2 = &array_begin;
inline constexpr auto array_end_v2 = &array_end;

}  // namespace kerova::provider
