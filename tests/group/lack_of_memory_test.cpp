// What groups do when memory runs out: status 2, the group as it was, and the next call served.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <new>

#include "group/feature_cipher.h"
#include "store/adopted_memory.h"
#include "store/smart_tensor.h"
#include "store/smart_vector.h"
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

// A search whose result arrays must stay untouched if it fails.
struct EncryptedSearch {
    static constexpr size_t QUERIES = 33;
    static constexpr size_t K = 5;
    std::vector<uint8_t> queries;
    std::vector<uint64_t> ids = std::vector<uint64_t>(QUERIES * K);
    std::vector<float> scores = std::vector<float>(QUERIES * K);

    VEKStatus operator()(VEKContext context) {
        std::fill(ids.begin(), ids.end(), 9);
        std::fill(scores.begin(), scores.end(), 9.0f);
        const VEKFeatureGroupSearchOptions options{1, 1};
        VEKFeatureGroupSearchResult result{0, 0, scores.data(), ids.data()};
        const VEKStatus status = VEK_search_feature_group(context, queries.data(), QUERIES, K, 0.0f,
                                                          nullptr, nullptr, &options, &result);
        const bool untouched = std::count(ids.begin(), ids.end(), 9) == QUERIES * K &&
                               std::count(scores.begin(), scores.end(), 9.0f) == QUERIES * K;
        const bool counts_set = result.nr_query == QUERIES && result.k == K;
        return counts_set && untouched == (status != VEK_OK) ? status : -1;
    }
};

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
    EncryptedSearch search{feature_bytes(m_settings, EncryptedSearch::QUERIES, 5)};
    const CallCase cases[] = {
        {"insert", [&](VEKContext group) { return added.insert_into(group); }},
        {"replace",
         [&](VEKContext group) {
             return replacing.insert_into(group, {1, 1});
         }},
        {"reserve", [](VEKContext group) { return VEK_reserve_feature_group_size(group, 100); }},
        {"search", [&](VEKContext group) { return search(group); }},
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

// Searches of different numbers of queries on one group: so many that a plan is in proportion to
// them.
class SearchMemory : public testing::Test {
protected:
    static constexpr size_t ROWS = 300;
    static constexpr size_t QUERIES = 2000;
    const Group m_group{DIM};
    const std::vector<float> m_queries = small_integers(2 * QUERIES, DIM, 3);
    std::vector<uint64_t> m_ids = std::vector<uint64_t>(2 * QUERIES);
    std::vector<float> m_scores = std::vector<float>(2 * QUERIES);

    void SetUp() override {
        ASSERT_EQ(m_group.insert(running_ids(ROWS), small_integers(ROWS, DIM)), VEK_OK);
    }
    VEKStatus search(size_t nr_query) {
        VEKFeatureGroupSearchResult result{0, 0, m_scores.data(), m_ids.data()};
        const void* queries = m_queries.data();
        return VEK_search_feature_group(m_group.context(), static_cast<const uint8_t*>(queries),
                                        nr_query, 1, 0.0f, nullptr, nullptr, nullptr, &result);
    }
    // The largest piece of memory that a search takes.
    size_t largest_of(size_t nr_query) {
        const Watch watch(1);
        EXPECT_EQ(search(nr_query), VEK_OK);
        return watch.largest();
    }
};

// Room to grow is a wish: a search gets on without, and leaves no more than it found.
TEST_F(SearchMemory, OfAFailedSearchIsThereForASmallerOne) {
    const size_t plan = largest_of(QUERIES);
    const Watch watch(plan + plan / 5, 0);
    EXPECT_EQ(search(2 * QUERIES), VEK_UNKNOWN_ERROR);
    EXPECT_EQ(search(QUERIES), VEK_OK);
    EXPECT_EQ(search(QUERIES + QUERIES / 8), VEK_OK) << "half as much again is not to be had";
    EXPECT_EQ(search(2 * QUERIES), VEK_UNKNOWN_ERROR);
    EXPECT_EQ(search(1), VEK_OK);
    EXPECT_EQ(search(QUERIES), VEK_OK);
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
    OddBytes queries(small_integers(QUERIES, DIM, 9));
    std::vector<uint64_t> ids(QUERIES * K);
    std::vector<float> scores(QUERIES * K);
    size_t calls = 0;
    const std::vector<void*> contexts(QUERIES, &calls);
    VEKFeatureGroupSearchResult result{0, 0, scores.data(), ids.data()};
    for (VEKTagPredicate predicate : {VEKTagPredicate{nullptr}, VEKTagPredicate{keep_odd}}) {
        std::vector<uint64_t> wanted;
        // Never, and then the first one.
        for (size_t failing_after = Watch::NEVER;; failing_after += ONE_CASE_IN) {
            calls = 0;
            ASSERT_EQ(VEK_shrink_feature_group(group.context()), VEK_OK);
            const Watch watch(1, failing_after, 1);
            ASSERT_EQ(VEK_search_feature_group(group.context(), queries.bytes(), QUERIES, K, 0.0f,
                                               contexts.data(), predicate, nullptr, &result),
                      VEK_OK)
                << failing_after;
            if (wanted.empty())
                wanted = ids;
            ASSERT_EQ(ids, wanted) << failing_after;
            ASSERT_EQ(calls, predicate ? QUERIES * MANY : 0);
            if (failing_after < Watch::NEVER - ONE_CASE_IN && watch.seen() <= failing_after)
                break;
        }
    }
}

// Sizes beyond the machine, and products of sizes that wrap. The arrays are too short for the
// counts, so nothing may be read or written either.
TEST(LackOfMemory, ImpossibleSizesAreStatus2) {
    const BlockSize block_size(16);
    const VEKFeatureGroupSettings settings = Group::settings(DIM, TAG_BYTES);
    const Rows held(settings, 0, 20);
    const Group group(settings);
    ASSERT_EQ(held.insert_into(group.context()), VEK_OK);
    const Found before = answers_of(group, settings);
    const Group wide(size_t{1} << 20);
    const Watch watch(size_t{1} << 26, 0);  // as a machine without so much would answer
    for (size_t rows :
         {size_t{UINT32_MAX} / 2, size_t{UINT32_MAX}, SIZE_MAX / 24 + 1, SIZE_MAX / 2, SIZE_MAX}) {
        SCOPED_TRACE(rows);
        EXPECT_EQ(group.reserve(rows), VEK_UNKNOWN_ERROR);
        EXPECT_EQ(wide.reserve(rows), VEK_UNKNOWN_ERROR);
        EXPECT_EQ(
            VEK_insert_features_to_feature_group(group.context(), held.features.data(),
                                                 held.ids.data(), held.tags.data(), rows, nullptr),
            VEK_UNKNOWN_ERROR);
    }
    const std::pair<size_t, size_t> searches[] = {
        {107374182, 1}, {107374183, 1}, {SIZE_MAX, 1},         {1, 1073741824},
        {1, SIZE_MAX},  {0, 1 << 30},   {SIZE_MAX / 2 + 1, 2}, {SIZE_MAX / 2, SIZE_MAX / 2},
    };
    for (const auto& [nr_query, k] : searches) {
        SCOPED_TRACE(std::to_string(nr_query) + " queries, k " + std::to_string(k));
        uint64_t id = 9;
        float score = 9;
        VEKFeatureGroupSearchResult result{7, 7, &score, &id};
        const size_t seen_before = watch.seen();
        EXPECT_EQ(VEK_search_feature_group(group.context(), held.features.data(), nr_query, k, 0.0f,
                                           nullptr, nullptr, nullptr, &result),
                  nr_query == 0 ? VEK_OK : VEK_UNKNOWN_ERROR);
        EXPECT_TRUE(result.nr_query == nr_query && result.k == k);
        EXPECT_TRUE(id == 9 && score == 9);
        EXPECT_TRUE(nr_query == 107374182 || watch.seen() == seen_before) << "a limit, not memory";
    }
    VEKFeatureGroupSearchResult wrapped{};
    EXPECT_EQ(VEK_search_feature_group(wide.context(), held.features.data(), SIZE_MAX / 2 + 1, 2,
                                       0.0f, nullptr, nullptr, nullptr, &wrapped),
              VEK_UNKNOWN_ERROR);
    EXPECT_EQ(answers_of(group, settings), before);
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

std::vector<uint64_t> rows_of(const vek::SmartVector<uint64_t>& store) {
    return {store.data(), store.data() + store.size()};
}

std::vector<uint64_t> rows_of(const vek::SmartTensor& store) {
    std::vector<uint64_t> rows(store.size());
    size_t row = 0;
    for (const auto& [block, filled] : store.get_all_elements()) {
        std::memcpy(&rows[row], block->ptr(), filled * sizeof(uint64_t));
        row += filled;
    }
    return rows;
}

template <typename Store>
void expect_rows_survive(Store& store, size_t held) {
    SCOPED_TRACE(std::to_string(held) + " rows");
    const std::vector<uint64_t> rows = running_ids(held + 300);
    const std::vector<uint64_t> first(rows.begin(), rows.begin() + static_cast<ptrdiff_t>(held));
    store.add(rows.data(), held);
    const std::pair<bool, std::function<void()>> growths[] = {
        {true, [&] { store.ensure_size(held + 200); }},
        {false, [&] { store.add(&rows[held], 300); }},
    };
    for (const auto& [keeps_rows, grow] : growths) {
        size_t failures = 0;
        for (bool succeeded = false; !succeeded;) {
            try {
                const Watch watch(1, failures);
                grow();
                succeeded = true;
            } catch (const std::bad_alloc&) {
                ++failures;
            }
            ASSERT_EQ(rows_of(store) == first, !succeeded || keeps_rows) << failures;
        }
        EXPECT_GT(failures, 0u);
    }
    EXPECT_EQ(rows_of(store), rows);
}

TEST(LackOfMemory, AStoreThatCannotGrowKeepsItsRows) {
    for (size_t held : {0u, 5u, 64u, 100u}) {
        vek::SmartTensor tensor;
        tensor.init(orb::CompNode::load("cpu:default"), sizeof(uint64_t), 1, 64);
        expect_rows_survive(tensor, held);
        vek::SmartVector<uint64_t> vector;
        vector.init(1);
        expect_rows_survive(vector, held);
    }
}

}  // namespace
