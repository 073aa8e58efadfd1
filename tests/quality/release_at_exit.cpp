// Groups that are released by destructors of static objects: one that is older than anything the
// library registers for the process's exit, and one that is younger.
#include "vekfind/vekfind.h"

namespace {

struct Holder {
    VEKContext group = nullptr;
    ~Holder() { VEK_release(group); }
};

Holder older;

bool fill(Holder& holder) {
    VEKFeatureGroupSettings settings{};
    settings.feature_size = 2 * sizeof(float);
    const float rows[2][2] = {{1, 2}, {3, 4}};
    const auto* bytes = reinterpret_cast<const uint8_t*>(rows);
    const uint64_t ids[] = {1, 2};
    uint64_t found = 0;
    float score = 0;
    VEKFeatureGroupSearchResult result{0, 0, &score, &found};
    return VEK_make_feature_group_context(&settings, &holder.group) == VEK_OK &&
           VEK_insert_features_to_feature_group(holder.group, bytes, ids, nullptr, 2, nullptr) ==
               VEK_OK &&
           VEK_search_feature_group(holder.group, bytes, 1, 1, 0, nullptr, nullptr, nullptr,
                                    &result) == VEK_OK &&
           found == 1;
}

}  // namespace

int main() {
    if (!fill(older))
        return 1;
    static Holder younger;
    return fill(younger) ? 0 : 1;
}
