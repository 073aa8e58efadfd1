// Every status that a call on a group can return, and what a refusal leaves behind.
#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <thread>

#include "group/feature_cipher.h"
#include "tests/group/group_test_util.h"

namespace {

constexpr size_t DIM = 3;
constexpr uint32_t TAG_BYTES = 2;
constexpr uint64_t RESERVED = VEK_INVALID_ID_VALUE;
constexpr size_t MAX_K = 1073741823;
constexpr size_t MAX_QUERIES = 107374182;

const uint8_t* bytes(const void* memory) {
    return static_cast<const uint8_t*>(memory);
}

int keep_all(void*, const uint8_t*) {
    return 1;
}

class Status : public testing::Test {
protected:
    const std::vector<uint64_t> held{2, 3, 5, 7, 11};
    const std::vector<float> features = small_integers(8, DIM);
    const std::vector<uint8_t> tags = std::vector<uint8_t>(8 * TAG_BYTES, 9);
    Group group{DIM, TAG_BYTES};
    Group empty{DIM, TAG_BYTES};

    void SetUp() override { ASSERT_EQ(group.insert(held, features, tags), VEK_OK); }

    // Rows by id, slot and score: whatever a refused call might have changed.
    Found contents() const {
        Query query;
        query.features = small_integers(3, DIM, 5);
        query.nr_query = 3;
        query.k = 9;
        Found found = group.search(query);
        found.ids.push_back(group.size());
        return found;
    }

    struct Arrays {
        std::vector<float> scores = std::vector<float>(10, 0.25f);
        std::vector<uint64_t> ids = std::vector<uint64_t>(10, 99);
        VEKFeatureGroupSearchResult result{7, 7, scores.data(), ids.data()};

        bool untouched() const {
            return scores == std::vector<float>(10, 0.25f) && ids == std::vector<uint64_t>(10, 99);
        }
    };

    VEKStatus search(const Group& in, Arrays& arrays, size_t nr_query, size_t k,
                     VEKTagPredicate predicate = nullptr) const {
        void* const contexts[2] = {};
        return VEK_search_feature_group(in.context(), bytes(features.data()), nr_query, k, 0.0f,
                                        contexts, predicate, nullptr, &arrays.result);
    }

    static void set_method(const Group& of, int32_t method) {
        const VEKComparisonAlgorithm comparison{method, 1.0f, 0.0f};
        ASSERT_EQ(VEK_set_comparison_algorithm(of.context(), &comparison), VEK_OK);
    }
};

TEST_F(Status, OfWhatExhaustiveSearchDoesNotHave) {
    const uint8_t* rows = bytes(features.data());
    for (const Group* g : {&group, &empty}) {
        const VEKContext c = g->context();
        Arrays arrays;
        size_t number = 41;
        uint8_t info[64] = {77};
        float factor = 0;
        EXPECT_EQ(VEK_search_feature_group_preassigned(c, rows, 1, 0, nullptr, nullptr, nullptr,
                                                       nullptr, nullptr, &arrays.result),
                  VEK_UNSUPPORTED);
        EXPECT_TRUE(arrays.untouched() && arrays.result.nr_query == 7 && arrays.result.k == 7);
        EXPECT_EQ(VEK_get_cluster_ids(c, rows, 1, nullptr, &number), VEK_UNSUPPORTED);
        EXPECT_EQ(VEK_insert_preassigned_features_to_feature_group(c, rows, held.data(), &number,
                                                                   nullptr, 1, nullptr),
                  VEK_UNSUPPORTED);
        EXPECT_EQ(VEK_get_feature_info_size(c, nullptr), VEK_UNSUPPORTED);
        EXPECT_EQ(VEK_get_feature_info_size(c, &number), VEK_UNSUPPORTED);
        EXPECT_EQ(VEK_precompute_feature_info(c, rows, 1, info, nullptr), VEK_UNSUPPORTED);
        EXPECT_EQ(VEK_insert_with_feature_info(c, nullptr, held.data(), nullptr, 1, nullptr),
                  VEK_UNSUPPORTED);
        EXPECT_EQ(VEK_train_feature_group(c, rows, 1, nullptr), VEK_UNSUPPORTED);
        EXPECT_EQ(VEK_dump_feature_group_model_to_file(c, "/nonexistent/x"), VEK_UNSUPPORTED);
        EXPECT_EQ(number, 41u);
        EXPECT_EQ(info[0], 77);
        for (float ratio : {0.0f, -1.0f, std::nanf("")})
            EXPECT_EQ(VEK_set_vector_increase_ratio(c, ratio), VEK_OK);
        EXPECT_EQ(VEK_get_imbalance_factor(c, &factor), VEK_OK);
        EXPECT_EQ(factor, 1.0f);
    }
    EXPECT_EQ(group.size(), held.size());
}

TEST_F(Status, OfInserts) {
    const struct {
        std::vector<uint64_t> ids;
        int32_t replace;
        bool null_tags;
        VEKStatus status;
    } cases[] = {
        {{20, 21, 22}, 0, true, VEK_INVALID_ARGUMENT},
        {{20, 20, RESERVED}, 1, true, VEK_INVALID_ARGUMENT},
        {{20, 20, RESERVED}, 0, false, VEK_DUPLICATED_ID},
        {{20, RESERVED, 20}, 0, false, VEK_INVALID_ID},
        {{RESERVED, RESERVED}, 0, false, VEK_INVALID_ID},
        {{20, 21, 3}, 0, false, VEK_DUPLICATED_ID},
        {{3, 20, RESERVED}, 0, false, VEK_INVALID_ID},
        {{3, RESERVED, 20}, 1, false, VEK_INVALID_ID},
        {{3, 5, 3}, 1, false, VEK_DUPLICATED_ID},
        {{3, 3, 3, 3, 3, 3}, 1, false, VEK_DUPLICATED_ID},  // more often than there are rows
        {{20, 3, 3}, 0, false, VEK_DUPLICATED_ID},
    };
    const Found before = contents();
    for (const auto& c : cases) {
        const VEKFeatureGroupInsertOptions options{0, c.replace};
        const auto insert = [&](const VEKFeatureGroupInsertOptions* given) {
            return VEK_insert_features_to_feature_group(
                group.context(), bytes(features.data()), c.ids.data(),
                c.null_tags ? nullptr : tags.data(), c.ids.size(), given);
        };
        EXPECT_EQ(insert(&options), c.status) << "case " << &c - cases;
        if (c.replace == 0) {
            EXPECT_EQ(insert(nullptr), c.status) << "case " << &c - cases;
        }
        EXPECT_EQ(contents(), before) << "case " << &c - cases;
    }
    EXPECT_EQ(group.insert({20, 3}, small_integers(2, DIM, 8), {1, 2, 3, 4}, {0, -1}), VEK_OK);
    EXPECT_EQ(group.size(), held.size() + 1);
}

TEST_F(Status, OfErases) {
    const std::pair<std::vector<uint64_t>, VEKStatus> cases[] = {
        {{2, 99}, VEK_ID_NOT_FOUND},
        {{2, 2}, VEK_DUPLICATED_ID},
        {{RESERVED}, VEK_ID_NOT_FOUND},
        {{2, 2, 99}, VEK_DUPLICATED_ID},
        {{2, 99, 2}, VEK_ID_NOT_FOUND},
        {{11, RESERVED}, VEK_ID_NOT_FOUND},
        {{2, 3, 5, 7, 11, 2}, VEK_DUPLICATED_ID},
    };
    const Found before = contents();
    for (const auto& [ids, status] : cases) {
        EXPECT_EQ(group.erase(ids), status);
        EXPECT_EQ(contents(), before);
    }
    EXPECT_EQ(empty.erase({2}), VEK_ID_NOT_FOUND);
    EXPECT_EQ(group.erase({7, 2, 11, 3, 5}), VEK_OK);
    EXPECT_EQ(group.size(), 0u);
}

TEST_F(Status, OfSearches) {
    const struct {
        int32_t method;
        size_t nr_query, k;
        VEKStatus full, none;  // of a group with rows, of one without
    } cases[] = {
        {1, 1, 1, VEK_INVALID_ARGUMENT, VEK_OK},
        {-1, 0, 1, VEK_INVALID_ARGUMENT, VEK_OK},
        {1, MAX_QUERIES + 1, 0, VEK_INVALID_ARGUMENT, VEK_OK},
        {0, MAX_QUERIES + 1, 0, VEK_UNKNOWN_ERROR, VEK_OK},
        {0, 0, MAX_K + 1, VEK_OK, VEK_OK},
        {0, 0, SIZE_MAX, VEK_OK, VEK_OK},
    };
    for (const auto& c : cases) {
        set_method(group, c.method);
        set_method(empty, c.method);
        for (const Group* g : {&group, &empty}) {
            SCOPED_TRACE(testing::Message() << "case " << &c - cases << " size " << g->size());
            Arrays arrays;
            const VEKStatus expected = g == &group ? c.full : c.none;
            EXPECT_EQ(search(*g, arrays, c.nr_query, c.k), expected);
            EXPECT_EQ(arrays.result.nr_query, c.nr_query);
            EXPECT_EQ(arrays.result.k, c.k);
            EXPECT_EQ(arrays.untouched(), expected != VEK_OK || c.nr_query * c.k == 0);
        }
    }
    // A result of so many places is never written, so its arrays need not have them.
    for (int32_t method : {0, 1}) {
        set_method(group, method);
        Arrays arrays;
        EXPECT_EQ(search(group, arrays, 1, MAX_K + 1),
                  method == 0 ? VEK_UNKNOWN_ERROR : VEK_INVALID_ARGUMENT);
        EXPECT_TRUE(arrays.untouched() && arrays.result.k == MAX_K + 1);
    }
    set_method(group, 0);
    Arrays arrays;
    EXPECT_EQ(search(group, arrays, 2, 5), VEK_OK);
    EXPECT_FALSE(arrays.untouched());
}

// The method is looked at before the limits, also where the places of the result cannot be counted.
TEST_F(Status, OfASearchBeyondAllLimitsWithAnUnknownMethod) {
    set_method(group, 1);
    Arrays arrays;
    EXPECT_EQ(search(group, arrays, 2, SIZE_MAX), VEK_INVALID_ARGUMENT);
    EXPECT_TRUE(arrays.untouched() && arrays.result.k == SIZE_MAX);
}

TEST_F(Status, OfEmptyInput) {
    const Found before = contents();
    const uint8_t* rows = bytes(features.data());
    for (const VEKFeatureGroupInsertOptions& options :
         {VEKFeatureGroupInsertOptions{0, 0}, VEKFeatureGroupInsertOptions{1, 1}}) {
        const auto insert = [&](const uint8_t* with_tags) {
            return VEK_insert_features_to_feature_group(group.context(), rows, held.data(),
                                                        with_tags, 0, &options);
        };
        EXPECT_EQ(insert(nullptr), VEK_INVALID_ARGUMENT);
        EXPECT_EQ(insert(tags.data()), VEK_OK);
    }
    EXPECT_EQ(group.erase({}), VEK_OK);
    EXPECT_EQ(empty.erase({}), VEK_OK);
    for (const Group* g : {&group, &empty}) {
        Arrays arrays;
        EXPECT_EQ(search(*g, arrays, 0, 5), VEK_OK);
        EXPECT_EQ(search(*g, arrays, 2, 0), VEK_OK);
        EXPECT_TRUE(arrays.untouched());
    }
    EXPECT_EQ(contents(), before);
}

TEST_F(Status, OfRowsBeyondAllMemory) {
    const Found before = contents();
    EXPECT_EQ(group.reserve(SIZE_MAX), VEK_UNKNOWN_ERROR);
    // One row too many for a group; in 32 bits as many as a count can name.
    constexpr size_t TOO_MANY = sizeof(size_t) > 4 ? UINT32_MAX + uint64_t{1} : SIZE_MAX;
    EXPECT_EQ(group.reserve(TOO_MANY), VEK_UNKNOWN_ERROR);
    EXPECT_EQ(VEK_insert_features_to_feature_group(group.context(), bytes(features.data()),
                                                   held.data(), tags.data(), TOO_MANY, nullptr),
              VEK_UNKNOWN_ERROR);
    EXPECT_EQ(group.reserve(0), VEK_OK);
    EXPECT_EQ(contents(), before);
}

TEST_F(Status, OfFeatureSizes) {
    const std::pair<uint32_t, VEKStatus> cases[] = {
        {0, VEK_INTERNAL_ERROR}, {3, VEK_INTERNAL_ERROR}, {4, VEK_OK}, {6, VEK_OK}};
    for (const auto& [size, status] : cases) {
        VEKFeatureGroupSettings settings{};
        settings.feature_size = size;
        VEKContext context = group.context();
        EXPECT_EQ(VEK_make_feature_group_context(&settings, &context), status) << size;
        EXPECT_EQ(context != nullptr, status == VEK_OK) << size;
        VEK_release(context);
    }
}

// Rows of 6 bytes are one float each, a whole number of floats apart.
TEST_F(Status, ARowsOddBytesAreNoPartOfIt) {
    VEKFeatureGroupSettings settings = Group::settings(1);
    settings.feature_size = 6;
    const std::vector<float> plain{5, -3, 1, 0, 0};  // with the slack of three rows of 6 bytes
    std::vector<float> encrypted = plain;
    vek::feature_cipher(static_cast<uint8_t*>(static_cast<void*>(encrypted.data())), 3, 6, 4);
    for (int32_t insert_encrypted : {0, -1}) {
        const Group odd(settings);
        ASSERT_EQ(odd.insert({10, 11, 12}, insert_encrypted ? encrypted : plain, {},
                             {insert_encrypted, 0}),
                  VEK_OK);
        Query query;
        query.features = insert_encrypted ? plain : encrypted;
        query.nr_query = 3;
        query.options.encrypted = insert_encrypted ? 0 : -1;
        EXPECT_EQ(odd.search(query).ids, (std::vector<uint64_t>{10, 11, 12}));
    }
}

TEST_F(Status, APredicateMayThrow) {
    const std::pair<VEKTagPredicate, bool> predicates[] = {
        {[](void*, const uint8_t*) -> int { throw 5; }, true},
        {[](void*, const uint8_t*) -> int { throw std::runtime_error("no"); }, false},
        // Not a lack of memory of the search's, which would begin again.
        {[](void*, const uint8_t*) -> int {
             static int calls = 0;
             EXPECT_EQ(++calls, 1);
             throw std::bad_alloc();
         },
         false},
    };
    const Found before = contents();
    for (const auto& [predicate, is_foreign] : predicates) {
        Arrays arrays;
        if (is_foreign) {
            EXPECT_THROW(search(group, arrays, 2, 3, predicate), int);
        } else {
            EXPECT_EQ(search(group, arrays, 2, 3, predicate), VEK_UNKNOWN_ERROR);
        }
        EXPECT_TRUE(arrays.untouched());
        EXPECT_EQ(arrays.result.nr_query, 2u);
        EXPECT_EQ(arrays.result.k, 3u);
        // A lock that was kept would hold the other thread up for ever.
        std::thread([&] {
            Arrays later;
            EXPECT_EQ(search(group, later, 2, 3, keep_all), VEK_OK);
            EXPECT_EQ(later.ids[9], 99u);
            EXPECT_NE(later.ids[5], 99u);
            EXPECT_EQ(contents(), before);
        }).join();
    }
}

TEST_F(Status, APredicateWithoutTagsIsNeverCalled) {
    const Group plain(DIM);
    ASSERT_EQ(plain.insert(held, features), VEK_OK);
    Arrays arrays;
    EXPECT_EQ(search(plain, arrays, 2, 5, [](void*, const uint8_t*) -> int { throw 5; }), VEK_OK);
    EXPECT_EQ(search(plain, arrays, 2, 5, [](void*, const uint8_t*) { return 0; }), VEK_OK);
    EXPECT_NE(arrays.ids[0], RESERVED);
}

}  // namespace
