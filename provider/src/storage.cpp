// Element kinds and raw blocks of elements.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "data_array/block_memory.h"
#include "data_array/element_types.h"
#include "provider.h"

namespace kerova::provider {
namespace {

constexpr std::size_t kKindNumbers = static_cast<std::size_t>(data::ArrayType::COMPLEX_UINT64) + 1;

// Indexed by ArrayType number; numbers without an element type keep size 0.
constexpr std::array<KindInfo, kKindNumbers> kKinds = [] {
    std::array<KindInfo, kKindNumbers> kinds{};
#define KEROVA_KIND_INFO(type, name)                                                   \
    kinds[static_cast<std::size_t>(data::ArrayType::name)] =                           \
        KindInfo{sizeof(type), sizeof(data::part_type_t<type>), data::is_complex_v<type>};
    KEROVA_ELEMENT_TYPES(KEROVA_KIND_INFO)
#undef KEROVA_KIND_INFO
    return kinds;
}();

// A logical element is one byte wide at the boundary.
static_assert(kKinds[static_cast<std::size_t>(data::ArrayType::LOGICAL)].size == 1);

// Deleter of blocks whose caller did not hand one in: they stay the caller's.
void keepBlock(void*) noexcept {}

}  // namespace

const KindInfo* kindInfo(int type) noexcept {
    if (type < 0 || static_cast<std::size_t>(type) >= kKinds.size() || kKinds[type].size == 0) {
        return nullptr;
    }
    return &kKinds[type];
}

void freeBlock(void* data) noexcept { data::blocks::release(data); }

Block allocateBlock(std::size_t count, std::size_t elementSize, bool zeroed) {
    if (elementSize != 0 && count > std::numeric_limits<std::size_t>::max() / elementSize) {
        throw std::bad_alloc();
    }
    // An empty block is still a distinct, valid block: ask for one byte.
    const std::size_t bytes = count * elementSize == 0 ? 1 : count * elementSize;
    // malloc's alignment covers every element type, complex double included.
    void* data = data::blocks::allocate(bytes, zeroed);
    if (data == nullptr) {
        throw std::bad_alloc();
    }
    return Block(data, &freeBlock);
}

Block adoptBlock(void* data, buffer_deleter_t deleter) noexcept {
    return Block(data, deleter != nullptr ? deleter : &keepBlock);
}

std::optional<std::size_t> elementCount(const std::size_t* dims, std::size_t dimCount,
                                        std::size_t elementSize) noexcept {
    constexpr std::size_t max = std::numeric_limits<std::size_t>::max();
    // A zero dimension makes the array empty however large the others are.
    if (std::find(dims, dims + dimCount, std::size_t{0}) != dims + dimCount) {
        return 0;
    }
    std::size_t count = 1;
    for (std::size_t k = 0; k < dimCount; ++k) {
        if (count > max / dims[k]) {
            return std::nullopt;
        }
        count *= dims[k];
    }
    if (elementSize != 0 && count > max / elementSize) {
        return std::nullopt;
    }
    return count;
}

}  // namespace kerova::provider
