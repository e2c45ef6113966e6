// Arrays: their shape, their kind, and taking their storage out.
#include <cstring>

#include "provider.h"

namespace kerova::provider {

Block copyStorage(const ArrayImpl& array) {
    Block copy = allocateBlock(array.count, array.kind->size);
    if (array.count != 0) {
        std::memcpy(copy.get(), array.data(), array.bytes());
    }
    return copy;
}

std::unique_ptr<ArrayImpl> copyArray(const ArrayImpl& array) {
    Block copy = copyStorage(array);
    return std::make_unique<ArrayImpl>(ArrayImpl{array.type, array.kind, array.dims, array.count, std::move(copy)});
}

// A 0 by 0 placeholder; its kind is of no consequence since nothing reads it.
ArrayImpl* array_create_empty() noexcept {
    constexpr int type = static_cast<int>(data::ArrayType::DOUBLE);
    return guardedOrNull([]() -> ArrayImpl* {
        return new ArrayImpl{type, kindInfo(type), {0, 0}, 0, Block(nullptr, &freeBlock)};
    });
}

void array_destroy(ArrayImpl* array) noexcept { delete array; }

int array_get_dimensions(ArrayImpl* array, std::size_t* dimCount, const std::size_t** dims) noexcept {
    if (array == nullptr || dimCount == nullptr || dims == nullptr) {
        return fn::SYSTEM_ERROR;
    }
    *dimCount = array->dims.size();
    *dims = array->dims.data();
    return fn::OK;
}

std::size_t array_get_number_of_elements(ArrayImpl* array) noexcept {
    return array != nullptr ? array->count : 0;
}

int array_get_type(ArrayImpl* array, int* type) noexcept {
    if (array == nullptr || type == nullptr) {
        return fn::SYSTEM_ERROR;
    }
    *type = array->type;
    return fn::OK;
}

int array_type_is_convertible(int target, int actual, bool* result) noexcept {
    if (result == nullptr) {
        return fn::SYSTEM_ERROR;
    }
    *result = target == actual;
    return fn::OK;
}

// Storage is never shared between arrays, so only a handle that others share on
// this object calls for a private copy.
bool array_unshare(ArrayImpl* array, bool unique, ArrayImpl** out) noexcept {
    if (unique || array == nullptr || out == nullptr) {
        return false;
    }
    // There is no way to report a failed copy here; the caller then goes on writing
    // through its shared object, which is still a valid array.
    ArrayImpl* copy = guardedOrNull([array] { return copyArray(*array).release(); });
    if (copy == nullptr) {
        return false;
    }
    *out = copy;
    return true;
}

int array_release_buffer(ArrayImpl* array, bool unique, void** data, buffer_deleter_t* deleter) noexcept {
    if (array == nullptr || data == nullptr || deleter == nullptr) {
        return fn::SYSTEM_ERROR;
    }
    return guarded([&] {
        Block released(nullptr, &freeBlock);
        if (!unique) {
            // Others still read this array: hand out a copy and leave it whole.
            released = copyStorage(*array);
        } else if (array->storage != nullptr) {
            // The caller's handle is the only one: give the storage itself away and
            // leave an array without elements, which only destroy will see.
            released = std::move(array->storage);
            array->dims.clear();
            array->count = 0;
        }
        if (released == nullptr) {
            released = allocateBlock(0, array->kind->size);
        }
        *deleter = released.get_deleter();
        *data = released.release();
        return fn::OK;
    });
}

}  // namespace kerova::provider
