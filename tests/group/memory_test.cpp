// How much memory groups take, and when.
#include <gtest/gtest.h>
#include <malloc.h>

#include "tests/group/allocation_watch.h"
#include "tests/group/group_test_util.h"

namespace {

using allocation_watch::Watch;

constexpr size_t MOST_OF_RUNTIME = 4096;
// What the product takes whatever its sizes are.
#if defined(__ARM_NEON)
constexpr size_t PRODUCT_SCRATCH = 1 << 20;
#else
constexpr size_t PRODUCT_SCRATCH = 0;
#endif

// For the best k rows of each query.
Search make_search(size_t nr_query, size_t dim, size_t k = 1) {
    Query query;
    query.features = small_integers(nr_query, dim, 3);
    query.nr_query = nr_query;
    query.k = k;
    return Search(query);
}

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

    void SetUp() override {
        if (bytes_in_use() == 0)
            GTEST_SKIP() << "the sanitizer's allocator is not measured";
    }
    static void insert_rows(const Group& group) {
        ASSERT_EQ(group.insert(running_ids(ROWS), small_integers(ROWS, 1),
                               std::vector<uint8_t>(ROWS * TAG_BYTES)),
                  VEK_OK);
    }

    const BlockSize m_block_size{1024};
    const Group m_warm_up{1};  // what the process keeps for all groups
};

// Each of the stores would keep far more of that many rows: at least 4 bytes for each.
TEST_F(MemoryInUse, ShrinkGivesBackWhatNoRowNeeds) {
    constexpr size_t SPARE = 2 * 1024 * 8 + 16384;
    const Group group(1, TAG_BYTES);
    const size_t empty = bytes_in_use();
    ASSERT_EQ(group.reserve(ROWS), VEK_OK);
    EXPECT_GT(bytes_in_use(), empty + ROWS * (4 + 4 + 8 + TAG_BYTES + 16));
    EXPECT_EQ(VEK_shrink_feature_group(group.context()), VEK_OK);
    EXPECT_LE(bytes_in_use(), empty + SPARE);

    insert_rows(group);
    EXPECT_EQ(group.erase(running_ids(ROWS - 1, 1)), VEK_OK);
    EXPECT_EQ(VEK_shrink_feature_group(group.context()), VEK_OK);
    EXPECT_LE(bytes_in_use(), empty + SPARE);

    // With as many queries, each of the search's matrices is as large as that.
    insert_rows(Group(1, TAG_BYTES));
    Search search = make_search(50000, 1);
    const size_t before = bytes_in_use();
    EXPECT_EQ(search(group.context()), VEK_OK);
    EXPECT_GT(bytes_in_use(), before + 3 * 50000 * sizeof(float));
    EXPECT_EQ(VEK_shrink_feature_group(group.context()), VEK_OK);
    EXPECT_LE(bytes_in_use(), before + 4096);
    EXPECT_EQ(search(group.context()), VEK_OK);
}

// A block that was searched last is not kept by the search.
TEST_F(MemoryInUse, ShrinkGivesBackTheBlocksThatASearchRead) {
    const Group group(500, TAG_BYTES);
    const size_t empty = bytes_in_use();
    ASSERT_EQ(group.insert(running_ids(5000), small_integers(5000, 500),
                           std::vector<uint8_t>(5000 * TAG_BYTES)),
              VEK_OK);
    EXPECT_EQ(make_search(1, 500)(group.context()), VEK_OK);
    EXPECT_EQ(VEK_reset_feature_group(group.context()), VEK_OK);
    EXPECT_EQ(VEK_shrink_feature_group(group.context()), VEK_OK);
    EXPECT_LE(bytes_in_use(), empty + 1024 * 500 * sizeof(float) + 32768);
}

// The host stores take what is asked for and no more: doubled, ids and tags would be 650,000 bytes
// larger.
TEST_F(MemoryInUse, ReserveIsExact) {
    const Group group(1, TAG_BYTES);
    insert_rows(group);
    const size_t before = bytes_in_use();
    ASSERT_EQ(group.reserve(ROWS + 2000), VEK_OK);
    EXPECT_GE(bytes_in_use(), before + 2000 * (4 + 4 + 8 + TAG_BYTES));
    EXPECT_LE(bytes_in_use(), before + 200000);
}

// A search that fails leaves nothing behind of what it took: the answers of a predicate, or those
// and a plan, or a plan alone.
TEST_F(MemoryInUse, AFailedSearchReturnsItsMemory) {
    const struct {
        size_t rows, least, allowed;
    } cases[] = {{50000, 100000, 0}, {50000, 100000, 1}, {1000, 200000, 0}};
    for (const auto& c : cases) {
        const Group group(1, 1);
        ASSERT_EQ(group.insert(running_ids(c.rows), small_integers(c.rows, 1),
                               std::vector<uint8_t>(c.rows)),
                  VEK_OK);
        Query query;
        query.features = small_integers(100, 1);
        query.nr_query = 100;
        query.contexts.resize(100);
        query.predicate = [](void*, const uint8_t*) { return 1; };
        const size_t before = bytes_in_use();
        {
            const Watch watch(c.least, c.allowed);
            Found found;
            EXPECT_EQ(group.try_search(query, found), VEK_UNKNOWN_ERROR);
            EXPECT_GT(watch.seen(), c.allowed);
        }
        EXPECT_LE(bytes_in_use(), before + 16384) << c.rows << ' ' << c.allowed;
    }
}

// Nor does an insert that is refused for its last id, when the index would have had to grow.
TEST_F(MemoryInUse, ARefusedInsertReturnsItsMemory) {
    const Group group(1, TAG_BYTES);
    insert_rows(group);
    std::vector<uint64_t> ids = running_ids(2 * ROWS, ROWS);
    ids.back() = ids.front();
    const size_t before = bytes_in_use();
    EXPECT_EQ(
        group.insert(ids, small_integers(2 * ROWS, 1), std::vector<uint8_t>(2 * ROWS * TAG_BYTES)),
        VEK_DUPLICATED_ID);
    EXPECT_LE(bytes_in_use(), before + 16384);
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

TEST_F(MemoryInUse, AtRestIsTheFeaturesAndLittleMore) {
    constexpr size_t MANY = 200000;
    constexpr size_t WIDTH = 128;
    constexpr size_t ROW_BYTES = WIDTH * sizeof(float);
    const std::vector<uint64_t> ids = running_ids(MANY);
    const std::vector<float> features = small_integers(MANY, WIDTH);
    const size_t before = bytes_in_use();
    const Group group(WIDTH);
    ASSERT_EQ(group.insert(ids, features), VEK_OK);
    const size_t held = bytes_in_use() - before;
    EXPECT_GT(held, MANY * ROW_BYTES);
    EXPECT_LE(held, MANY * (ROW_BYTES + 64) + 1024 * ROW_BYTES);
    RecordProperty("bytes_a_row_beyond_the_features", static_cast<int>(held / MANY - ROW_BYTES));
}

}  // namespace
