#include "group/score_map.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

namespace {

using vek::ScoreMap;

uint32_t bits(float value) {
    uint32_t word;
    std::memcpy(&word, &value, sizeof(word));
    return word;
}

ScoreMap make_map(float scale, float bias) {
    return ScoreMap({VEK_COMPARISON_SIGMOID_L2, scale, bias});
}

// Expected bits were computed apart from the library, rounding at each stated width.
TEST(ScoreMap, BitsOfSimilaritiesAndThresholds) {
    EXPECT_EQ(bits(make_map(1.0f, 0.0f).similarity(0.0f)), 0x3f000000u);
    EXPECT_EQ(bits(make_map(0.7f, -3.3f).similarity(-2.5f)), 0x3ee67c28u);
    EXPECT_EQ(bits(make_map(0.1f, -4.0f).similarity(-123.25f)), 0x3093e2fbu);
    EXPECT_EQ(bits(make_map(1.0f, 0.0f).raw_threshold(0.5f)), 0x80000000u);
    EXPECT_EQ(bits(make_map(0.7f, -3.3f).raw_threshold(0.8f)), 0xbfaef7a6u);
    EXPECT_EQ(bits(make_map(0.1f, -4.0f).raw_threshold(0.001f)), 0xc25a2295u);
    // One bit off with a logarithm in single precision.
    EXPECT_EQ(bits(make_map(0.7f, -3.3f).raw_threshold(0.011f)), 0xc0b2421eu);
}

TEST(ScoreMap, EdgesOfTheThreshold) {
    constexpr float INF = std::numeric_limits<float>::infinity();
    const ScoreMap map = make_map(1.0f, 0.0f);
    for (float t : {0.0f, -0.0f, -3.0f, -INF})
        EXPECT_EQ(map.raw_threshold(t), -INF) << t;
    for (float t : {1.0f, 2.0f, INF})
        EXPECT_EQ(map.raw_threshold(t), INF) << t;
    EXPECT_TRUE(std::isnan(map.raw_threshold(std::nanf(""))));
    EXPECT_TRUE(std::isnan(make_map(0.0f, 0.0f).raw_threshold(0.5f)));
    EXPECT_EQ(make_map(0.0f, 1.0f).raw_threshold(0.5f), INF);
}

}  // namespace
