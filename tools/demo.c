/*
 * Searches pictures of clothes: inserts the 2,000 rows of the fashion128 data set, asks for the
 * five nearest of 100 held-out pictures, and counts how often the nearest one is of the right
 * class. Usage: demo [DATA_FOLDER]. Uses nothing of the library but its public header.
 */
#define _POSIX_C_SOURCE 200112L

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "vekfind/vekfind.h"

enum { DIMENSIONS = 128, ROWS = 2000, QUERIES = 100, PLACES = 5, SHOWN = 8, CLASSES = 10 };

static const char* const CLASS_NAMES[CLASSES] = {"T-shirt/top", "Trouser",   "Pullover", "Dress",
                                                 "Coat",        "Sandal",    "Shirt",    "Sneaker",
                                                 "Bag",         "Ankle boot"};

static float rows[ROWS][DIMENSIONS], queries[QUERIES][DIMENSIONS];
static uint64_t row_ids[ROWS];
static uint8_t row_labels[ROWS], query_labels[QUERIES];
static float scores[QUERIES][PLACES];
static uint64_t found[QUERIES][PLACES];

/* Reads a file that must hold exactly `size` bytes. */
static void read_file(const char* folder, const char* name, void* bytes, size_t size) {
    char path[4096];
    FILE* file;
    snprintf(path, sizeof(path), "%s/%s", folder, name);
    file = fopen(path, "rb");
    if (!file || fread(bytes, 1, size, file) != size || fgetc(file) != EOF) {
        fprintf(stderr, "demo: %s is missing or not of %lu bytes\n", path, (unsigned long)size);
        exit(1);
    }
    fclose(file);
}

static void check(VEKStatus status, const char* what) {
    if (status != VEK_OK) {
        fprintf(stderr, "demo: %s: %s\n", what, VEK_errorcode_to_string(status));
        exit(1);
    }
}

static double seconds(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec + 1e-9 * (double)now.tv_nsec;
}

static double squared_distance(const float* a, const float* b) {
    double sum = 0;
    int i;
    for (i = 0; i < DIMENSIONS; ++i)
        sum += ((double)a[i] - b[i]) * ((double)a[i] - b[i]);
    return sum;
}

static int compare_doubles(const void* left, const void* right) {
    const double a = *(const double*)left, b = *(const double*)right;
    return (a > b) - (a < b);
}

static double median(double* values, size_t count) {
    qsort(values, count, sizeof(values[0]), compare_doubles);
    return values[count / 2];
}

/*
 * The similarity is 1 / (1 + exp(scale * d2 + bias)). Two points fix the curve: a row and its
 * nearest neighbour of the same class shall typically get 0.95, two rows of different classes 0.05.
 * Both typical distances are medians over every tenth stored row.
 */
static VEKComparisonAlgorithm calibrate(void) {
    enum { STEP = 10, SAMPLES = ROWS / STEP };
    static double near_distances[SAMPLES], far_distances[SAMPLES * SAMPLES];
    const double logit = log(0.95 / 0.05);
    size_t near_count = 0, far_count = 0, i, j;
    double near_d2, far_d2, scale;
    VEKComparisonAlgorithm comparison;
    for (i = 0; i < ROWS; i += STEP) {
        double nearest = HUGE_VAL;
        for (j = 0; j < ROWS; ++j) {
            const int same_class = row_labels[i] == row_labels[j];
            if (i == j || (!same_class && j % STEP != 0))
                continue;
            const double d2 = squared_distance(rows[i], rows[j]);
            if (!same_class)
                far_distances[far_count++] = d2;
            else if (d2 < nearest)
                nearest = d2;
        }
        near_distances[near_count++] = nearest;
    }
    near_d2 = median(near_distances, near_count);
    far_d2 = median(far_distances, far_count);
    scale = 2 * logit / (far_d2 - near_d2);
    comparison.method = VEK_COMPARISON_SIGMOID_L2;
    comparison.scale = (float)scale;
    comparison.bias = (float)(-logit - scale * near_d2);
    printf(
        "Similarity is 1 / (1 + exp(%.4f * d2 %+.3f)), chosen so that it is\n"
        "  0.95 at d2 = %5.1f, the median from a row to the nearest one of its class, and\n"
        "  0.05 at d2 = %5.1f, the median between rows of different classes.\n\n",
        comparison.scale, comparison.bias, near_d2, far_d2);
    return comparison;
}

static uint8_t label_of(uint64_t id) {
    size_t i;
    for (i = 0; i < ROWS; ++i) {
        if (row_ids[i] == id)
            return row_labels[i];
    }
    fprintf(stderr, "demo: a search returned an id that was never inserted\n");
    exit(1);
}

static void print_results(void) {
    int right = 0, q, i;
    for (q = 0; q < QUERIES; ++q) {
        right += label_of(found[q][0]) == query_labels[q];
        if (q >= SHOWN)
            continue;
        printf("%-11s ->", CLASS_NAMES[query_labels[q]]);
        for (i = 0; i < PLACES; ++i)
            printf("  %s %.2f", CLASS_NAMES[label_of(found[q][i])], scores[q][i]);
        printf("\n");
    }
    printf("\nNearest neighbours of the right class: %d of %d\n", right, QUERIES);
}

/* One search of `count` queries, from query `first` on. */
static void search(VEKContext group, size_t first, size_t count) {
    const VEKFeatureGroupSearchOptions sorted = {1, 0};
    VEKFeatureGroupSearchResult result;
    result.scores = scores[first];
    result.ids = found[first];
    check(VEK_search_feature_group(group, (const uint8_t*)queries[first], count, PLACES, 0.0f, NULL,
                                   NULL, &sorted, &result),
          "search");
}

int main(int argc, char** argv) {
    const char* folder = argc > 1 ? argv[1] : "data";
    VEKFeatureGroupSettings settings;
    VEKContext group;
    const char* version;
    double start, batch_time, single_time;
    size_t q;

    read_file(folder, "fashion128-base.f32", rows, sizeof(rows));
    read_file(folder, "fashion128-base.ids.u64", row_ids, sizeof(row_ids));
    read_file(folder, "fashion128-base.labels.u8", row_labels, sizeof(row_labels));
    read_file(folder, "fashion128-query.f32", queries, sizeof(queries));
    read_file(folder, "fashion128-query.labels.u8", query_labels, sizeof(query_labels));

    VEK_get_version(&version);
    printf("libvekfind %s: %d pictures of clothes, %d floats each, %d queries\n\n", version, ROWS,
           DIMENSIONS, QUERIES);
    memset(&settings, 0, sizeof(settings));
    settings.feature_size = sizeof(rows[0]);
    settings.index_type = VEK_INDEX_BRUTE_FORCE_FLOAT32;
    settings.comparison = calibrate();
    check(VEK_make_feature_group_context(&settings, &group), "make a group");
    check(VEK_insert_features_to_feature_group(group, (const uint8_t*)rows, row_ids, NULL, ROWS,
                                               NULL),
          "insert");

    search(group, 0, QUERIES); /* warms up: the first search of a shape obtains its memory */
    start = seconds();
    search(group, 0, QUERIES);
    batch_time = seconds() - start;
    search(group, 0, 1);
    start = seconds();
    for (q = 0; q < QUERIES; ++q)
        search(group, q, 1);
    single_time = seconds() - start;

    print_results();
    printf("Time a query: %.1f microseconds in one call with all, %.1f one by one\n",
           1e6 * batch_time / QUERIES, 1e6 * single_time / QUERIES);
    VEK_release(group);
    return 0;
}
