/*
 * libvekfind: exact one-to-many search over feature vectors. This header is the manual.
 *
 * A feature group holds rows: a feature (a vector of floats or of 8-bit integers), a 64-bit id and,
 * if wanted, a tag of a fixed number of bytes. A search compares every query with every row and
 * returns the ids of the best k rows whose similarity reaches a threshold. No row is left out; how
 * exact the distances are stands under "Precision".
 *
 * Example: the row nearest to (3, 3) is id 8, at squared distance 1.
 *
 *     #include <stdio.h>
 *     #include <vekfind/vekfind.h>
 *
 *     int main(void) {
 *         float rows[2][2] = {{0, 0}, {3, 4}}, query[2] = {3, 3}, score;
 *         uint64_t ids[2] = {7, 8}, found;
 *         VEKFeatureGroupSettings settings = {.feature_size = sizeof(query),
 *                                             .comparison = {.scale = 1, .bias = -4}};
 *         VEKFeatureGroupSearchResult result = {.scores = &score, .ids = &found};
 *         VEKContext group;
 *         if (VEK_make_feature_group_context(&settings, &group) != VEK_OK)
 *             return 1;
 *         VEK_insert_features_to_feature_group(group, (const uint8_t*)rows, ids, NULL, 2, NULL);
 *         VEK_search_feature_group(group, (const uint8_t*)query, 1, 1, 0.0f, NULL, NULL, NULL,
 *                                  &result);
 *         printf("id %d, similarity %.3f\n", (int)found, score);  // id 8, similarity 0.953
 *         VEK_release(group);
 *     }
 *
 * Layout. Features and tags are passed as bytes: row after row, `feature_size` or `tag_size` bytes
 * each, no padding between rows and none at the end. Buffers of features, tags, ids and scores may
 * start at any address. Numbers have the byte order of the machine.
 *
 * Ids. Any 64-bit number but VEK_INVALID_ID_VALUE (all bits set), which marks unused places of a
 * result. An id stands at most once in a group.
 *
 * Scores. With d2 the squared Euclidean distance of query and row, the similarity is
 *     1 / (1 + exp(scale * d2 + bias))
 * with the two constants of VEKComparisonAlgorithm: a falling curve from 1 / (1 + exp(bias)) at
 * distance 0 through 0.5 at d2 = -bias / scale towards 0. `scale` must be positive for the curve to
 * fall; rows are selected by smallest d2 whatever its sign. The score of a pair does not depend on
 * the batch of queries, on the other rows or on the address of a buffer: the bits are the same.
 *
 * Calibration. Take d2 of many pairs that are the same thing and of many that are not. A logistic
 * regression of "the same" on d2 gives P = 1 / (1 + exp(scale * d2 + bias)), which is the curve
 * (Platt, Probabilistic outputs for support vector machines, 1999). By hand: with a the d2 that
 * shall have similarity 0.9 and b > a the one that shall have 0.1, scale = 4.394 / (b - a) and
 * bias = -scale * (a + b) / 2. Features multiplied by f, before rounding to integers say, have
 * f * f times the d2, so scale is divided by f * f.
 *
 * Precision. Of floats, d2 is computed in 32 bits as |q|^2 + |r|^2 - 2 q.r, so its rounding error
 * is in proportion to |q|^2 + |r|^2, also where d2 is small: features far from the origin compared
 * with their spread lose digits. 10,000 rows of 128 normal elements of deviation 1, 200 queries:
 *     mean of the elements          0      10       100     1,000
 *     of the ten nearest, right   100 %   100 %    97.9 %    18.9 %
 * d2 may also come out below 0, and a similarity above that of distance 0. Remedy: subtract the
 * mean row from all rows and queries beforehand. That changes no distance, and makes 100 % of the
 * last column. Of 8-bit integers, d2 is 2 * (floor(|q|^2 / 2) + floor(|r|^2 / 2) - q.r), exact but
 * for the two halves that odd squared norms lose, and then rounded to a float.
 *
 * NaN. Elements that are NaN, infinite, or so large that a squared norm leaves the 32-bit floats,
 * can make a distance NaN. It passes every threshold, and the order of a result that holds one
 * means nothing. Nothing is checked here; a caller who cannot rule it out keeps a row or query only
 * if the sum of the squares of its elements, in float, is at most FLT_MAX (false for NaN).
 *
 * Order. With `sorted` greater than 0 a result runs from best to worst. Otherwise it is a binary
 * heap with the worst kept row first: counting from 1, the entry at p is no better than those at 2p
 * and 2p + 1; this saves the sort. Rows of equal score: the order is fixed by the contents of the
 * group and the history of inserts and deletes, not by the ids, and a repeated search repeats it.
 * Where equal scores meet at place k, the row stored later is kept. A delete moves the last row
 * into the gap, so it changes what is "later".
 *
 * Threads. Groups are independent of each other: any calls on different groups may run together. On
 * one group there are four kinds of calls, named at each function:
 * - searching: any number at once; the group takes them one after the other, predicates included.
 * - reading: may run together with searching and reading calls.
 * - changing: runs alone; the caller keeps every other call on that group away until it returns.
 * - free: may run beside any call, as long as the group, where there is one, exists.
 * Since searches of a group take turns, a plain mutex of the caller around all calls on it costs
 * little. A readers-writer lock that prefers readers, as std::shared_mutex and pthread_rwlock_t do
 * on Linux, can keep an insert waiting for ever while searches overlap. To search on several cores,
 * spread the rows over several groups or give each thread a group of its own.
 *
 * Ownership. The caller owns a context from the make call to VEK_release, and every buffer it
 * passes. The library keeps no pointer to a buffer, path or record after a call returns. Texts it
 * returns are static.
 *
 * Statuses. A function that can fail returns a VEKStatus. VEK_NULL_POINTER means that the context
 * or an argument marked (required) was null; nothing has happened then, and `*out` of a make
 * function is as it was. Of other pointers nothing is checked: null is for those that are said to
 * take it, and a crash for the rest. Null `options` mean all fields 0. A context is not checked
 * beyond null, so a released one must not be used. VEK_INTERNAL_ERROR means a feature_size below
 * one element, or a file that cannot be created or written (a mistyped path, say); anything else
 * would be a defect of this library.
 *
 * Memory. Lack of the memory that a call's rows, queries or results ask for is VEK_UNKNOWN_ERROR,
 * and so is a product of sizes that does not fit the machine. A call that fails so leaves the group
 * as it was. The few small objects of fixed size behind a group have no such way out: the process
 * stops. At rest a row takes feature_size + tag_size bytes and 32 to 52 more: 4 for its norm, 8 for
 * its id, 20 to 40 in the index of ids. Beyond that, part of the last block of rows is unused; ids
 * and tags that came in small inserts may have twice the room they need, and deletes leave all
 * their room, until VEK_shrink_feature_group.
 *
 * Limits. At most 2^32 - 1 rows in a group. `k` above 1073741823 or `nr_query` above 107374182 is
 * VEK_UNKNOWN_ERROR, when the group has rows. Integer distances are exact for rows of up to 66051
 * elements; sums over longer ones may leave 32 bits and wrap. On 32-bit Arm a distance is wrong,
 * too, where a query and a row both hold -128 at elements i and i + 8 of a run of 16: keep features
 * within -127 and 127 there. A search needs a few megabytes, whatever the number of rows, and about
 * 1 KB for each query beside its features. The group keeps that memory for the next search, up to
 * half as much again where one search needs a little more than the one before, until
 * VEK_shrink_feature_group. With a predicate on tags a search takes, for its own time, a bit for
 * each pair of a query and a row.
 *
 * Counts of zero. An insert, delete or search of nothing checks its arguments as always and does
 * nothing.
 *
 * C++. No exception of the library leaves it. See VEKTagPredicate for exceptions of a caller's
 * function.
 *
 * Kinds. A group of 8-bit integers lives in one process: it is neither dumped nor loaded, keeps the
 * comparison constants it was made with, cannot be reset, and averages nothing; those calls return
 * VEK_UNSUPPORTED. Clustered kinds of index, models and training do not exist here; what asks for
 * them stands at the end of this header.
 *
 * Environment. VEK_TENSOR_BLOCK_SIZE, a positive decimal number, sets the rows per memory block of
 * the groups made from then on (8192 if unset or no such number). It changes memory and speed,
 * never a result.
 */
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

/* ---- Statuses ------------------------------------------------------------------------------ */

typedef int32_t VEKStatus;

/* The numbers are fixed, gaps included. Those marked (reserved) are returned by no call today. */
enum {
    VEK_OK = 0,
    VEK_INTERNAL_ERROR = 1,    /* rows without elements, or a file that could not be created or
                                  written; otherwise a defect of this library */
    VEK_UNKNOWN_ERROR = 2,     /* lack of memory, a size or count beyond the limits, or an exception
                                  derived from std::exception out of a caller's predicate */
    VEK_NULL_POINTER = 3,      /* a required pointer was null */
    VEK_UNEXPECTED_CONFIG = 4, /* a file of another version */
    VEK_UNEXPECTED_MODEL = 5,  /* (reserved) */
    VEK_BROKEN_FILE = 6,       /* a file ended early, or could not be read */
    VEK_OUT_OF_RANGE = 7,      /* (reserved) */
    VEK_INVALID_SETTINGS = 8,  /* settings that no group can have */
    VEK_FILE_NOT_FOUND = 9,    /* a file could not be opened for reading, for any reason */
    VEK_INVALID_ARGUMENT = 10, /* a value that the call cannot work with */
    VEK_INVALID_OBJECT_TYPE = 11,   /* (reserved) */
    VEK_UNSUPPORTED = 12,           /* this library, or this kind of group, does not offer it */
    VEK_MISSING_MAP_ELEMENT = 14,   /* (reserved) */
    VEK_UNKNOWN_GLOBAL_OPTION = 15, /* (reserved) */
    VEK_DUPLICATED_ID = 17, /* an id twice in one call, or one that the group holds already */
    VEK_INVALID_ID = 18,    /* the reserved id, all bits set */
    VEK_ID_NOT_FOUND = 19   /* an id that the group does not hold */
};

/* The name of a status, e.g. "VEK_DUPLICATED_ID"; "UNKNOWN ERRORCODE" for any other number. The
 * text is static. Threads: free. */
VEK_API const char* VEK_errorcode_to_string(int code);

/* ---- Records ------------------------------------------------------------------------------- */

#define VEK_INVALID_ID_VALUE UINT64_MAX

typedef struct VEKOpaque* VEKContext; /* handle of a group */

/* Values of VEKFeatureGroupSettings.device. */
enum { VEK_DEVICE_CPU = 0, VEK_DEVICE_35XX = 1 /* refused: VEK_UNSUPPORTED */ };

/* Values of VEKFeatureGroupSettings.index_type. */
enum {
    VEK_INDEX_BRUTE_FORCE_FLOAT32 = 0, /* features of 32-bit floats, exhaustive search */
    VEK_INDEX_BRUTE_FORCE_35XX = 1,    /* refused: VEK_UNSUPPORTED */
    VEK_INDEX_IVFPQ = 2,               /* refused: VEK_UNSUPPORTED */
    VEK_INDEX_BRUTE_FORCE_INT8 = 3     /* features of signed 8-bit integers, exhaustive search */
};

/* Values of VEKComparisonAlgorithm.method. */
enum { VEK_COMPARISON_SIGMOID_L2 = 0 };

/* How a distance becomes a similarity; see "Scores" above. There are no defaults: see
 * "Calibration". */
typedef struct VEKComparisonAlgorithm {
    int32_t method; /* VEK_COMPARISON_SIGMOID_L2; checked by a search on a group that has rows */
    float scale;    /* slope on the squared distance, positive */
    float bias;     /* offset; usually negative */
} VEKComparisonAlgorithm;

/* What a group is made from. Set unused fields to 0; the reserved words are kept and returned as
 * they are. */
typedef struct VEKFeatureGroupSettings {
    int32_t device; /* VEK_DEVICE_CPU */
    uint32_t reserved_a[2];
    uint32_t feature_size; /* bytes a feature row: 4 times the number of floats, or the number of
                              8-bit integers. Rows of floats that are passed follow each other by
                              the whole floats in it: 6 is one float, and steps of 4 bytes */
    uint32_t tag_size;     /* bytes a tag; 0: the rows have no tags */
    VEKComparisonAlgorithm comparison;
    int32_t index_type; /* VEK_INDEX_BRUTE_FORCE_FLOAT32 or VEK_INDEX_BRUTE_FORCE_INT8 */
    uint32_t reserved_b[8];
} VEKFeatureGroupSettings;

/* `encrypted` in the records below: not 0 means that each feature row went through the following
 * transform, which a second pass undoes. It hides features from a glance, no more: the key is here.
 * The library undoes it on a private copy; a group stores plain rows only. All sums wrap at the
 * width of their type.
 *
 *     void transform(uint8_t* row, uint32_t feature_size) {
 *         uint8_t s[256], i = 0, j = 0, a;
 *         uint32_t x = 0xB5C90F37u ^ feature_size, skip = 0, n;
 *         for (n = 0; n < 256; ++n)
 *             s[n] = (uint8_t)n;
 *         for (n = 0; n <= 256; ++n) {
 *             x ^= x << 13, x ^= x >> 17, x ^= x << 5;
 *             if (n == 256)
 *                 break;
 *             j = (uint8_t)(j + s[n] + (x >> (8 * n & 24)));
 *             a = s[n], s[n] = s[j], s[j] = a;
 *         }
 *         skip = (x & 4095) + 800;
 *         for (j = 0, n = 0; n < skip + feature_size; ++n) {
 *             a = s[++i], j = (uint8_t)(j + a), s[i] = s[j], s[j] = a;
 *             if (n >= skip)
 *                 row[n - skip] ^= s[(uint8_t)(a + s[i])];
 *         }
 *     }
 */
typedef struct VEKFeatureGroupSearchOptions {
    int32_t sorted;    /* greater than 0: best first; otherwise heap order, see "Order" above */
    int32_t encrypted; /* the queries are encrypted */
} VEKFeatureGroupSearchOptions;

/* The caller sets the two arrays, each with nr_query * k places; the search sets the rest. */
typedef struct VEKFeatureGroupSearchResult {
    size_t nr_query; /* set to the call's nr_query, also by a search that fails */
    size_t k;        /* set to the call's k, also by a search that fails */
    float* scores;   /* similarities: query q has places q * k to q * k + k - 1; unused places -1 */
    uint64_t* ids;   /* ids at the same places; unused places VEK_INVALID_ID_VALUE */
} VEKFeatureGroupSearchResult;

/* A caller's filter: a result greater than 0 keeps the row whose tag (tag_size bytes, any
 * alignment, valid during the call) it is shown. Called on the searching thread, for every pair of
 * query and row, queries in order, before any score is computed: so it must not change the queries,
 * and a search that lacks memory may fail after it. It must not call into the same group: that
 * would wait for itself. If it leaves by an exception, the search is over, its result arrays
 * untouched and the group ready for the next: one derived from std::exception becomes
 * VEK_UNKNOWN_ERROR, any other passes through to the caller of the search. */
typedef int (*VEKTagPredicate)(void* context, const uint8_t* tag);

typedef struct VEKFeatureGroupInsertOptions {
    int32_t encrypted;        /* the rows are encrypted */
    int32_t replace_existing; /* not 0: ids that the group holds are deleted first; 0: they are
                                 refused */
} VEKFeatureGroupInsertOptions;

typedef struct VEKFeatureGroupAverageOptions {
    int32_t encrypted; /* the rows are encrypted; must not be 0 */
} VEKFeatureGroupAverageOptions;

/* Training is refused by every kind of group, so this record has no contents. Pass NULL. */
typedef struct VEKFeatureGroupTrainOptions VEKFeatureGroupTrainOptions;

/* ---- Making and releasing groups ----------------------------------------------------------- */

/*
 * Makes an empty group. Release it with VEK_release.
 * - settings (required): copied
 * - out (required): receives the new context, or null on failure
 * Returns: VEK_OK; VEK_NULL_POINTER; VEK_UNSUPPORTED for an index type or device that is refused,
 *   or an unknown index type; VEK_INVALID_SETTINGS for an unknown device; VEK_INTERNAL_ERROR for a
 *   feature_size below one element; VEK_UNKNOWN_ERROR for lack of memory.
 * Threads: free.
 */
VEK_API VEKStatus VEK_make_feature_group_context(const VEKFeatureGroupSettings* settings,
                                                 VEKContext* out);

/*
 * Makes a group from a file of VEK_dump_feature_group_to_file: the same rows in the same order. The
 * settings rule; the file only has to agree with their feature_size and tag_size.
 * - path (required)
 * - settings (required): as for VEK_make_feature_group_context
 * - out (required): receives the new context, or null on failure
 * Returns: VEK_OK; VEK_NULL_POINTER; VEK_UNSUPPORTED, VEK_INVALID_SETTINGS for an unknown device,
 *   and VEK_INTERNAL_ERROR, as for VEK_make_feature_group_context; VEK_FILE_NOT_FOUND;
 *   VEK_BROKEN_FILE for a file that ends early or cannot be read; VEK_UNEXPECTED_CONFIG for one of
 *   another version; VEK_INVALID_SETTINGS for other sizes or an unknown form; VEK_DUPLICATED_ID,
 *   VEK_INVALID_ID for ids that no group can hold; VEK_INVALID_ARGUMENT for a file with tags and
 *   without rows; VEK_UNKNOWN_ERROR for lack of memory or more than 536870911 rows. For the time of
 *   the call the file's content is in memory beside the group.
 * Threads: free.
 */
VEK_API VEKStatus VEK_make_feature_group_context_from_file(const char* path,
                                                           const VEKFeatureGroupSettings* settings,
                                                           VEKContext* out);

/*
 * Ends a group and frees all that it holds; the context is dangling afterwards. Null is a no-op.
 * A destructor of a static object may call it while the process exits.
 * Threads: changing.
 */
VEK_API void VEK_release(VEKContext handle);

/* ---- Settings ------------------------------------------------------------------------------ */

/*
 * Replaces the comparison constants. Nothing is recomputed; the next search uses them.
 * - algorithm (required): copied; its values are not checked, a wrong method shows at that search
 * Returns: VEK_OK; VEK_NULL_POINTER; VEK_UNSUPPORTED from a group of 8-bit integers.
 * Threads: changing.
 */
VEK_API VEKStatus VEK_set_comparison_algorithm(VEKContext ctx,
                                               const VEKComparisonAlgorithm* algorithm);

/*
 * Copies the settings that the group was made from, with the comparison constants in force.
 * - settings (required): written on success
 * Returns: VEK_OK; VEK_NULL_POINTER.
 * Threads: reading.
 */
VEK_API VEKStatus VEK_get_feature_group_settings(VEKContext ctx, VEKFeatureGroupSettings* settings);

/*
 * Tells the number of rows.
 * - size (required): written on success
 * Returns: VEK_OK; VEK_NULL_POINTER.
 * Threads: reading.
 */
VEK_API VEKStatus VEK_get_feature_group_size(VEKContext ctx, size_t* size);

/* ---- Search -------------------------------------------------------------------------------- */

/*
 * Finds for each query the at most k rows that are most similar to it, among those whose similarity
 * is not below a threshold. An empty group gives unused places only.
 * - features (required): nr_query rows of feature_size bytes
 * - k: places a query in the result; may exceed the size of the group; 0 writes nothing
 * - threshold: least similarity; at or below 0, or NaN, every row passes, at or above 1 none does.
 *   A query or row with a NaN passes every threshold, also 1: see "NaN"
 * - predicate_contexts: nr_query pointers, one for each query, handed to the predicate; must not be
 *   null where a predicate is called
 * - predicate: null for none; ignored by a group without tags
 * - options: null for defaults
 * - result (required): see VEKFeatureGroupSearchResult
 * Returns: VEK_OK, also when nothing is found; VEK_NULL_POINTER; VEK_INVALID_ARGUMENT for a wrong
 *   comparison method, unless the group is empty; VEK_UNKNOWN_ERROR for lack of memory, for k or
 *   nr_query beyond the limits, and for an exception of the predicate.
 * On failure: nr_query and k of the result are set, its arrays untouched, the group unchanged.
 * Threads: searching. Many queries in one call cost less than as many calls.
 */
VEK_API VEKStatus VEK_search_feature_group(VEKContext ctx, const uint8_t* features, size_t nr_query,
                                           size_t k, float threshold,
                                           void* const* predicate_contexts,
                                           VEKTagPredicate predicate,
                                           const VEKFeatureGroupSearchOptions* options,
                                           VEKFeatureGroupSearchResult* result);

/* ---- Rows ---------------------------------------------------------------------------------- */

/*
 * Appends rows. A row that replaces another is appended too, it does not take its place.
 * - features (required): nr rows of feature_size bytes; neither normalised nor checked
 * - ids (required): nr ids
 * - tags: nr rows of tag_size bytes; a group without tags ignores them
 * - options: null for defaults
 * Returns: VEK_OK; VEK_NULL_POINTER; VEK_INVALID_ARGUMENT for null tags when the group has tags;
 *   VEK_INVALID_ID for the reserved id; VEK_DUPLICATED_ID for an id twice in the call or, where
 *   nothing is to be replaced, an id that the group holds; VEK_UNKNOWN_ERROR for lack of memory or
 *   more rows than a group can have. Refusals within the call come before those by the group's ids;
 *   of several, the first in order of the ids is reported.
 * On failure: the group is as it was.
 * Threads: changing. One call with many rows is much faster than many calls.
 */
VEK_API VEKStatus VEK_insert_features_to_feature_group(VEKContext ctx, const uint8_t* features,
                                                       const uint64_t* ids, const uint8_t* tags,
                                                       size_t nr,
                                                       const VEKFeatureGroupInsertOptions* options);

/*
 * Deletes rows by id, in the order given; each time the group's last row moves into the gap. The
 * memory stays for later inserts until VEK_shrink_feature_group.
 * - ids (required): nr ids
 * Returns: VEK_OK; VEK_NULL_POINTER; VEK_ID_NOT_FOUND for an id that the group does not hold;
 *   VEK_DUPLICATED_ID for an id twice in the call; VEK_UNKNOWN_ERROR for lack of memory.
 * On failure: the group is as it was.
 * Threads: changing.
 */
VEK_API VEKStatus VEK_delete_features_from_feature_group(VEKContext ctx, const uint64_t* ids,
                                                         size_t nr);

/*
 * Makes room for rows ahead, so that inserts up to there ask for no more memory to keep them.
 * - size: rows in total, those present included; a smaller number changes nothing
 * Returns: VEK_OK; VEK_NULL_POINTER (ctx); VEK_UNKNOWN_ERROR for lack of memory or more rows than a
 *   group can have.
 * On failure: the group is as it was.
 * Threads: changing.
 */
VEK_API VEKStatus VEK_reserve_feature_group_size(VEKContext ctx, size_t size);

/*
 * Gives back memory that the present rows do not need, that of earlier searches included: the next
 * search takes its own anew. What stays are one block of rows beyond those in use and, in a group
 * that never had more rows than one block, all room in that block. Where memory to move ids or tags
 * into a smaller buffer is lacking, the larger one stays, and that is no failure.
 * Returns: VEK_OK; VEK_NULL_POINTER (ctx).
 * Threads: changing.
 */
VEK_API VEKStatus VEK_shrink_feature_group(VEKContext ctx);

/*
 * Deletes all rows. The settings and the comparison constants in force stay.
 * Returns: VEK_OK; VEK_NULL_POINTER (ctx); VEK_UNSUPPORTED from a group of 8-bit integers, which
 *   keeps its rows.
 * Threads: changing.
 */
VEK_API VEKStatus VEK_reset_feature_group(VEKContext ctx);

/* ---- Files --------------------------------------------------------------------------------- */

/*
 * Writes all rows to a file, in plain form also where they came in encrypted: ids, features and
 * tags. A file that is there is overwritten in place, so a dump that fails leaves a broken one.
 * What the system reports only when the last buffer is written is not noticed.
 * - path (required)
 * Returns: VEK_OK; VEK_NULL_POINTER; VEK_UNSUPPORTED from a group of 8-bit integers, before the
 *   file is touched; VEK_INTERNAL_ERROR for a file that cannot be created or written;
 *   VEK_UNKNOWN_ERROR for lack of memory.
 * On failure: the group is as it was.
 * Threads: reading.
 */
VEK_API VEKStatus VEK_dump_feature_group_to_file(VEKContext ctx, const char* path);

/* ---- Average ------------------------------------------------------------------------------- */

/*
 * Computes the mean of encrypted features that the caller passes, and encrypts it; of the group
 * only the row size counts. Sums run row by row in 32-bit floats; the result is not normalised, and
 * the mean of no rows is NaN in each element.
 * - features (required): nr rows of feature_size bytes
 * - options: must say that the rows are encrypted
 * - average (required): room for one row; written on success
 * Returns: VEK_OK; VEK_NULL_POINTER; VEK_INVALID_ARGUMENT without options, or for rows that are not
 *   encrypted; VEK_UNSUPPORTED from a group of 8-bit integers; VEK_UNKNOWN_ERROR for lack of
 *   memory.
 * Threads: free.
 */
VEK_API VEKStatus VEK_get_average_feature(VEKContext ctx, const uint8_t* features, size_t nr,
                                          const VEKFeatureGroupAverageOptions* options,
                                          uint8_t* average);

/* ---- Process-wide -------------------------------------------------------------------------- */

/*
 * The log level is a number kept for the application: 2 at first, any value allowed. The library
 * prints nothing at any level. `level` must not be null.
 * Threads: free; a get that runs beside a set may see either value.
 */
VEK_API void VEK_set_log_level(int level);
VEK_API void VEK_get_log_level(int* level);

/* Stores the version of the library as a static text, e.g. "v2.2.0". `version` must not be null.
 * Threads: free. */
VEK_API void VEK_get_version(const char** version);

/* ---- Calls that only refuse ---------------------------------------------------------------- */

/*
 * Models, training and clustered kinds of index: nothing below does any work, opens a file or looks
 * at arguments beyond null checks and, of the make functions, the settings.
 * Returns: VEK_NULL_POINTER for a null ctx, trained or required argument, otherwise as each says.
 * Threads: free.
 */

/* Makes a group from a model file. Required: path, settings, out, which is set to null.
 * VEK_UNSUPPORTED. */
VEK_API VEKStatus VEK_make_feature_group_context_from_model_file(
    const char* path, const VEKFeatureGroupSettings* settings, VEKContext* out);

/* Makes a group from a trained one. Required: settings, out, which is set to null.
 * VEK_UNSUPPORTED. */
VEK_API VEKStatus VEK_make_feature_group_context_from_trained_context(
    VEKContext trained, const VEKFeatureGroupSettings* settings, VEKContext* out);

/* Makes a group from a researcher's model file. Required: path, settings, out, which is set to
 * null. VEK_UNSUPPORTED for VEK_INDEX_IVFPQ and VEK_INDEX_BRUTE_FORCE_35XX; VEK_INVALID_ARGUMENT
 * for any other index type. */
VEK_API VEKStatus VEK_make_feature_group_context_from_researcher_model_file(
    const char* path, const VEKFeatureGroupSettings* settings, VEKContext* out);

/* Writes the model of a group. Required: path. VEK_UNSUPPORTED. */
VEK_API VEKStatus VEK_dump_feature_group_model_to_file(VEKContext ctx, const char* path);

/* How unevenly the rows fill the clusters: stores 1.0. `factor` must not be null. VEK_OK. */
VEK_API VEKStatus VEK_get_imbalance_factor(VEKContext ctx, float* factor);

/* How the clusters grow: any value is accepted and none has an effect. VEK_OK. */
VEK_API VEKStatus VEK_set_vector_increase_ratio(VEKContext ctx, float ratio);

/* The others return VEK_UNSUPPORTED and write nothing. */

/* Trains the clusters. Required: features. */
VEK_API VEKStatus VEK_train_feature_group(VEKContext ctx, const uint8_t* features, size_t nr,
                                          const VEKFeatureGroupTrainOptions* options);

/* The cluster of each feature. Required: features. */
VEK_API VEKStatus VEK_get_cluster_ids(VEKContext ctx, const uint8_t* features, size_t nr,
                                      const VEKFeatureGroupInsertOptions* options,
                                      size_t* cluster_ids);

/* Inserts rows whose clusters are known. Required: features, ids, cluster_ids. */
VEK_API VEKStatus VEK_insert_preassigned_features_to_feature_group(
    VEKContext ctx, const uint8_t* features, const uint64_t* ids, const size_t* cluster_ids,
    const uint8_t* tags, size_t nr, const VEKFeatureGroupInsertOptions* options);

/* Searches given clusters. Required: features, result. */
VEK_API VEKStatus VEK_search_feature_group_preassigned(
    VEKContext ctx, const uint8_t* features, size_t nr_query, float threshold,
    void* const* predicate_contexts, VEKTagPredicate predicate,
    const VEKFeatureGroupSearchOptions* options, const size_t* cluster_ids,
    const float* cluster_weights, VEKFeatureGroupSearchResult* result);

/* Bytes of the record that VEK_precompute_feature_info makes of a feature. */
VEK_API VEKStatus VEK_get_feature_info_size(VEKContext ctx, size_t* size);

/* Computes such records ahead of an insert. Required: features. */
VEK_API VEKStatus VEK_precompute_feature_info(VEKContext ctx, const uint8_t* features, size_t nr,
                                              uint8_t* info,
                                              const VEKFeatureGroupInsertOptions* options);

/* Inserts rows by their records. Required: ids. */
VEK_API VEKStatus VEK_insert_with_feature_info(VEKContext ctx, const uint8_t* info,
                                               const uint64_t* ids, const uint8_t* tags, size_t nr,
                                               const VEKFeatureGroupInsertOptions* options);

#ifdef __cplusplus
}
#endif

#endif
