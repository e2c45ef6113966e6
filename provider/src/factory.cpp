// The factory: new arrays, raw buffers, and arrays made from raw buffers.
#include <algorithm>
#include <cstring>
#include <span>
#include <stdexcept>

#include "data_array/gather.h"
#include "provider.h"

namespace kerova::provider {
namespace {

ArrayFactoryImpl g_factory;

constexpr int kColumnMajor = static_cast<int>(kerova::data::MemoryLayout::COLUMN_MAJOR);
constexpr int kRowMajor = static_cast<int>(kerova::data::MemoryLayout::ROW_MAJOR);

// The two orders agree when at most one axis is longer than 1.
bool ordersDiffer(std::span<const std::size_t> dims) {
    return std::count_if(dims.begin(), dims.end(), [](std::size_t d) { return d > 1; }) > 1;
}

// A column-major copy of a row-major block of count elements.
Block columnMajorFromRowMajor(const Block& source, std::span<const std::size_t> dims, std::size_t count,
                              std::size_t elementSize) {
    Block target = allocateBlock(count, elementSize);
    kerova::data::gather::gatherRowMajor(source.get(), target.get(), elementSize, dims);
    return target;
}

// Makes an array of data and dims in the given layout. The block is ours from the
// first line: every failure ends it through its deleter.
int createFromBuffer(int type, const std::size_t* dims, std::size_t dimCount, void* data,
                     buffer_deleter_t deleter, ArrayImpl** out, int layout) noexcept {
    Block storage = adoptBlock(data, deleter);
    if (out == nullptr || (dims == nullptr && dimCount != 0)) {
        return fn::SYSTEM_ERROR;
    }
    *out = nullptr;
    const KindInfo* kind = kindInfo(type);
    if (kind == nullptr) {
        return fn::FEATURE_NOT_SUPPORTED;
    }
    if (layout != kColumnMajor && layout != kRowMajor) {
        return fn::MEMORY_LAYOUT_MISMATCH;
    }
    const std::optional<std::size_t> count = elementCount(dims, dimCount, kind->size);
    if (!count) {
        return NUMBER_OF_ELEMENTS_EXCEEDS_MAX;
    }
    if (storage == nullptr && *count != 0) {
        return fn::SYSTEM_ERROR;
    }
    return guarded([&] {
        const std::span<const std::size_t> shape(dims, dimCount);
        if (layout == kRowMajor && *count > 1 && ordersDiffer(shape)) {
            // The source block ends here, through its own deleter.
            storage = columnMajorFromRowMajor(storage, shape, *count, kind->size);
        }
        *out = new ArrayImpl{type, kind, {shape.begin(), shape.end()}, *count, std::move(storage)};
        return fn::OK;
    });
}

}  // namespace

int array_factory_create(ArrayFactoryImpl** out) noexcept {
    if (out == nullptr) {
        return fn::SYSTEM_ERROR;
    }
    *out = &g_factory;
    return fn::OK;
}

void array_factory_destroy(ArrayFactoryImpl*) noexcept {}

int array_factory_create_buffer(ArrayFactoryImpl*, void** data, buffer_deleter_t* deleter, int type,
                                std::size_t count) noexcept {
    if (data == nullptr || deleter == nullptr) {
        return fn::SYSTEM_ERROR;
    }
    *data = nullptr;
    *deleter = nullptr;
    const KindInfo* kind = kindInfo(type);
    if (kind == nullptr) {
        return fn::FEATURE_NOT_SUPPORTED;
    }
    return guarded([&] {
        Block block = allocateBlock(count, kind->size);
        *deleter = block.get_deleter();
        *data = block.release();
        return fn::OK;
    });
}

int array_factory_create_array(ArrayFactoryImpl*, int type, const std::size_t* dims, std::size_t dimCount,
                               ArrayImpl** out) noexcept {
    if (out == nullptr || (dims == nullptr && dimCount != 0)) {
        return fn::SYSTEM_ERROR;
    }
    *out = nullptr;
    const KindInfo* kind = kindInfo(type);
    if (kind == nullptr) {
        return fn::FEATURE_NOT_SUPPORTED;
    }
    const std::optional<std::size_t> count = elementCount(dims, dimCount, kind->size);
    if (!count) {
        return fn::OUT_OF_MEMORY;
    }
    return guarded([&] {
        Block storage = allocateBlock(*count, kind->size, /*zeroed=*/true);
        *out = new ArrayImpl{type, kind, {dims, dims + dimCount}, *count, std::move(storage)};
        return fn::OK;
    });
}

int array_factory_create_scalar(ArrayFactoryImpl*, int type, const void* value, ArrayImpl** out) noexcept {
    if (out == nullptr || value == nullptr) {
        return fn::SYSTEM_ERROR;
    }
    *out = nullptr;
    const KindInfo* kind = kindInfo(type);
    if (kind == nullptr) {
        return fn::FEATURE_NOT_SUPPORTED;
    }
    return guarded([&] {
        Block storage = allocateBlock(1, kind->size);
        std::memcpy(storage.get(), value, kind->size);
        *out = new ArrayImpl{type, kind, {1, 1}, 1, std::move(storage)};
        return fn::OK;
    });
}

int array_factory_create_array_from_buffer(ArrayFactoryImpl*, int type, const std::size_t* dims,
                                           std::size_t dimCount, void* data, buffer_deleter_t deleter,
                                           ArrayImpl** out) noexcept {
    return createFromBuffer(type, dims, dimCount, data, deleter, out, kColumnMajor);
}

int array_factory_create_array_from_buffer_with_layout(ArrayFactoryImpl*, int type, const std::size_t* dims,
                                                       std::size_t dimCount, void* data,
                                                       buffer_deleter_t deleter, ArrayImpl** out,
                                                       int layout) noexcept {
    return createFromBuffer(type, dims, dimCount, data, deleter, out, layout);
}

}  // namespace kerova::provider
