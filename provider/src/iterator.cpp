// Iterators and element references: element addresses in an array's storage.
#include <atomic>
#include <cstring>

#include "provider.h"

namespace kerova::provider {
namespace {

// Callers make an iterator, read its address and end it, over and over: the last
// iterator ended is kept for the next one instead of going back to the heap. The slot
// is taken and filled by atomic exchanges, so each object has one owner at a time
// from whatever thread the library is called. The object left in it at exit stays
// reachable from here.
std::atomic<IteratorImpl*> g_spareIterator{nullptr};

IteratorImpl* newIterator(const IteratorImpl& value) {
    if (IteratorImpl* spare = g_spareIterator.exchange(nullptr, std::memory_order_acquire)) {
        *spare = value;
        return spare;
    }
    return new IteratorImpl(value);
}

IteratorImpl* makeIterator(const ArrayImpl* array, bool atEnd) noexcept {
    if (array == nullptr) {
        return nullptr;
    }
    return guardedOrNull([&] {
        std::byte* end = array->data() + array->bytes();
        return newIterator(IteratorImpl{atEnd ? end : array->data(), end, array->kind});
    });
}

}  // namespace

// Storage is never shared, so a writable iterator needs no preparation beyond that
// of array_unshare.
IteratorImpl* array_begin(ArrayImpl* array, bool) noexcept { return makeIterator(array, false); }

IteratorImpl* array_end(ArrayImpl* array, bool) noexcept { return makeIterator(array, true); }

IteratorImpl* iterator_clone(IteratorImpl* iterator) noexcept {
    if (iterator == nullptr) {
        return nullptr;
    }
    return guardedOrNull([iterator] { return newIterator(*iterator); });
}

void iterator_destroy(IteratorImpl* iterator) noexcept {
    if (iterator != nullptr) {
        delete g_spareIterator.exchange(iterator, std::memory_order_acq_rel);
    }
}

int iterator_get_pointer(IteratorImpl* iterator, void** address) noexcept {
    if (iterator == nullptr || address == nullptr) {
        return fn::SYSTEM_ERROR;
    }
    *address = iterator->address;
    return fn::OK;
}

int iterator_get_complex_pointer(IteratorImpl* iterator, void** address) noexcept {
    if (iterator == nullptr || address == nullptr) {
        return fn::SYSTEM_ERROR;
    }
    if (!iterator->kind->complex) {
        return ARRAY_TYPE_MISMATCH;
    }
    *address = iterator->address;
    return fn::OK;
}

int iterator_get_reference(IteratorImpl* iterator, ReferenceImpl** out) noexcept {
    if (iterator == nullptr || out == nullptr) {
        return fn::SYSTEM_ERROR;
    }
    // The older way to an iterator's address goes through a reference, also for an
    // end iterator: this must not fail there.
    return guarded([&] {
        *out = new ReferenceImpl{iterator->address, iterator->kind, iterator->address == iterator->end};
        return fn::OK;
    });
}

int array_get_reference(ArrayImpl* array, std::size_t index, ReferenceImpl** out) noexcept {
    if (array == nullptr || out == nullptr) {
        return fn::SYSTEM_ERROR;
    }
    if (index >= array->count) {
        return INVALID_INDEX;
    }
    return guarded([&] {
        *out = new ReferenceImpl{array->data() + index * array->kind->size, array->kind, false};
        return fn::OK;
    });
}

void reference_destroy(ReferenceImpl* reference) noexcept { delete reference; }

int reference_get_complex_pointers(ReferenceImpl* reference, void** real, void** imag) noexcept {
    if (reference == nullptr || real == nullptr || imag == nullptr) {
        return fn::SYSTEM_ERROR;
    }
    if (!reference->kind->complex) {
        return ARRAY_TYPE_MISMATCH;
    }
    *real = reference->address;
    // An array without elements may have no storage at all.
    *imag = reference->address != nullptr ? reference->address + reference->kind->partSize : nullptr;
    return fn::OK;
}

int reference_set_complex(ReferenceImpl* reference, int type, const void* real, const void* imag) noexcept {
    if (reference == nullptr || real == nullptr || imag == nullptr) {
        return fn::SYSTEM_ERROR;
    }
    if (kindInfo(type) != reference->kind) {
        return DATA_TYPE_MISMATCH;
    }
    if (!reference->kind->complex) {
        return ARRAY_TYPE_MISMATCH;
    }
    if (reference->pastEnd) {
        return INVALID_INDEX;
    }
    // Real part first, each part as wide as the kind's part type.
    std::memcpy(reference->address, real, reference->kind->partSize);
    std::memcpy(reference->address + reference->kind->partSize, imag, reference->kind->partSize);
    return fn::OK;
}

}  // namespace kerova::provider
