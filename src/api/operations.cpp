// The exported operations on a group. Several take their arguments in another order than the
// operation behind them: feature rows come before ids, contexts before the predicate.
#include "api/call_frame.h"

using vek::call_frame;
using vek::group_of;

VEKStatus VEK_set_comparison_algorithm(VEKContext ctx, const VEKComparisonAlgorithm* algorithm) {
    return call_frame({ctx, algorithm},
                      [&] { group_of(ctx)->set_comparison_algorithm(algorithm); });
}

VEKStatus VEK_dump_feature_group_to_file(VEKContext ctx, const char* path) {
    return call_frame({ctx, path}, [&] { group_of(ctx)->dump(path, false); });
}

VEKStatus VEK_dump_feature_group_model_to_file(VEKContext ctx, const char* path) {
    return call_frame({ctx, path}, [&] { group_of(ctx)->dump(path, true); });
}

VEKStatus VEK_get_feature_group_size(VEKContext ctx, size_t* size) {
    return call_frame({ctx, size}, [&] { *size = group_of(ctx)->size(); });
}

VEKStatus VEK_get_feature_group_settings(VEKContext ctx, VEKFeatureGroupSettings* settings) {
    return call_frame({ctx, settings}, [&] { *settings = group_of(ctx)->get_settings(); });
}

VEKStatus VEK_search_feature_group(VEKContext ctx, const uint8_t* features, size_t nr_query,
                                   size_t k, float threshold, void* const* predicate_contexts,
                                   VEKTagPredicate predicate,
                                   const VEKFeatureGroupSearchOptions* options,
                                   VEKFeatureGroupSearchResult* result) {
    return call_frame({ctx, features, result}, [&] {
        group_of(ctx)->search(features, nr_query, k, threshold, predicate, predicate_contexts,
                              options, result);
    });
}

VEKStatus VEK_search_feature_group_preassigned(
    VEKContext ctx, const uint8_t* features, size_t nr_query, float threshold,
    void* const* predicate_contexts, VEKTagPredicate predicate,
    const VEKFeatureGroupSearchOptions* options, const size_t* cluster_ids,
    const float* cluster_weights, VEKFeatureGroupSearchResult* result) {
    return call_frame({ctx, features, result}, [&] {
        group_of(ctx)->search_preassigned(features, nr_query, threshold, predicate,
                                          predicate_contexts, options, cluster_ids, cluster_weights,
                                          result);
    });
}

VEKStatus VEK_reserve_feature_group_size(VEKContext ctx, size_t size) {
    return call_frame({ctx}, [&] { group_of(ctx)->reserve(size); });
}

VEKStatus VEK_insert_features_to_feature_group(VEKContext ctx, const uint8_t* features,
                                               const uint64_t* ids, const uint8_t* tags, size_t nr,
                                               const VEKFeatureGroupInsertOptions* options) {
    return call_frame({ctx, features, ids},
                      [&] { group_of(ctx)->insert(ids, features, tags, nr, options); });
}

VEKStatus VEK_get_cluster_ids(VEKContext ctx, const uint8_t* features, size_t nr,
                              const VEKFeatureGroupInsertOptions* options, size_t* cluster_ids) {
    return call_frame({ctx, features},
                      [&] { group_of(ctx)->get_cluster_ids(features, nr, options, cluster_ids); });
}

VEKStatus VEK_insert_preassigned_features_to_feature_group(
    VEKContext ctx, const uint8_t* features, const uint64_t* ids, const size_t* cluster_ids,
    const uint8_t* tags, size_t nr, const VEKFeatureGroupInsertOptions* options) {
    return call_frame({ctx, features, ids, cluster_ids}, [&] {
        group_of(ctx)->insert_preassigned(ids, features, cluster_ids, tags, nr, options);
    });
}

VEKStatus VEK_get_feature_info_size(VEKContext ctx, size_t* size) {
    return call_frame({ctx}, [&] { *size = group_of(ctx)->get_info_size(); });
}

VEKStatus VEK_precompute_feature_info(VEKContext ctx, const uint8_t* features, size_t nr,
                                      uint8_t* info, const VEKFeatureGroupInsertOptions* options) {
    return call_frame({ctx, features},
                      [&] { group_of(ctx)->precompute_feature_info(features, info, nr, options); });
}

VEKStatus VEK_insert_with_feature_info(VEKContext ctx, const uint8_t* info, const uint64_t* ids,
                                       const uint8_t* tags, size_t nr,
                                       const VEKFeatureGroupInsertOptions* options) {
    return call_frame({ctx, ids},
                      [&] { group_of(ctx)->insert_feature_by_info(info, ids, tags, nr, options); });
}

VEKStatus VEK_train_feature_group(VEKContext ctx, const uint8_t* features, size_t nr,
                                  const VEKFeatureGroupTrainOptions* options) {
    return call_frame({ctx, features}, [&] { group_of(ctx)->train(features, nr, options); });
}

VEKStatus VEK_delete_features_from_feature_group(VEKContext ctx, const uint64_t* ids, size_t nr) {
    return call_frame({ctx, ids}, [&] { group_of(ctx)->erase(ids, nr); });
}

VEKStatus VEK_set_vector_increase_ratio(VEKContext ctx, float ratio) {
    return call_frame({ctx}, [&] { group_of(ctx)->set_vector_increase_ratio(ratio); });
}

VEKStatus VEK_shrink_feature_group(VEKContext ctx) {
    return call_frame({ctx}, [&] { group_of(ctx)->shrink(); });
}

VEKStatus VEK_get_imbalance_factor(VEKContext ctx, float* factor) {
    return call_frame({ctx}, [&] { group_of(ctx)->get_imbalance_factor(factor); });
}

VEKStatus VEK_get_average_feature(VEKContext ctx, const uint8_t* features, size_t nr,
                                  const VEKFeatureGroupAverageOptions* options, uint8_t* average) {
    return call_frame({ctx, features, average},
                      [&] { group_of(ctx)->get_average_feature(features, nr, options, average); });
}

VEKStatus VEK_reset_feature_group(VEKContext ctx) {
    return call_frame({ctx}, [&] { group_of(ctx)->reset(); });
}
