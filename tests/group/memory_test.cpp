// How much memory groups take, and when.
#include <gtest/gtest.h>
#include <malloc.h>

#include "tests/group/allocation_watch.h"
#include "tests/group/group_test_util.h"

namespace {

using allocation_watch::MOST_OF_RUNTIME;
using allocation_watch::Watch;

// What the product takes whatever its sizes are.
#if defined(__ARM_NEON)
constexpr size_t PRODUCT_SCRATCH = 1 << 20;
#else
constexpr size_t PRODUCT_SCRATCH = 0;
#endif

// A first search takes a score for each pair that is there, whatever room the group has for rows,
// and a heap has room for no more than those.
TEST(Memory, OfASearchIsInProportionToTheRowsThatAreThere) {
    const struct {
        size_t rows, dim, reserved, block_size, nr_query, k, most;
    } cases[] = {
        {5, 2, 8192, 0, 1000, 1, 64 * 1024},
        {330, 2, 330, 64, 1000, 1, 1000 * 330 * sizeof(float)},
        {321, 2, 5000, 64, 1000, 1, 1000 * 321 * sizeof(float)},
        {20, 6, 20, 0, 1, 1000000, 1000000},
        {1, 1, 1, 0, 2 * MOST_OF_RUNTIME, 1, SIZE_MAX / 2},
    };
    for (const auto& c : cases) {
        const BlockSize block_size(c.block_size);
        const Group group(c.dim);
        ASSERT_EQ(group.reserve(c.reserved), VEK_OK);
        ASSERT_EQ(group.insert(running_ids(c.rows), small_integers(c.rows, c.dim)), VEK_OK);
        Search search = make_search(c.nr_query, c.dim, c.k);
        const Watch watch(1);
        EXPECT_EQ(search(group.context()), VEK_OK);
        EXPECT_LE(watch.largest(), c.most + PRODUCT_SCRATCH) << "case " << &c - cases;
    }
    EXPECT_LT(allocation_watch::largest_of_runtime(), MOST_OF_RUNTIME);
}

TEST(Memory, AWarmSearchAllocatesNothingInProportionToRows) {
    constexpr size_t ROWS = 20000;
    constexpr size_t WIDTH = 16;
    const Group group(WIDTH);
    ASSERT_EQ(group.insert(running_ids(ROWS), small_integers(ROWS, WIDTH)), VEK_OK);
    for (size_t nr_query : {1u, 4u, 16u}) {
        Search search = make_search(nr_query, WIDTH, 10);
        // The allocations of at least so many bytes.
        const auto seen = [&](size_t least) {
            const Watch watch(least);
            EXPECT_EQ(search(group.context()), VEK_OK);
            return watch.seen();
        };
        const size_t made_room = seen(16 * 1024);
        if (nr_query == 1) {
            EXPECT_GT(made_room, 0u) << "for the scores of a block";
        }
        EXPECT_EQ(seen(2048), 0u) << "less than a bit for each row";
        EXPECT_LT(seen(1), 500u) << "records of queries, blocks and operators";
    }
    EXPECT_LT(allocation_watch::largest_of_runtime(), MOST_OF_RUNTIME);
}

TEST(Memory, InsertAndSearchInTurnsDoNotReallocateEachTime) {
    constexpr uint64_t ROWS = 3000;
    constexpr size_t DIM = 6;
    for (size_t rows_of_block : {0u, 100u}) {
        const BlockSize block_size(rows_of_block);
        const Group group(DIM, 3);
        Search search = make_search(1, DIM);
        const Watch watch(4096);
        for (uint64_t row = 0; row < ROWS; ++row) {
            ASSERT_EQ(group.insert({row}, small_integers(1, DIM), {1, 1, 1}), VEK_OK);
            ASSERT_EQ(search(group.context()), VEK_OK);
        }
        EXPECT_LT(watch.seen(), 100u) << "stores, scores and plans each grow a dozen times";
    }
}

// A call that is refused for an id that is held asks for no memory in proportion to the rows, also
// when the index is full.
TEST(Memory, OfAnInsertOfHeldIdsIsInProportionToTheIds) {
    constexpr size_t FULL = 52428;  // four fifths of 65,536 buckets
    const Group group(1);
    ASSERT_EQ(group.insert(running_ids(FULL), small_integers(FULL, 1)), VEK_OK);
    const Watch watch(1);
    EXPECT_EQ(group.insert({7}, {0}), VEK_DUPLICATED_ID);
    EXPECT_LT(watch.largest(), 4096u);
}

// Bytes in use of the whole process, 0 where a sanitizer brings its own allocator.
size_t bytes_in_use() {
    const struct mallinfo2 info = mallinfo2();
    const size_t allocated = info.uordblks + info.hblkhd;
    return allocated == 0 ? 0 : allocated + allocation_watch::mapped();
}

class MemoryInUse : public testing::Test {
protected:
    static constexpr size_t ROWS = 50000;
    static constexpr size_t TAG_BYTES = 5;
    static constexpr size_t LITTLE = 16384;

    void SetUp() override {
        if (bytes_in_use() == 0)
            GTEST_SKIP() << "the sanitizer's allocator is not measured";
    }
    static VEKStatus insert_rows(const Group& group, size_t dim = 1, size_t rows = ROWS) {
        return group.insert(running_ids(rows), small_integers(rows, dim),
                            std::vector<uint8_t>(rows * TAG_BYTES));
    }
    static void shrink(const Group& group, size_t most) {
        EXPECT_EQ(VEK_shrink_feature_group(group.context()), VEK_OK);
        EXPECT_LE(bytes_in_use(), most);
    }

    const BlockSize m_block_size{1024};
    const Group m_warm_up{1};  // what the process keeps for all groups
};

// Each of the stores would keep far more of that many rows: at least 4 bytes for each. Nor does a
// search keep the block that it read last.
TEST_F(MemoryInUse, ShrinkGivesBackWhatNoRowNeeds) {
    for (size_t dim : {1u, 100u}) {
        const Group group(dim, TAG_BYTES);
        const size_t block = 1024 * (dim + 1) * sizeof(float);
        const size_t empty = bytes_in_use();
        ASSERT_EQ(group.reserve(ROWS), VEK_OK);
        EXPECT_GT(bytes_in_use(), empty + ROWS * (4 * dim + 4 + 8 + TAG_BYTES + 16));
        shrink(group, empty + 2 * block + 2 * LITTLE);
        ASSERT_EQ(insert_rows(group, dim), VEK_OK);
        EXPECT_EQ(make_search(1, dim)(group.context()), VEK_OK);
        EXPECT_EQ(group.erase(running_ids(ROWS - 1, 1)), VEK_OK);
        shrink(group, empty + 2 * block + 2 * LITTLE);  // one is spare
        EXPECT_EQ(VEK_reset_feature_group(group.context()), VEK_OK);
        shrink(group, empty + block + 2 * LITTLE);
    }
    // With as many queries as rows, each of the search's matrices is as large as that.
    const Group group(1);
    ASSERT_EQ(group.insert({1}, {1.0f}), VEK_OK);
    Search search = make_search(ROWS, 1);
    const size_t before = bytes_in_use();
    EXPECT_EQ(search(group.context()), VEK_OK);
    EXPECT_GT(bytes_in_use(), before + 3 * ROWS * sizeof(float));
    shrink(group, before + 4096);
    EXPECT_EQ(search(group.context()), VEK_OK);
}

// The host stores take what is asked for and no more: doubled, ids and tags would be 650,000 bytes
// larger. An insert that is refused for its last id returns all that it took, also when the index
// would have had to grow.
TEST_F(MemoryInUse, ReserveIsExactAndARefusedInsertKeepsNothing) {
    const Group group(1, TAG_BYTES);
    ASSERT_EQ(insert_rows(group), VEK_OK);
    std::vector<uint64_t> ids = running_ids(2 * ROWS, ROWS);
    ids.back() = ids.front();
    const size_t inserted = bytes_in_use();
    EXPECT_EQ(
        group.insert(ids, small_integers(2 * ROWS, 1), std::vector<uint8_t>(2 * ROWS * TAG_BYTES)),
        VEK_DUPLICATED_ID);
    EXPECT_LE(bytes_in_use(), inserted + LITTLE);
    ASSERT_EQ(group.reserve(ROWS + 2000), VEK_OK);
    EXPECT_GE(bytes_in_use() + LITTLE, inserted + 2000 * (4 + 4 + 8 + TAG_BYTES));
    EXPECT_LE(bytes_in_use(), inserted + 200000);
}

// A search that fails leaves nothing behind of what it took: the answers of a predicate, or those
// and a plan, or a plan alone.
TEST_F(MemoryInUse, AFailedSearchReturnsItsMemory) {
    const struct {
        size_t rows, least, allowed;
    } cases[] = {{ROWS, 100000, 0}, {ROWS, 100000, 1}, {1000, 200000, 0}};
    for (const auto& c : cases) {
        const Group group(1, TAG_BYTES);
        ASSERT_EQ(insert_rows(group, 1, c.rows), VEK_OK);
        Search search = make_search(100, 1);
        search.query.contexts.resize(100);
        search.query.predicate = [](void*, const uint8_t*) { return 1; };
        const size_t before = bytes_in_use();
        {
            const Watch watch(c.least, c.allowed);
            EXPECT_EQ(search(group.context()), VEK_UNKNOWN_ERROR);
            EXPECT_GT(watch.seen(), c.allowed);
        }
        EXPECT_LE(bytes_in_use(), before + LITTLE) << c.rows << ' ' << c.allowed;
    }
}

TEST_F(MemoryInUse, AtRestIsTheFeaturesAndLittleMore) {
    constexpr size_t MANY = 200000, WIDTH = 128, ROW_BYTES = WIDTH * sizeof(float);
    const size_t before = bytes_in_use();
    const Group group(WIDTH);
    ASSERT_EQ(group.insert(running_ids(MANY), small_integers(MANY, WIDTH)), VEK_OK);
    const size_t held = bytes_in_use() - before;
    EXPECT_GT(held, MANY * ROW_BYTES);
    EXPECT_LE(held, MANY * (ROW_BYTES + 64) + 1024 * ROW_BYTES);
    RecordProperty("bytes_a_row_beyond_the_features", static_cast<int>(held / MANY - ROW_BYTES));
}

}  // namespace
