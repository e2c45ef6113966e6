// The gather of row-major blocks into column-major order, against the offset list that defines the order.
#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <random>
#include <vector>

#include "data_array/data_array.h"

using namespace kerova::data;

namespace {

size_t product(const std::vector<size_t>& dims) {
    return std::accumulate(dims.begin(), dims.end(), size_t{1}, std::multiplies<>());
}

// Source offset of each target element: coordinates walked with the first dimension
// fastest, each weighted by its row-major stride.
std::vector<size_t> referenceOffsets(const std::vector<size_t>& dims) {
    const size_t n = dims.size();
    std::vector<size_t> stride(n, 1);
    for (size_t k = n; k-- > 1;) stride[k - 1] = stride[k] * dims[k];
    std::vector<size_t> offsets;
    std::vector<size_t> counter(n, 0);
    for (size_t done = 0; done < product(dims); ++done) {
        offsets.push_back(std::inner_product(counter.begin(), counter.end(), stride.begin(), size_t{0}));
        for (size_t k = 0; k < n && ++counter[k] == dims[k]; ++k) counter[k] = 0;
    }
    return offsets;
}

// Dimensions and element size.
using GatherCase = std::pair<std::vector<size_t>, size_t>;

class Gather : public testing::TestWithParam<GatherCase> {};

TEST_P(Gather, MatchesTheOffsetList) {
    const auto& [dims, size] = GetParam();
    const size_t count = product(dims);
    std::vector<unsigned char> source(count * size);
    std::mt19937 random(42);
    for (auto& byte : source) byte = static_cast<unsigned char>(random());
    std::vector<unsigned char> target(count * size);
    gather::gatherRowMajor(source.data(), target.data(), size, dims);

    const std::vector<size_t> offsets = referenceOffsets(dims);
    for (size_t i = 0; i < count; ++i) {
        ASSERT_EQ(std::memcmp(&target[i * size], &source[offsets[i] * size], size), 0) << "element " << i;
    }
}

// Every element size; dimensions of 1, none and one dimension; shapes whose tiles are cut short at the edges, with the
// inner loop along either side; planes of 4x4 blocks with rows and columns left over, one plane or many; and the
// small planes moved one by one (3x42), beside one just past their limit (43x3).
INSTANTIATE_TEST_SUITE_P(
    Shapes, Gather,
    testing::Values(GatherCase{{2, 3}, 8}, GatherCase{{5}, 8}, GatherCase{{2, 3, 4}, 4}, GatherCase{{3, 1}, 2},
                    GatherCase{{1, 1, 7}, 1}, GatherCase{{4, 1, 3, 1}, 16}, GatherCase{{0, 5}, 8},
                    GatherCase{{2, 2, 2, 2, 2, 2}, 4}, GatherCase{{37, 129, 65}, 1}, GatherCase{{301, 257}, 2},
                    GatherCase{{1000, 1001}, 8}, GatherCase{{3, 333, 1001}, 16}, GatherCase{{999, 7, 5, 3}, 4},
                    GatherCase{{2, 500, 2}, 8}, GatherCase{{37, 6, 45}, 8}, GatherCase{{9, 130}, 16},
                    GatherCase{{66, 7, 13}, 4}, GatherCase{{5, 5}, 8}, GatherCase{{4, 4}, 4},
                    GatherCase{{130, 3, 70}, 2}, GatherCase{{3, 42}, 8}, GatherCase{{43, 3}, 8}));

// Processors with 32-byte vectors take their own road for 8-byte elements; the 16-byte
// road and the tiled walk must agree with it.
TEST(GatherRoads, AgreeOnEveryShapeWithTheFirstIndexFastest) {
    for (const std::vector<size_t>& dims : {std::vector<size_t>{37, 6, 45}, {1000, 1001}, {4, 4}, {5, 2, 9}}) {
        const gather::Layout layout(dims);
        std::vector<uint64_t> source(layout.total);
        std::iota(source.begin(), source.end(), uint64_t{7});
        std::vector<uint64_t> planes(layout.total), tiles(layout.total), chosen(layout.total);
        gather::transposePlanes<uint64_t, gather::vectorBlock>(source.data(), planes.data(), layout);
        gather::gatherTiles(source.data(), tiles.data(), layout);
        gather::gatherRowMajor(source.data(), chosen.data(), sizeof(uint64_t), dims);
        EXPECT_EQ(planes, tiles);
        EXPECT_EQ(chosen, tiles);
    }
    // The first index varies fastest, and the count must match.
    EXPECT_EQ(referenceOffsets({2, 3}), (std::vector<size_t>{0, 3, 1, 4, 2, 5}));
    ArrayFactory factory;
    const double block[6] = {};
    EXPECT_THROW(makeColumnMajorFromRowMajor<double>(factory, block, {2, 3}, 5), std::length_error);
}

}  // namespace
