// Statuses of single calls, beyond those that the walks see, and what a refusal leaves behind.
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <thread>

#include "tests/group/allocation_watch.h"
#include "tests/group/group_test_util.h"

namespace {

constexpr size_t DIM = 3;
constexpr uint32_t TAG_BYTES = 2;
constexpr size_t MAX_K = 1073741823;
constexpr size_t MAX_QUERIES = 107374182;

int keep_all(void*, const uint8_t*) {
    return 1;
}

class Status : public testing::Test {
protected:
    const std::vector<uint64_t> held{2, 3, 5, 7, 11};
    const std::vector<float> features = small_integers(8, DIM);
    const std::vector<uint8_t> tags = std::vector<uint8_t>(8 * TAG_BYTES, 9);
    const std::vector<uint8_t> rows = OddBytes(features).values<uint8_t>();
    Group group{DIM, TAG_BYTES};
    Group empty{DIM, TAG_BYTES};

    void SetUp() override { ASSERT_EQ(group.insert(held, features, tags), VEK_OK); }

    // Rows by id, slot and score: whatever a refused call might have changed.
    Found contents() const {
        Found found = group.search(::make_search(3, DIM, 9).query);
        found.ids.push_back(group.size());
        return found;
    }

    VEKStatus insert(size_t nr, const uint8_t* with_tags,
                     const VEKFeatureGroupInsertOptions* options = nullptr) const {
        return VEK_insert_features_to_feature_group(group.context(), rows.data(), held.data(),
                                                    with_tags, nr, options);
    }

    // With arrays of ten places, whatever the counts are.
    Search make_search(size_t nr_query, size_t k, VEKTagPredicate predicate = nullptr) const {
        Query query;
        query.features = features;
        query.nr_query = nr_query;
        query.k = k;
        query.predicate = predicate;
        query.contexts.resize(2);
        return Search(query, 10);
    }
};

// Limits and products that wrap, and the order in which a search looks at things: whether there are
// rows, the method, the limits, whether there are queries. The arrays are too short for the counts,
// so nothing may be read or written either.
TEST_F(Status, OfSearches) {
    constexpr VEKStatus OK = VEK_OK, METHOD = VEK_INVALID_ARGUMENT, LIMIT = VEK_UNKNOWN_ERROR;
    const struct {
        int32_t method;
        size_t nr_query, k;
        VEKStatus status;
        bool on_empty_too = false;
    } cases[] = {
        {0, 2, 5, OK, true},
        {1, 1, 1, METHOD, true},
        {-1, 0, 1, METHOD, true},
        {1, MAX_QUERIES + 1, 0, METHOD, true},
        {1, 1, MAX_K + 1, METHOD},
        {1, 2, SIZE_MAX, METHOD},
        {0, MAX_QUERIES, 1, LIMIT},  // memory, not a limit
        {0, MAX_QUERIES + 1, 0, LIMIT, true},
        {0, MAX_QUERIES + 1, 1, LIMIT},
        {0, SIZE_MAX, 1, LIMIT},
        {0, 1, MAX_K + 1, LIMIT},
        {0, 1, SIZE_MAX, LIMIT},
        {0, SIZE_MAX / 2 + 1, 2, LIMIT},
        {0, SIZE_MAX / 2, SIZE_MAX / 2, LIMIT},
        {0, 0, MAX_K + 1, OK, true},
        {0, 0, SIZE_MAX, OK, true},
        {0, 0, 5, OK, true},
        {0, 2, 0, OK, true},
    };
    for (const auto& c : cases) {
        const VEKComparisonAlgorithm comparison{c.method, 1.0f, 0.0f};
        for (const Group* g : {&group, &empty}) {
            if (g == &empty && !c.on_empty_too)
                continue;
            SCOPED_TRACE(testing::Message() << "case " << &c - cases << " size " << g->size());
            ASSERT_EQ(VEK_set_comparison_algorithm(g->context(), &comparison), VEK_OK);
            const VEKStatus expected = g == &empty ? OK : c.status;
            Search search = make_search(c.nr_query, c.k);
            // As a machine without so much memory would answer.
            const allocation_watch::Watch watch(size_t{1} << 26, 0);
            EXPECT_EQ(search(g->context()), expected);
            EXPECT_TRUE(c.nr_query == MAX_QUERIES || watch.seen() == 0);
            EXPECT_TRUE(search.counts_set());
            EXPECT_EQ(search.untouched(), expected != OK || c.nr_query * c.k == 0);
        }
    }
}

// Sizes beyond the machine, and products of sizes that wrap.
TEST_F(Status, OfRowsBeyondAllMemory) {
    if (ONE_CASE_IN > 1)
        GTEST_SKIP() << "in 32 bits the sanitizer itself runs out of memory";
    const Found before = contents();
    const BlockSize block_size(16);
    const Group blocks(DIM, TAG_BYTES), wide(size_t{1} << 20);
    const allocation_watch::Watch watch(size_t{1} << 26, 0);
    // One row too many for a group; in 32 bits as many as a count can name.
    constexpr size_t TOO_MANY = sizeof(size_t) > 4 ? UINT32_MAX + uint64_t{1} : SIZE_MAX;
    for (size_t nr : {size_t{UINT32_MAX} / 2, size_t{UINT32_MAX}, TOO_MANY, SIZE_MAX / 24 + 1,
                      SIZE_MAX / 2, SIZE_MAX}) {
        SCOPED_TRACE(nr);
        const size_t seen_before = watch.seen();
        for (const VEKContext of : {group.context(), blocks.context(), wide.context()})
            EXPECT_EQ(VEK_reserve_feature_group_size(of, nr), VEK_UNKNOWN_ERROR);
        EXPECT_EQ(insert(nr, tags.data()), VEK_UNKNOWN_ERROR);
        EXPECT_TRUE(uint64_t{nr} <= UINT32_MAX || watch.seen() == seen_before)
            << "a limit, not memory";
    }
    // More places, or bytes of places, than can be counted.
    for (const auto& [nr_query, k] :
         {std::pair(SIZE_MAX / 2 + 1, size_t{2}), {2, SIZE_MAX / 16 + 1}}) {
        Query query;
        query.nr_query = nr_query;
        query.k = k;
        EXPECT_EQ(Search(query, 0)(wide.context()), VEK_UNKNOWN_ERROR);
    }
    EXPECT_EQ(group.reserve(0), VEK_OK);
    EXPECT_EQ(contents(), before);
}

TEST_F(Status, OfInsertsWithoutTagsOrRows) {
    const Found before = contents();
    for (const VEKFeatureGroupInsertOptions& options :
         {VEKFeatureGroupInsertOptions{0, 0}, VEKFeatureGroupInsertOptions{1, 1}}) {
        EXPECT_EQ(insert(0, nullptr, &options), VEK_INVALID_ARGUMENT);
        EXPECT_EQ(insert(5, nullptr, &options), VEK_INVALID_ARGUMENT);
        EXPECT_EQ(insert(0, tags.data(), &options), VEK_OK);
    }
    EXPECT_EQ(contents(), before);
}

TEST_F(Status, APredicateMayThrow) {
    const VEKTagPredicate predicates[] = {
        [](void*, const uint8_t*) -> int { throw 5; },
        [](void*, const uint8_t*) -> int { throw std::runtime_error("no"); },
        // Not a lack of memory of the search's, which would begin again.
        [](void*, const uint8_t*) -> int {
            static int calls = 0;
            EXPECT_EQ(++calls, 1);
            throw std::bad_alloc();
        },
    };
    const Found before = contents();
    for (const VEKTagPredicate& predicate : predicates) {
        Search search = make_search(2, 3, predicate);
        if (&predicate == predicates) {  // foreign to the library
            EXPECT_THROW(search(group.context()), int);
        } else {
            EXPECT_EQ(search(group.context()), VEK_UNKNOWN_ERROR);
        }
        EXPECT_TRUE(search.untouched() && search.counts_set());
        // A lock that was kept would hold the other thread up for ever.
        std::thread([&] {
            Search later = make_search(2, 5, keep_all);
            EXPECT_EQ(later(group.context()), VEK_OK);
            EXPECT_EQ(contents(), before);
        }).join();
    }
}

}  // namespace
