// Loads the library, uses it and unloads it, several times: usage `unload path/to/libvekfind.so`.
#include <dlfcn.h>

#include <cstdio>

#include "vekfind/vekfind.h"

namespace {

#define SYMBOL(library, name) reinterpret_cast<decltype(&name)>(dlsym(library, #name))

bool use(void* library) {
    VEKFeatureGroupSettings settings{};
    settings.feature_size = sizeof(float);
    settings.comparison.scale = 1;
    const float row = 2;
    const auto* bytes = reinterpret_cast<const uint8_t*>(&row);
    const uint64_t id = 5;
    uint64_t found = 0;
    float score = 0;
    VEKFeatureGroupSearchResult result{0, 0, &score, &found};
    VEKContext group = nullptr;
    int level = 0;
    SYMBOL(library, VEK_get_log_level)(&level);
    SYMBOL(library, VEK_set_log_level)(7);
    const bool worked =
        level == 2 &&  // a library that stayed loaded would still have 7
        SYMBOL(library, VEK_make_feature_group_context)(&settings, &group) == VEK_OK &&
        SYMBOL(library, VEK_insert_features_to_feature_group)(group, bytes, &id, nullptr, 1,
                                                              nullptr) == VEK_OK &&
        SYMBOL(library, VEK_search_feature_group)(group, bytes, 1, 1, 0, nullptr, nullptr, nullptr,
                                                  &result) == VEK_OK &&
        found == id;
    SYMBOL(library, VEK_release)(group);
    return worked;
}

}  // namespace

int main(int argc, char** argv) {
    for (int round = 0; argc == 2 && round < 3; ++round) {
        void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
        if (!library || !use(library) || dlclose(library) != 0) {
            std::fprintf(stderr, "round %d failed\n", round);
            return 1;
        }
        if (dlopen(argv[1], RTLD_NOW | RTLD_NOLOAD)) {
            std::fputs("the library stays loaded\n", stderr);
            return 1;
        }
    }
    return argc == 2 ? 0 : 2;
}
