// Every call of a numbered operation of the library.
#include "data_array/operations.h"

#include <string>
#include <utility>

#include "data_array/exceptions.h"
#include "data_array/handle.h"
#include "data_array/lookup.h"

namespace kerova::data::detail {

// Arrays.

ArrayImpl* create_empty_array() {
    static const auto createEmpty = resolve_operation<fn::array_create_empty>();
    return createEmpty();
}

bool is_convertible(ArrayType target, ArrayType actual) {
    static const auto isConvertible = resolve_operation<fn::array_type_is_convertible>();
    bool convertible = false;
    check(isConvertible(static_cast<int>(target), static_cast<int>(actual), &convertible));
    return convertible;
}

void unshare(std::shared_ptr<ArrayImpl>& handle) {
    static const auto unshareArray = resolve_operation<fn::array_unshare>();
    ArrayImpl* replacement = nullptr;
    if (unshareArray(handle.get(), handle.use_count() == 1, &replacement)) {
        handle = adopt_handle(replacement);
    }
}

ReferenceImpl* get_reference(ArrayImpl* array, size_t index) {
    static const auto getReference = resolve_operation<fn::array_get_reference>();
    ReferenceImpl* reference = nullptr;
    check(getReference(array, index, &reference));
    return reference;
}

raw_buffer_t release_buffer(ArrayImpl* array, bool unique) {
    static const auto releaseBuffer = resolve_operation<fn::array_release_buffer>();
    void* data = nullptr;
    buffer_deleter_t deleter = nullptr;
    check(releaseBuffer(array, unique, &data, &deleter));
    return raw_buffer_t(data, deleter);
}

// Iterators: the version 2 operations where the library has them.

IteratorImpl* begin_iterator(ArrayImpl* array, bool writable) {
    static const auto beginV2 = optional_operation<fn::array_begin_v2>();
    if (beginV2 != nullptr) {
        return beginV2(array, writable);
    }
    static const auto begin = resolve_operation<fn::array_begin>();
    return begin(array, writable);
}

IteratorImpl* end_iterator(ArrayImpl* array) {
    static const auto endV2 = optional_operation<fn::array_end_v2>();
    if (endV2 != nullptr) {
        return endV2(array, false);
    }
    static const auto end = resolve_operation<fn::array_end>();
    return end(array, false);
}

IteratorImpl* clone_iterator(IteratorImpl* iterator) {
    static const auto cloneIterator = resolve_operation<fn::iterator_clone>();
    return cloneIterator(iterator);
}

// The iterator lives only for this call: its handle is a scoped one, which costs no
// allocation and still ends it exactly once, before the address is used.
void* element_pointer(IteratorImpl* iterator) {
    const scoped_handle<IteratorImpl> handle = adopt_scoped(iterator);
    static const auto getPointer = resolve_operation<fn::iterator_get_pointer>();
    void* current = nullptr;
    getPointer(handle.get(), &current);
    return current;
}

void* complex_element_pointer(IteratorImpl* iterator) {
    const scoped_handle<IteratorImpl> handle = adopt_scoped(iterator);
    void* current = nullptr;
    static const auto getComplexPointer = optional_operation<fn::iterator_get_complex_pointer>();
    if (getComplexPointer != nullptr) {
        getComplexPointer(handle.get(), &current);
        return current;
    }
    // Older libraries: through a reference to the element, whose real part's address
    // is that of the whole complex element. The reference goes before the iterator.
    static const auto getReference = resolve_operation<fn::iterator_get_reference>();
    ReferenceImpl* rawReference = nullptr;
    getReference(handle.get(), &rawReference);
    const scoped_handle<ReferenceImpl> reference = adopt_scoped(rawReference);
    static const auto getComplexPointers = resolve_operation<fn::reference_get_complex_pointers>();
    void* imag = nullptr;
    check(getComplexPointers(reference.get(), &current, &imag));
    return current;
}

// Element references.

void set_complex(ReferenceImpl* reference, ArrayType type, const void* real, const void* imag) {
    static const auto setComplex = resolve_operation<fn::reference_set_complex>();
    check(setComplex(reference, static_cast<int>(type), real, imag));
}

// Factories.

ArrayFactoryImpl* create_factory() {
    static const auto createFactory = resolve_operation<fn::array_factory_create>();
    ArrayFactoryImpl* factory = nullptr;
    check(createFactory(&factory));
    return factory;
}

ArrayImpl* create_scalar(ArrayFactoryImpl* factory, ArrayType type, const void* value) {
    static const auto createScalar = resolve_operation<fn::array_factory_create_scalar>();
    ArrayImpl* array = nullptr;
    check(createScalar(factory, static_cast<int>(type), value, &array));
    return array;
}

ArrayImpl* create_array(ArrayFactoryImpl* factory, ArrayType type, const std::vector<size_t>& dims) {
    static const auto createArray = resolve_operation<fn::array_factory_create_array>();
    ArrayImpl* array = nullptr;
    check(createArray(factory, static_cast<int>(type), dims.data(), dims.size(), &array));
    return array;
}

raw_buffer_t create_buffer(ArrayFactoryImpl* factory, ArrayType type, size_t count) {
    static const auto createBuffer = resolve_operation<fn::array_factory_create_buffer>();
    void* data = nullptr;
    buffer_deleter_t deleter = nullptr;
    check(createBuffer(factory, &data, &deleter, static_cast<int>(type), count));
    return raw_buffer_t(data, deleter);
}

ArrayImpl* create_array_from_buffer(ArrayFactoryImpl* factory, ArrayType type, std::span<const size_t> dims,
                                    raw_buffer_t buffer, MemoryLayout layout) {
    ArrayImpl* array = nullptr;
    const buffer_deleter_t deleter = buffer.get_deleter();
    static const auto createWithLayout =
        optional_operation<fn::array_factory_create_array_from_buffer_with_layout>();
    if (createWithLayout != nullptr) {
        // From here on the block is the library's, whatever the outcome.
        void* data = buffer.release();
        check(createWithLayout(factory, static_cast<int>(type), dims.data(), dims.size(), data, deleter, &array,
                               static_cast<int>(layout)));
        return array;
    }
    if (layout == MemoryLayout::ROW_MAJOR) {
        throw ArrayException<Exception, 22>(std::string("Row-major buffers require ") + "tierC");
    }
    static const auto createColumnMajor = resolve_operation<fn::array_factory_create_array_from_buffer>();
    void* data = buffer.release();
    check(createColumnMajor(factory, static_cast<int>(type), dims.data(), dims.size(), data, deleter, &array));
    return array;
}

}  // namespace kerova::data::detail
