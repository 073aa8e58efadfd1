/* The header and the library as a C99 program sees them: layouts of the records, one round of
 * calls, and groups that live as long as the process. Usage: c_client [path of a dump]. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "vekfind/vekfind.h"

/* The records are fixed words at fixed places, whatever the compiler. */
#define LAYOUT(name, condition) typedef char layout_##name[(condition) ? 1 : -1]
LAYOUT(settings, sizeof(VEKFeatureGroupSettings) == 17 * 4);
LAYOUT(device, offsetof(VEKFeatureGroupSettings, device) == 0);
LAYOUT(feature_size, offsetof(VEKFeatureGroupSettings, feature_size) == 12);
LAYOUT(tag_size, offsetof(VEKFeatureGroupSettings, tag_size) == 16);
LAYOUT(comparison, offsetof(VEKFeatureGroupSettings, comparison) == 20);
LAYOUT(index_type, offsetof(VEKFeatureGroupSettings, index_type) == 32);
LAYOUT(algorithm, sizeof(VEKComparisonAlgorithm) == 12);
LAYOUT(scale, offsetof(VEKComparisonAlgorithm, scale) == 4);
LAYOUT(bias, offsetof(VEKComparisonAlgorithm, bias) == 8);
LAYOUT(search_options, offsetof(VEKFeatureGroupSearchOptions, encrypted) == 4);
LAYOUT(insert_options, offsetof(VEKFeatureGroupInsertOptions, replace_existing) == 4);
LAYOUT(result_k, offsetof(VEKFeatureGroupSearchResult, k) == sizeof(size_t));
LAYOUT(result_scores, offsetof(VEKFeatureGroupSearchResult, scores) == 2 * sizeof(size_t));
LAYOUT(result_ids, offsetof(VEKFeatureGroupSearchResult, ids) == 3 * sizeof(size_t));
LAYOUT(status, sizeof(VEKStatus) == 4);

#define EXPECT(condition)                                                    \
    do {                                                                     \
        if (!(condition)) {                                                  \
            fprintf(stderr, "line %d: %s is false\n", __LINE__, #condition); \
            return 1;                                                        \
        }                                                                    \
    } while (0)

/* Keeps rows whose 3-byte tag starts with the letter behind the context. */
static int starts_with(void* context, const uint8_t* tag) {
    return tag[0] == *(const char*)context;
}

/* Released by handlers of the exit, one registered before anything of the library's, one after. */
static VEKContext older, group;
static void release_older(void) {
    VEK_release(older);
}
static void release_group(void) {
    VEK_release(group);
}

int main(int argc, char** argv) {
    const float rows[3][2] = {{0, -0.0f}, {3, 4}, {6, 8.1f}};
    const float queries[2][2] = {{3, 4}, {0, 0}};
    const uint8_t* row_bytes = (const uint8_t*)rows;
    const uint8_t* query_bytes = (const uint8_t*)queries;
    const uint64_t ids[3] = {10, UINT64_MAX - 1, 30};
    const uint8_t tags[] = "a--b--a--";
    char letter = 'a';
    void* contexts[2] = {&letter, &letter};
    float scores[4];
    uint64_t found[4];
    size_t size = 0;
    const char* version;
    const VEKFeatureGroupSearchOptions sorted = {1, 0};
    VEKFeatureGroupSearchResult result = {0, 0, scores, found};
    VEKFeatureGroupSettings settings;

    EXPECT(atexit(release_older) == 0);
    VEK_get_version(&version);
    EXPECT(strcmp(version, "v" VEKFIND_VERSION) == 0);
    memset(&settings, 0, sizeof(settings));
    settings.feature_size = sizeof(rows[0]);
    settings.tag_size = 3;
    settings.comparison.scale = 1;
    EXPECT(VEK_make_feature_group_context(&settings, &older) == VEK_OK);
    EXPECT(VEK_insert_features_to_feature_group(older, row_bytes, ids, tags, 3, NULL) == VEK_OK);
    EXPECT(VEK_search_feature_group(older, query_bytes, 2, 2, 0, NULL, NULL, NULL, &result) ==
           VEK_OK);
    EXPECT(VEK_make_feature_group_context(&settings, &group) == VEK_OK);
    EXPECT(VEK_insert_features_to_feature_group(group, row_bytes, ids, NULL, 3, NULL) ==
           VEK_INVALID_ARGUMENT);
    EXPECT(VEK_insert_features_to_feature_group(group, row_bytes, ids, tags, 3, NULL) == VEK_OK);
    EXPECT(VEK_get_feature_group_size(group, &size) == VEK_OK && size == 3);

    EXPECT(VEK_search_feature_group(group, query_bytes, 2, 2, 0.25f, NULL, NULL, &sorted,
                                    &result) == VEK_OK);
    EXPECT(result.nr_query == 2 && result.k == 2);
    EXPECT(found[0] == ids[1] && scores[0] == 0.5f);
    EXPECT(found[1] == VEK_INVALID_ID_VALUE && scores[1] == -1.0f);
    EXPECT(found[2] == 10 && scores[2] == 0.5f && found[3] == VEK_INVALID_ID_VALUE);
    EXPECT(VEK_search_feature_group(group, query_bytes, 2, 2, 0, contexts, starts_with, &sorted,
                                    &result) == VEK_OK);
    EXPECT(found[2] == 10 && found[3] == 30);

    EXPECT(VEK_delete_features_from_feature_group(group, ids, 1) == VEK_OK);
    EXPECT(VEK_delete_features_from_feature_group(group, ids, 1) == VEK_ID_NOT_FOUND);
    EXPECT(VEK_dump_feature_group_model_to_file(group, "/nonexistent") == VEK_UNSUPPORTED);
    EXPECT(argc < 2 || VEK_dump_feature_group_to_file(group, argv[1]) == VEK_OK);
    return atexit(release_group);
}
