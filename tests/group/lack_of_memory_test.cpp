// What groups do when memory runs out: status 2, the group as it was, and the next call served.
#include <gtest/gtest.h>

#include <functional>
#include <new>

#include "store/adopted_memory.h"
#include "tests/group/allocation_watch.h"
#include "tests/group/group_test_util.h"
#include "tests/store/file_test_util.h"

namespace {

using allocation_watch::Watch;

constexpr size_t DIM = 6;
constexpr uint32_t TAG_BYTES = 3;

// Calls `round` with the number of allocations that succeed before one fails, from 0 on, until it
// returns that none has failed.
template <typename Round>
void for_each_failure(const Round& round) {
    size_t allowed = 0;
    bool failed = true;
    for (; failed && !testing::Test::HasFailure(); allowed += ONE_CASE_IN) {
        SCOPED_TRACE("after " + std::to_string(allowed) + " allocations");
        failed = round(allowed);
    }
    EXPECT_GT(allowed, ONE_CASE_IN) << "nothing was allocated";
}

size_t largest_of_search(Search& search, const Group& group) {
    const Watch watch(1);
    EXPECT_EQ(search(group.context()), VEK_OK);
    return watch.largest();
}

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

// Groups of one kind and block size, 0 the default. Rows of the float group are padded for a file.
class CallsWithoutMemory : public testing::TestWithParam<std::tuple<int32_t, size_t>> {
protected:
    const bool m_is_int8 = std::get<0>(GetParam()) == VEK_INDEX_BRUTE_FORCE_INT8;
    VEKFeatureGroupSettings m_settings =
        m_is_int8 ? Group::int8_settings(DIM, TAG_BYTES) : Group::settings(DIM, TAG_BYTES);
    BlockSize m_block_size{std::get<1>(GetParam())};

    void SetUp() override { m_settings.feature_size += m_is_int8 ? 0 : 2; }

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
            EXPECT_EQ(held.insert_into(group.context()), VEK_OK);
            EXPECT_EQ(group.reserve(c.reserved), VEK_OK);
        };
        const Group never_failing(m_settings);
        fill(never_failing);
        const Found before = answers_of(never_failing, m_settings);
        ASSERT_EQ(c.call(never_failing.context()), VEK_OK);
        const Found after = answers_of(never_failing, m_settings);
        for_each_failure([&](size_t allowed) {
            const Group group(m_settings);
            fill(group);
            if (warm)
                answers_of(group, m_settings);
            const auto [status, failed] = call_failing(c, group, least, allowed, Watch::NEVER);
            EXPECT_EQ(status, failed ? c.status : VEK_OK);
            if (failed) {
                EXPECT_EQ(answers_of(group, m_settings), before);
                EXPECT_EQ(c.call(group.context()), VEK_OK);
                EXPECT_EQ(answers_of(group, m_settings), after);
            }
            return failed;
        });
    }

    // What searches keep of large blocks is given back before a change fails: one that lacks memory
    // once succeeds, and the next search takes its memory anew, although its plan is no larger.
    void expect_memory_of_searches_taken(const CallCase& c) {
        SCOPED_TRACE(c.name);
        const Rows held(m_settings, 0, 250);
        Query query;
        query.nr_query = 500;
        query.bytes = feature_bytes(m_settings, query.nr_query, 5);
        Search search(query);
        for_each_failure([&](size_t allowed) {
            const Group group(m_settings);
            EXPECT_EQ(held.insert_into(group.context()), VEK_OK);
            const size_t plan = largest_of_search(search, group);
            EXPECT_LT(largest_of_search(search, group), plan / 2) << "the plan is kept";
            const auto [status, failed] = call_failing(c, group, 1, allowed, 1);
            EXPECT_EQ(status, VEK_OK);
            EXPECT_EQ(largest_of_search(search, group) > plan / 2, failed);
            return failed;
        });
    }

private:
    static std::pair<VEKStatus, bool> call_failing(const CallCase& c, const Group& group,
                                                   size_t least, size_t allowed, size_t failing) {
        const Watch watch(least, allowed, failing);
        const VEKStatus status = c.call(group.context());
        return {status, watch.seen() > allowed};
    }
};

TEST_P(CallsWithoutMemory, GiveStatus2AndChangeNothing) {
    const Rows added(m_settings, 1000, 50), replacing(m_settings, 3, 60);
    const uint64_t erased[] = {1, 4, 0};
    const CallCase changes[] = {
        {"insert", [&](VEKContext group) { return added.insert_into(group); }},
        {"replace",
         [&](VEKContext group) {
             return replacing.insert_into(group, {1, 1});
         }},
        {"reserve", [](VEKContext group) { return VEK_reserve_feature_group_size(group, 600); }},
        {"erase",
         [&](VEKContext group) {
             return VEK_delete_features_from_feature_group(group, erased, 3);
         }},
    };
    Query query;
    query.bytes = feature_bytes(m_settings, 33, 5);
    query.nr_query = 33;
    query.k = 5;
    query.options = {1, 1};
    Search search(query);
    std::vector<CallCase> cases(std::begin(changes), std::end(changes));
    cases.push_back({"search", [&](VEKContext group) {
                         const VEKStatus status = search(group);
                         EXPECT_TRUE(search.counts_set());
                         EXPECT_EQ(search.untouched(), status != VEK_OK);
                         return status;
                     }});
    // The larger buffers stay.
    cases.push_back({"shrink", VEK_shrink_feature_group, VEK_OK, 300});
    const TempFolder folder;
    const std::string path = folder / "f";
    OddBytes average(m_settings.feature_size);
    const VEKFeatureGroupAverageOptions encrypted{1};
    if (!m_is_int8) {
        cases.push_back({"dump", [&](VEKContext group) {
                             return VEK_dump_feature_group_to_file(group, path.c_str());
                         }});
        cases.push_back({"average", [&](VEKContext group) {
                             average.fill(9);
                             const VEKStatus status = VEK_get_average_feature(
                                 group, replacing.features.data(), 60, &encrypted, average.bytes());
                             EXPECT_EQ(average.all(9), status != VEK_OK);
                             return status;
                         }});
    }
    for (const CallCase& c : cases) {
        for (bool warm : {false, true}) {
            expect_survives(c, 1, warm ? 40 : 5, warm);
            expect_survives(c, 64, warm ? 40 : 5, warm);  // small records are to be had
        }
    }
    if (!m_is_int8) {
        EXPECT_EQ(bytes_of_file(path).size(), 40u + 40 * (8 + m_settings.feature_size + TAG_BYTES));
    }
    if (std::get<1>(GetParam()) == 0) {
        for (const CallCase& c : changes)
            expect_memory_of_searches_taken(c);
    }
    EXPECT_LT(allocation_watch::largest_of_runtime(), allocation_watch::MOST_OF_RUNTIME);
}

INSTANTIATE_TEST_SUITE_P(KindsAndBlockSizes, CallsWithoutMemory,
                         testing::Combine(testing::Values(VEK_INDEX_BRUTE_FORCE_FLOAT32,
                                                          VEK_INDEX_BRUTE_FORCE_INT8),
                                          testing::Values(16, 0)));

// Room to grow is a wish: a search gets on without, and leaves no more than it found. So many
// queries that a plan is in proportion to them.
TEST(LackOfMemory, OfAFailedSearchIsThereForASmallerOne) {
    constexpr size_t ROWS = 300, QUERIES = 2000;
    const Group group(DIM);
    ASSERT_EQ(group.insert(running_ids(ROWS), small_integers(ROWS, DIM)), VEK_OK);
    Search search = make_search(2 * QUERIES, DIM);
    search.query.nr_query = QUERIES;
    const size_t plan = largest_of_search(search, group);
    const Watch watch(plan + plan / 5, 0);
    // For an eighth more, half as much again is not to be had.
    for (size_t nr_query :
         {2 * QUERIES, QUERIES, QUERIES + QUERIES / 8, 2 * QUERIES, size_t{1}, QUERIES}) {
        search.query.nr_query = nr_query;
        EXPECT_EQ(search(group.context()), nr_query == 2 * QUERIES ? VEK_UNKNOWN_ERROR : VEK_OK);
    }
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
    constexpr size_t MANY = 8192 + 3276, QUERIES = 20;
    const Group group(DIM, 1);
    std::vector<uint8_t> tags(MANY);
    for (size_t row = 0; row < MANY; ++row)
        tags[row] = static_cast<uint8_t>(row % 3);
    ASSERT_EQ(group.insert(running_ids(MANY), small_integers(MANY, DIM), tags), VEK_OK);
    size_t calls = 0;
    Search search = make_search(QUERIES, DIM, 3);
    search.query.contexts.assign(QUERIES, &calls);
    for (VEKTagPredicate predicate : {VEKTagPredicate{nullptr}, VEKTagPredicate{keep_odd}}) {
        search.query.predicate = predicate;
        ASSERT_EQ(search(group.context()), VEK_OK);
        const Found wanted = search.found();
        for_each_failure([&](size_t allowed) {
            calls = 0;
            EXPECT_EQ(VEK_shrink_feature_group(group.context()), VEK_OK);
            bool failed;
            {
                const Watch watch(1, allowed, 1);
                EXPECT_EQ(search(group.context()), VEK_OK);
                failed = watch.seen() > allowed;
            }
            EXPECT_TRUE(search.found() == wanted);
            EXPECT_EQ(calls, predicate ? QUERIES * MANY : 0);
            return failed;
        });
    }
}

TEST(LackOfMemory, OfBlocksLeavesNoMappingBehind) {
    const orb::CompNode node = orb::CompNode::load("cpu:default");
    const size_t before = allocation_watch::mapped();
    for (size_t bytes : {size_t{1} << 20, size_t{3} << 20, (size_t{3} << 20) + 100}) {
        for_each_failure([&](size_t allowed) {
            bool failed = false;
            try {
                const Watch watch(1, allowed);
                vek::allocate_blocks(node, bytes, 5);
            } catch (const std::bad_alloc&) {
                failed = true;
            }
            EXPECT_EQ(allocation_watch::mapped(), before) << bytes;
            return failed;
        });
    }
}

}  // namespace
