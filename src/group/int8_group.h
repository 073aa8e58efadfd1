// The group of signed 8-bit integer features: exact integer scores, nothing is quantised here. It
// lives in one process only. Owned through its handle; see `FeatureGroup` for threads.
#pragma once

#include "group/brute_force_group.h"

namespace vek {

class FeatureGroupCpuInt8Impl final : public BruteForceGroup {
public:
    explicit FeatureGroupCpuInt8Impl(const VEKFeatureGroupSettings* settings);
    // This kind is neither loaded nor made from a trained group: both throw.
    FeatureGroupCpuInt8Impl(const char* path, const VEKFeatureGroupSettings* settings, bool model);
    FeatureGroupCpuInt8Impl(const VEKFeatureGroupSettings* settings, const FeatureGroup* trained);

    void dump(const char* path, bool model) override;
    void set_comparison_algorithm(const VEKComparisonAlgorithm* algorithm) override;
    void reset() override;
    void get_average_feature(const uint8_t* features, size_t nr,
                             const VEKFeatureGroupAverageOptions* options,
                             uint8_t* average) override;
};

}  // namespace vek
