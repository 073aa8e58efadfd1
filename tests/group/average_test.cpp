// The average of encrypted rows.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "group/feature_cipher.h"
#include "tests/group/group_test_util.h"

namespace {

// The decrypted average of rows given in plain, `row_bytes` long of which whole floats count. Rows
// follow each other by these and are encrypted over all, so that each transform reaches into the
// next row. No buffer is aligned, and the rows stay.
std::vector<float> average_of(const std::vector<float>& rows, size_t row_bytes) {
    const size_t dim = row_bytes / sizeof(float), nr = rows.size() / dim;
    VEKFeatureGroupSettings settings = Group::settings(dim);
    settings.feature_size = static_cast<uint32_t>(row_bytes);
    const Group group(settings);  // an empty group serves
    std::vector<float> given = rows;
    given.resize(rows.size() + 1);
    OddBytes features(given), average((dim + 1) * sizeof(float));
    vek::feature_cipher(features.bytes(), nr, row_bytes, dim * sizeof(float));
    const auto encrypted = features.values<uint8_t>();
    const VEKFeatureGroupAverageOptions options{-1};
    EXPECT_EQ(
        VEK_get_average_feature(group.context(), features.bytes(), nr, &options, average.bytes()),
        VEK_OK);
    EXPECT_EQ(features.values<uint8_t>(), encrypted);
    EXPECT_EQ(average.values<uint32_t>().back(), 0u) << "not written";
    vek::feature_cipher(average.bytes(), 1, row_bytes, row_bytes);
    auto means = average.values<float>();
    means.pop_back();
    return means;
}

TEST(Average, SumsRowByRowInSinglePrecision) {
    const std::vector<float> zero = average_of({-0.0f, 1.5f}, 8);
    EXPECT_TRUE(zero[1] == 1.5f && zero[0] == 0 && !std::signbit(zero[0]));
    // 1e8 + 1 rounds to 1e8: any other order gives another mean.
    EXPECT_EQ(average_of({1, 1e8f, 1e8f, 1, -1e8f, -1e8f, 1, 1}, 8),
              (std::vector<float>{0.25f, 0.25f}));
    EXPECT_EQ(average_of({1, 2, 6}, 6), std::vector<float>{3.0f});
    std::mt19937 random(5);
    std::uniform_real_distribution<float> values(-1, 1);
    constexpr size_t DIM = 67, ROWS = 1001;
    std::vector<float> rows(DIM * ROWS), mean(DIM, 0.0f);
    for (size_t i = 0; i < rows.size(); ++i)
        mean[i % DIM] += rows[i] = values(random);
    for (float& value : mean)
        value /= 1001.0f;
    EXPECT_EQ(average_of(rows, DIM * sizeof(float)), mean);
    for (float value : average_of({}, 8))
        EXPECT_TRUE(std::isnan(value));
}

}  // namespace
