#include "store/smart_tensor.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/error_text.h"

namespace {

using vek::SmartTensor;

constexpr size_t DIM = 2;

orb::CompNode node() {
    return orb::CompNode::load("cpu:default");
}

SmartTensor make_store(size_t block_size) {
    SmartTensor store;
    store.init(node(), sizeof(int32_t), DIM, block_size);
    return store;
}

void add_rows(SmartTensor& store, size_t count) {
    store.add(std::vector<uint8_t>(count * store.row_bytes()).data(), count);
}

TEST(SmartTensor, Refusals) {
    const std::string init =
        " at [void vek::SmartTensor::init(orb::CompNode, size_t, size_t, size_t)]";
    SmartTensor store;
    EXPECT_EQ(error_of([&] { store.ensure_size(0); }),
              "Error[1] not initialized at [void vek::SmartTensor::ensure_size(size_t)]");
    EXPECT_EQ(error_of([&] { store.add(nullptr, 0); }),
              "Error[1] not initialized at [void vek::SmartTensor::ensure_size(size_t)]");
    EXPECT_EQ(error_of([&] { store.get_all_elements(); }),
              "Error[1] not initialized at [std::vector<std::pair<const "
              "orb::TensorStorage<orb::DeviceTensorStorageTrait>*, unsigned int> > "
              "vek::SmartTensor::get_all_elements() const]");
    EXPECT_EQ(error_of([&] { store.init(node(), 4, 0, 0); }), "Error[1] feature dim = 0" + init);
    EXPECT_EQ(error_of([&] { store.init(node(), 4, 1, 0); }), "Error[1] block size = 0" + init);
    store.init(node(), 4, DIM, 3);
    EXPECT_EQ(error_of([&] { store.init(node(), 4, 0, 3); }),
              "Error[1] already initialized" + init);
    EXPECT_EQ(error_of([&] { store.erase(0); }),
              "Error[1] erase invalid at [void vek::SmartTensor::erase(size_t)]");
    EXPECT_THROW(store.ensure_size(SIZE_MAX), std::length_error);
    EXPECT_TRUE(store.empty());
}

TEST(SmartTensor, GrowsInStepsWhateverIsAskedFor) {
    constexpr auto SINGLE = SmartTensor::State::SINGLE_BLOCK;
    constexpr auto FIXED = SmartTensor::State::FIXED_BLOCKS;
    constexpr size_t ROW_BYTES = DIM * sizeof(int32_t);
    const struct {
        size_t block_size, rows, first_block_capacity, added_blocks;
        SmartTensor::State state;
    } cases[] = {
        {16, 0, 1, 0, SINGLE},  {16, 1, 1, 0, SINGLE},   {16, 5, 8, 0, SINGLE},
        {12, 9, 12, 0, SINGLE}, {12, 12, 12, 0, SINGLE}, {12, 13, 12, 1, FIXED},
        {12, 36, 12, 2, FIXED}, {12, 37, 12, 3, FIXED},  {1, 1, 1, 0, SINGLE},
        {1, 3, 1, 2, FIXED},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.rows) + " rows in blocks of " + std::to_string(c.block_size));
        SmartTensor store = make_store(c.block_size);
        const SmartTensor::Growth growth = store.prepare(c.rows);
        EXPECT_EQ(growth.state, c.state);
        EXPECT_EQ(growth.first_block_capacity, c.first_block_capacity);
        EXPECT_EQ(growth.first_block.has_value(), c.first_block_capacity != 1);
        EXPECT_EQ(growth.added.size(), c.added_blocks);
        store.ensure_size(c.rows);
        store.clear();
        EXPECT_EQ(store.prepare(0).state, c.state) << "fixed blocks stay fixed";
        add_rows(store, 1);
        const auto* first = store.get_all_elements()[0].first;
        const uint8_t* memory = first->ptr();
        EXPECT_EQ(first->size(), c.first_block_capacity * ROW_BYTES);
        add_rows(store, 40);
        size_t rows = 0;
        for (const auto& [block, rows_of_block] : store.get_all_elements()) {
            EXPECT_EQ(block->size(), c.block_size * ROW_BYTES);
            rows += rows_of_block;
        }
        EXPECT_EQ(rows, 41u);
        EXPECT_EQ(store.get_all_elements()[0].first->ptr() == memory,
                  c.first_block_capacity == c.block_size)
            << "full blocks never move";
    }
}

TEST(SmartTensor, ShrinkLeavesOneSpareBlock) {
    SmartTensor store = make_store(3);
    add_rows(store, 30);
    while (store.size() > 3)
        store.erase(0);
    store.shrink();
    // Two blocks are there: the second takes three rows, a third one is new memory.
    const auto blocks_to_add = [&](size_t rows) { return store.prepare(rows).added.size(); };
    EXPECT_EQ(blocks_to_add(6), 0u);
    EXPECT_EQ(blocks_to_add(7), 1u);
    store.clear();
    EXPECT_TRUE(store.get_all_elements().empty());
    EXPECT_EQ(blocks_to_add(3), 0u);
    EXPECT_EQ(blocks_to_add(4), 1u);
}

}  // namespace
