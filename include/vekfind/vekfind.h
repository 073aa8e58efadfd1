#ifndef VEKFIND_VEKFIND_H
#define VEKFIND_VEKFIND_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define VEK_API __attribute__((visibility("default")))
#else
#define VEK_API
#endif

typedef int32_t VEKStatus;

enum {
    VEK_OK = 0,
    VEK_INTERNAL_ERROR = 1,
    VEK_UNKNOWN_ERROR = 2,
    VEK_NULL_POINTER = 3,
    VEK_UNEXPECTED_CONFIG = 4,
    VEK_UNEXPECTED_MODEL = 5,
    VEK_BROKEN_FILE = 6,
    VEK_OUT_OF_RANGE = 7,
    VEK_INVALID_SETTINGS = 8,
    VEK_FILE_NOT_FOUND = 9,
    VEK_INVALID_ARGUMENT = 10,
    VEK_INVALID_OBJECT_TYPE = 11,
    VEK_UNSUPPORTED = 12,
    VEK_MISSING_MAP_ELEMENT = 14,
    VEK_UNKNOWN_GLOBAL_OPTION = 15,
    VEK_DUPLICATED_ID = 17,
    VEK_INVALID_ID = 18,
    VEK_ID_NOT_FOUND = 19
};

enum { VEK_DEVICE_CPU = 0, VEK_DEVICE_35XX = 1 };

enum {
    VEK_INDEX_BRUTE_FORCE_FLOAT32 = 0,
    VEK_INDEX_BRUTE_FORCE_35XX = 1,
    VEK_INDEX_IVFPQ = 2,
    VEK_INDEX_BRUTE_FORCE_INT8 = 3
};

enum { VEK_COMPARISON_SIGMOID_L2 = 0 };

typedef struct VEKOpaque* VEKContext;

typedef struct VEKComparisonAlgorithm {
    int32_t method;
    float scale;
    float bias;
} VEKComparisonAlgorithm;

typedef struct VEKFeatureGroupSettings {
    int32_t device;
    uint32_t reserved_a[2];
    uint32_t feature_size;
    uint32_t tag_size;
    VEKComparisonAlgorithm comparison;
    int32_t index_type;
    uint32_t reserved_b[8];
} VEKFeatureGroupSettings;

typedef struct VEKFeatureGroupSearchOptions {
    int32_t sorted;
    int32_t encrypted;
} VEKFeatureGroupSearchOptions;

typedef struct VEKFeatureGroupSearchResult {
    size_t nr_query;
    size_t k;
    float* scores;
    uint64_t* ids;
} VEKFeatureGroupSearchResult;

typedef int (*VEKTagPredicate)(void* context, const uint8_t* tag);

typedef struct VEKFeatureGroupInsertOptions {
    int32_t encrypted;
    int32_t replace_existing;
} VEKFeatureGroupInsertOptions;

typedef struct VEKFeatureGroupAverageOptions {
    int32_t encrypted;
} VEKFeatureGroupAverageOptions;

typedef struct VEKFeatureGroupTrainOptions VEKFeatureGroupTrainOptions;

#ifdef __cplusplus
}
#endif

#endif
