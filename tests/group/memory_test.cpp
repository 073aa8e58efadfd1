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

const uint8_t* bytes_of(const std::vector<float>& features) {
    const void* bytes = features.data();
    return static_cast<const uint8_t*>(bytes);
}

// A search for the best k rows of each query that allocates nothing of its own.
class Search {
public:
    Search(size_t nr_query, size_t dim, size_t k)
        : m_k(k),
          m_queries(small_integers(nr_query, dim, 3)),
          m_ids(nr_query * k),
          m_scores(nr_query * k) {}

    void operator()(const Group& group) {
        VEKFeatureGroupSearchResult result{0, 0, m_scores.data(), m_ids.data()};
        EXPECT_EQ(VEK_search_feature_group(group.context(), bytes_of(m_queries), m_ids.size() / m_k,
                                           m_k, 0.0f, nullptr, nullptr, nullptr, &result),
                  VEK_OK);
    }

private:
    size_t m_k;
    std::vector<float> m_queries;
    std::vector<uint64_t> m_ids;
    std::vector<float> m_scores;
};

TEST(Memory, AHeapHasRoomForNoMoreThanTheRows) {
    constexpr size_t K = 1000000;
    const Group group(6);
    ASSERT_EQ(group.insert(running_ids(20), small_integers(20, 6)), VEK_OK);
    Search search(1, 6, K);
    const Watch watch(K + PRODUCT_SCRATCH);
    search(group);
    EXPECT_EQ(watch.seen(), 0u);
}

TEST(Memory, AWarmSearchAllocatesNothingInProportionToRows) {
    constexpr size_t ROWS = 20000;
    constexpr size_t WIDTH = 16;
    const Group group(WIDTH);
    ASSERT_EQ(group.insert(running_ids(ROWS), small_integers(ROWS, WIDTH)), VEK_OK);
    for (size_t nr_query : {1u, 4u, 16u}) {
        Search search(nr_query, WIDTH, 10);
        // The allocations of at least so many bytes.
        const auto seen = [&](size_t least) {
            const Watch watch(least);
            search(group);
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

TEST(Memory, OfManyQueriesIsNotTheRuntimesOwn) {
    const Group group(1);
    ASSERT_EQ(group.insert({1}, {2}), VEK_OK);
    Query query;
    query.nr_query = 2 * MOST_OF_RUNTIME;
    query.features = small_integers(query.nr_query, 1);
    EXPECT_EQ(group.search(query).ids, std::vector<uint64_t>(query.nr_query, 1));
    EXPECT_LT(allocation_watch::largest_of_runtime(), MOST_OF_RUNTIME);
}

TEST(Memory, InsertAndSearchInTurnsDoNotReallocateEachTime) {
    constexpr size_t ROWS = 3000;
    constexpr size_t DIM = 6;
    const std::vector<float> features = small_integers(ROWS, DIM);
    const std::vector<uint8_t> tags(ROWS * 3, 1);
    for (size_t rows_of_block : {0u, 100u}) {
        const BlockSize block_size(rows_of_block);
        const Group group(DIM, 3);
        Search search(1, DIM, 1);
        const Watch watch(4096);
        for (uint64_t row = 0; row < ROWS; ++row) {
            ASSERT_EQ(VEK_insert_features_to_feature_group(
                          group.context(), bytes_of(features) + row * DIM * sizeof(float), &row,
                          &tags[static_cast<size_t>(row) * 3], 1, nullptr),
                      VEK_OK);
            search(group);
        }
        EXPECT_LT(watch.seen(), 100u) << "stores, scores and plans each grow a dozen times";
    }
}

// A first search takes a score for each pair, whatever room the group has for rows.
TEST(Memory, OfASearchIsInProportionToTheRowsThatAreThere) {
    const struct {
        size_t rows, reserved, block_size;
    } cases[] = {{5, 8192, 0}, {330, 330, 64}, {321, 5000, 64}};
    for (const auto& c : cases) {
        const BlockSize block_size(c.block_size);
        const Group group(2);
        ASSERT_EQ(group.reserve(c.reserved), VEK_OK);
        ASSERT_EQ(group.insert(running_ids(c.rows), small_integers(c.rows, 2)), VEK_OK);
        Search search(1000, 2, 1);
        const Watch watch(1);
        search(group);
        EXPECT_LE(watch.largest(),
                  std::max<size_t>(1000 * c.rows * sizeof(float), 64 * 1024) + PRODUCT_SCRATCH)
            << c.rows << " rows";
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
    Search search(50000, 1, 1);
    const size_t before = bytes_in_use();
    search(group);
    EXPECT_GT(bytes_in_use(), before + 3 * 50000 * sizeof(float));
    EXPECT_EQ(VEK_shrink_feature_group(group.context()), VEK_OK);
    EXPECT_LE(bytes_in_use(), before + 4096);
    search(group);
}

// A block that was searched last is not kept by the search.
TEST_F(MemoryInUse, ShrinkGivesBackTheBlocksThatASearchRead) {
    const Group group(500, TAG_BYTES);
    const size_t empty = bytes_in_use();
    ASSERT_EQ(group.insert(running_ids(5000), small_integers(5000, 500),
                           std::vector<uint8_t>(5000 * TAG_BYTES)),
              VEK_OK);
    Search(1, 500, 1)(group);
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
    ASSERT_EQ(VEK_insert_features_to_feature_group(group.context(), bytes_of(features), ids.data(),
                                                   nullptr, MANY, nullptr),
              VEK_OK);
    const size_t held = bytes_in_use() - before;
    EXPECT_GT(held, MANY * ROW_BYTES);
    EXPECT_LE(held, MANY * (ROW_BYTES + 64) + 1024 * ROW_BYTES);
    RecordProperty("bytes_a_row_beyond_the_features", static_cast<int>(held / MANY - ROW_BYTES));
}

}  // namespace
