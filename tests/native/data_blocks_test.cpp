// The kept blocks behind element blocks and mirrors: reuse for a request of about the
// size of a freed block, and nothing kept past the budget.
#include <gtest/gtest.h>

#include "data_array/block_memory.h"

using namespace kerova::data;

TEST(KeptBlocks, ReuseOnlyBlocksOfAboutTheRequestedSize) {
    if (!blocks::kKeepBlocks) GTEST_SKIP() << "blocks are not kept under the address sanitizer";
    blocks::KeptBlocks kept;
    void* block = std::malloc(1 << 20);
    kept.give(block);
    EXPECT_EQ(kept.take(300 << 10), nullptr);  // less than half of it: a fresh block does better
    EXPECT_EQ(kept.take((1 << 20) + 4096), nullptr);
    EXPECT_EQ(kept.take(700 << 10), block);
    EXPECT_EQ(kept.take(700 << 10), nullptr);  // handed out once
    kept.give(block);
}

TEST(KeptBlocks, SmallBlocksAndBlocksPastTheBudgetGoBack) {
    if (!blocks::kKeepBlocks) GTEST_SKIP() << "blocks are not kept under the address sanitizer";
    blocks::KeptBlocks kept;
    kept.give(std::malloc(16 << 10));
    EXPECT_EQ(kept.take(12 << 10), nullptr);
    kept.give(std::malloc(blocks::kKeptBytes + 1));
    EXPECT_EQ(kept.take(blocks::kKeptBytes), nullptr);
    void* first = std::malloc(20 << 20);
    void* second = std::malloc(20 << 20);
    kept.give(first);
    kept.give(second);  // both would pass the budget: the older one is freed
    EXPECT_EQ(kept.take(20 << 20), second);
    EXPECT_EQ(kept.take(20 << 20), nullptr);
    std::free(second);
}

TEST(KeptBlocks, ZeroedRequestsAreZeroedWhenReused) {
    void* block = blocks::allocate(256 << 10, false);
    ASSERT_NE(block, nullptr);
    std::memset(block, 0xAB, 256 << 10);
    blocks::release(block);
    auto* zeroed = static_cast<unsigned char*>(blocks::allocate(200 << 10, true));
    ASSERT_NE(zeroed, nullptr);
    for (size_t k = 0; k < (200 << 10); k += 4093) EXPECT_EQ(zeroed[k], 0) << k;
    blocks::release(zeroed);
}
