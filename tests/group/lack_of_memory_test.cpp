// What groups do when memory runs out: status 2, the group as it was, and the next call served.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <new>

#include "group/feature_cipher.h"
#include "store/adopted_memory.h"
#include "tests/group/allocation_watch.h"
#include "tests/group/group_test_util.h"
#include "tests/store/file_test_util.h"

namespace {

using allocation_watch::Watch;

constexpr size_t DIM = 6;
constexpr uint32_t TAG_BYTES = 3;
constexpr size_t MOST_OF_RUNTIME = 4096;

// Rows for one insert. Nothing is allocated when they are used, so a failure is the library's.
struct Rows {
    std::vector<uint64_t> ids;
    std::vector<uint8_t> features;
    std::vector<uint8_t> tags;

    // The last byte of a tag tells odd ids from even ones.
    Rows(const VEKFeatureGroupSettings& settings, uint64_t first_id, size_t nr)
        : ids(running_ids(nr, first_id)),
          features(feature_bytes(settings, nr, static_cast<unsigned>(first_id + 1))),
          tags(nr * TAG_BYTES) {
        for (size_t i = 0; i < nr; ++i)
            tags[i * TAG_BYTES + 2] = static_cast<uint8_t>(ids[i] % 2);
    }

    VEKStatus insert_into(VEKContext context,
                          const VEKFeatureGroupInsertOptions& options = {}) const {
        return VEK_insert_features_to_feature_group(context, features.data(), ids.data(),
                                                    tags.data(), ids.size(), &options);
    }
};

int has_parity(void* context, const uint8_t* tag) {
    return tag[2] == *static_cast<const uint8_t*>(context);
}

// All that a group answers: its rows of each parity, in an order that depends on their slots.
Found answers_of(const Group& group, const VEKFeatureGroupSettings& settings) {
    uint8_t parities[] = {0, 1};
    Query query;
    query.bytes = feature_bytes(settings, 2, 77);
    query.nr_query = 2;
    query.k = 100;
    query.predicate = has_parity;
    query.contexts = {&parities[0], &parities[1]};
    Found found = group.search(query);
    found.ids.push_back(group.size());
    return found;
}

// Of groups of one kind and block size, 0 the default.
class CallsWithoutMemory : public testing::TestWithParam<std::tuple<int32_t, size_t>> {
protected:
    VEKFeatureGroupSettings m_settings = std::get<0>(GetParam()) == VEK_INDEX_BRUTE_FORCE_INT8
                                             ? Group::int8_settings(DIM, TAG_BYTES)
                                             : Group::settings(DIM, TAG_BYTES);
    BlockSize m_block_size{std::get<1>(GetParam())};

    struct CallCase {
        const char* name;
        std::function<VEKStatus(VEKContext)> call;
        VEKStatus status = VEK_UNKNOWN_ERROR;
        size_t reserved = 0;  // rows that the group has room for before
    };

    // The same group each time, and a call that runs out of memory after one more allocation. It
    // must answer so, leave the group as if it had not been made, and succeed once there is memory.
    void expect_survives(const CallCase& c, size_t least, size_t held_rows, bool warm) {
        SCOPED_TRACE(std::string(c.name) + ", " + std::to_string(least) + " bytes or more, " +
                     std::to_string(held_rows) + " rows, " + (warm ? "warm" : "cold"));
        const Rows held(m_settings, 0, held_rows);
        const auto fill = [&](const Group& group) {
            ASSERT_EQ(held.insert_into(group.context()), VEK_OK);
            ASSERT_EQ(group.reserve(c.reserved), VEK_OK);
        };
        const Group never_failing(m_settings);
        fill(never_failing);
        const Found before = answers_of(never_failing, m_settings);
        ASSERT_EQ(c.call(never_failing.context()), VEK_OK);
        const Found after = answers_of(never_failing, m_settings);
        for (size_t allowed = 0;; allowed += ONE_CASE_IN) {
            SCOPED_TRACE("after " + std::to_string(allowed) + " allocations");
            const Group group(m_settings);
            fill(group);
            if (warm)
                answers_of(group, m_settings);
            VEKStatus status;
            size_t seen;
            {
                const Watch watch(least, allowed);
                status = c.call(group.context());
                seen = watch.seen();
            }
            if (seen <= allowed) {
                EXPECT_EQ(status, VEK_OK);
                EXPECT_GT(allowed, 0u);
                return;
            }
            ASSERT_EQ(status, c.status);
            ASSERT_EQ(answers_of(group, m_settings), before);
            ASSERT_EQ(c.call(group.context()), VEK_OK);
            ASSERT_EQ(answers_of(group, m_settings), after);
        }
    }
};

TEST_P(CallsWithoutMemory, GiveStatus2AndChangeNothing) {
    const Rows added(m_settings, 1000, 50);
    Rows replacing(m_settings, 3, 60);
    vek::feature_cipher(replacing.features.data(), 60, m_settings.feature_size,
                        m_settings.feature_size);
    const uint64_t erased[] = {1, 4, 0};
    Query query;
    query.bytes = feature_bytes(m_settings, 33, 5);
    query.nr_query = 33;
    query.k = 5;
    query.options = {1, 1};
    Search search(query);
    const CallCase cases[] = {
        {"insert", [&](VEKContext group) { return added.insert_into(group); }},
        {"replace",
         [&](VEKContext group) {
             return replacing.insert_into(group, {1, 1});
         }},
        {"reserve", [](VEKContext group) { return VEK_reserve_feature_group_size(group, 100); }},
        {"search",
         [&](VEKContext group) {
             const VEKStatus status = search(group);
             EXPECT_TRUE(search.counts_set());
             EXPECT_EQ(search.untouched(), status != VEK_OK);
             return status;
         }},
        {"erase",
         [&](VEKContext group) {
             return VEK_delete_features_from_feature_group(group, erased, 3);
         }},
        {"shrink", VEK_shrink_feature_group, VEK_OK, 300},  // the larger buffers stay
    };
    for (const CallCase& c : cases) {
        for (bool warm : {false, true}) {
            expect_survives(c, 1, warm ? 40 : 5, warm);
            expect_survives(c, 64, warm ? 40 : 5, warm);  // small records are to be had
        }
    }
    EXPECT_LT(allocation_watch::largest_of_runtime(), MOST_OF_RUNTIME);
}

INSTANTIATE_TEST_SUITE_P(KindsAndBlockSizes, CallsWithoutMemory,
                         testing::Combine(testing::Values(VEK_INDEX_BRUTE_FORCE_FLOAT32,
                                                          VEK_INDEX_BRUTE_FORCE_INT8),
                                          testing::Values(16, 0)));

// Rows of 6 bytes are padded for a file, and those of the average lie in a copy.
TEST(LackOfMemory, OfCallsThatLeaveTheGroupAlone) {
    VEKFeatureGroupSettings settings = Group::settings(1);
    settings.feature_size = 6;
    const Group group(settings);
    ASSERT_EQ(group.insert(running_ids(2000), small_integers(4000, 1)), VEK_OK);
    const TempFolder folder;
    const std::string path = folder / "f";
    std::vector<uint8_t> rows(12000), average(4, 9);
    const VEKFeatureGroupAverageOptions encrypted{1};
    {
        const Watch watch(4096, 0);
        EXPECT_EQ(VEK_dump_feature_group_to_file(group.context(), path.c_str()), VEK_UNKNOWN_ERROR);
        EXPECT_EQ(
            VEK_get_average_feature(group.context(), rows.data(), 2000, &encrypted, average.data()),
            VEK_UNKNOWN_ERROR);
    }
    EXPECT_EQ(average, std::vector<uint8_t>(4, 9));
    EXPECT_EQ(VEK_dump_feature_group_to_file(group.context(), path.c_str()), VEK_OK);
    EXPECT_EQ(bytes_of_file(path).size(), 40u + 2000 * (8 + 6));
}

// Room to grow is a wish: a search gets on without, and leaves no more than it found. So many
// queries that a plan is in proportion to them.
TEST(LackOfMemory, OfAFailedSearchIsThereForASmallerOne) {
    constexpr size_t ROWS = 300, QUERIES = 2000;
    const Group group(DIM);
    ASSERT_EQ(group.insert(running_ids(ROWS), small_integers(ROWS, DIM)), VEK_OK);
    Query query;
    query.nr_query = 2 * QUERIES;
    query.features = small_integers(query.nr_query, DIM, 3);
    Search search(query);
    const auto search_for = [&](size_t nr_query) {
        search.query.nr_query = nr_query;
        return search(group.context());
    };
    size_t plan;
    {
        const Watch watch(1);
        EXPECT_EQ(search_for(QUERIES), VEK_OK);
        plan = watch.largest();
    }
    const Watch watch(plan + plan / 5, 0);
    EXPECT_EQ(search_for(2 * QUERIES), VEK_UNKNOWN_ERROR);
    EXPECT_EQ(search_for(QUERIES), VEK_OK);
    EXPECT_EQ(search_for(QUERIES + QUERIES / 8), VEK_OK) << "half as much again is not to be had";
    EXPECT_EQ(search_for(2 * QUERIES), VEK_UNKNOWN_ERROR);
    EXPECT_EQ(search_for(1), VEK_OK);
    EXPECT_EQ(search_for(QUERIES), VEK_OK);
}

// Keeps rows with odd tags, and counts how often it is asked.
int keep_odd(void* context, const uint8_t* tag) {
    ++*static_cast<size_t*>(context);
    return tag[0] % 2;
}

// Memory that lacks once is found by giving back what the group keeps. The search begins again
// then, also when blocks have been searched: here the second one takes larger pieces than the
// first. A predicate is not asked again.
TEST(LackOfMemory, OfOneAllocationIsNoFailureOfASearch) {
    constexpr size_t MANY = 8192 + 3276, QUERIES = 20, K = 3;
    const Group group(DIM, 1);
    std::vector<uint8_t> tags(MANY);
    for (size_t row = 0; row < MANY; ++row)
        tags[row] = static_cast<uint8_t>(row % 3);
    ASSERT_EQ(group.insert(running_ids(MANY), small_integers(MANY, DIM), tags), VEK_OK);
    size_t calls = 0;
    Query query;
    query.features = small_integers(QUERIES, DIM, 9);
    query.nr_query = QUERIES;
    query.k = K;
    query.contexts.assign(QUERIES, &calls);
    Search search(query);
    for (VEKTagPredicate predicate : {VEKTagPredicate{nullptr}, VEKTagPredicate{keep_odd}}) {
        search.query.predicate = predicate;
        Found wanted;
        // Never, and then the first one.
        for (size_t failing_after = Watch::NEVER;; failing_after += ONE_CASE_IN) {
            calls = 0;
            ASSERT_EQ(VEK_shrink_feature_group(group.context()), VEK_OK);
            size_t seen;
            {
                const Watch watch(1, failing_after, 1);
                ASSERT_EQ(search(group.context()), VEK_OK) << failing_after;
                seen = watch.seen();
            }
            if (failing_after == Watch::NEVER)
                wanted = search.found();
            ASSERT_EQ(search.found(), wanted) << failing_after;
            ASSERT_EQ(calls, predicate ? QUERIES * MANY : 0);
            if (failing_after < Watch::NEVER - ONE_CASE_IN && seen <= failing_after)
                break;
        }
    }
}

// What searches keep is given back before a change fails: one that lacks memory once succeeds, and
// the next search takes its memory anew, although its plan is no larger.
TEST(LackOfMemory, OfAChangeTakesTheMemoryOfSearchesFirst) {
    constexpr size_t ROWS = 250, QUERIES = 500;
    const VEKFeatureGroupSettings settings = Group::settings(DIM, TAG_BYTES);
    const Rows held(settings, 0, ROWS);
    const Rows added(settings, ROWS, 20);  // more than the first block has room for
    const std::vector<uint8_t> queries = feature_bytes(settings, QUERIES, 5);
    std::vector<uint64_t> ids(QUERIES);
    std::vector<float> scores(QUERIES);
    const auto largest_of_search = [&](VEKContext group) {
        VEKFeatureGroupSearchResult result{0, 0, scores.data(), ids.data()};
        const Watch watch(1);
        EXPECT_EQ(VEK_search_feature_group(group, queries.data(), QUERIES, 1, 0.0f, nullptr,
                                           nullptr, nullptr, &result),
                  VEK_OK);
        return watch.largest();
    };
    const std::function<VEKStatus(VEKContext)> changes[] = {
        [&](VEKContext group) { return added.insert_into(group); },
        [](VEKContext group) { return VEK_reserve_feature_group_size(group, 2 * ROWS); },
        [&](VEKContext group) {
            return VEK_delete_features_from_feature_group(group, held.ids.data(), 20);
        },
    };
    for (const auto& change : changes) {
        for (size_t failing_after = 0;; failing_after += ONE_CASE_IN) {
            const Group group(settings);
            ASSERT_EQ(held.insert_into(group.context()), VEK_OK);
            const size_t plan = largest_of_search(group.context());
            ASSERT_LT(largest_of_search(group.context()), plan / 2) << "the plan is kept";
            size_t seen;
            {
                const Watch watch(1, failing_after, 1);
                ASSERT_EQ(change(group.context()), VEK_OK) << failing_after;
                seen = watch.seen();
            }
            if (seen <= failing_after) {
                EXPECT_GT(failing_after, 0u);
                break;
            }
            ASSERT_GT(largest_of_search(group.context()), plan / 2) << failing_after;
        }
    }
}

TEST(LackOfMemory, OfBlocksLeavesNoMappingBehind) {
    const orb::CompNode node = orb::CompNode::load("cpu:default");
    const size_t before = allocation_watch::mapped();
    for (size_t bytes : {size_t{1} << 20, size_t{3} << 20, (size_t{3} << 20) + 100}) {
        bool succeeded = false;
        for (size_t allowed = 0; !succeeded; ++allowed) {
            try {
                const Watch watch(1, allowed);
                vek::allocate_blocks(node, bytes, 5);
                succeeded = true;
            } catch (const std::bad_alloc&) {
            }
            ASSERT_EQ(allocation_watch::mapped(), before) << bytes << ' ' << allowed;
        }
    }
}

}  // namespace
