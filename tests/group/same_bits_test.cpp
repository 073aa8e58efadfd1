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
constexpr size_t DIMS[] = {1, 2, 3, 5, 8, 31, 100, 127, 128, 512};
constexpr uint32_t TAG_BYTES = 3;

// Scores by id, each as bits.
using Scores = std::map<uint64_t, uint32_t>;

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

// A copy of an array that begins `offset` bytes behind an aligned address.
class Shifted {
public:
    Shifted(const void* source, size_t size, size_t offset)
        : m_offset(offset), m_bytes(offset + size) {
        if (size != 0)
            std::memcpy(bytes(), source, size);
    }
    template <typename T>
    Shifted(const std::vector<T>& values, size_t offset)
        : Shifted(values.data(), values.size() * sizeof(T), offset) {}

    uint8_t* bytes() { return m_bytes.data() + m_offset; }
    template <typename T>
    T* as() {
        return static_cast<T*>(static_cast<void*>(bytes()));
    }

private:
    size_t m_offset;
    std::vector<uint8_t> m_bytes;
};

struct Case {
    size_t dim;
    std::vector<float> rows, queries;
    std::vector<uint64_t> ids = running_ids(ROWS, 1000);
    std::vector<uint8_t> tags = std::vector<uint8_t>(ROWS * TAG_BYTES, 1);

    explicit Case(size_t d)
        : dim(d), rows(random_features(ROWS, d, 1)), queries(random_features(QUERIES, d, 2)) {}

    void insert_all(const Group& group, size_t offset = 0) const {
        Shifted features(rows, offset), id_bytes(ids, offset), tag_bytes(tags, offset);
        ASSERT_EQ(VEK_insert_features_to_feature_group(group.context(), features.bytes(),
                                                       id_bytes.as<uint64_t>(), tag_bytes.bytes(),
                                                       ROWS, nullptr),
                  VEK_OK);
    }

    // Of `count` queries from `first` on. All buffers lie `offset` bytes behind aligned addresses.
    std::vector<Scores> search(const Group& group, size_t first, size_t count,
                               size_t offset = 0) const {
        const size_t k = group.size();
        Shifted features(&queries[first * dim], count * dim * sizeof(float), offset);
        Shifted ids_out(std::vector<uint64_t>(count * k), offset);
        Shifted scores_out(std::vector<float>(count * k), offset);
        VEKFeatureGroupSearchResult result{0, 0, scores_out.as<float>(), ids_out.as<uint64_t>()};
        EXPECT_EQ(VEK_search_feature_group(group.context(), features.bytes(), count, k, 0.0f,
                                           nullptr, nullptr, nullptr, &result),
                  VEK_OK);
        std::vector<Scores> found(count);
        for (size_t place = 0; place < count * k; ++place) {
            uint64_t id;
            std::memcpy(&id, ids_out.bytes() + place * sizeof(id), sizeof(id));
            std::memcpy(&found[place / k][id], scores_out.bytes() + place * sizeof(float),
                        sizeof(float));
        }
        return found;
    }

    // Each query by itself in a group of the default block size, all buffers aligned.
    std::vector<Scores> reference() const {
        const Group group(steep(dim));
        insert_all(group);
        std::vector<Scores> all;
        for (size_t q = 0; q < QUERIES; ++q) {
            all.push_back(search(group, q, 1)[0]);
            EXPECT_EQ(all.back().size(), ROWS);
        }
        return all;
    }
};

TEST(SameBits, InAnyBatchPlaceAndBlockSize) {
    for (size_t dim : DIMS) {
        const Case c(dim);
        const std::vector<Scores> reference = c.reference();
        for (size_t block_size : {0u, 1u, 2u, 3u, 7u, 16u, 74u}) {
            SCOPED_TRACE(testing::Message() << "dim " << dim << " block " << block_size);
            const BlockSize blocks(block_size);
            const Group group(steep(dim));
            c.insert_all(group);
            for (size_t count : {1u, 2u, 3u, 4u, 5u, 8u, 13u}) {
                for (size_t first = 0; first + count <= QUERIES; first += ONE_CASE_IN) {
                    const std::vector<Scores> found = c.search(group, first, count);
                    for (size_t q = 0; q < count; ++q)
                        ASSERT_EQ(found[q], reference[first + q]) << count << " from " << first;
                }
            }
        }
    }
}

// So many queries that rows and queries are taken in several pieces.
TEST(SameBits, InALargeBatch) {
    constexpr size_t MANY = 300, BATCH = 600, DIM = 128;
    for (const auto& settings : {steep(DIM), Group::int8_settings(DIM, TAG_BYTES)}) {
        const std::vector<uint8_t> rows = feature_bytes(settings, MANY);
        const Group group(settings);
        ASSERT_EQ(group.insert(running_ids(MANY), rows, std::vector<uint8_t>(MANY * TAG_BYTES)),
                  VEK_OK);
        Query query;
        query.nr_query = BATCH;
        query.k = 5;
        query.options.sorted = 1;
        query.bytes = feature_bytes(settings, BATCH, 2);
        const Found batch = group.search(query);
        const size_t row_bytes = query.bytes.size() / BATCH;
        for (size_t q = 0; q < BATCH; q += 37) {
            Query one = query;
            one.nr_query = 1;
            one.bytes.assign(&query.bytes[q * row_bytes], &query.bytes[q * row_bytes] + row_bytes);
            const Found alone = group.search(one);
            for (size_t i = 0; i < query.k; ++i) {
                ASSERT_EQ(batch.ids[q * query.k + i], alone.ids[i]) << q;
                ASSERT_EQ(batch.scores[q * query.k + i], alone.scores[i]) << q;
            }
        }
    }
}

TEST(SameBits, AtAnyAddress) {
    for (size_t dim : DIMS) {
        const Case c(dim);
        const std::vector<Scores> reference = c.reference();
        for (size_t offset : {1u, 2u, 3u, 4u, 5u, 9u}) {
            SCOPED_TRACE(testing::Message() << "dim " << dim << " offset " << offset);
            const BlockSize blocks(offset % 2 ? 16 : 0);
            const Group group(steep(dim));
            c.insert_all(group, offset);
            EXPECT_EQ(c.search(group, 0, QUERIES, offset), reference);
        }
    }
}

// Other rows come and go between, so the watched rows end up in other slots and blocks.
TEST(SameBits, WhateverRowsAreAround) {
    for (size_t dim : DIMS) {
        SCOPED_TRACE(dim);
        const Case c(dim);
        const std::vector<Scores> reference = c.reference();
        const BlockSize blocks(16);
        const Group group(steep(dim));
        std::mt19937 random(static_cast<unsigned>(dim));
        const std::vector<float> others = random_features(ROWS, dim, 3);
        std::vector<uint64_t> doomed;
        std::vector<size_t> order(ROWS);
        for (size_t i = 0; i < ROWS; ++i)
            order[i] = i;
        std::shuffle(order.begin(), order.end(), random);
        for (size_t row : order) {
            const auto insert = [&](uint64_t id, const std::vector<float>& from) {
                const auto begin = from.begin() + static_cast<ptrdiff_t>(row * dim);
                const auto end = begin + static_cast<ptrdiff_t>(dim);
                ASSERT_EQ(group.insert({id}, std::vector<float>(begin, end), {0, 0, 0}), VEK_OK);
            };
            insert(row, others);
            insert(c.ids[row], c.rows);
            doomed.push_back(row);
        }
        std::shuffle(doomed.begin(), doomed.end(), random);
        for (size_t left = 0; left < 3; ++left) {
            const std::vector<Scores> found = c.search(group, 0, QUERIES);
            for (size_t q = 0; q < QUERIES; ++q) {
                for (const auto& [id, bits] : reference[q])
                    ASSERT_EQ(found[q].at(id), bits) << "query " << q << " id " << id;
            }
            const auto third = doomed.begin() + static_cast<ptrdiff_t>(ROWS / 3);
            ASSERT_EQ(group.erase(std::vector<uint64_t>(doomed.begin(), third)), VEK_OK);
            doomed.erase(doomed.begin(), third);
        }
        EXPECT_EQ(group.size(), ROWS);
        EXPECT_EQ(c.search(group, 0, QUERIES), reference);
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
        uint32_t bits;
        std::memcpy(&bits, &expected, sizeof(bits));
        EXPECT_EQ(group.search(query).scores[0], bits) << query_value;
    }
}

}  // namespace
