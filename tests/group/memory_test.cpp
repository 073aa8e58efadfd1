// Lack of memory, and how much memory a group takes.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <functional>

#include "tests/group/allocation_watch.h"
#include "tests/group/group_test_util.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool OWN_MALLOC = true;  // the sanitizer's, which mallinfo2 knows nothing of
#else
constexpr bool OWN_MALLOC = false;
#endif

namespace {

using allocation_watch::Watch;

constexpr size_t DIM = 32;
constexpr size_t ROWS = 500;
constexpr size_t LARGE = 512;  // every buffer in proportion to the rows of these tests
constexpr size_t RUNTIME_MOST = 4096;
constexpr uint64_t UNTOUCHED = 1u << 20;  // no id of these tests

Query query_of(size_t nr_query) {
    Query query;
    query.nr_query = nr_query;
    query.features = small_integers(nr_query, DIM, 9);
    query.k = 2 * ROWS;
    return query;
}

// The group of each attempt: some rows with tags, not yet searched.
void fill(const Group& group) {
    ASSERT_EQ(group.insert(running_ids(ROWS), small_integers(ROWS, DIM),
                           std::vector<uint8_t>(ROWS * 3, 1)),
              VEK_OK);
}

// Lets the call run out of memory at each of its large allocations in turn. It must answer so each
// time and leave the group as if it had not been made, and succeed in the end with that memory.
void expect_survives(const std::function<VEKStatus(const Group&)>& call, size_t fewest_failures) {
    Found untouched;
    {
        const Group group(DIM, 3);
        fill(group);
        untouched = group.search(query_of(2));
    }
    for (size_t allowed = 0;; ++allowed) {
        SCOPED_TRACE("failing after " + std::to_string(allowed));
        const Group group(DIM, 3);
        fill(group);
        VEKStatus status;
        size_t seen;
        {
            const Watch watch(LARGE, allowed);
            status = call(group);
            seen = watch.seen();
        }
        if (seen <= allowed) {
            EXPECT_EQ(status, VEK_OK);
            EXPECT_GE(allowed, fewest_failures);
            break;
        }
        ASSERT_EQ(status, VEK_UNKNOWN_ERROR);
        ASSERT_EQ(group.size(), ROWS);
        ASSERT_EQ(group.search(query_of(2)), untouched);
        ASSERT_EQ(call(group), VEK_OK);  // with memory again
    }
    EXPECT_LT(allocation_watch::largest_of_runtime(), RUNTIME_MOST);
}

class LackOfMemory : public testing::TestWithParam<size_t> {
protected:
    BlockSize m_block_size{GetParam()};
};

// The arguments of an insert, made before memory is short.
struct Rows {
    std::vector<uint64_t> ids;
    OddBytes features{small_integers(ROWS, DIM, 3)};
    OddBytes tags{std::vector<uint8_t>(ROWS * 3, 2)};

    VEKStatus insert_into(const Group& group, const VEKFeatureGroupInsertOptions& options) {
        return VEK_insert_features_to_feature_group(group.context(), features.bytes(), ids.data(),
                                                    tags.bytes(), ids.size(), &options);
    }
};

TEST_P(LackOfMemory, LeavesTheGroupAsItWas) {
    Rows added{running_ids(ROWS, 10000)};
    Rows replacing{running_ids(ROWS, 100)};
    OddBytes queries(small_integers(9, DIM, 9));
    std::vector<uint64_t> ids(9 * 2 * ROWS);
    std::vector<float> scores(ids.size());
    for (int encrypted : {0, 1}) {
        expect_survives(
            [&](const Group& group) {
                return added.insert_into(group, {encrypted, 0});
            },
            6);
        expect_survives(
            [&](const Group& group) {
                return replacing.insert_into(group, {encrypted, 1});
            },
            6);
        const VEKFeatureGroupSearchOptions options = {0, encrypted};
        expect_survives(
            [&](const Group& group) {
                std::fill(ids.begin(), ids.end(), UNTOUCHED);
                VEKFeatureGroupSearchResult result{0, 0, scores.data(), ids.data()};
                const VEKStatus status =
                    VEK_search_feature_group(group.context(), queries.bytes(), 9, 2 * ROWS, 0,
                                             nullptr, nullptr, &options, &result);
                const auto untouched = std::count(ids.begin(), ids.end(), UNTOUCHED);
                EXPECT_EQ(static_cast<size_t>(untouched), status == VEK_OK ? 0 : ids.size());
                return status;
            },
            6);
    }
    expect_survives([](const Group& group) { return group.reserve(5 * ROWS); }, 4);
}

INSTANTIATE_TEST_SUITE_P(BlockSizes, LackOfMemory, testing::Values(16, 300, 0));

TEST(Memory, ShrinkToleratesItsLack) {
    const Group group(DIM, 3);
    fill(group);
    ASSERT_EQ(group.reserve(10 * ROWS), VEK_OK);
    const Found before = group.search(query_of(2));
    {
        const Watch watch(LARGE, 0);
        EXPECT_EQ(VEK_shrink_feature_group(group.context()), VEK_OK);
        EXPECT_GT(watch.seen(), 0u);
    }
    EXPECT_EQ(group.search(query_of(2)), before);
}

TEST(Memory, WarmSearchAllocatesNothingInProportionToRows) {
    const BlockSize block_size(1024);
    const Group group(DIM);
    ASSERT_EQ(group.insert(running_ids(20000), small_integers(20000, DIM)), VEK_OK);
    Query query = query_of(4);
    query.k = 10;
    OddBytes features(query.features);
    std::vector<uint64_t> ids(40);
    std::vector<float> scores(40);
    VEKFeatureGroupSearchResult result{0, 0, scores.data(), ids.data()};
    const auto search = [&] {
        return VEK_search_feature_group(group.context(), features.bytes(), 4, 10, 0, nullptr,
                                        nullptr, nullptr, &result);
    };
    ASSERT_EQ(search(), VEK_OK);
    const Watch watch(2048);  // smaller than one score for each row of a block
    ASSERT_EQ(search(), VEK_OK);
    EXPECT_EQ(watch.seen(), 0u);
    EXPECT_LT(allocation_watch::largest_of_runtime(), RUNTIME_MOST);
}

TEST(Memory, OfManyQueriesIsNotTheRuntimesOwn) {
    const Group group(1);
    ASSERT_EQ(group.insert(running_ids(1), small_integers(1, 1)), VEK_OK);
    Query query;
    query.nr_query = 2 * RUNTIME_MOST;
    query.features = small_integers(query.nr_query, 1);
    EXPECT_EQ(group.search(query).ids, std::vector<uint64_t>(query.nr_query, 0));
    EXPECT_LT(allocation_watch::largest_of_runtime(), RUNTIME_MOST);
}

TEST(Memory, InsertOneSearchOneRarelyAllocates) {
    const Group group(DIM);
    ASSERT_EQ(group.insert(running_ids(2000), small_integers(2000, DIM)), VEK_OK);
    Query query = query_of(1);
    query.k = 1;
    group.search(query);
    const std::vector<float> row = small_integers(1, DIM);
    const Watch watch(4096);
    for (uint64_t i = 0; i < 2000; ++i) {
        ASSERT_EQ(group.insert({10000 + i}, row), VEK_OK);
        group.search(query);
    }
    EXPECT_LT(watch.seen(), 24u);  // every store doubles once or twice
}

TEST(Memory, RequestsOutOfAllProportionAreRefused) {
    const Group group(128);
    EXPECT_EQ(group.reserve(SIZE_MAX), VEK_UNKNOWN_ERROR);
    if constexpr (sizeof(size_t) > 4) {  // in 32 bits nothing larger can be asked for
        // As a machine without so much would answer.
        const Watch watch(static_cast<size_t>(uint64_t{1} << 40), 0);
        EXPECT_EQ(group.reserve(UINT32_MAX), VEK_UNKNOWN_ERROR);
        EXPECT_EQ(watch.seen(), 1u);
    }
    EXPECT_EQ(group.size(), 0u);
}

TEST(Memory, AtRestIsTheFeaturesAndAFewBytesARow) {
    if (OWN_MALLOC)
        GTEST_SKIP() << "the sanitizer's allocator is not measured";
    constexpr size_t MANY = 200000;
    constexpr size_t LONG = 128;
    const size_t raw = MANY * LONG * sizeof(float);
    const std::vector<float> features(MANY * LONG, 1.0f);
    const std::vector<uint64_t> ids = running_ids(MANY);
    const auto in_use = [] {
        const struct mallinfo2 info = mallinfo2();
        return info.uordblks + info.hblkhd;
    };
    const Group warm_up(LONG);  // what the process keeps for all groups
    const size_t before = in_use();
    const Group group(LONG);
    const void* bytes = features.data();
    ASSERT_EQ(
        VEK_insert_features_to_feature_group(group.context(), static_cast<const uint8_t*>(bytes),
                                             ids.data(), nullptr, MANY, nullptr),
        VEK_OK);
    const size_t used = in_use() - before;
    const size_t block = 8192 * LONG * sizeof(float);
    EXPECT_LE(used, raw + 64 * MANY + block);
    EXPECT_GT(used, raw);
    RecordProperty("bytes_a_row_beyond_the_features", static_cast<int>((used - raw) / MANY));
}

}  // namespace
