#include "group/float32_group.h"

#include "group/average_feature.h"
#include "store/error.h"
#include "store/group_file.h"

namespace vek {
namespace {

constexpr char CLASS_NAME[] = "FeatureGroupCpuFloat32Impl";

// A remainder of the row that is no whole float is dropped.
size_t feature_dim(const VEKFeatureGroupSettings& settings) {
    return settings.feature_size / sizeof(float);
}

// The refusals that come before anything is looked at.
const VEKFeatureGroupSettings& without_model(const VEKFeatureGroupSettings* settings, bool model) {
    if (model)
        refuse_constructor(CLASS_NAME, "no model for brute-force", constructor_arguments::FILE);
    return *settings;
}

}  // namespace

FeatureGroupCpuFloat32Impl::FeatureGroupCpuFloat32Impl(const VEKFeatureGroupSettings& settings,
                                                       const std::string& constructor)
    : BruteForceGroup(CLASS_NAME, CompareKind::float32(), settings, feature_dim(settings),
                      constructor) {}

FeatureGroupCpuFloat32Impl::FeatureGroupCpuFloat32Impl(const VEKFeatureGroupSettings* settings)
    : FeatureGroupCpuFloat32Impl(*settings,
                                 constructor_text(CLASS_NAME, constructor_arguments::SETTINGS)) {}

FeatureGroupCpuFloat32Impl::FeatureGroupCpuFloat32Impl(const char* path,
                                                       const VEKFeatureGroupSettings* settings,
                                                       bool model)
    : FeatureGroupCpuFloat32Impl(without_model(settings, model),
                                 constructor_text(CLASS_NAME, constructor_arguments::FILE)) {
    const GroupFileContent content = read_group_file(
        path,
        {m_settings.feature_size, m_settings.tag_size, m_engine.rows().features().row_bytes()},
        constructor_text(CLASS_NAME, constructor_arguments::FILE).c_str());
    m_engine.insert(content.ids.get(), content.features.get(), content.tags.get(), content.count,
                    nullptr);
}

FeatureGroupCpuFloat32Impl::FeatureGroupCpuFloat32Impl(const VEKFeatureGroupSettings*,
                                                       const FeatureGroup*)
    : FeatureGroupCpuFloat32Impl(refuse_constructor(CLASS_NAME, "not supported in brute-force",
                                                    constructor_arguments::TRAINED)) {}

void FeatureGroupCpuFloat32Impl::dump(const char* path, bool model) {
    if (model)
        refuse("no model for brute-force", "dump(const char*, bool)");
    const GroupRows& rows = m_engine.rows();
    write_group_file(path,
                     {m_settings.feature_size, m_settings.tag_size, rows.features().row_bytes()},
                     rows.ids(), rows.features(), rows.tags());
}

void FeatureGroupCpuFloat32Impl::set_comparison_algorithm(const VEKComparisonAlgorithm* algorithm) {
    m_settings.comparison = *algorithm;
}

void FeatureGroupCpuFloat32Impl::reset() {
    m_engine.reset();
}

void FeatureGroupCpuFloat32Impl::get_average_feature(const uint8_t* features, size_t nr,
                                                     const VEKFeatureGroupAverageOptions* options,
                                                     uint8_t* average) {
    if (!options || options->encrypted == 0) {
        throw Error(VEK_INVALID_ARGUMENT, "get_average_feature accepts encrypted features only",
                    function_text("void",
                                  "get_average_feature(const uint8_t*, size_t, "
                                  "const VEKFeatureGroupAverageOptions*, uint8_t*)")
                        .c_str());
    }
    average_feature(features, nr, feature_dim(m_settings), m_settings.feature_size, average);
}

}  // namespace vek
