// Encrypted rows: the average of them, and what a group makes of them.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "group/feature_cipher.h"
#include "tests/group/group_test_util.h"

namespace {

template <typename T>
std::vector<T> encrypted(std::vector<T> rows, size_t row_bytes) {
    vek::feature_cipher(reinterpret_cast<uint8_t*>(rows.data()),
                        rows.size() * sizeof(T) / row_bytes, row_bytes, row_bytes);
    return rows;
}

bool same_bits(const std::vector<float>& a, const std::vector<float>& b) {
    return a.size() == b.size() &&
           (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0);
}

// The decrypted average of rows given in plain. No buffer is aligned, and the rows stay.
std::vector<float> average_of(const Group& group, const std::vector<float>& rows, size_t dim) {
    const std::vector<float> given = encrypted(rows, dim * sizeof(float));
    OddBytes features(given);
    OddBytes average(dim * sizeof(float));
    const VEKFeatureGroupAverageOptions options{-1};
    EXPECT_EQ(VEK_get_average_feature(group.context(), features.bytes(), rows.size() / dim,
                                      &options, average.bytes()),
              VEK_OK);
    EXPECT_TRUE(same_bits(features.values<float>(), given));
    return encrypted(average.values<float>(), dim * sizeof(float));
}

TEST(Average, SumsRowByRowInSinglePrecision) {
    const Group group(2);  // an empty group serves
    EXPECT_TRUE(same_bits(average_of(group, {-0.0f, 1.5f}, 2), {0.0f, 1.5f}));
    // 1e8 + 1 rounds to 1e8: any other order gives another mean.
    EXPECT_TRUE(
        same_bits(average_of(group, {1, 1e8f, 1e8f, 1, -1e8f, -1e8f, 1, 1}, 2), {0.25f, 0.25f}));
    std::mt19937 random(5);
    std::uniform_real_distribution<float> values(-1, 1);
    constexpr size_t DIM = 67, ROWS = 1001;
    std::vector<float> rows(DIM * ROWS), mean(DIM, 0.0f);
    for (float& value : rows)
        value = values(random);
    for (size_t i = 0; i < rows.size(); ++i)
        mean[i % DIM] += rows[i];
    for (float& value : mean)
        value /= 1001.0f;
    EXPECT_TRUE(same_bits(average_of(Group(DIM), rows, DIM), mean));
    for (float value : average_of(group, {}, 2))
        EXPECT_TRUE(std::isnan(value));
}

// Rows of 6 bytes: one float each, behind each other by 4 bytes, encrypted over 6, so that each
// row's transform reaches into the next.
TEST(Average, OddRowSize) {
    VEKFeatureGroupSettings settings = Group::settings(1);
    settings.feature_size = 6;
    const Group group(settings);
    std::vector<float> rows{1, 2, 6, 0};  // three and the reach of the last
    vek::feature_cipher(reinterpret_cast<uint8_t*>(rows.data()), 3, 6, 4);
    OddBytes features(rows), average(8);
    const VEKFeatureGroupAverageOptions options{1};
    ASSERT_EQ(
        VEK_get_average_feature(group.context(), features.bytes(), 3, &options, average.bytes()),
        VEK_OK);
    const uint32_t behind = average.values<uint32_t>()[1];
    EXPECT_EQ(behind, 0u);
    vek::feature_cipher(average.bytes(), 1, 6, 4);
    EXPECT_EQ(average.values<float>()[0], 3.0f);
}

TEST(Average, PlainRowsAreRefused) {
    const Group group(1);
    const float row = 1;
    float average = 7;
    const auto call = [&](const VEKFeatureGroupAverageOptions* options) {
        return VEK_get_average_feature(group.context(), reinterpret_cast<const uint8_t*>(&row), 1,
                                       options, reinterpret_cast<uint8_t*>(&average));
    };
    const VEKFeatureGroupAverageOptions plain{0};
    EXPECT_EQ(call(nullptr), VEK_INVALID_ARGUMENT);
    EXPECT_EQ(call(&plain), VEK_INVALID_ARGUMENT);
    EXPECT_EQ(average, 7.0f);
}

// What a group finds that gets its rows and queries plain or encrypted; the caller's buffers stay.
Found search_bytes(const VEKFeatureGroupSettings& settings, const std::vector<uint8_t>& bytes,
                   size_t rows, int32_t is_encrypted) {
    constexpr size_t K = 5;
    const size_t row_bytes = settings.feature_size, queries = bytes.size() / row_bytes - rows;
    const Group group(settings);
    const auto given = is_encrypted ? encrypted(bytes, row_bytes) : bytes;
    auto passed = given;
    const VEKFeatureGroupInsertOptions insert_options{is_encrypted, 0};
    EXPECT_EQ(VEK_insert_features_to_feature_group(group.context(), passed.data(),
                                                   running_ids(rows).data(), nullptr, rows,
                                                   &insert_options),
              VEK_OK);
    std::vector<uint64_t> ids(queries * K);
    std::vector<float> scores(queries * K);
    const VEKFeatureGroupSearchOptions options{1, is_encrypted};
    VEKFeatureGroupSearchResult result{0, 0, scores.data(), ids.data()};
    EXPECT_EQ(VEK_search_feature_group(group.context(), &passed[rows * row_bytes], queries, K, 0,
                                       nullptr, nullptr, &options, &result),
              VEK_OK);
    EXPECT_EQ(passed, given);
    return {ids, OddBytes(scores).values<uint32_t>()};
}

// Rows of int8 are of odd length here, and encrypted over all of it.
TEST(Encrypted, InsertAndSearchEqualPlain) {
    const std::vector<float> floats = small_integers(19 * 20, 1);
    const std::vector<uint8_t> bytes = OddBytes(floats).values<uint8_t>();
    for (int32_t index_type : {VEK_INDEX_BRUTE_FORCE_FLOAT32, VEK_INDEX_BRUTE_FORCE_INT8}) {
        VEKFeatureGroupSettings settings = Group::settings(1);
        settings.feature_size = index_type == VEK_INDEX_BRUTE_FORCE_INT8 ? 19 : 20;
        settings.index_type = index_type;
        settings.comparison.scale = 1e-4f;
        const Found plain = search_bytes(settings, bytes, 70, 0);
        EXPECT_TRUE(plain == search_bytes(settings, bytes, 70, 1));
        EXPECT_NE(plain.scores.front(), plain.scores.back());
    }
}

}  // namespace
