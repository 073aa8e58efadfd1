// The bits of a pair's score depend on the two features alone: not on the batch, the place in it,
// the block size, the address of a buffer or the rows around.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <tuple>

#include "tests/group/group_test_util.h"

namespace {

constexpr size_t ROWS = 75;
constexpr size_t QUERIES = 13;
constexpr uint32_t TAG_BYTES = 3;

// Values that no float product is exact on, in [-1, 1).
std::vector<float> random_features(size_t rows, size_t dim, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    std::vector<float> features(rows * dim);
    std::generate(features.begin(), features.end(), [&] { return unit(random); });
    return features;
}

// The curve lies so that scores are far below 1: one unit in the last place of a raw score then
// moves many of the similarity.
VEKFeatureGroupSettings steep(size_t dim) {
    VEKFeatureGroupSettings settings = Group::settings(dim, TAG_BYTES);
    settings.comparison = {VEK_COMPARISON_SIGMOID_L2, 10.0f / static_cast<float>(dim), 5.0f};
    return settings;
}

// Of all rows for `count` queries of those given, each score by query and id.
using Scores = std::map<std::pair<size_t, uint64_t>, uint32_t>;
Scores search(const Group& group, const std::vector<float>& queries, size_t first, size_t count,
              size_t offset) {
    const auto dim = static_cast<ptrdiff_t>(queries.size() / QUERIES);
    const auto begin = queries.begin() + static_cast<ptrdiff_t>(first) * dim;
    Query query;
    query.features.assign(begin, begin + static_cast<ptrdiff_t>(count) * dim);
    query.nr_query = count;
    query.k = group.size();
    query.offset = offset;
    const Found found = group.search(query);
    Scores scores;
    for (size_t place = 0; place < found.ids.size(); ++place)
        scores[{first + place / query.k, found.ids[place]}] = found.scores[place];
    EXPECT_EQ(scores.size(), found.ids.size()) << "each row once";
    return scores;
}

// Compared with each query by itself in a group of the default block size, all buffers aligned. The
// watched rows have odd ids; others, of even ones, come and go between.
TEST(SameBits, WhateverIsAroundAPair) {
    std::mt19937 random(3);
    const auto pick = [&](const std::vector<size_t>& of) { return of[random() % of.size()]; };
    for (size_t dim : {1u, 2u, 3u, 5u, 8u, 31u, 100u, 127u, 128u, 512u}) {
        const std::vector<float> rows = random_features(ROWS, dim, 1);
        const std::vector<float> queries = random_features(QUERIES, dim, 2);
        const std::vector<uint8_t> tags(ROWS * TAG_BYTES);
        std::vector<uint64_t> ids(ROWS), others(ROWS);
        for (size_t i = 0; i < ROWS; ++i)
            others[i] = (ids[i] = 2 * i + 1) + 1;
        const Group plain(steep(dim));
        ASSERT_EQ(plain.insert(ids, rows, tags, {}, 0), VEK_OK);
        Scores reference;
        for (size_t q = 0; q < QUERIES; ++q)
            reference.merge(search(plain, queries, q, 1, 0));
        for (size_t round = 0; round < 42; round += ONE_CASE_IN) {
            const BlockSize blocks(std::vector<size_t>{0, 1, 2, 3, 7, 16, 74}[round % 7]);
            SCOPED_TRACE(testing::Message() << "dim " << dim << " round " << round);
            const Group group(steep(dim));
            const size_t offset = pick({0, 1, 2, 3, 4, 5, 9});
            if (round % 2 == 0) {
                ASSERT_EQ(group.insert(others, random_features(ROWS, dim, 3), tags), VEK_OK);
            }
            ASSERT_EQ(group.insert(ids, rows, tags, {}, offset), VEK_OK);
            std::shuffle(others.begin(), others.end(), random);
            for (size_t step = 0; step < 10; ++step) {
                const size_t count = pick({1, 2, 3, 4, 5, 8, QUERIES});
                const size_t first = random() % (QUERIES - count + 1);
                const Scores found = search(group, queries, first, count, offset);
                for (const auto& [pair, score] : found) {
                    const bool is_watched = pair.second % 2 == 1;
                    ASSERT_TRUE(!is_watched || score == reference.at(pair))
                        << count << " from " << first;
                }
                const auto some = others.begin() + static_cast<ptrdiff_t>(7 * step);
                if (round % 2 == 0) {
                    ASSERT_EQ(group.erase(std::vector<uint64_t>(some, some + 7)), VEK_OK);
                }
            }
        }
    }
}

// The query's half square is subtracted first. Products and half squares are exact here, and only
// the difference of the first pair needs a rounding, from -7996000.5 to -7996000.
TEST(SameBits, InTheOrderOfTheTwoSubtractions) {
    VEKFeatureGroupSettings settings = Group::settings(1);
    settings.comparison = {VEK_COMPARISON_SIGMOID_L2, 0.5f, -7996000.0f};
    const std::tuple<float, float, double> cases[] = {{4001.0f, 8000.0f, 0.0},
                                                      {8000.0f, 4001.0f, 0.5}};
    for (const auto& [query_value, row_value, exponent] : cases) {
        const Group group(settings);
        ASSERT_EQ(group.insert({1}, {row_value}), VEK_OK);
        Query query;
        query.features = {query_value};
        const float expected = static_cast<float>(1.0 / (std::exp(exponent) + 1.0));
        EXPECT_EQ(group.search(query).scores[0], bits(expected)) << query_value;
    }
}

}  // namespace
