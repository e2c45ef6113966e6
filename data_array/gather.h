// The gather of a row-major block into column-major order, shared by the data layer
// (which gathers blocks before handing them over) and our provider (which gathers the
// blocks it is given in row-major layout).
//
// Element (i0, ..., ik) stands at row-major offset ((i0*d1 + i1)*d2 + ...) + ik in the
// source and at column-major offset i0 + d0*(i1 + d1*(... + d(k-1)*ik)) in the target:
// the target is contiguous along the first dimension, the source along the last.
//
// For each fixed choice of the middle indices that is a transpose of the plane of the
// first and the last dimension. When both are long enough, the planes are transposed in
// cache-sized tiles of 4x4 blocks, each block moved through vector registers (four rows
// loaded, shuffled, four columns stored). Otherwise the block is walked in tiles that
// span a short contiguous run on both sides, across as many dimensions as that takes.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <span>
#include <type_traits>
#include <vector>

#include <boost/container/small_vector.hpp>

namespace kerova::data::gather {

// Per-dimension numbers of a gather. They live inline up to eight dimensions, so that
// gathering a small array allocates nothing.
using Extents = boost::container::small_vector<size_t, 8>;

// One element as a plain word of its size, so that a copy is a single move.
template <size_t Size>
struct Word {
    unsigned char bytes[Size];
};

template <size_t Size>
using WordOf = std::conditional_t<Size == 1, uint8_t,
               std::conditional_t<Size == 2, uint16_t,
               std::conditional_t<Size == 4, uint32_t,
               std::conditional_t<Size == 8, uint64_t, Word<Size>>>>>;

// ---- 4x4 blocks: rows of `source` `sourceStride` apart become columns of `target`
// `targetStride` apart.

template <typename W>
[[gnu::always_inline]] inline void scalarBlock(const W* source, size_t sourceStride, W* target,
                                               size_t targetStride) {
    for (size_t c = 0; c < 4; ++c) {
        for (size_t r = 0; r < 4; ++r) {
            target[c * targetStride + r] = source[r * sourceStride + c];
        }
    }
}

// Unaligned vector moves. The vectors pass by reference: a 32-byte vector passed by
// value would follow an ABI that depends on the instruction set.
template <typename V>
[[gnu::always_inline]] inline void loadVector(V& v, const void* from) {
    std::memcpy(&v, from, sizeof v);
}

template <typename V>
[[gnu::always_inline]] inline void storeVector(void* to, const V& v) {
    std::memcpy(to, &v, sizeof v);
}

// Four elements per vector, one vector per row: interleaving the even and the odd
// lanes of row pairs, then joining the halves of the pairs, gives the columns. The lane
// picks are constant indices (__builtin_shufflevector, which GCC 12 and clang share).
template <typename W, typename V, typename M>
[[gnu::always_inline]] inline void fourLaneBlock(const W* source, size_t sourceStride, W* target,
                                                 size_t targetStride) {
    static_assert(sizeof(V) == 4 * sizeof(W) && sizeof(M) == sizeof(V));
    V r0, r1, r2, r3;
    loadVector(r0, source);
    loadVector(r1, source + sourceStride);
    loadVector(r2, source + 2 * sourceStride);
    loadVector(r3, source + 3 * sourceStride);
    const V even01 = __builtin_shufflevector(r0, r1, 0, 4, 2, 6);
    const V odd01 = __builtin_shufflevector(r0, r1, 1, 5, 3, 7);
    const V even23 = __builtin_shufflevector(r2, r3, 0, 4, 2, 6);
    const V odd23 = __builtin_shufflevector(r2, r3, 1, 5, 3, 7);
    storeVector(target, __builtin_shufflevector(even01, even23, 0, 1, 4, 5));
    storeVector(target + targetStride, __builtin_shufflevector(odd01, odd23, 0, 1, 4, 5));
    storeVector(target + 2 * targetStride, __builtin_shufflevector(even01, even23, 2, 3, 6, 7));
    storeVector(target + 3 * targetStride, __builtin_shufflevector(odd01, odd23, 2, 3, 6, 7));
}

typedef uint32_t Lanes4x32 __attribute__((vector_size(16)));
typedef int32_t Mask4x32 __attribute__((vector_size(16)));
typedef uint64_t Lanes4x64 __attribute__((vector_size(32)));
typedef int64_t Mask4x64 __attribute__((vector_size(32)));

// Four 4-byte elements per 16-byte vector.
[[gnu::always_inline]] inline void vectorBlock(const uint32_t* source, size_t sourceStride, uint32_t* target,
                                               size_t targetStride) {
    fourLaneBlock<uint32_t, Lanes4x32, Mask4x32>(source, sourceStride, target, targetStride);
}

// Two 8-byte elements per 16-byte vector: four 2x2 blocks.
[[gnu::always_inline]] inline void vectorBlock(const uint64_t* source, size_t sourceStride, uint64_t* target,
                                               size_t targetStride) {
    typedef uint64_t V __attribute__((vector_size(16)));
    const auto pair = [](const uint64_t* from, size_t fromStride, uint64_t* to, size_t toStride) {
        V r0, r1;
        loadVector(r0, from);
        loadVector(r1, from + fromStride);
        storeVector(to, __builtin_shufflevector(r0, r1, 0, 2));
        storeVector(to + toStride, __builtin_shufflevector(r0, r1, 1, 3));
    };
    pair(source, sourceStride, target, targetStride);
    pair(source + 2, sourceStride, target + 2 * targetStride, targetStride);
    pair(source + 2 * sourceStride, sourceStride, target + 2, targetStride);
    pair(source + 2 * sourceStride + 2, sourceStride, target + 2 * targetStride + 2, targetStride);
}

// Four 8-byte elements per 32-byte vector.
[[gnu::always_inline]] inline void wideVectorBlock(const uint64_t* source, size_t sourceStride, uint64_t* target,
                                                   size_t targetStride) {
    fourLaneBlock<uint64_t, Lanes4x64, Mask4x64>(source, sourceStride, target, targetStride);
}

// ---- Planes

// The dimensions of a block with its dimensions of length 1 dropped (they don't change
// the order), with the strides of each in the source and the target.
struct Layout {
    Extents shape;
    Extents sourceStride;
    Extents targetStride;
    size_t total = 1;

    explicit Layout(std::span<const size_t> dims) {
        for (const size_t d : dims) {
            total *= d;
            if (d != 1) shape.push_back(d);
        }
        const size_t n = shape.size();
        sourceStride.assign(n, 1);
        targetStride.assign(n, 1);
        for (size_t k = n; k-- > 1;) sourceStride[k - 1] = sourceStride[k] * shape[k];
        for (size_t k = 1; k < n; ++k) targetStride[k] = targetStride[k - 1] * shape[k - 1];
    }
};

// Calls visit(sourceOffset, targetOffset) once for every choice of the middle indices
// (all but the first and the last dimension), the second dimension fastest.
template <typename Visit>
[[gnu::always_inline]] inline void forEachPlane(const Layout& layout, Visit visit) {
    const size_t n = layout.shape.size();
    Extents middle(n, 0);
    size_t from = 0;
    size_t to = 0;
    for (;;) {
        visit(from, to);
        size_t k = 1;
        for (; k + 1 < n; ++k) {
            from += layout.sourceStride[k];
            to += layout.targetStride[k];
            if (++middle[k] < layout.shape[k]) break;
            from -= layout.sourceStride[k] * layout.shape[k];
            to -= layout.targetStride[k] * layout.shape[k];
            middle[k] = 0;
        }
        if (k + 1 >= n) return;
    }
}

// Transposes every plane with Block on the 4x4 blocks and single moves at the edges.
// The tiles hold 64 source rows of a 1 KiB run each: the rows stream through the cache
// once, and the 64-element runs written to each target column fill whole lines.
template <typename W, void (*Block)(const W*, size_t, W*, size_t)>
[[gnu::always_inline]] inline void transposePlanes(const W* source, W* target, const Layout& layout) {
    constexpr size_t kTileRows = 64;
    constexpr size_t kTileColumns = std::max<size_t>(4, 1024 / sizeof(W));
    const size_t rows = layout.shape.front();
    const size_t columns = layout.shape.back();
    const size_t rowStride = layout.sourceStride.front();
    const size_t columnStride = layout.targetStride.back();
    forEachPlane(layout, [&](size_t from, size_t to) {
        const W* plane = source + from;
        W* out = target + to;
        for (size_t i0 = 0; i0 < rows; i0 += kTileRows) {
            const size_t iEnd = std::min(i0 + kTileRows, rows);
            for (size_t j0 = 0; j0 < columns; j0 += kTileColumns) {
                const size_t jEnd = std::min(j0 + kTileColumns, columns);
                size_t i = i0;
                for (; i + 4 <= iEnd; i += 4) {
                    size_t j = j0;
                    for (; j + 4 <= jEnd; j += 4) {
                        Block(plane + i * rowStride + j, rowStride, out + i + j * columnStride, columnStride);
                    }
                    for (; j < jEnd; ++j) {
                        for (size_t r = i; r < i + 4; ++r) out[r + j * columnStride] = plane[r * rowStride + j];
                    }
                }
                for (; i < iEnd; ++i) {
                    for (size_t j = j0; j < jEnd; ++j) out[i + j * columnStride] = plane[i * rowStride + j];
                }
            }
        }
    });
}

#if defined(__x86_64__)
// The same with 32-byte vectors, for processors that have them.
__attribute__((target("avx2"))) inline void transposePlanesWide(const uint64_t* source, uint64_t* target,
                                                                const Layout& layout) {
    transposePlanes<uint64_t, wideVectorBlock>(source, target, layout);
}

inline bool hasWideVectors() {
    static const bool has = __builtin_cpu_supports("avx2");
    return has;
}
#endif

template <typename W>
inline void transposePlanesOf(const W* source, W* target, const Layout& layout) {
    if constexpr (std::is_same_v<W, uint64_t>) {
#if defined(__x86_64__)
        if (hasWideVectors()) return transposePlanesWide(source, target, layout);
#endif
        transposePlanes<W, vectorBlock>(source, target, layout);
    } else if constexpr (std::is_same_v<W, uint32_t>) {
        transposePlanes<W, vectorBlock>(source, target, layout);
    } else {
        transposePlanes<W, scalarBlock<W>>(source, target, layout);
    }
}

// ---- Any shape

// Planes of at most this many elements are moved one by one, in target order.
constexpr size_t kSmallPlane = 128;

// Contiguous run, in bytes, that a tile covers on each side.
constexpr size_t kRunBytes = 128;

// Walks the block in tiles across dimensions, for shapes whose first or last dimension
// is too short for whole blocks.
template <typename W>
void gatherTiles(const W* source, W* target, const Layout& layout) {
    constexpr size_t kRun = std::max<size_t>(8, kRunBytes / sizeof(W));
    const Extents& shape = layout.shape;
    const Extents& sourceStride = layout.sourceStride;
    const Extents& targetStride = layout.targetStride;
    const size_t n = shape.size();

    // Tile extents: from the first dimension on, the target is contiguous; from the last
    // one down, the source. Each side takes whole dimensions until its run is long
    // enough; the dimensions in between are walked one at a time.
    Extents tile(n, 1);
    size_t run = 1;
    for (size_t k = 0; k < n && run < kRun; ++k) {
        tile[k] = std::min(shape[k], (kRun + run - 1) / run);
        run *= tile[k];
        if (tile[k] < shape[k]) break;
    }
    run = 1;
    for (size_t k = n; k-- > 0 && run < kRun;) {
        const size_t extent = std::min(shape[k], (kRun + run - 1) / run);
        tile[k] = std::max(tile[k], extent);
        run *= extent;
        if (extent < shape[k]) break;
    }

    // Tiles in target order. Within a tile, the innermost loop runs along the longer of
    // the two contiguous sides: the first dimension (target) or the last (source).
    const size_t inner = tile[0] >= tile[n - 1] ? 0 : n - 1;
    const size_t innerSource = sourceStride[inner];
    const size_t innerTarget = targetStride[inner];
    Extents origin(n, 0);
    Extents extent(n);
    Extents position(n);
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
                for (size_t i = 0; i < runLength; ++i) write[i] = read[i * innerSource];
            } else {
                for (size_t i = 0; i < runLength; ++i) write[i * innerTarget] = read[i];
            }
            size_t k = 0;
            for (; k < n; ++k) {
                if (k == inner) continue;
                from += sourceStride[k];
                to += targetStride[k];
                if (++position[k] < extent[k]) break;
                from -= sourceStride[k] * extent[k];
                to -= targetStride[k] * extent[k];
                position[k] = 0;
            }
            if (k == n) break;
        }
        size_t k = 0;
        for (; k < n; ++k) {
            origin[k] += tile[k];
            if (origin[k] < shape[k]) break;
            origin[k] = 0;
        }
        if (k == n) return;
    }
}

template <size_t Size>
inline void gatherWords(const void* source, void* target, std::span<const size_t> dims) {
    using W = WordOf<Size>;
    static_assert(sizeof(W) == Size);
    const auto* from = static_cast<const W*>(source);
    auto* to = static_cast<W*>(target);
    const Layout layout(dims);
    if (layout.total == 0) return;
    if (layout.shape.size() < 2) {
        std::copy_n(from, layout.total, to);
    } else if (layout.shape.size() == 2 && layout.total <= kSmallPlane) {
        // A small plane, such as a 3x3 one: planning tiles would cost more than the moves.
        const size_t rows = layout.shape[0];
        const size_t columns = layout.shape[1];
        for (size_t j = 0; j < columns; ++j) {
            for (size_t i = 0; i < rows; ++i) to[i + j * rows] = from[i * columns + j];
        }
    } else if (layout.shape.front() >= 4 && layout.shape.back() >= 4) {
        transposePlanesOf(from, to, layout);
    } else {
        gatherTiles(from, to, layout);
    }
}

// Writes the row-major block `source` of `dims` into `target` in column-major order.
// Elements of 1, 2, 4, 8 or 16 bytes; the blocks must not overlap.
inline void gatherRowMajor(const void* source, void* target, size_t elementSize, std::span<const size_t> dims) {
    switch (elementSize) {
        case 1: return gatherWords<1>(source, target, dims);
        case 2: return gatherWords<2>(source, target, dims);
        case 4: return gatherWords<4>(source, target, dims);
        case 8: return gatherWords<8>(source, target, dims);
        case 16: return gatherWords<16>(source, target, dims);
        default: throw std::invalid_argument("no element type has this size");
    }
}

}  // namespace kerova::data::gather
