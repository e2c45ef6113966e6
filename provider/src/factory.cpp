// The factory: new arrays, raw buffers, and arrays made from raw buffers.
#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "provider.h"

namespace kerova::provider {
namespace {

ArrayFactoryImpl g_factory;

constexpr int kColumnMajor = static_cast<int>(kerova::data::MemoryLayout::COLUMN_MAJOR);
constexpr int kRowMajor = static_cast<int>(kerova::data::MemoryLayout::ROW_MAJOR);

constexpr std::size_t kTile = 32;

// Copies a row-major block of dims into column-major order. The two orders differ
// by a reversal of the axes; for each fixed choice of the middle indices that is a
// transpose of the plane of axis 0 (fastest in the result) and the last axis
// (fastest in the source). The plane is done in square tiles, so that the reads and
// the writes of a tile each stay within a few cache lines.
template <std::size_t Width>
void gatherRowMajor(const std::byte* source, std::byte* target, const std::vector<std::size_t>& dims) {
    const std::size_t n = dims.size();
    // Element strides of every axis, in the source and in the result.
    std::vector<std::size_t> sourceStride(n, 1);
    std::vector<std::size_t> targetStride(n, 1);
    for (std::size_t k = n - 1; k > 0; --k) {
        sourceStride[k - 1] = sourceStride[k] * dims[k];
    }
    for (std::size_t k = 1; k < n; ++k) {
        targetStride[k] = targetStride[k - 1] * dims[k - 1];
    }
    const std::size_t rows = dims.front();
    const std::size_t columns = dims.back();
    const std::size_t rowStride = sourceStride.front();
    const std::size_t columnStride = targetStride.back();

    std::vector<std::size_t> middle(n, 0);  // indices of axes 1 to n-2
    for (;;) {
        std::size_t sourceBase = 0;
        std::size_t targetBase = 0;
        for (std::size_t k = 1; k + 1 < n; ++k) {
            sourceBase += middle[k] * sourceStride[k];
            targetBase += middle[k] * targetStride[k];
        }
        for (std::size_t i0 = 0; i0 < rows; i0 += kTile) {
            const std::size_t iEnd = std::min(i0 + kTile, rows);
            for (std::size_t j0 = 0; j0 < columns; j0 += kTile) {
                const std::size_t jEnd = std::min(j0 + kTile, columns);
                for (std::size_t i = i0; i < iEnd; ++i) {
                    const std::byte* from = source + (sourceBase + i * rowStride) * Width;
                    std::byte* to = target + (targetBase + i) * Width;
                    for (std::size_t j = j0; j < jEnd; ++j) {
                        std::memcpy(to + j * columnStride * Width, from + j * Width, Width);
                    }
                }
            }
        }
        // Next choice of middle indices, axis 1 fastest.
        std::size_t k = 1;
        while (k + 1 < n && ++middle[k] == dims[k]) {
            middle[k++] = 0;
        }
        if (k + 1 >= n) {
            return;
        }
    }
}

// The two orders agree when at most one axis is longer than 1.
bool ordersDiffer(const std::vector<std::size_t>& dims) {
    return std::count_if(dims.begin(), dims.end(), [](std::size_t d) { return d > 1; }) > 1;
}

// A column-major copy of a row-major block of count elements.
Block columnMajorFromRowMajor(const Block& source, const std::vector<std::size_t>& dims, std::size_t count,
                              std::size_t elementSize) {
    Block target = allocateBlock(count, elementSize);
    const auto* from = static_cast<const std::byte*>(source.get());
    auto* to = static_cast<std::byte*>(target.get());
    switch (elementSize) {
        case 1: gatherRowMajor<1>(from, to, dims); break;
        case 2: gatherRowMajor<2>(from, to, dims); break;
        case 4: gatherRowMajor<4>(from, to, dims); break;
        case 8: gatherRowMajor<8>(from, to, dims); break;
        case 16: gatherRowMajor<16>(from, to, dims); break;
        default: throw std::logic_error("element size without a gather");
    }
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
        std::vector<std::size_t> shape(dims, dims + dimCount);
        if (layout == kRowMajor && *count > 1 && ordersDiffer(shape)) {
            // The source block ends here, through its own deleter.
            storage = columnMajorFromRowMajor(storage, shape, *count, kind->size);
        }
        *out = new ArrayImpl{type, kind, std::move(shape), *count, std::move(storage)};
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
