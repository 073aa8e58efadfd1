#include "group/brute_force_group.h"

#include "store/error.h"

namespace vek {
namespace {

constexpr char NOT_SUPPORTED[] = "not supported in brute-force";

std::string operation_text(const char* class_name, const char* result, const char* call) {
    return std::string("virtual ") + result + " vek::" + class_name + "::" + call;
}

EngineFunctions engine_functions(const char* class_name) {
    return {
        operation_text(class_name, "void",
                       "search(const uint8_t*, size_t, size_t, float, VEKTagPredicate, "
                       "void* const*, const VEKFeatureGroupSearchOptions*, "
                       "VEKFeatureGroupSearchResult*)"),
        operation_text(class_name, "void",
                       "insert(const uint64_t*, const uint8_t*, const uint8_t*, size_t, "
                       "const VEKFeatureGroupInsertOptions*)"),
        operation_text(class_name, "void", "erase(const uint64_t*, size_t)"),
    };
}

const VEKFeatureGroupSettings& checked(const VEKFeatureGroupSettings& settings,
                                       const std::string& constructor) {
    if (settings.device != VEK_DEVICE_CPU)
        throw Error(VEK_INVALID_SETTINGS, "unknown device for bf cpu", constructor.c_str());
    return settings;
}

}  // namespace

std::string constructor_text(const char* class_name, const char* arguments) {
    return std::string("vek::") + class_name + "::" + class_name + "(" + arguments + ")";
}

const VEKFeatureGroupSettings* refuse_constructor(const char* class_name, const char* message,
                                                  const char* arguments) {
    throw Error(VEK_UNSUPPORTED, message, constructor_text(class_name, arguments).c_str());
}

BruteForceGroup::BruteForceGroup(const char* class_name, const CompareKind& kind,
                                 const VEKFeatureGroupSettings& settings, size_t feature_dim,
                                 const std::string& constructor)
    : m_settings(checked(settings, constructor)),
      m_class_name(class_name),
      m_engine(kind, engine_functions(class_name), feature_dim, settings.feature_size,
               settings.tag_size) {}

std::string BruteForceGroup::function_text(const char* result, const char* call) const {
    return operation_text(m_class_name, result, call);
}

void BruteForceGroup::refuse(const char* message, const char* call, const char* result) const {
    throw Error(VEK_UNSUPPORTED, message, function_text(result, call).c_str());
}

void BruteForceGroup::search(const uint8_t* features, size_t nr_query, size_t k, float threshold,
                             VEKTagPredicate predicate, void* const* predicate_contexts,
                             const VEKFeatureGroupSearchOptions* options,
                             VEKFeatureGroupSearchResult* result) {
    m_engine.search({features, nr_query, k, threshold, predicate, predicate_contexts, options},
                    m_settings.comparison, result);
}

void BruteForceGroup::insert(const uint64_t* ids, const uint8_t* features, const uint8_t* tags,
                             size_t nr, const VEKFeatureGroupInsertOptions* options) {
    m_engine.insert(ids, features, tags, nr, options);
}

void BruteForceGroup::search_preassigned(const uint8_t*, size_t, float, VEKTagPredicate,
                                         void* const*, const VEKFeatureGroupSearchOptions*,
                                         const size_t*, const float*,
                                         VEKFeatureGroupSearchResult*) {
    refuse(NOT_SUPPORTED,
           "search_preassigned(const uint8_t*, size_t, float, VEKTagPredicate, void* const*, "
           "const VEKFeatureGroupSearchOptions*, const size_t*, const float*, "
           "VEKFeatureGroupSearchResult*)");
}

void BruteForceGroup::get_cluster_ids(const uint8_t*, size_t, const VEKFeatureGroupInsertOptions*,
                                      size_t*) {
    refuse(NOT_SUPPORTED,
           "get_cluster_ids(const uint8_t*, size_t, const VEKFeatureGroupInsertOptions*, size_t*)");
}

void BruteForceGroup::insert_preassigned(const uint64_t*, const uint8_t*, const size_t*,
                                         const uint8_t*, size_t,
                                         const VEKFeatureGroupInsertOptions*) {
    refuse(NOT_SUPPORTED,
           "insert_preassigned(const uint64_t*, const uint8_t*, const size_t*, const uint8_t*, "
           "size_t, const VEKFeatureGroupInsertOptions*)");
}

void BruteForceGroup::train(const uint8_t*, size_t, const VEKFeatureGroupTrainOptions*) {
    refuse(NOT_SUPPORTED, "train(const uint8_t*, size_t, const VEKFeatureGroupTrainOptions*)");
}

void BruteForceGroup::dump_features(const char*, const uint8_t*, const uint64_t*, const uint8_t*,
                                    size_t, const VEKFeatureGroupInsertOptions*) {
    refuse("erased api",
           "dump_features(const char*, const uint8_t*, const uint64_t*, const uint8_t*, size_t, "
           "const VEKFeatureGroupInsertOptions*)");
}

size_t BruteForceGroup::get_info_size() {
    refuse(NOT_SUPPORTED, "get_info_size()", "size_t");
}

void BruteForceGroup::precompute_feature_info(const uint8_t*, uint8_t*, size_t,
                                              const VEKFeatureGroupInsertOptions*) {
    refuse(NOT_SUPPORTED,
           "precompute_feature_info(const uint8_t*, uint8_t*, size_t, "
           "const VEKFeatureGroupInsertOptions*)");
}

void BruteForceGroup::insert_feature_by_info(const uint8_t*, const uint64_t*, const uint8_t*,
                                             size_t, const VEKFeatureGroupInsertOptions*) {
    refuse(NOT_SUPPORTED,
           "insert_feature_by_info(const uint8_t*, const uint64_t*, const uint8_t*, size_t, "
           "const VEKFeatureGroupInsertOptions*)");
}

}  // namespace vek
