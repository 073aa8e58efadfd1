#include "group/int8_group.h"

namespace vek {
namespace {

constexpr char CLASS_NAME[] = "FeatureGroupCpuInt8Impl";
constexpr char NOT_IMPLEMENTED[] = "not implemented";

}  // namespace

FeatureGroupCpuInt8Impl::FeatureGroupCpuInt8Impl(const VEKFeatureGroupSettings* settings)
    : BruteForceGroup(CLASS_NAME, CompareKind::int8(), *settings, settings->feature_size,
                      constructor_text(CLASS_NAME, constructor_arguments::SETTINGS)) {}

FeatureGroupCpuInt8Impl::FeatureGroupCpuInt8Impl(const char*, const VEKFeatureGroupSettings*, bool)
    : FeatureGroupCpuInt8Impl(
          refuse_constructor(CLASS_NAME, NOT_IMPLEMENTED, constructor_arguments::FILE)) {}

FeatureGroupCpuInt8Impl::FeatureGroupCpuInt8Impl(const VEKFeatureGroupSettings*,
                                                 const FeatureGroup*)
    : FeatureGroupCpuInt8Impl(refuse_constructor(CLASS_NAME, "not supported in brute-force",
                                                 constructor_arguments::TRAINED)) {}

void FeatureGroupCpuInt8Impl::dump(const char*, bool) {
    refuse(NOT_IMPLEMENTED, "dump(const char*, bool)");
}

void FeatureGroupCpuInt8Impl::set_comparison_algorithm(const VEKComparisonAlgorithm*) {
    refuse(NOT_IMPLEMENTED, "set_comparison_algorithm(const VEKComparisonAlgorithm*)");
}

void FeatureGroupCpuInt8Impl::reset() {
    refuse(NOT_IMPLEMENTED, "reset()");
}

void FeatureGroupCpuInt8Impl::get_average_feature(const uint8_t*, size_t,
                                                  const VEKFeatureGroupAverageOptions*, uint8_t*) {
    refuse(NOT_IMPLEMENTED,
           "get_average_feature(const uint8_t*, size_t, const VEKFeatureGroupAverageOptions*, "
           "uint8_t*)");
}

}  // namespace vek
