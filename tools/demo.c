/*
 * Searches pictures of clothes: inserts the 2,000 rows of the fashion128 data set, asks for the
 * five nearest of 100 held-out pictures, and counts how often the nearest one is of the right
 * class. Then the group goes through a file, and the same search is made with 8-bit features.
 * Usage: demo [DATA_FOLDER]. Uses nothing of the library but its public header.
 */
#define _GNU_SOURCE

#include <malloc.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "vekfind/vekfind.h"

enum { DIMENSIONS = 128, ROWS = 2000, QUERIES = 100, PLACES = 5, SHOWN = 8, CLASSES = 10 };

static const char* const CLASS_NAMES[CLASSES] = {"T-shirt/top", "Trouser",   "Pullover", "Dress",
                                                 "Coat",        "Sandal",    "Shirt",    "Sneaker",
                                                 "Bag",         "Ankle boot"};

static uint64_t row_ids[ROWS];
static uint8_t row_labels[ROWS], query_labels[QUERIES];

/* One form of the features: the same rows and queries as floats or as 8-bit integers. */
typedef struct {
    const char* name; /* of the files, without what follows the dash */
    const char* type; /* the ending of the feature files */
    int32_t index_type;
    size_t element_bytes;
    uint8_t *rows, *queries;
    VEKFeatureGroupSettings settings;
} Features;

/* What a search of all queries found, and what it took. */
typedef struct {
    float scores[QUERIES][PLACES];
    uint64_t ids[QUERIES][PLACES];
    double batch_time, single_time; /* seconds a query: all in one call, one by one */
    size_t memory;                  /* bytes that the group holds */
} Answers;

static void fail(const char* what, const char* why) {
    fprintf(stderr, "demo: %s: %s\n", what, why);
    exit(1);
}

static void check(VEKStatus status, const char* what) {
    if (status != VEK_OK)
        fail(what, VEK_errorcode_to_string(status));
}

/* Reads a file that must hold exactly `size` bytes. */
static void read_file(const char* folder, const char* set, const char* part, const char* type,
                      void* bytes, size_t size) {
    char path[4096];
    FILE* file;
    snprintf(path, sizeof(path), "%s/%s-%s.%s", folder, set, part, type);
    file = fopen(path, "rb");
    if (!file || fread(bytes, 1, size, file) != size || fgetc(file) != EOF)
        fail(path, "missing or not of the right size");
    fclose(file);
}

static uint8_t* read_features(const char* folder, const Features* features, const char* part,
                              size_t count) {
    const size_t size = count * DIMENSIONS * features->element_bytes;
    uint8_t* bytes = malloc(size);
    if (!bytes)
        fail(features->name, "no memory");
    read_file(folder, features->name, part, features->type, bytes, size);
    return bytes;
}

static double seconds(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec + 1e-9 * (double)now.tv_nsec;
}

static size_t heap_in_use(void) {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

static double element(const Features* features, size_t row, size_t d) {
    const uint8_t* bytes = features->rows + (row * DIMENSIONS + d) * features->element_bytes;
    float value;
    if (features->index_type == VEK_INDEX_BRUTE_FORCE_INT8)
        return (int8_t)*bytes;
    memcpy(&value, bytes, sizeof(value));
    return value;
}

static double squared_distance(const Features* features, size_t a, size_t b) {
    double sum = 0;
    size_t d;
    for (d = 0; d < DIMENSIONS; ++d) {
        const double difference = element(features, a, d) - element(features, b, d);
        sum += difference * difference;
    }
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
static VEKComparisonAlgorithm calibrate(const Features* features) {
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
            double d2;
            if (i == j || (!same_class && j % STEP != 0))
                continue;
            d2 = squared_distance(features, i, j);
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
        "Similarity is 1 / (1 + exp(%.3g * d2 %+.3f)), chosen so that it is\n"
        "  0.95 at d2 = %.1f, the median from a row to the nearest one of its class, and\n"
        "  0.05 at d2 = %.1f, the median between rows of different classes.\n\n",
        comparison.scale, comparison.bias, near_d2, far_d2);
    return comparison;
}

static void load(Features* features, const char* folder) {
    features->rows = read_features(folder, features, "base", ROWS);
    features->queries = read_features(folder, features, "query", QUERIES);
    memset(&features->settings, 0, sizeof(features->settings));
    features->settings.feature_size = (uint32_t)(DIMENSIONS * features->element_bytes);
    features->settings.index_type = features->index_type;
    features->settings.comparison = calibrate(features);
}

static VEKContext make_group(const Features* features) {
    VEKContext group;
    check(VEK_make_feature_group_context(&features->settings, &group), "make a group");
    check(VEK_insert_features_to_feature_group(group, features->rows, row_ids, NULL, ROWS, NULL),
          "insert");
    return group;
}

/* One search of `count` queries, from query `first` on. */
static void search(VEKContext group, const Features* features, size_t first, size_t count,
                   Answers* answers) {
    const VEKFeatureGroupSearchOptions sorted = {1, 0};
    VEKFeatureGroupSearchResult result;
    result.scores = answers->scores[first];
    result.ids = answers->ids[first];
    check(VEK_search_feature_group(group,
                                   features->queries + first * DIMENSIONS * features->element_bytes,
                                   count, PLACES, 0.0f, NULL, NULL, &sorted, &result),
          "search");
}

static void measure(VEKContext group, const Features* features, Answers* answers) {
    double start;
    size_t q;
    search(group, features, 0, QUERIES, answers); /* warms up: obtains the memory of this shape */
    start = seconds();
    search(group, features, 0, QUERIES, answers);
    answers->batch_time = (seconds() - start) / QUERIES;
    search(group, features, 0, 1, answers);
    start = seconds();
    for (q = 0; q < QUERIES; ++q)
        search(group, features, q, 1, answers);
    answers->single_time = (seconds() - start) / QUERIES;
}

static uint8_t label_of(uint64_t id) {
    size_t i;
    for (i = 0; i < ROWS; ++i) {
        if (row_ids[i] == id)
            return row_labels[i];
    }
    fail("search", "it returned an id that was never inserted");
    return 0;
}

static int count_right(const Answers* answers) {
    int right = 0, q;
    for (q = 0; q < QUERIES; ++q)
        right += label_of(answers->ids[q][0]) == query_labels[q];
    return right;
}

static void print_some(const Answers* answers) {
    int q, i;
    for (q = 0; q < SHOWN; ++q) {
        printf("%-11s ->", CLASS_NAMES[query_labels[q]]);
        for (i = 0; i < PLACES; ++i)
            printf("  %s %.2f", CLASS_NAMES[label_of(answers->ids[q][i])], answers->scores[q][i]);
        printf("\n");
    }
}

/* Searches all queries in a group of its own. */
static VEKContext run(const Features* features, Answers* answers) {
    const size_t before = heap_in_use();
    VEKContext group = make_group(features);
    answers->memory = heap_in_use() - before;
    measure(group, features, answers);
    print_some(answers);
    printf("\nNearest neighbours of the right class: %d of %d\n", count_right(answers), QUERIES);
    printf("Time a query: %.1f microseconds in one call with all, %.1f one by one\n\n",
           1e6 * answers->batch_time, 1e6 * answers->single_time);
    return group;
}

/* Writes the group to a file and asks a group made from that file the same. */
static void go_through_file(VEKContext group, const Features* features, const Answers* answers) {
    char path[] = "/tmp/vekfind-demo-XXXXXX";
    const int descriptor = mkstemp(path);
    static Answers again;
    VEKContext loaded;
    size_t size = 0;
    if (descriptor < 0)
        fail(path, "cannot be made");
    close(descriptor);
    check(VEK_dump_feature_group_to_file(group, path), "dump");
    check(VEK_make_feature_group_context_from_file(path, &features->settings, &loaded), "load");
    remove(path);
    check(VEK_get_feature_group_size(loaded, &size), "size");
    search(loaded, features, 0, QUERIES, &again);
    if (memcmp(again.ids, answers->ids, sizeof(again.ids)) != 0 ||
        memcmp(again.scores, answers->scores, sizeof(again.scores)) != 0)
        fail("load", "the group from the file gives other answers");
    printf(
        "Dumped to a file and loaded from it: %d rows, the same ids and the same score bits.\n\n",
        (int)size);
    VEK_release(loaded);
}

static void compare(const Answers* floats, const Answers* integers) {
    const struct {
        const char* what;
        double a, b;
    } lines[] = {
        {"right nearest neighbours", count_right(floats), count_right(integers)},
        {"memory of the group, KB", (double)floats->memory / 1e3, (double)integers->memory / 1e3},
        {"us a query, all in one call", 1e6 * floats->batch_time, 1e6 * integers->batch_time},
        {"us a query, one by one", 1e6 * floats->single_time, 1e6 * integers->single_time},
    };
    size_t i;
    printf("%-30s %10s %10s %12s\n", "", "float32", "int8", "float / int8");
    for (i = 0; i < sizeof(lines) / sizeof(lines[0]); ++i)
        printf("%-30s %10.1f %10.1f %12.2f\n", lines[i].what, lines[i].a, lines[i].b,
               lines[i].a / lines[i].b);
}

int main(int argc, char** argv) {
    const char* folder = argc > 1 ? argv[1] : "data";
    static Answers float_answers, int8_answers;
    Features floats = {"fashion128", "f32", VEK_INDEX_BRUTE_FORCE_FLOAT32, sizeof(float), 0, 0,
                       {0}};
    Features integers = {"fashion128i8", "i8", VEK_INDEX_BRUTE_FORCE_INT8, 1, 0, 0, {0}};
    const char* version;
    VEKContext group;

    read_file(folder, "fashion128", "base", "ids.u64", row_ids, sizeof(row_ids));
    read_file(folder, "fashion128", "base", "labels.u8", row_labels, sizeof(row_labels));
    read_file(folder, "fashion128", "query", "labels.u8", query_labels, sizeof(query_labels));
    VEK_get_version(&version);
    printf("libvekfind %s: %d pictures of clothes, %d floats each, %d queries\n\n", version, ROWS,
           DIMENSIONS, QUERIES);

    load(&floats, folder);
    group = run(&floats, &float_answers);
    go_through_file(group, &floats, &float_answers);
    VEK_release(group);

    printf("The same pictures as 8-bit integers\n\n");
    load(&integers, folder);
    VEK_release(run(&integers, &int8_answers));
    compare(&float_answers, &int8_answers);

    free(floats.rows);
    free(floats.queries);
    free(integers.rows);
    free(integers.queries);
    return 0;
}
