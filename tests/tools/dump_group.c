/* Dumps a small group, from which a row was deleted, to the path given. */
#include <stddef.h>

#include "vekfind/vekfind.h"

int main(int argc, char** argv) {
    static const float rows[4][2] = {{1, -2.5f}, {9, 9}, {0, 0.125f}, {3e38f, -0.0f}};
    static const uint64_t ids[4] = {7, 8, 9, UINT64_MAX - 1};
    VEKFeatureGroupSettings settings = {0};
    VEKContext group;
    int failed;
    settings.feature_size = sizeof(rows[0]);
    settings.tag_size = 3;
    if (argc != 2 || VEK_make_feature_group_context(&settings, &group) != VEK_OK)
        return 1;
    failed = VEK_insert_features_to_feature_group(group, (const uint8_t*)rows, ids,
                                                  (const uint8_t*)"abcdefghijkl", 4, NULL) ||
             VEK_delete_features_from_feature_group(group, &ids[1], 1) ||
             VEK_dump_feature_group_to_file(group, argv[1]);
    VEK_release(group);
    return failed;
}
