// The exported functions that make and release groups.
#include <memory>

#include "api/call_frame.h"

namespace {

// Frame of the make functions: `*out` is null unless a group was made.
template <typename Factory>
VEKStatus make_context(const void* source, VEKContext* out, const Factory& factory) {
    return vek::call_frame({source, out}, [&] {
        *out = nullptr;
        *out = vek::context_of(factory().release());
    });
}

}  // namespace

VEKStatus VEK_make_feature_group_context(const VEKFeatureGroupSettings* settings, VEKContext* out) {
    return make_context(settings, out, [&] { return vek::FeatureGroup::make_empty(settings); });
}

VEKStatus VEK_make_feature_group_context_from_file(const char* path,
                                                   const VEKFeatureGroupSettings* settings,
                                                   VEKContext* out) {
    return make_context(path, out,
                        [&] { return vek::FeatureGroup::make_from_file(path, settings, false); });
}

VEKStatus VEK_make_feature_group_context_from_model_file(const char* path,
                                                         const VEKFeatureGroupSettings* settings,
                                                         VEKContext* out) {
    return make_context(path, out,
                        [&] { return vek::FeatureGroup::make_from_file(path, settings, true); });
}

VEKStatus VEK_make_feature_group_context_from_trained_context(
    VEKContext trained, const VEKFeatureGroupSettings* settings, VEKContext* out) {
    return make_context(trained, out, [&] {
        return vek::FeatureGroup::make_from_trained(settings, vek::group_of(trained));
    });
}

VEKStatus VEK_make_feature_group_context_from_researcher_model_file(
    const char* path, const VEKFeatureGroupSettings* settings, VEKContext* out) {
    return make_context(
        path, out, [&] { return vek::FeatureGroup::make_from_researcher_file(path, settings); });
}

void VEK_release(VEKContext handle) {
    delete reinterpret_cast<vek::OpaqueTypeBase*>(handle);
}
