// The binary contract with libKerovaDataArray: opaque handle types, the one exported
// entry point and the numbered operations it hands out, with their C signatures.
// Both the data layer and our own provider library build against this header.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {

struct ArrayFactoryImpl;
struct ArrayImpl;
struct IteratorImpl;
struct ReferenceImpl;

// Ends a raw block handed out by the library.
typedef void (*buffer_deleter_t)(void*);

// The only symbol imported from the library: the operation with this number, or null.
void* get_function_ptr(int functionNumber);
}

namespace kerova::data {

// Element kind numbers of the library's arrays.
enum class ArrayType : int32_t {
    LOGICAL = 0,
    CHAR = 1,
    UNSUPPORTED_2 = 2,
    DOUBLE = 3,
    SINGLE = 4,
    INT8 = 5,
    UINT8 = 6,
    INT16 = 7,
    UINT16 = 8,
    INT32 = 9,
    UINT32 = 10,
    INT64 = 11,
    UINT64 = 12,
    COMPLEX_DOUBLE = 13,
    COMPLEX_SINGLE = 14,
    COMPLEX_INT8 = 15,
    COMPLEX_UINT8 = 16,
    COMPLEX_INT16 = 17,
    COMPLEX_UINT16 = 18,
    COMPLEX_INT32 = 19,
    COMPLEX_UINT32 = 20,
    COMPLEX_INT64 = 21,
    COMPLEX_UINT64 = 22,
};

// Layout argument of operation 110.
enum class MemoryLayout : int32_t { COLUMN_MAJOR = 0, ROW_MAJOR = 1 };

namespace fn {

// Each operation: its number and its C signature.
#define KEROVA_DATA_OPERATIONS(X)                                                                  \
    X(1, array_factory_create_array, int, ArrayFactoryImpl*, int, const size_t*, size_t, ArrayImpl**) \
    X(3, array_factory_create_scalar, int, ArrayFactoryImpl*, int, const void*, ArrayImpl**)        \
    X(11, array_factory_create_array_from_buffer, int, ArrayFactoryImpl*, int, const size_t*, size_t, \
      void*, buffer_deleter_t, ArrayImpl**)                                                          \
    X(13, array_factory_create_buffer, int, ArrayFactoryImpl*, void**, buffer_deleter_t*, int, size_t) \
    X(14, array_factory_create, int, ArrayFactoryImpl**)                                             \
    X(15, array_factory_destroy, void, ArrayFactoryImpl*)                                            \
    X(23, reference_destroy, void, ReferenceImpl*)                                                   \
    X(49, array_create_empty, ArrayImpl*)                                                            \
    X(50, array_destroy, void, ArrayImpl*)                                                           \
    X(51, array_get_dimensions, int, ArrayImpl*, size_t*, const size_t**)                            \
    X(52, array_get_number_of_elements, size_t, ArrayImpl*)                                          \
    X(53, array_get_type, int, ArrayImpl*, int*)                                                     \
    X(55, array_unshare, bool, ArrayImpl*, bool, ArrayImpl**)                                        \
    X(56, array_get_reference, int, ArrayImpl*, size_t, ReferenceImpl**)                             \
    X(57, array_begin, IteratorImpl*, ArrayImpl*, bool)                                              \
    X(58, array_end, IteratorImpl*, ArrayImpl*, bool)                                                \
    X(59, array_type_is_convertible, int, int, int, bool*)                                           \
    X(60, array_release_buffer, int, ArrayImpl*, bool, void**, buffer_deleter_t*)                    \
    X(63, iterator_clone, IteratorImpl*, IteratorImpl*)                                              \
    X(64, iterator_destroy, void, IteratorImpl*)                                                     \
    X(71, iterator_get_pointer, int, IteratorImpl*, void**)                                          \
    X(72, iterator_get_reference, int, IteratorImpl*, ReferenceImpl**)                               \
    X(94, reference_get_complex_pointers, int, ReferenceImpl*, void**, void**)                       \
    X(96, reference_set_complex, int, ReferenceImpl*, int, const void*, const void*)                 \
    X(110, array_factory_create_array_from_buffer_with_layout, int, ArrayFactoryImpl*, int,          \
      const size_t*, size_t, void*, buffer_deleter_t, ArrayImpl**, int)                              \
    X(113, iterator_get_complex_pointer, int, IteratorImpl*, void**)                                 \
    X(114, array_begin_v2, IteratorImpl*, ArrayImpl*, bool)                                          \
    X(115, array_end_v2, IteratorImpl*, ArrayImpl*, bool)

// For every operation `name`: the constant `name` (its number) and the type `name_t`.
#define KEROVA_DECLARE_OPERATION(number, name, result, ...) \
    constexpr int name = number;                            \
    using name##_t = result (*)(__VA_ARGS__);
KEROVA_DATA_OPERATIONS(KEROVA_DECLARE_OPERATION)
#undef KEROVA_DECLARE_OPERATION

// Library error codes the provider reports.
constexpr int OK = 0;
constexpr int OUT_OF_MEMORY = 19;
constexpr int SYSTEM_ERROR = 20;
constexpr int FEATURE_NOT_SUPPORTED = 22;
constexpr int MEMORY_LAYOUT_MISMATCH = 23;

}  // namespace fn
}  // namespace kerova::data
