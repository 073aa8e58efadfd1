// A group that records each call as a text of the operation and its arguments, and fails on
// request.
#pragma once

#include <functional>
#include <string>
#include <type_traits>

#include "group/feature_group.h"

namespace vek {

class FakeGroup final : public FeatureGroup {
public:
    static constexpr size_t SIZE = 41;
    static constexpr size_t INFO_SIZE = 42;
    static constexpr uint32_t TAG_SIZE = 7;

    mutable std::string last_call;
    std::function<void()> failure;  // throws

    void dump(const char* path, bool model) override { record("dump", path, model); }
    void set_comparison_algorithm(const VEKComparisonAlgorithm* algorithm) override {
        record("set_comparison_algorithm", algorithm);
    }
    void search(const uint8_t* features, size_t nr_query, size_t k, float threshold,
                VEKTagPredicate predicate, void* const* predicate_contexts,
                const VEKFeatureGroupSearchOptions* options,
                VEKFeatureGroupSearchResult* result) override {
        record("search", features, nr_query, k, threshold, predicate, predicate_contexts, options,
               result);
    }
    void search_preassigned(const uint8_t* features, size_t nr_query, float threshold,
                            VEKTagPredicate predicate, void* const* predicate_contexts,
                            const VEKFeatureGroupSearchOptions* options, const size_t* cluster_ids,
                            const float* cluster_weights,
                            VEKFeatureGroupSearchResult* result) override {
        record("search_preassigned", features, nr_query, threshold, predicate, predicate_contexts,
               options, cluster_ids, cluster_weights, result);
    }
    void reserve(size_t size) override { record("reserve", size); }
    void insert(const uint64_t* ids, const uint8_t* features, const uint8_t* tags, size_t nr,
                const VEKFeatureGroupInsertOptions* options) override {
        record("insert", ids, features, tags, nr, options);
    }
    void get_cluster_ids(const uint8_t* features, size_t nr,
                         const VEKFeatureGroupInsertOptions* options,
                         size_t* cluster_ids) override {
        record("get_cluster_ids", features, nr, options, cluster_ids);
    }
    void insert_preassigned(const uint64_t* ids, const uint8_t* features, const size_t* cluster_ids,
                            const uint8_t* tags, size_t nr,
                            const VEKFeatureGroupInsertOptions* options) override {
        record("insert_preassigned", ids, features, cluster_ids, tags, nr, options);
    }
    void train(const uint8_t* features, size_t nr,
               const VEKFeatureGroupTrainOptions* options) override {
        record("train", features, nr, options);
    }
    void erase(const uint64_t* ids, size_t nr) override { record("erase", ids, nr); }
    VEKFeatureGroupSettings get_settings() const override {
        record("get_settings");
        VEKFeatureGroupSettings settings{};
        settings.tag_size = TAG_SIZE;
        return settings;
    }
    size_t size() const override {
        record("size");
        return SIZE;
    }
    void dump_features(const char*, const uint8_t*, const uint64_t*, const uint8_t*, size_t,
                       const VEKFeatureGroupInsertOptions*) override {
        record("dump_features");
    }
    void set_vector_increase_ratio(float ratio) override {
        record("set_vector_increase_ratio", ratio);
    }
    void shrink() override { record("shrink"); }
    void reset() override { record("reset"); }
    void get_imbalance_factor(float* factor) override { record("get_imbalance_factor", factor); }
    void get_average_feature(const uint8_t* features, size_t nr,
                             const VEKFeatureGroupAverageOptions* options,
                             uint8_t* average) override {
        record("get_average_feature", features, nr, options, average);
    }
    size_t get_info_size() override {
        record("get_info_size");
        return INFO_SIZE;
    }
    void precompute_feature_info(const uint8_t* features, uint8_t* info, size_t nr,
                                 const VEKFeatureGroupInsertOptions* options) override {
        record("precompute_feature_info", features, info, nr, options);
    }
    void insert_feature_by_info(const uint8_t* info, const uint64_t* ids, const uint8_t* tags,
                                size_t nr, const VEKFeatureGroupInsertOptions* options) override {
        record("insert_feature_by_info", info, ids, tags, nr, options);
    }

private:
    // Pointers are recorded as addresses, so they may point nowhere.
    template <typename T>
    static uintptr_t number(T value) {
        if constexpr (std::is_pointer_v<T>)
            return reinterpret_cast<uintptr_t>(value);
        else
            return static_cast<uintptr_t>(value);
    }
    template <typename... Arguments>
    void record(const char* operation, Arguments... arguments) const {
        last_call = operation;
        ((last_call += ' ' + std::to_string(number(arguments))), ...);
        if (failure)
            failure();
    }
};

}  // namespace vek
