// Many threads on one group, and many groups at once. Sized for the thread sanitizer.
#include <gtest/gtest.h>

#include <thread>

#include "tests/group/group_test_util.h"

namespace {

constexpr size_t THREADS = 6;
constexpr size_t DIM = 19;

template <typename Body>
void run_together(const Body& body) {
    std::vector<std::thread> threads;
    for (size_t t = 0; t < THREADS; ++t)
        threads.emplace_back([&body, t] { body(t); });
    for (std::thread& thread : threads)
        thread.join();
}

int has_bit(void* context, const uint8_t* tag) {
    return *tag & *static_cast<const uint8_t*>(context);
}

// Searches that differ from thread to thread in everything, so that mixed-up buffers show.
Query query_of(size_t thread, size_t round) {
    static uint8_t bits[THREADS] = {1, 2, 4, 8, 3, 255};
    Query query;
    query.nr_query = 1 + (3 * thread + round) % 9;
    query.k = 1 + (thread + 5 * round) % 40;
    query.features = small_integers(query.nr_query, DIM, static_cast<unsigned>(thread + 1));
    query.options.sorted = static_cast<int32_t>(thread % 2);
    if (round % 2 == 0) {
        query.predicate = has_bit;
        query.contexts.assign(query.nr_query, &bits[thread]);
    }
    return query;
}

std::vector<uint8_t> running_tags(size_t rows) {
    std::vector<uint8_t> tags(rows);
    for (size_t i = 0; i < rows; ++i)
        tags[i] = static_cast<uint8_t>(i);
    return tags;
}

TEST(Threads, ManySearchOneGroup) {
    constexpr size_t ROWS = 300, ROUNDS = 12;
    const BlockSize blocks(64);
    const Group group(DIM, 1);
    ASSERT_EQ(group.insert(running_ids(ROWS), small_integers(ROWS, DIM), running_tags(ROWS)),
              VEK_OK);
    Found expected[THREADS][ROUNDS];
    for (size_t t = 0; t < THREADS; ++t) {
        for (size_t round = 0; round < ROUNDS; ++round)
            expected[t][round] = group.search(query_of(t, round));
    }
    run_together([&](size_t t) {
        for (size_t round = 0; round < ROUNDS; ++round) {
            EXPECT_EQ(group.search(query_of(t, round)), expected[t][round]);
            EXPECT_EQ(group.size(), ROWS);
            VEKFeatureGroupSettings settings;
            EXPECT_EQ(VEK_get_feature_group_settings(group.context(), &settings), VEK_OK);
            EXPECT_EQ(settings.tag_size, 1u);
        }
    });
}

// The whole life of a group of its own size, and what it answers on the way.
std::vector<Found> live(size_t thread) {
    std::vector<Found> answers;
    const size_t rows = 40 + 31 * thread;
    const Group group(DIM, 1);
    const std::vector<float> features = small_integers(rows, DIM, static_cast<unsigned>(thread));
    EXPECT_EQ(group.insert(running_ids(rows), features, running_tags(rows)), VEK_OK);
    answers.push_back(group.search(query_of(thread, 0)));
    EXPECT_EQ(group.erase(running_ids(rows / 2, 3)), VEK_OK);
    EXPECT_EQ(VEK_shrink_feature_group(group.context()), VEK_OK);
    answers.push_back(group.search(query_of(thread, 1)));
    EXPECT_EQ(group.insert(running_ids(rows, 2), features, running_tags(rows), {0, 1}), VEK_OK);
    answers.push_back(group.search(query_of(thread, 2)));
    EXPECT_EQ(VEK_reset_feature_group(group.context()), VEK_OK);
    answers.push_back(group.search(query_of(thread, 3)));
    return answers;
}

TEST(Threads, EachWithGroupsOfItsOwn) {
    const BlockSize blocks(32);
    std::vector<std::vector<Found>> expected;
    for (size_t t = 0; t < THREADS; ++t)
        expected.push_back(live(t));
    run_together([&](size_t t) {
        for (size_t round = 0; round < 5; ++round)
            EXPECT_EQ(live(t), expected[t]);
    });
}

}  // namespace
