// The group of 32-bit float features: an engine with its settings, and the refusals of what
// exhaustive search does not have. Owned through its handle; see `FeatureGroup` for threads.
#pragma once

#include "group/brute_force_engine.h"
#include "group/feature_group.h"

namespace vek {

class FeatureGroupCpuFloat32Impl final : public FeatureGroup {
public:
    explicit FeatureGroupCpuFloat32Impl(const VEKFeatureGroupSettings* settings);
    // From a file; there are none yet, and never one with a model. Always throws.
    FeatureGroupCpuFloat32Impl(const char* path, const VEKFeatureGroupSettings* settings,
                               bool model);
    // From a trained group, which this kind cannot use. Always throws.
    FeatureGroupCpuFloat32Impl(const VEKFeatureGroupSettings* settings,
                               const FeatureGroup* trained);

    void dump(const char* path, bool model) override;
    void set_comparison_algorithm(const VEKComparisonAlgorithm* algorithm) override;
    void search(const uint8_t* features, size_t nr_query, size_t k, float threshold,
                VEKTagPredicate predicate, void* const* predicate_contexts,
                const VEKFeatureGroupSearchOptions* options,
                VEKFeatureGroupSearchResult* result) override;
    void search_preassigned(const uint8_t* features, size_t nr_query, float threshold,
                            VEKTagPredicate predicate, void* const* predicate_contexts,
                            const VEKFeatureGroupSearchOptions* options, const size_t* cluster_ids,
                            const float* cluster_weights,
                            VEKFeatureGroupSearchResult* result) override;
    void reserve(size_t size) override;
    void insert(const uint64_t* ids, const uint8_t* features, const uint8_t* tags, size_t nr,
                const VEKFeatureGroupInsertOptions* options) override;
    void get_cluster_ids(const uint8_t* features, size_t nr,
                         const VEKFeatureGroupInsertOptions* options, size_t* cluster_ids) override;
    void insert_preassigned(const uint64_t* ids, const uint8_t* features, const size_t* cluster_ids,
                            const uint8_t* tags, size_t nr,
                            const VEKFeatureGroupInsertOptions* options) override;
    void train(const uint8_t* features, size_t nr,
               const VEKFeatureGroupTrainOptions* options) override;
    void erase(const uint64_t* ids, size_t nr) override;
    VEKFeatureGroupSettings get_settings() const override;
    size_t size() const override;
    void dump_features(const char* path, const uint8_t* features, const uint64_t* ids,
                       const uint8_t* tags, size_t nr,
                       const VEKFeatureGroupInsertOptions* options) override;
    void set_vector_increase_ratio(float ratio) override;
    void shrink() override;
    void reset() override;
    void get_imbalance_factor(float* factor) override;
    void get_average_feature(const uint8_t* features, size_t nr,
                             const VEKFeatureGroupAverageOptions* options,
                             uint8_t* average) override;
    size_t get_info_size() override;
    void precompute_feature_info(const uint8_t* features, uint8_t* info, size_t nr,
                                 const VEKFeatureGroupInsertOptions* options) override;
    void insert_feature_by_info(const uint8_t* info, const uint64_t* ids, const uint8_t* tags,
                                size_t nr, const VEKFeatureGroupInsertOptions* options) override;

private:
    VEKFeatureGroupSettings m_settings;
    BruteForceEngine m_engine;
};

}  // namespace vek
