// Random walks through what the boundary of a search can show: calls of the predicate in order,
// rows exactly at the threshold, refused batches, every kind of padding. Each step is compared with
// a plain model: statuses, ids, order including every tie, and the bits of every score.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <random>

#include "group/feature_cipher.h"
#include "tests/group/group_test_util.h"
#include "tests/group/plain_model.h"
#include "tests/store/file_test_util.h"

namespace {

struct Shape {
    size_t dim;
    uint32_t tag_size;
    size_t block_size;
    size_t steps;
    size_t batch = 200;  // rows of the largest insert
    bool is_int8 = false;
    uint32_t slack = 0;  // bytes of a row beyond its floats
};

// A predicate's context. What it is shown goes into a log that all queries of a search share.
struct Observer {
    using Log = std::vector<std::pair<size_t, std::vector<uint8_t>>>;
    Log* seen;
    size_t query;
    uint32_t tag_size;
};

int observe(void* context, const uint8_t* tag) {
    const auto& observer = *static_cast<const Observer*>(context);
    observer.seen->emplace_back(observer.query, std::vector<uint8_t>(tag, tag + observer.tag_size));
    return tag[0] % 4 - 1;  // negative, zero, or a reason to keep
}

class ObservedWalk {
public:
    ObservedWalk(const Shape& shape, unsigned seed)
        : m_shape(shape), m_random(seed), m_group(std::in_place, settings(shape)) {
        m_model.comparison = settings(shape).comparison;
        m_model.is_int8 = shape.is_int8;
    }

    void run() {
        for (size_t step = 0; step < m_shape.steps && !testing::Test::HasFailure(); ++step) {
            SCOPED_TRACE("step " + std::to_string(step));
            const size_t draw = below(12);
            if (draw < 5) {
                insert();
            } else if (draw < 7) {
                erase();
            } else if (draw == 7) {
                EXPECT_EQ(m_group->reserve(below(3 * m_shape.batch)), VEK_OK);
            } else if (draw == 8) {
                EXPECT_EQ(VEK_shrink_feature_group(m_group->context()), VEK_OK);
            } else if (draw == 9) {
                dump_and_load();
            } else if (draw == 10 && below(6) == 0) {
                EXPECT_EQ(VEK_reset_feature_group(m_group->context()),
                          m_shape.is_int8 ? VEK_UNSUPPORTED : VEK_OK);
                if (!m_shape.is_int8)
                    m_model.rows.clear();
            }
            EXPECT_EQ(m_group->size(), m_model.rows.size());
            m_most_rows = std::max(m_most_rows, m_model.rows.size());
            search();
        }
    }

    size_t most_rows() const { return m_most_rows; }
    // Searches with a pair exactly at the threshold.
    size_t at_threshold() const { return m_at_threshold; }

private:
    using Features = std::vector<std::vector<int>>;

    static VEKFeatureGroupSettings settings(const Shape& shape) {
        VEKFeatureGroupSettings settings = shape.is_int8
                                               ? Group::int8_settings(shape.dim, shape.tag_size)
                                               : Group::settings(shape.dim, shape.tag_size);
        settings.feature_size += shape.slack;
        return settings;
    }

    size_t below(size_t n) { return m_random() % n; }

    // Of one stored row in three the feature comes again; in few dimensions the others repeat too.
    // Of the bytes some features have many of the least, whose products are the largest.
    std::vector<int> feature() {
        if (!m_model.rows.empty() && below(3) == 0)
            return m_model.rows[below(m_model.rows.size())].feature;
        std::vector<int> values(m_shape.dim);
        for (int& value : values)
            value = m_shape.is_int8 ? static_cast<int>(below(256)) - 128
                                    : static_cast<int>(below(9)) - 4;
        if (m_shape.is_int8 && values[0] < -64)
            std::replace_if(
                values.begin(), values.end(), [](int value) { return value % 2 != 0; }, -128);
        return values;
    }

    // Encrypted row by row, where the library does it with all rows at once. The slack, which
    // belongs to no row, reaches into the next.
    std::vector<uint8_t> packed(const Features& features, bool encrypted) const {
        const size_t row_bytes = m_shape.dim * (m_shape.is_int8 ? 1 : sizeof(float));
        std::vector<uint8_t> result(features.size() * row_bytes + m_shape.slack);
        uint8_t* row = result.data();
        for (const std::vector<int>& feature : features) {
            if (m_shape.is_int8) {
                std::copy(feature.begin(), feature.end(), row);
            } else {
                const std::vector<float> floats(feature.begin(), feature.end());
                std::memcpy(row, floats.data(), row_bytes);
            }
            row += row_bytes;
        }
        for (size_t i = 0; encrypted && i < features.size(); ++i)
            vek::feature_cipher(&result[i * row_bytes], 1, row_bytes + m_shape.slack, row_bytes);
        result.resize(features.size() * row_bytes);
        return result;
    }

    // The first id that may not be decides, and then nothing is changed. That an id of an insert is
    // held is told after all have been looked at.
    VEKStatus refusal(const std::vector<uint64_t>& ids, bool erasing, bool replace = true) const {
        const auto held = m_model.ids();
        std::unordered_set<uint64_t> seen;
        size_t nr_held = 0;
        for (uint64_t id : ids) {
            nr_held += held.count(id);
            if (erasing && held.count(id) == 0)
                return VEK_ID_NOT_FOUND;
            if (id == VEK_INVALID_ID_VALUE)
                return VEK_INVALID_ID;
            if (!seen.insert(id).second)
                return VEK_DUPLICATED_ID;
        }
        return replace || nr_held == 0 ? VEK_OK : VEK_DUPLICATED_ID;
    }

    // Ids come from a pool of a few batches. A batch replaces those that are held or avoids them; a
    // careless one may repeat an id, hit one that is held, or contain the reserved one.
    void insert() {
        const bool replace = below(3) == 0;
        const bool careless = below(8) == 0;
        std::vector<PlainModel::Row> rows;
        Features features;
        std::vector<uint64_t> ids;
        std::vector<uint8_t> tags;
        auto taken = replace ? std::unordered_set<uint64_t>() : m_model.ids();
        const size_t nr = below(4) == 0 ? below(4) : below(m_shape.batch + 1);
        for (size_t i = 0; i < nr; ++i) {
            const uint64_t id = careless && below(100) == 0
                                    ? VEK_INVALID_ID_VALUE
                                    : uint64_t{below(5 * m_shape.batch)} << 32;
            if (taken.insert(id).second || (careless && below(10) == 0))
                rows.push_back({id, feature(), {}});
        }
        for (PlainModel::Row& row : rows) {
            row.tag.resize(m_shape.tag_size);
            std::generate(row.tag.begin(), row.tag.end(), [this] { return below(256); });
            ids.push_back(row.id);
            features.push_back(row.feature);
            tags.insert(tags.end(), row.tag.begin(), row.tag.end());
        }
        const int32_t encrypted = static_cast<int32_t>(below(3)) - 1;
        const VEKStatus expected = refusal(ids, false, replace);
        EXPECT_EQ(m_group->insert(ids, packed(features, encrypted != 0), tags,
                                  {encrypted, replace ? -1 : 0}),
                  expected);
        if (expected == VEK_OK)
            m_model.insert(rows);
    }

    void erase() {
        std::vector<uint64_t> ids;
        for (const PlainModel::Row& row : m_model.rows) {
            if (below(5) == 0)
                ids.push_back(row.id);
        }
        while (below(3) == 0) {
            const uint64_t bad[] = {1, VEK_INVALID_ID_VALUE, ids.empty() ? 1 : ids[0]};
            ids.push_back(bad[below(3)]);
        }
        std::shuffle(ids.begin(), ids.end(), m_random);
        const VEKStatus expected = refusal(ids, true);
        EXPECT_EQ(m_group->erase(ids), expected);
        for (size_t i = 0; expected == VEK_OK && i < ids.size(); ++i)
            m_model.erase(ids[i]);
    }

    // A dump has the stated bytes, and the walk goes on with the group that is loaded from it.
    void dump_and_load() {
        const std::string path = m_folder / "f";
        const VEKStatus dumped = VEK_dump_feature_group_to_file(m_group->context(), path.c_str());
        EXPECT_EQ(dumped, m_shape.is_int8 ? VEK_UNSUPPORTED : VEK_OK);
        if (dumped != VEK_OK)
            return;
        VEKFeatureGroupSettings same = settings(m_shape);
        same.comparison = m_model.comparison;
        GroupFile file;
        file.feature_size = same.feature_size;
        file.tag_size = same.tag_size;
        for (const PlainModel::Row& row : m_model.rows) {
            file.ids.push_back(row.id);
            file.features += bytes_of(packed({row.feature}, false));
            file.features.append(m_shape.slack, '\0');
            file.tags += bytes_of(row.tag);
        }
        EXPECT_TRUE(bytes_of_file(path) == file.bytes());
        if (!file.ids.empty() || m_shape.tag_size == 0)
            m_group.emplace(path, same);
    }

    // Factors without short binary forms, so that each rounding of the score map shows, some of no
    // sense, which are taken as they are; or a curve that is at its middle, threshold 0.5, exactly
    // at the distance of some pair.
    void change_comparison(const Features& queries, float& threshold) {
        if (m_shape.is_int8) {
            const VEKComparisonAlgorithm other{};
            EXPECT_EQ(VEK_set_comparison_algorithm(m_group->context(), &other), VEK_UNSUPPORTED);
            return;
        }
        VEKComparisonAlgorithm& comparison = m_model.comparison;
        comparison.scale = 0.0137f * (static_cast<float>(below(44)) - 3.0f);
        comparison.bias = -0.3f * static_cast<float>(below(30));
        if (!queries.empty() && !m_model.rows.empty() && below(2) == 0) {
            const std::vector<int>& a = queries[below(queries.size())];
            const std::vector<int>& b = m_model.rows[below(m_model.rows.size())].feature;
            int d2 = 0;
            for (size_t i = 0; i < a.size(); ++i)
                d2 += (a[i] - b[i]) * (a[i] - b[i]);
            comparison.scale = std::ldexp(1.0f, -static_cast<int>(below(8)));
            comparison.bias = -comparison.scale * static_cast<float>(d2);
            threshold = 0.5f;
            ++m_at_threshold;
        }
        EXPECT_EQ(VEK_set_comparison_algorithm(m_group->context(), &comparison), VEK_OK);
    }

    void search() {
        const size_t size = m_model.rows.size();
        const size_t ks[] = {0, 1, 2 + below(20), 2 + below(20), size, size + 1 + below(5)};
        const float thresholds[] = {
            0.0f, -0.0f,         -2.0f, 1.0f,
            1.5f, std::nanf(""), 0.5f,  0.001f * static_cast<float>(below(1000))};
        Query query;
        // Rarely so many that rows and queries are taken in several pieces.
        query.nr_query = below(150) == 0 ? 600 : below(8) == 0 ? below(40) : below(6);
        query.k = ks[below(6)];
        query.threshold = thresholds[below(8)];
        query.options.sorted = static_cast<int32_t>(below(4)) - 1;
        query.options.encrypted = static_cast<int32_t>(below(3)) - 1;
        Features queries;
        for (size_t i = 0; i < query.nr_query; ++i)
            queries.push_back(feature());
        if (below(2) == 0)
            change_comparison(queries, query.threshold);
        query.bytes = packed(queries, query.options.encrypted != 0);
        if (m_shape.tag_size != 0 && below(2) == 0)
            query.predicate = observe;
        const Found found = compare(query, queries);
        // Once more with a threshold in the last bits of which a score decides.
        if (!found.scores.empty()) {
            std::memcpy(&query.threshold, &found.scores[below(found.scores.size())],
                        sizeof(query.threshold));
            compare(query, queries);
        }
    }

    Found compare(Query query, const Features& queries) {
        std::vector<Observer> observers(query.nr_query);
        Observer::Log seen, expected_seen;
        for (size_t i = 0; i < query.nr_query; ++i) {
            observers[i] = {&expected_seen, i, m_shape.tag_size};
            query.contexts.push_back(&observers[i]);
        }
        const Found expected = m_model.search(query, queries);
        for (Observer& observer : observers)
            observer.seen = &seen;
        if (m_shape.tag_size == 0)
            query.predicate = observe;  // not to be called
        const Found found = m_group->search(query);
        EXPECT_EQ(found.ids, expected.ids);
        EXPECT_EQ(found.scores, expected.scores);
        EXPECT_TRUE(seen == expected_seen) << seen.size() << " of " << expected_seen.size();
        return found;
    }

    Shape m_shape;
    std::mt19937 m_random;
    std::optional<Group> m_group;
    const TempFolder m_folder;
    PlainModel m_model;
    size_t m_most_rows = 0;
    size_t m_at_threshold = 0;
};

void walk(const Shape& shape, unsigned seed, size_t least_rows) {
    SCOPED_TRACE(testing::Message() << "dim " << shape.dim << " tag " << shape.tag_size << " block "
                                    << shape.block_size << " seed " << seed);
    const BlockSize block_size(shape.block_size);
    ObservedWalk walk(shape, seed);
    walk.run();
    EXPECT_EQ(walk.at_threshold() > 0, !shape.is_int8);
    EXPECT_GE(walk.most_rows(), least_rows);
}

TEST(ObservedWalk, AgreesWithThePlainModel) {
    unsigned seed = 1000;
    for (size_t dim : {1u, 2u, 3u, 4u, 5u, 8u, 9u, 17u, 64u, 127u}) {
        for (size_t block_size : {3u, 16u, 0u}) {
            for (uint32_t tag_size : {0u, 1u, 7u}) {
                if (++seed % ONE_CASE_IN == 0)
                    walk({dim, tag_size, block_size, 40, 200, false, seed / 2 % 4}, seed, 100);
            }
        }
    }
    for (size_t dim : {255u, 384u, 512u}) {
        for (size_t block_size : {3u, 16u, 0u})
            walk({dim, 4, block_size, 25, 60}, ++seed, 30);
    }
}

// All bytes, so norms are odd and even and sums pass what a float holds exactly.
TEST(ObservedWalk, AgreesForIntegersOf8Bits) {
    unsigned seed = 500;
    for (size_t dim : {1u, 2u, 3u, 16u, 17u, 64u, 127u}) {
        for (size_t block_size : {3u, 16u, 0u}) {
            for (uint32_t tag_size : {0u, 7u}) {
                if (++seed % ONE_CASE_IN == 0)
                    walk({dim, tag_size, block_size, 30, 200, true}, seed, 100);
            }
        }
    }
    for (size_t block_size : {3u, 0u})
        walk({512, 1, block_size, 25, 60, true}, ++seed, 30);
}

// The longest rows whose distances are exact, at the largest distance that they can have.
TEST(Int8, IsExactUpToTheStatedLength) {
    constexpr size_t LONGEST = 66051;
    const VEKFeatureGroupSettings settings = Group::int8_settings(LONGEST);
    PlainModel model{settings.comparison, true, {}};
    const Group group(settings);
    const std::vector<int> ends[] = {std::vector<int>(LONGEST, 127),
                                     std::vector<int>(LONGEST, -128)};
    Query query;
    query.nr_query = 2;
    query.k = 2;
    for (uint32_t id : {0u, 1u}) {
        model.insert({{id, ends[id], {}}});
        const std::vector<int8_t> bytes(ends[id].begin(), ends[id].end());
        ASSERT_EQ(group.insert({id}, bytes), VEK_OK);
        query.bytes.insert(query.bytes.end(), bytes.begin(), bytes.end());
    }
    const Found found = group.search(query);
    EXPECT_EQ(found.ids, (std::vector<uint64_t>{1, 0, 0, 1}));  // the farther one first
    EXPECT_TRUE(found == model.search(query, {ends[0], ends[1]}));
}

// Several blocks of the default size.
TEST(ObservedWalk, AgreesBeyondOneDefaultBlock) {
    if (ONE_CASE_IN > 1)
        GTEST_SKIP() << "takes many minutes in the emulator under the address sanitizer";
    walk({3, 2, 0, 25, 6000}, 79, 3 * 8192 / 2);
}

}  // namespace
