// The gather of a row-major block into column-major order.
//
// Element (i0, ..., ik) stands at row-major offset ((i0*d1 + i1)*d2 + ...) + ik in the
// source and at column-major offset i0 + d0*(i1 + d1*(... + d(k-1)*ik)) in the target:
// the target is contiguous along the first dimension, the source along the last. The
// block is copied in tiles that span a short contiguous run on both sides (for two
// dimensions, a square tile of a transpose), so that the strided side stays in cache.
#include "data_array/raw_buffer.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>

namespace kerova::data::detail {
namespace {

// Contiguous run, in bytes, that a tile covers on each side.
constexpr size_t kRunBytes = 128;

// One element as a plain word of its size, so that a copy is a single move.
template <size_t Size>
struct Word {
    unsigned char bytes[Size];
};

template <typename W>
void gather(const W* source, W* target, const std::vector<size_t>& dims) {
    // Dimensions of length 1 don't change the order.
    std::vector<size_t> shape;
    size_t total = 1;
    for (const size_t d : dims) {
        total *= d;
        if (d != 1) {
            shape.push_back(d);
        }
    }
    if (total == 0) {
        return;
    }
    if (shape.size() < 2) {
        std::copy_n(source, total, target);
        return;
    }
    constexpr size_t kRun = std::max<size_t>(8, kRunBytes / sizeof(W));
    const size_t n = shape.size();
    std::vector<size_t> sourceStride(n, 1);
    std::vector<size_t> targetStride(n, 1);
    for (size_t k = n - 1; k > 0; --k) {
        sourceStride[k - 1] = sourceStride[k] * shape[k];
    }
    for (size_t k = 1; k < n; ++k) {
        targetStride[k] = targetStride[k - 1] * shape[k - 1];
    }

    // Tile extents: from the first dimension on, the target is contiguous; from the last
    // one down, the source. Each side takes whole dimensions until its run is long
    // enough; the dimensions in between are walked one at a time.
    std::vector<size_t> tile(n, 1);
    size_t run = 1;
    for (size_t k = 0; k < n && run < kRun; ++k) {
        tile[k] = std::min(shape[k], (kRun + run - 1) / run);
        run *= tile[k];
        if (tile[k] < shape[k]) {
            break;
        }
    }
    run = 1;
    for (size_t k = n; k-- > 0 && run < kRun;) {
        const size_t extent = std::min(shape[k], (kRun + run - 1) / run);
        tile[k] = std::max(tile[k], extent);
        run *= extent;
        if (extent < shape[k]) {
            break;
        }
    }

    // Tiles in target order. Within a tile, the innermost loop runs along the longer of
    // the two contiguous sides: the first dimension (target) or the last (source).
    const size_t inner = tile[0] >= tile[n - 1] ? 0 : n - 1;
    const size_t innerSource = sourceStride[inner];
    const size_t innerTarget = targetStride[inner];
    std::vector<size_t> origin(n, 0);
    std::vector<size_t> extent(n);
    std::vector<size_t> position(n);
    for (;;) {
        size_t from = 0;
        size_t to = 0;
        for (size_t k = 0; k < n; ++k) {
            extent[k] = std::min(tile[k], shape[k] - origin[k]);
            from += origin[k] * sourceStride[k];
            to += origin[k] * targetStride[k];
            position[k] = 0;
        }
        const size_t runLength = extent[inner];
        for (;;) {
            const W* read = source + from;
            W* write = target + to;
            if (inner == 0) {
                for (size_t i = 0; i < runLength; ++i) {
                    write[i] = read[i * innerSource];
                }
            } else {
                for (size_t i = 0; i < runLength; ++i) {
                    write[i * innerTarget] = read[i];
                }
            }
            size_t k = 0;
            for (; k < n; ++k) {
                if (k == inner) {
                    continue;
                }
                from += sourceStride[k];
                to += targetStride[k];
                if (++position[k] < extent[k]) {
                    break;
                }
                from -= sourceStride[k] * extent[k];
                to -= targetStride[k] * extent[k];
                position[k] = 0;
            }
            if (k == n) {
                break;
            }
        }
        size_t k = 0;
        for (; k < n; ++k) {
            origin[k] += tile[k];
            if (origin[k] < shape[k]) {
                break;
            }
            origin[k] = 0;
        }
        if (k == n) {
            return;
        }
    }
}

template <size_t Size>
void gatherWords(const void* source, void* target, const std::vector<size_t>& dims) {
    using W = std::conditional_t<Size == 1, uint8_t,
              std::conditional_t<Size == 2, uint16_t,
              std::conditional_t<Size == 4, uint32_t,
              std::conditional_t<Size == 8, uint64_t, Word<Size>>>>>;
    static_assert(sizeof(W) == Size);
    gather(static_cast<const W*>(source), static_cast<W*>(target), dims);
}

}  // namespace

void check_block_size(const std::vector<size_t>& dims, size_t numElements) {
    size_t product = 1;
    for (const size_t d : dims) {
        if (__builtin_mul_overflow(product, d, &product)) {
            throw std::length_error("row-major block does not match its dimensions");
        }
    }
    if (product != numElements) {
        throw std::length_error("row-major block does not match its dimensions");
    }
}

void gather_row_major(const void* source, void* target, size_t elementSize, const std::vector<size_t>& dims) {
    switch (elementSize) {
        case 1:
            return gatherWords<1>(source, target, dims);
        case 2:
            return gatherWords<2>(source, target, dims);
        case 4:
            return gatherWords<4>(source, target, dims);
        case 8:
            return gatherWords<8>(source, target, dims);
        case 16:
            return gatherWords<16>(source, target, dims);
        default:
            throw std::invalid_argument("no element type has this size");
    }
}

}  // namespace kerova::data::detail
