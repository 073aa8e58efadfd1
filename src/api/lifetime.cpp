// The exported functions that make and release groups.
#include <memory>

#include "api/call_frame.h"

namespace {

// Frame of the make functions, `source` being what a group is made from beside the settings. After
// the null checks `*out` is null unless a group was made.
template <typename Factory>
VEKStatus make_context(const void* source, const VEKFeatureGroupSettings* settings, VEKContext* out,
                       const Factory& factory) {
    return vek::call_frame({source, settings, out}, [&] {
        *out = nullptr;
        *out = vek::context_of(factory().release());
    });
}

}  // namespace

VEKStatus VEK_make_feature_group_context(const VEKFeatureGroupSettings* settings, VEKContext* out) {
    return make_context(settings, settings, out,
                        [&] { return vek::FeatureGroup::make_empty(settings); });
}

VEKStatus VEK_make_feature_group_context_from_file(const char* path,
                                                   const VEKFeatureGroupSettings* settings,
                                                   VEKContext* out) {
    return make_context(path, settings, out,
                        [&] { return vek::FeatureGroup::make_from_file(path, settings, false); });
}

VEKStatus VEK_make_feature_group_context_from_model_file(const char* path,
                                                         const VEKFeatureGroupSettings* settings,
                                                         VEKContext* out) {
    return make_context(path, settings, out,
                        [&] { return vek::FeatureGroup::make_from_file(path, settings, true); });
}

VEKStatus VEK_make_feature_group_context_from_trained_context(
    VEKContext trained, const VEKFeatureGroupSettings* settings, VEKContext* out) {
    return make_context(trained, settings, out, [&] {
        return vek::FeatureGroup::make_from_trained(settings, vek::group_of(trained));
    });
}

VEKStatus VEK_make_feature_group_context_from_researcher_model_file(
    const char* path, const VEKFeatureGroupSettings* settings, VEKContext* out) {
    return make_context(path, settings, out, [&] {
        return vek::FeatureGroup::make_from_researcher_file(path, settings);
    });
}

void VEK_release(VEKContext handle) {
    delete reinterpret_cast<vek::OpaqueTypeBase*>(handle);
}
