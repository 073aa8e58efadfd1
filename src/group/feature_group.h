// The abstract group behind every handle, and its factories. Any number of threads may search one
// group; every other operation needs the caller's own exclusion from all calls on that group.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "vekfind/vekfind.h"

namespace vek {

// The root of everything that crosses the boundary as a handle; a handle is the object's address.
class OpaqueTypeBase {
public:
    OpaqueTypeBase() = default;
    virtual ~OpaqueTypeBase() = default;
    OpaqueTypeBase(const OpaqueTypeBase&) = delete;
    OpaqueTypeBase& operator=(const OpaqueTypeBase&) = delete;
};

class FeatureGroup : public OpaqueTypeBase {
public:
    // Each returns a group or throws `Error`.
    static std::unique_ptr<FeatureGroup> make_empty(const VEKFeatureGroupSettings* settings);
    static std::unique_ptr<FeatureGroup> make_from_file(const char* path,
                                                        const VEKFeatureGroupSettings* settings,
                                                        bool model);
    static std::unique_ptr<FeatureGroup> make_from_trained(const VEKFeatureGroupSettings* settings,
                                                           const FeatureGroup* trained);
    static std::unique_ptr<FeatureGroup> make_from_researcher_file(
        const char* path, const VEKFeatureGroupSettings* settings);

    virtual void dump(const char* path, bool model) = 0;
    virtual void set_comparison_algorithm(const VEKComparisonAlgorithm* algorithm) = 0;
    virtual void search(const uint8_t* features, size_t nr_query, size_t k, float threshold,
                        VEKTagPredicate predicate, void* const* predicate_contexts,
                        const VEKFeatureGroupSearchOptions* options,
                        VEKFeatureGroupSearchResult* result) = 0;
    virtual void search_preassigned(const uint8_t* features, size_t nr_query, float threshold,
                                    VEKTagPredicate predicate, void* const* predicate_contexts,
                                    const VEKFeatureGroupSearchOptions* options,
                                    const size_t* cluster_ids, const float* cluster_weights,
                                    VEKFeatureGroupSearchResult* result) = 0;
    virtual void reserve(size_t size) = 0;
    virtual void insert(const uint64_t* ids, const uint8_t* features, const uint8_t* tags,
                        size_t nr, const VEKFeatureGroupInsertOptions* options) = 0;
    virtual void get_cluster_ids(const uint8_t* features, size_t nr,
                                 const VEKFeatureGroupInsertOptions* options,
                                 size_t* cluster_ids) = 0;
    virtual void insert_preassigned(const uint64_t* ids, const uint8_t* features,
                                    const size_t* cluster_ids, const uint8_t* tags, size_t nr,
                                    const VEKFeatureGroupInsertOptions* options) = 0;
    virtual void train(const uint8_t* features, size_t nr,
                       const VEKFeatureGroupTrainOptions* options) = 0;
    virtual void erase(const uint64_t* ids, size_t nr) = 0;
    virtual VEKFeatureGroupSettings get_settings() const = 0;
    virtual size_t size() const = 0;
    virtual void dump_features(const char* path, const uint8_t* features, const uint64_t* ids,
                               const uint8_t* tags, size_t nr,
                               const VEKFeatureGroupInsertOptions* options) = 0;
    virtual void set_vector_increase_ratio(float ratio) = 0;
    virtual void shrink() = 0;
    virtual void reset() = 0;
    virtual void get_imbalance_factor(float* factor) = 0;
    virtual void get_average_feature(const uint8_t* features, size_t nr,
                                     const VEKFeatureGroupAverageOptions* options,
                                     uint8_t* average) = 0;
    virtual size_t get_info_size() = 0;
    virtual void precompute_feature_info(const uint8_t* features, uint8_t* info, size_t nr,
                                         const VEKFeatureGroupInsertOptions* options) = 0;
    virtual void insert_feature_by_info(const uint8_t* info, const uint64_t* ids,
                                        const uint8_t* tags, size_t nr,
                                        const VEKFeatureGroupInsertOptions* options) = 0;
};

}  // namespace vek
