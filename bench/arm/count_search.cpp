// Whole warm searches through the C interface, one region for each number of queries.
#include <vector>

#include "bench/arm/count_region.h"
#include "vekfind/vekfind.h"

namespace {

constexpr size_t ROWS = 10000, DIM = 128, K = 10;

const uint8_t* bytes(const std::vector<float>& values) {
    return reinterpret_cast<const uint8_t*>(values.data());
}

// Values that spread the scores; the same on every run.
std::vector<float> features(size_t rows, uint32_t seed) {
    std::vector<float> values(rows * DIM);
    for (float& value : values) {
        seed = seed * 1664525 + 1013904223;  // Numerical Recipes' generator
        value = static_cast<float>(seed >> 8) / 16777216.0f;
    }
    return values;
}

}  // namespace

int main() {
    VEKFeatureGroupSettings settings{};
    settings.feature_size = DIM * sizeof(float);
    settings.comparison.scale = 1;
    settings.comparison.bias = -20;
    VEKContext group = nullptr;
    const std::vector<float> rows = features(ROWS, 1);
    std::vector<uint64_t> ids(ROWS);
    for (size_t i = 0; i < ROWS; ++i)
        ids[i] = i;
    if (VEK_make_feature_group_context(&settings, &group) != VEK_OK ||
        VEK_insert_features_to_feature_group(group, bytes(rows), ids.data(), nullptr, ROWS,
                                             nullptr) != VEK_OK)
        return 1;
    for (unsigned nr_query : {1u, 16u}) {
        const std::vector<float> queries = features(nr_query, 2);
        std::vector<float> scores(nr_query * K);
        std::vector<uint64_t> found(nr_query * K);
        VEKFeatureGroupSearchResult result{};
        result.scores = scores.data();
        result.ids = found.data();
        const auto search = [&] {
            return VEK_search_feature_group(group, bytes(queries), nr_query, K, 0.0f, nullptr,
                                            nullptr, nullptr, &result);
        };
        if (search() != VEK_OK)
            return 1;
        const count::Region region(nr_query);
        if (search() != VEK_OK)
            return 1;
    }
    VEK_release(group);
}
