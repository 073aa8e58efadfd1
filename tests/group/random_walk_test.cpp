// Random histories of a group, each step compared with a plain model: statuses, ids, their order
// including every tie, and the bits of every score.
#include <gtest/gtest.h>

#include <iostream>
#include <random>
#include <set>

#include "group/feature_cipher.h"
#include "tests/group/group_test_util.h"
#include "tests/group/plain_model.h"

namespace {

struct Shape {
    size_t dim;
    uint32_t tag_size;
    size_t block_size;
    size_t steps;
    size_t batch;  // rows of the largest insert
};

int keeps_multiples(void* context, const uint8_t* tag) {
    const int remainder = tag[0] % *static_cast<const int*>(context);
    return remainder == 0 ? 1 : -remainder;
}

class Walk {
public:
    Walk(const Shape& shape, unsigned seed)
        : m_shape(shape), m_random(seed), m_group(shape.dim, shape.tag_size) {
        m_model.comparison = Group::settings(shape.dim).comparison;
    }

    void run() {
        for (size_t step = 0; step < m_shape.steps && !testing::Test::HasFailure(); ++step) {
            SCOPED_TRACE("step " + std::to_string(step));
            this->step();
            ASSERT_EQ(m_group.size(), m_model.rows.size());
        }
        search();
    }

private:
    size_t below(size_t n) { return m_random() % n; }

    void step() {
        switch (below(16)) {
            case 0:
            case 1:
            case 2:
                return insert(false, false);
            case 3:
            case 4:
                return insert(true, false);
            case 5:
                return insert(false, true);
            case 6:
            case 7:
                return erase(false);
            case 8:
                return erase(true);
            case 9:
                ASSERT_EQ(m_group.reserve(below(2 * m_shape.batch)), VEK_OK);
                return;
            case 10:
                ASSERT_EQ(VEK_shrink_feature_group(m_group.context()), VEK_OK);
                return;
            case 11:
                return below(8) == 0 ? reset() : change_comparison();
            default:
                return search();
        }
    }

    // Few different values, so that features and distances coincide.
    std::vector<int> feature() {
        std::vector<int> values(m_shape.dim);
        const size_t spread = 1 + below(4);
        for (int& value : values)
            value = static_cast<int>(below(2 * spread + 1)) - static_cast<int>(spread);
        return values;
    }

    std::vector<float> packed(const std::vector<std::vector<int>>& features, bool encrypted) {
        std::vector<float> result;
        for (const std::vector<int>& feature : features)
            result.insert(result.end(), feature.begin(), feature.end());
        if (encrypted) {
            const size_t row_bytes = m_shape.dim * sizeof(float);
            void* bytes = result.data();
            vek::feature_cipher(static_cast<uint8_t*>(bytes), features.size(), row_bytes,
                                row_bytes);
        }
        return result;
    }

    uint64_t any_id() {
        const uint64_t id = below(4 * m_shape.batch);
        return id % 7 == 0 ? VEK_INVALID_ID_VALUE - 1 - id : id;
    }

    std::vector<uint64_t> held_ids(size_t most) {
        std::set<uint64_t> ids;
        for (size_t i = below(most + 1); i > 0 && !m_model.rows.empty(); --i)
            ids.insert(m_model.rows[below(m_model.rows.size())].id);
        std::vector<uint64_t> shuffled(ids.begin(), ids.end());
        std::shuffle(shuffled.begin(), shuffled.end(), m_random);
        return shuffled;
    }

    void insert(bool replace, bool repeat) {
        std::vector<PlainModel::Row> rows;
        std::vector<std::vector<int>> features;
        std::vector<uint64_t> ids;
        std::vector<uint8_t> tags;
        std::set<uint64_t> seen;
        bool any_held = false;
        for (size_t i = below(m_shape.batch + 1); i > 0; --i) {
            const uint64_t id = any_id();
            if ((!replace && m_model.holds(id) && below(300) != 0) || !seen.insert(id).second)
                continue;
            any_held |= m_model.holds(id);
            rows.push_back({id, feature(), {}});
            for (uint32_t t = 0; t < m_shape.tag_size; ++t)
                rows.back().tag.push_back(static_cast<uint8_t>(below(256)));
        }
        if (repeat && !rows.empty())
            rows.push_back(rows[below(rows.size())]);
        for (const PlainModel::Row& row : rows) {
            ids.push_back(row.id);
            features.push_back(row.feature);
            tags.insert(tags.end(), row.tag.begin(), row.tag.end());
        }
        const bool encrypted = below(4) == 0;
        const bool refused = (repeat && !rows.empty()) || (any_held && !replace);
        ASSERT_EQ(m_group.insert(ids, packed(features, encrypted), tags, {encrypted, replace}),
                  refused ? VEK_DUPLICATED_ID : VEK_OK);
        if (!refused)
            m_model.insert(rows, replace);
    }

    void erase(bool refused) {
        std::vector<uint64_t> ids = held_ids(m_shape.batch);
        if (refused && !ids.empty()) {
            const bool twice = below(2) == 0;
            ids.push_back(twice ? ids[0] : VEK_INVALID_ID_VALUE);
            ASSERT_EQ(m_group.erase(ids), twice ? VEK_DUPLICATED_ID : VEK_ID_NOT_FOUND);
            return;
        }
        ASSERT_EQ(m_group.erase(ids), VEK_OK);
        for (uint64_t id : ids)
            m_model.erase(id);
    }

    void reset() {
        ASSERT_EQ(VEK_reset_feature_group(m_group.context()), VEK_OK);
        m_model.rows.clear();
    }

    void change_comparison() {
        m_model.comparison.scale = 0.01f * static_cast<float>(1 + below(100));
        m_model.comparison.bias = -0.5f * static_cast<float>(below(20));
        ASSERT_EQ(VEK_set_comparison_algorithm(m_group.context(), &m_model.comparison), VEK_OK);
    }

    void search() {
        Query query;
        query.nr_query = below(10);
        query.k = below(4) == 0 ? m_model.rows.size() + below(3) : below(12);
        const float thresholds[] = {0.0f, 0.0f, -1.0f, 0.5f, 0.9f, 1.0f, std::nanf("")};
        query.threshold =
            below(3) == 0 ? 0.001f * static_cast<float>(below(1000)) : thresholds[below(7)];
        query.options.sorted = static_cast<int32_t>(below(3)) - 1;
        query.options.encrypted = below(4) == 0 ? -1 : 0;
        std::vector<std::vector<int>> queries;
        int moduli[] = {1, 2, 3};
        for (size_t i = 0; i < query.nr_query; ++i) {
            const bool stored = !m_model.rows.empty() && below(2) == 0;
            queries.push_back(stored ? m_model.rows[below(m_model.rows.size())].feature
                                     : feature());
            query.contexts.push_back(&moduli[below(3)]);
        }
        query.features = packed(queries, query.options.encrypted != 0);
        const bool filtered = m_shape.tag_size != 0 && below(2) == 0;
        query.predicate = filtered ? keeps_multiples : nullptr;
        const Found expected = m_model.search(query, queries);
        if (m_shape.tag_size == 0)
            query.predicate = keeps_multiples;  // never called
        const Found found = m_group.search(query);
        ASSERT_EQ(found.ids, expected.ids);
        ASSERT_EQ(found.scores, expected.scores);
    }

    Shape m_shape;
    std::mt19937 m_random;
    Group m_group;
    PlainModel m_model;
};

void walk(const Shape& shape, unsigned seed) {
    std::cout << "dim " << shape.dim << " tag " << shape.tag_size << " block " << shape.block_size
              << " seed " << seed << std::endl;
    const BlockSize block_size(shape.block_size);
    Walk(shape, seed).run();
}

TEST(RandomWalk, AgreesWithThePlainModel) {
    unsigned seed = 100;
    for (size_t dim : {1u, 2u, 3u, 7u, 16u, 33u, 128u, 512u}) {
        for (size_t block_size : {3u, 16u, 0u}) {
            for (uint32_t tag_size : {0u, 5u}) {
                walk({dim, tag_size, block_size, 150, 40}, ++seed);
                if (HasFailure())
                    return;
            }
        }
    }
}

// More rows than a block of the default size.
TEST(RandomWalk, AgreesBeyondOneDefaultBlock) {
    walk({2, 1, 0, 60, 9000}, 4711);
}

}  // namespace
