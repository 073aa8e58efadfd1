// The group of 32-bit float features. Owned through its handle; see `FeatureGroup` for threads.
#pragma once

#include "group/brute_force_group.h"

namespace vek {

class FeatureGroupCpuFloat32Impl final : public BruteForceGroup {
public:
    explicit FeatureGroupCpuFloat32Impl(const VEKFeatureGroupSettings* settings);
    // From a file that `dump` wrote; there is none with a model.
    FeatureGroupCpuFloat32Impl(const char* path, const VEKFeatureGroupSettings* settings,
                               bool model);
    // From a trained group, which this kind cannot use: always throws.
    FeatureGroupCpuFloat32Impl(const VEKFeatureGroupSettings* settings,
                               const FeatureGroup* trained);

    void dump(const char* path, bool model) override;
    void set_comparison_algorithm(const VEKComparisonAlgorithm* algorithm) override;
    void reset() override;
    void get_average_feature(const uint8_t* features, size_t nr,
                             const VEKFeatureGroupAverageOptions* options,
                             uint8_t* average) override;

private:
    FeatureGroupCpuFloat32Impl(const VEKFeatureGroupSettings& settings,
                               const std::string& constructor);
};

}  // namespace vek
