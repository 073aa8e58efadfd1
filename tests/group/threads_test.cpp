// Many threads on one group, and many groups at once. Sized for the thread sanitizer.
#include <gtest/gtest.h>

#include "tests/group/group_test_util.h"
#include "tests/store/file_test_util.h"
#include "tests/threads.h"

namespace {

constexpr size_t THREADS = 6;
constexpr size_t DIM = 19;

int has_bit(void* context, const uint8_t* tag) {
    return *tag & *static_cast<const uint8_t*>(context);
}

const VEKFeatureGroupSettings KINDS[] = {Group::settings(DIM, 1), Group::int8_settings(DIM, 1)};

// Searches that differ from thread to thread in everything, so that mixed-up buffers show.
Query query_of(const VEKFeatureGroupSettings& kind, size_t thread, size_t round) {
    static uint8_t bits[THREADS] = {1, 2, 4, 8, 3, 255};
    Query query;
    query.nr_query = 1 + (3 * thread + round) % 9;
    query.k = 1 + (thread + 5 * round) % 40;
    query.bytes = feature_bytes(kind, query.nr_query, static_cast<unsigned>(thread + 1));
    query.options.sorted = static_cast<int32_t>(thread % 2);
    if (round % 2 == 0) {
        query.predicate = has_bit;
        query.contexts.assign(query.nr_query, &bits[thread]);
    }
    return query;
}

VEKStatus insert_running(const Group& group, const VEKFeatureGroupSettings& kind, size_t rows,
                         const VEKFeatureGroupInsertOptions& options = {}, uint64_t first = 0) {
    const std::vector<uint64_t> ids = running_ids(rows, first);
    return group.insert(ids, feature_bytes(kind, rows, static_cast<unsigned>(rows)),
                        std::vector<uint8_t>(ids.begin(), ids.end()), options);
}

// The file of a group and the mean of some rows, with the statuses.
std::string dump_and_average(const Group& group, const VEKFeatureGroupSettings& kind,
                             const std::string& path) {
    const std::vector<uint8_t> rows = feature_bytes(kind, 7, 3);
    std::vector<uint8_t> average(kind.feature_size);
    const VEKFeatureGroupAverageOptions encrypted{1};
    const std::vector<VEKStatus> statuses = {
        VEK_get_average_feature(group.context(), rows.data(), 7, &encrypted, average.data()),
        VEK_dump_feature_group_to_file(group.context(), path.c_str())};
    const bool dumped = statuses.back() == VEK_OK;
    return bytes_of(statuses) + bytes_of(average) + (dumped ? bytes_of_file(path) : "");
}

TEST(Threads, ManySearchAndReadOneGroup) {
    constexpr size_t ROWS = 300, ROUNDS = 12;
    const BlockSize blocks(64);
    const TempFolder folder;
    for (const VEKFeatureGroupSettings& kind : KINDS) {
        const Group group(kind);
        ASSERT_EQ(insert_running(group, kind, ROWS), VEK_OK);
        Found expected[THREADS][ROUNDS];
        for (size_t t = 0; t < THREADS; ++t) {
            for (size_t round = 0; round < ROUNDS; ++round)
                expected[t][round] = group.search(query_of(kind, t, round));
        }
        const std::string expected_bytes = dump_and_average(group, kind, folder / "expected");
        run_together(THREADS, [&](size_t t) {
            const std::string path = folder / std::to_string(t);
            for (size_t round = 0; round < ROUNDS; ++round) {
                EXPECT_EQ(group.search(query_of(kind, t, round)), expected[t][round]);
                EXPECT_EQ(group.size(), ROWS);
                VEKFeatureGroupSettings settings;
                EXPECT_EQ(VEK_get_feature_group_settings(group.context(), &settings), VEK_OK);
                EXPECT_EQ(settings.tag_size, 1u);
                EXPECT_EQ(dump_and_average(group, kind, path), expected_bytes);
            }
        });
    }
}

// The whole life of a group of its own size, and what it answers on the way.
std::vector<Found> live(const VEKFeatureGroupSettings& kind, size_t thread) {
    std::vector<Found> answers;
    const auto search = [&](const Group& group, size_t round) {
        answers.push_back(group.search(query_of(kind, thread, round)));
    };
    const size_t rows = 40 + 31 * thread;
    const Group group(kind);
    EXPECT_EQ(insert_running(group, kind, rows), VEK_OK);
    search(group, 0);
    EXPECT_EQ(group.erase(running_ids(rows / 2, 3)), VEK_OK);
    EXPECT_EQ(VEK_shrink_feature_group(group.context()), VEK_OK);
    search(group, 1);
    EXPECT_EQ(insert_running(group, kind, rows, {0, 1}, 2), VEK_OK);
    search(group, 2);
    VEK_reset_feature_group(group.context());  // not of integers
    search(group, 3);
    return answers;
}

TEST(Threads, EachWithGroupsOfItsOwn) {
    const BlockSize blocks(32);
    for (const VEKFeatureGroupSettings& kind : KINDS) {
        std::vector<std::vector<Found>> expected;
        for (size_t t = 0; t < THREADS; ++t)
            expected.push_back(live(kind, t));
        run_together(THREADS, [&](size_t t) {
            for (size_t round = 0; round < 5; ++round)
                EXPECT_EQ(live(kind, t), expected[t]);
        });
    }
}

}  // namespace
