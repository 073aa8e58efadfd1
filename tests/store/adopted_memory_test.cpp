#include "store/adopted_memory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace {

using vek::allocate_blocks;

ptrdiff_t signed_size(size_t size) {
    return static_cast<ptrdiff_t>(size);
}

const orb::CompNode& node() {
    static const orb::CompNode cpu = orb::CompNode::load("cpu:default");
    return cpu;
}

// Small blocks, whole pages that together are large, and large ones that are not whole pages: each
// keeps its bytes whichever of the others are freed.
TEST(AdoptedMemory, BlocksAreFreedOneByOne) {
    constexpr size_t COUNT = 5;
    for (size_t bytes : {size_t{100}, size_t{1} << 20, (size_t{3} << 20) + 8}) {
        auto blocks = allocate_blocks(node(), bytes, COUNT);
        ASSERT_EQ(blocks.size(), COUNT);
        for (size_t i = 0; i < COUNT; ++i) {
            EXPECT_EQ(reinterpret_cast<uintptr_t>(blocks[i].get()) % node().memory_alignment(), 0u);
            std::memset(blocks[i].get(), static_cast<int>(i + 1), bytes);
        }
        for (size_t freed : {2u, 0u, 4u, 1u}) {
            blocks[freed].reset();
            for (size_t i = 0; i < COUNT; ++i) {
                const uint8_t* block = blocks[i].get();
                EXPECT_TRUE(!block ||
                            std::count(block, block + bytes, i + 1) == signed_size(bytes));
            }
        }
    }
    EXPECT_TRUE(allocate_blocks(node(), 100, 0).empty());
}

TEST(AdoptedMemory, BlocksOfPagesLieBesideEachOther) {
    if (sizeof(void*) < 8)
        GTEST_SKIP() << "blocks are mapped where addresses are wide";
    constexpr size_t BYTES = size_t{1} << 20;
    const auto blocks = allocate_blocks(node(), BYTES, 7);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(blocks[0].get()) % (2 * BYTES), 0u) << "a huge page";
    for (size_t i = 1; i < blocks.size(); ++i)
        EXPECT_EQ(blocks[i].get(), blocks[i - 1].get() + BYTES);
}

TEST(AdoptedMemory, WhatNoMachineHasIsRefused) {
    for (size_t bytes : {size_t{4096}, size_t{1} << 20}) {
        if (sizeof(void*) >= 8) {
            EXPECT_THROW(allocate_blocks(node(), bytes, SIZE_MAX / 8 / bytes), std::bad_alloc);
        }
        EXPECT_THROW(allocate_blocks(node(), bytes, SIZE_MAX / 2), std::length_error);
    }
}

}  // namespace
