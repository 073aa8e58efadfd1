#include "group/float32_group.h"

#include "store/error.h"

namespace vek {
namespace {

// The operations that the engine raises errors for.
constexpr EngineFunctions FUNCTIONS = {
    "virtual void vek::FeatureGroupCpuFloat32Impl::search(const uint8_t*, size_t, size_t, float, "
    "VEKTagPredicate, void* const*, const VEKFeatureGroupSearchOptions*, "
    "VEKFeatureGroupSearchResult*)",
    "virtual void vek::FeatureGroupCpuFloat32Impl::insert(const uint64_t*, const uint8_t*, const "
    "uint8_t*, size_t, const VEKFeatureGroupInsertOptions*)",
    "virtual void vek::FeatureGroupCpuFloat32Impl::erase(const uint64_t*, size_t)",
};

// A remainder of the row that is no whole float is dropped.
constexpr unsigned FLOAT_BYTES_LOG2 = 2;

[[noreturn]] void refuse(const char* function) {
    throw Error(VEK_UNSUPPORTED, "not supported in brute-force", function);
}

[[noreturn]] void refuse_for_now(const char* function) {
    throw Error(VEK_UNSUPPORTED, "not implemented", function);
}

[[noreturn]] void refuse_model(const char* function) {
    throw Error(VEK_UNSUPPORTED, "no model for brute-force", function);
}

const VEKFeatureGroupSettings& checked(const VEKFeatureGroupSettings& settings) {
    static constexpr char FUNCTION[] =
        "vek::FeatureGroupCpuFloat32Impl::FeatureGroupCpuFloat32Impl(const "
        "VEKFeatureGroupSettings*)";
    if (settings.device != VEK_DEVICE_CPU)
        throw Error(VEK_INVALID_SETTINGS, "unknown device for bf cpu", FUNCTION);
    return settings;
}

// The settings of a group that is never made: refuses before anything is looked at.
const VEKFeatureGroupSettings* from_file(bool model) {
    static constexpr char FUNCTION[] =
        "vek::FeatureGroupCpuFloat32Impl::FeatureGroupCpuFloat32Impl(const char*, const "
        "VEKFeatureGroupSettings*, bool)";
    if (model)
        refuse_model(FUNCTION);
    refuse_for_now(FUNCTION);
}

const VEKFeatureGroupSettings* from_trained() {
    static constexpr char FUNCTION[] =
        "vek::FeatureGroupCpuFloat32Impl::FeatureGroupCpuFloat32Impl(const "
        "VEKFeatureGroupSettings*, const FeatureGroup*)";
    refuse(FUNCTION);
}

}  // namespace

FeatureGroupCpuFloat32Impl::FeatureGroupCpuFloat32Impl(const VEKFeatureGroupSettings* settings)
    : m_settings(checked(*settings)),
      m_engine(CompareKind::float32(), FUNCTIONS, m_settings.feature_size >> FLOAT_BYTES_LOG2,
               m_settings.feature_size, m_settings.tag_size) {}

FeatureGroupCpuFloat32Impl::FeatureGroupCpuFloat32Impl(const char* /*path*/,
                                                       const VEKFeatureGroupSettings* /*settings*/,
                                                       bool model)
    : FeatureGroupCpuFloat32Impl(from_file(model)) {}

FeatureGroupCpuFloat32Impl::FeatureGroupCpuFloat32Impl(const VEKFeatureGroupSettings* /*settings*/,
                                                       const FeatureGroup* /*trained*/)
    : FeatureGroupCpuFloat32Impl(from_trained()) {}

void FeatureGroupCpuFloat32Impl::dump(const char* /*path*/, bool model) {
    static constexpr char FUNCTION[] =
        "virtual void vek::FeatureGroupCpuFloat32Impl::dump(const char*, bool)";
    if (model)
        refuse_model(FUNCTION);
    refuse_for_now(FUNCTION);
}

void FeatureGroupCpuFloat32Impl::set_comparison_algorithm(const VEKComparisonAlgorithm* algorithm) {
    m_settings.comparison = *algorithm;
}

void FeatureGroupCpuFloat32Impl::search(const uint8_t* features, size_t nr_query, size_t k,
                                        float threshold, VEKTagPredicate predicate,
                                        void* const* predicate_contexts,
                                        const VEKFeatureGroupSearchOptions* options,
                                        VEKFeatureGroupSearchResult* result) {
    m_engine.search({features, nr_query, k, threshold, predicate, predicate_contexts, options},
                    m_settings.comparison, result);
}

void FeatureGroupCpuFloat32Impl::search_preassigned(
    const uint8_t* /*features*/, size_t /*nr_query*/, float /*threshold*/,
    VEKTagPredicate /*predicate*/, void* const* /*predicate_contexts*/,
    const VEKFeatureGroupSearchOptions* /*options*/, const size_t* /*cluster_ids*/,
    const float* /*cluster_weights*/, VEKFeatureGroupSearchResult* /*result*/) {
    refuse(
        "virtual void vek::FeatureGroupCpuFloat32Impl::search_preassigned(const uint8_t*, "
        "size_t, float, VEKTagPredicate, void* const*, const VEKFeatureGroupSearchOptions*, "
        "const size_t*, const float*, VEKFeatureGroupSearchResult*)");
}

void FeatureGroupCpuFloat32Impl::reserve(size_t size) {
    m_engine.reserve(size);
}

void FeatureGroupCpuFloat32Impl::insert(const uint64_t* ids, const uint8_t* features,
                                        const uint8_t* tags, size_t nr,
                                        const VEKFeatureGroupInsertOptions* options) {
    m_engine.insert(ids, features, tags, nr, options);
}

void FeatureGroupCpuFloat32Impl::get_cluster_ids(const uint8_t* /*features*/, size_t /*nr*/,
                                                 const VEKFeatureGroupInsertOptions* /*options*/,
                                                 size_t* /*cluster_ids*/) {
    refuse(
        "virtual void vek::FeatureGroupCpuFloat32Impl::get_cluster_ids(const uint8_t*, size_t, "
        "const VEKFeatureGroupInsertOptions*, size_t*)");
}

void FeatureGroupCpuFloat32Impl::insert_preassigned(
    const uint64_t* /*ids*/, const uint8_t* /*features*/, const size_t* /*cluster_ids*/,
    const uint8_t* /*tags*/, size_t /*nr*/, const VEKFeatureGroupInsertOptions* /*options*/) {
    refuse(
        "virtual void vek::FeatureGroupCpuFloat32Impl::insert_preassigned(const uint64_t*, "
        "const uint8_t*, const size_t*, const uint8_t*, size_t, const "
        "VEKFeatureGroupInsertOptions*)");
}

void FeatureGroupCpuFloat32Impl::train(const uint8_t* /*features*/, size_t /*nr*/,
                                       const VEKFeatureGroupTrainOptions* /*options*/) {
    refuse(
        "virtual void vek::FeatureGroupCpuFloat32Impl::train(const uint8_t*, size_t, const "
        "VEKFeatureGroupTrainOptions*)");
}

void FeatureGroupCpuFloat32Impl::erase(const uint64_t* ids, size_t nr) {
    m_engine.erase(ids, nr);
}

VEKFeatureGroupSettings FeatureGroupCpuFloat32Impl::get_settings() const {
    return m_settings;
}

size_t FeatureGroupCpuFloat32Impl::size() const {
    return m_engine.size();
}

void FeatureGroupCpuFloat32Impl::dump_features(const char* /*path*/, const uint8_t* /*features*/,
                                               const uint64_t* /*ids*/, const uint8_t* /*tags*/,
                                               size_t /*nr*/,
                                               const VEKFeatureGroupInsertOptions* /*options*/) {
    throw Error(VEK_UNSUPPORTED, "erased api",
                "virtual void vek::FeatureGroupCpuFloat32Impl::dump_features(const char*, const "
                "uint8_t*, const uint64_t*, const uint8_t*, size_t, const "
                "VEKFeatureGroupInsertOptions*)");
}

// Stores grow by steps of their own.
void FeatureGroupCpuFloat32Impl::set_vector_increase_ratio(float /*ratio*/) {}

void FeatureGroupCpuFloat32Impl::shrink() {
    m_engine.shrink();
}

void FeatureGroupCpuFloat32Impl::reset() {
    m_engine.reset();
}

// Without clusters there is nothing out of balance.
void FeatureGroupCpuFloat32Impl::get_imbalance_factor(float* factor) {
    *factor = 1.0f;
}

void FeatureGroupCpuFloat32Impl::get_average_feature(
    const uint8_t* /*features*/, size_t /*nr*/, const VEKFeatureGroupAverageOptions* /*options*/,
    uint8_t* /*average*/) {
    refuse_for_now(
        "virtual void vek::FeatureGroupCpuFloat32Impl::get_average_feature(const uint8_t*, size_t, "
        "const VEKFeatureGroupAverageOptions*, uint8_t*)");
}

size_t FeatureGroupCpuFloat32Impl::get_info_size() {
    refuse("virtual size_t vek::FeatureGroupCpuFloat32Impl::get_info_size()");
}

void FeatureGroupCpuFloat32Impl::precompute_feature_info(
    const uint8_t* /*features*/, uint8_t* /*info*/, size_t /*nr*/,
    const VEKFeatureGroupInsertOptions* /*options*/) {
    refuse(
        "virtual void vek::FeatureGroupCpuFloat32Impl::precompute_feature_info(const uint8_t*, "
        "uint8_t*, size_t, const VEKFeatureGroupInsertOptions*)");
}

void FeatureGroupCpuFloat32Impl::insert_feature_by_info(
    const uint8_t* /*info*/, const uint64_t* /*ids*/, const uint8_t* /*tags*/, size_t /*nr*/,
    const VEKFeatureGroupInsertOptions* /*options*/) {
    refuse(
        "virtual void vek::FeatureGroupCpuFloat32Impl::insert_feature_by_info(const uint8_t*, "
        "const uint64_t*, const uint8_t*, size_t, const VEKFeatureGroupInsertOptions*)");
}

}  // namespace vek
