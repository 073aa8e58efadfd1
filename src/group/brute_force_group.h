// What the two kinds of brute-force groups have in common: an engine with its settings, and the
// refusals of what exhaustive search does not have. A kind adds its own constructors and
// operations. Owned through its handle; see `FeatureGroup` for threads.
#pragma once

#include <string>

#include "group/brute_force_engine.h"
#include "group/feature_group.h"

namespace vek {

class BruteForceGroup : public FeatureGroup {
public:
    void search(const uint8_t* features, size_t nr_query, size_t k, float threshold,
                VEKTagPredicate predicate, void* const* predicate_contexts,
                const VEKFeatureGroupSearchOptions* options,
                VEKFeatureGroupSearchResult* result) final;
    void search_preassigned(const uint8_t* features, size_t nr_query, float threshold,
                            VEKTagPredicate predicate, void* const* predicate_contexts,
                            const VEKFeatureGroupSearchOptions* options, const size_t* cluster_ids,
                            const float* cluster_weights,
                            VEKFeatureGroupSearchResult* result) final;
    void reserve(size_t size) final { m_engine.reserve(size); }
    void insert(const uint64_t* ids, const uint8_t* features, const uint8_t* tags, size_t nr,
                const VEKFeatureGroupInsertOptions* options) final;
    void get_cluster_ids(const uint8_t* features, size_t nr,
                         const VEKFeatureGroupInsertOptions* options, size_t* cluster_ids) final;
    void insert_preassigned(const uint64_t* ids, const uint8_t* features, const size_t* cluster_ids,
                            const uint8_t* tags, size_t nr,
                            const VEKFeatureGroupInsertOptions* options) final;
    void train(const uint8_t* features, size_t nr,
               const VEKFeatureGroupTrainOptions* options) final;
    void erase(const uint64_t* ids, size_t nr) final { m_engine.erase(ids, nr); }
    VEKFeatureGroupSettings get_settings() const final { return m_settings; }
    size_t size() const final { return m_engine.size(); }
    void dump_features(const char* path, const uint8_t* features, const uint64_t* ids,
                       const uint8_t* tags, size_t nr,
                       const VEKFeatureGroupInsertOptions* options) final;
    // Stores grow by steps of their own.
    void set_vector_increase_ratio(float) final {}
    void shrink() final { m_engine.shrink(); }
    // Without clusters there is nothing out of balance.
    void get_imbalance_factor(float* factor) final { *factor = 1.0f; }
    size_t get_info_size() final;
    void precompute_feature_info(const uint8_t* features, uint8_t* info, size_t nr,
                                 const VEKFeatureGroupInsertOptions* options) final;
    void insert_feature_by_info(const uint8_t* info, const uint64_t* ids, const uint8_t* tags,
                                size_t nr, const VEKFeatureGroupInsertOptions* options) final;

protected:
    // `class_name` is the kind's own, for the signatures in errors; a string constant.
    // `feature_dim` counts the elements of a row. Refuses a device other than the CPU in the name
    // of `constructor`.
    BruteForceGroup(const char* class_name, const CompareKind& kind,
                    const VEKFeatureGroupSettings& settings, size_t feature_dim,
                    const std::string& constructor);

    // The signature of an operation in the kind's name: "virtual <result> vek::<class>::<call>".
    std::string function_text(const char* result, const char* call) const;
    [[noreturn]] void refuse(const char* message, const char* call,
                             const char* result = "void") const;

    VEKFeatureGroupSettings m_settings;

private:
    const char* m_class_name;

protected:
    BruteForceEngine m_engine;
};

// What a kind is constructed from, as it stands in the signature.
namespace constructor_arguments {
constexpr char SETTINGS[] = "const VEKFeatureGroupSettings*";
constexpr char FILE[] = "const char*, const VEKFeatureGroupSettings*, bool";
constexpr char TRAINED[] = "const VEKFeatureGroupSettings*, const FeatureGroup*";
}  // namespace constructor_arguments

std::string constructor_text(const char* class_name, const char* arguments);
// Always throws; a delegating constructor can take it for its settings.
[[noreturn]] const VEKFeatureGroupSettings* refuse_constructor(const char* class_name,
                                                               const char* message,
                                                               const char* arguments);

}  // namespace vek
