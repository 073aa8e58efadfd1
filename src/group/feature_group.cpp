// The factories: which kind of group a settings record asks for, and the refusals of the kinds that
// this library does not have.
#include "group/feature_group.h"

#include "group/float32_group.h"
#include "group/int8_group.h"
#include "store/error.h"

namespace vek {
namespace {

constexpr char MAKE_EMPTY[] =
    "static std::unique_ptr<vek::FeatureGroup> "
    "vek::FeatureGroup::make_empty(const VEKFeatureGroupSettings*)";
constexpr char MAKE_FROM_FILE[] =
    "static std::unique_ptr<vek::FeatureGroup> "
    "vek::FeatureGroup::make_from_file(const char*, const VEKFeatureGroupSettings*, bool)";
constexpr char MAKE_FROM_TRAINED[] =
    "static std::unique_ptr<vek::FeatureGroup> "
    "vek::FeatureGroup::make_from_trained(const VEKFeatureGroupSettings*, const FeatureGroup*)";
constexpr char MAKE_FROM_RESEARCHER_FILE[] =
    "static std::unique_ptr<vek::FeatureGroup> "
    "vek::FeatureGroup::make_from_researcher_file(const char*, const VEKFeatureGroupSettings*)";

[[noreturn]] void refuse_35xx(const char* function) {
    throw Error(VEK_UNSUPPORTED, "not supported on 35xx", function);
}

// The kinds that no device of this library runs.
void refuse_clustered_and_35xx(int32_t index_type, const char* function) {
    if (index_type == VEK_INDEX_IVFPQ)
        throw Error(VEK_UNSUPPORTED, "ivfpq is not supported on this platform", function);
    if (index_type == VEK_INDEX_BRUTE_FORCE_35XX)
        refuse_35xx(function);
}

// Constructs the kind that `settings` asks for from `arguments`. The index type decides before the
// device.
template <typename... Arguments>
std::unique_ptr<FeatureGroup> make_kind(const VEKFeatureGroupSettings& settings,
                                        const char* function, Arguments... arguments) {
    refuse_clustered_and_35xx(settings.index_type, function);
    const bool is_float32 = settings.index_type == VEK_INDEX_BRUTE_FORCE_FLOAT32;
    if (!is_float32 && settings.index_type != VEK_INDEX_BRUTE_FORCE_INT8)
        throw Error(VEK_UNSUPPORTED, "unknown error", function);
    if (settings.device == VEK_DEVICE_35XX)
        refuse_35xx(function);
    if (is_float32)
        return std::make_unique<FeatureGroupCpuFloat32Impl>(arguments...);
    return std::make_unique<FeatureGroupCpuInt8Impl>(arguments...);
}

}  // namespace

std::unique_ptr<FeatureGroup> FeatureGroup::make_empty(const VEKFeatureGroupSettings* settings) {
    return make_kind(*settings, MAKE_EMPTY, settings);
}

std::unique_ptr<FeatureGroup> FeatureGroup::make_from_file(const char* path,
                                                           const VEKFeatureGroupSettings* settings,
                                                           bool model) {
    return make_kind(*settings, MAKE_FROM_FILE, path, settings, model);
}

std::unique_ptr<FeatureGroup> FeatureGroup::make_from_trained(
    const VEKFeatureGroupSettings* settings, const FeatureGroup* trained) {
    return make_kind(*settings, MAKE_FROM_TRAINED, settings, trained);
}

std::unique_ptr<FeatureGroup> FeatureGroup::make_from_researcher_file(
    const char* /*path*/, const VEKFeatureGroupSettings* settings) {
    refuse_clustered_and_35xx(settings->index_type, MAKE_FROM_RESEARCHER_FILE);
    throw Error(VEK_INVALID_ARGUMENT, "invalid index type", MAKE_FROM_RESEARCHER_FILE);
}

}  // namespace vek
