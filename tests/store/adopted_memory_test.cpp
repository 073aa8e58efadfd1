#include "store/adopted_memory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace {

using vek::allocate_blocks;

const orb::CompNode& node() {
    static const orb::CompNode cpu = orb::CompNode::load("cpu:default");
    return cpu;
}

// Small blocks, whole pages that together are large, and large ones that are not whole pages: each
// keeps its bytes whichever of the others are freed. Blocks of pages lie beside each other.
TEST(AdoptedMemory, BlocksAreFreedOneByOne) {
    constexpr size_t COUNT = 5, PAGES = size_t{1} << 20;
    for (size_t bytes : {size_t{100}, PAGES, 3 * PAGES + 8}) {
        auto blocks = allocate_blocks(node(), bytes, COUNT);
        ASSERT_EQ(blocks.size(), COUNT);
        // Blocks are mapped where addresses are wide.
        const bool mapped = bytes == PAGES && sizeof(void*) >= 8;
        const size_t alignment = mapped ? 2 * PAGES : node().memory_alignment();  // a huge page
        const auto first = reinterpret_cast<uintptr_t>(blocks[0].get());
        EXPECT_EQ(first % alignment, 0u);
        for (size_t i = 0; i < COUNT; ++i) {
            const auto place = reinterpret_cast<uintptr_t>(blocks[i].get());
            EXPECT_EQ(place % node().memory_alignment(), 0u);
            EXPECT_TRUE(!mapped || place == first + i * bytes);
            std::memset(blocks[i].get(), static_cast<int>(i + 1), bytes);
        }
        for (size_t freed : {2u, 0u, 4u, 1u}) {
            blocks[freed].reset();
            for (size_t i = 0; i < COUNT; ++i) {
                const uint8_t* block = blocks[i].get();
                const auto differs = [i](uint8_t byte) { return byte != i + 1; };
                EXPECT_TRUE(!block || std::none_of(block, block + bytes, differs));
            }
        }
    }
    EXPECT_TRUE(allocate_blocks(node(), 100, 0).empty());
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
