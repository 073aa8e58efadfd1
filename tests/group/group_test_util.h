// Groups through the C interface, with results as values.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include "vekfind/vekfind.h"

// The emulator runs the address sanitizer's code a hundred times slower than a host. Tests of very
// many cases take one in so many there.
#if defined(__arm__) && defined(__SANITIZE_ADDRESS__)
constexpr unsigned ONE_CASE_IN = 5;
#else
constexpr unsigned ONE_CASE_IN = 1;
#endif

// A copy of an array, `offset` bytes behind an aligned address.
class OddBytes {
public:
    template <typename T>
    explicit OddBytes(const std::vector<T>& values, size_t offset = 1)
        : OddBytes(values.size() * sizeof(T), offset) {
        if (!values.empty())
            std::memcpy(bytes(), values.data(), values.size() * sizeof(T));
    }
    explicit OddBytes(size_t size, size_t offset = 1) : m_offset(offset), m_bytes(offset + size) {}

    uint8_t* bytes() { return m_bytes.data() + m_offset; }
    template <typename T>
    T* as() {
        return static_cast<T*>(static_cast<void*>(bytes()));
    }
    template <typename T>
    std::vector<T> values() const {
        std::vector<T> result((m_bytes.size() - m_offset) / sizeof(T));
        if (!result.empty())
            std::memcpy(result.data(), &m_bytes[m_offset], result.size() * sizeof(T));
        return result;
    }
    void fill(uint8_t byte) { std::fill(m_bytes.begin(), m_bytes.end(), byte); }
    bool all(uint8_t byte) const {
        return std::all_of(m_bytes.begin(), m_bytes.end(), [=](uint8_t b) { return b == byte; });
    }

private:
    size_t m_offset;
    std::vector<uint8_t> m_bytes;
};

inline uint32_t bits(float value) {
    uint32_t word;
    std::memcpy(&word, &value, sizeof(word));
    return word;
}

// Scores as bits, so that equality means the same bits.
struct Found {
    std::vector<uint64_t> ids;
    std::vector<uint32_t> scores;

    friend bool operator==(const Found& a, const Found& b) {
        return a.ids == b.ids && a.scores == b.scores;
    }
};

struct Query {
    std::vector<float> features;
    std::vector<uint8_t> bytes;  // in place of the features, where they are no floats
    size_t nr_query = 1;
    size_t k = 1;
    float threshold = 0.0f;
    VEKTagPredicate predicate = nullptr;
    std::vector<void*> contexts;
    VEKFeatureGroupSearchOptions options{};
    size_t offset = 1;  // of all arrays
};

// A search with its arrays, so that nothing but the library allocates when it is called. Without
// options where they say nothing.
class Search {
public:
    explicit Search(const Query& q) : Search(q, q.nr_query * q.k) {}
    Search(const Query& q, size_t places)
        : query(q),
          m_features(q.bytes.empty() ? OddBytes(q.features, q.offset)
                                     : OddBytes(q.bytes, q.offset)),
          m_ids(places * sizeof(uint64_t), q.offset),
          m_scores(places * sizeof(float), q.offset) {}

    VEKStatus operator()(VEKContext context) {
        m_ids.fill(UNTOUCHED);
        m_scores.fill(UNTOUCHED);
        m_result = {7, 7, m_scores.as<float>(), m_ids.as<uint64_t>()};
        const bool has_options = query.options.sorted != 0 || query.options.encrypted != 0;
        return VEK_search_feature_group(context, m_features.bytes(), query.nr_query, query.k,
                                        query.threshold, query.contexts.data(), query.predicate,
                                        has_options ? &query.options : nullptr, &m_result);
    }
    // The counts of the result are set by any search that is looked at, the arrays by one that
    // succeeds.
    bool counts_set() const { return m_result.nr_query == query.nr_query && m_result.k == query.k; }
    bool untouched() const { return m_ids.all(UNTOUCHED) && m_scores.all(UNTOUCHED); }
    Found found() const { return {m_ids.values<uint64_t>(), m_scores.values<uint32_t>()}; }

    Query query;

private:
    static constexpr uint8_t UNTOUCHED = 9;
    OddBytes m_features, m_ids, m_scores;
    VEKFeatureGroupSearchResult m_result{};
};

// Groups made while it lives have this block size; 0 is the default.
class BlockSize {
public:
    explicit BlockSize(size_t rows) {
        if (rows != 0)
            setenv("VEK_TENSOR_BLOCK_SIZE", std::to_string(rows).c_str(), 1);
    }
    ~BlockSize() { unsetenv("VEK_TENSOR_BLOCK_SIZE"); }
    BlockSize(const BlockSize&) = delete;
    BlockSize& operator=(const BlockSize&) = delete;
};

class Group {
public:
    static VEKFeatureGroupSettings settings(size_t dim, uint32_t tag_size = 0) {
        VEKFeatureGroupSettings s{};
        s.feature_size = static_cast<uint32_t>(dim * sizeof(float));
        s.tag_size = tag_size;
        s.comparison = {VEK_COMPARISON_SIGMOID_L2, 0.25f, -3.0f};
        return s;
    }
    static VEKFeatureGroupSettings int8_settings(size_t dim, uint32_t tag_size = 0) {
        VEKFeatureGroupSettings s = settings(dim, tag_size);
        s.feature_size = static_cast<uint32_t>(dim);
        s.index_type = VEK_INDEX_BRUTE_FORCE_INT8;
        s.comparison.scale = 1.37e-4f / static_cast<float>(dim);
        return s;
    }

    explicit Group(const VEKFeatureGroupSettings& s) {
        EXPECT_EQ(VEK_make_feature_group_context(&s, &m_context), VEK_OK);
    }
    explicit Group(size_t dim, uint32_t tag_size = 0) : Group(settings(dim, tag_size)) {}
    Group(const std::string& path, const VEKFeatureGroupSettings& s) {
        EXPECT_EQ(VEK_make_feature_group_context_from_file(path.c_str(), &s, &m_context), VEK_OK);
    }
    ~Group() { VEK_release(m_context); }
    Group(const Group&) = delete;
    Group& operator=(const Group&) = delete;

    VEKContext context() const { return m_context; }
    size_t size() const {
        size_t size = ~size_t{0};
        EXPECT_EQ(VEK_get_feature_group_size(m_context, &size), VEK_OK);
        return size;
    }

    // Without options where they say nothing.
    template <typename T = float>
    VEKStatus insert(const std::vector<uint64_t>& ids, const std::vector<T>& features,
                     const std::vector<uint8_t>& tags = {},
                     const VEKFeatureGroupInsertOptions& options = {}, size_t offset = 1) const {
        OddBytes feature_bytes(features, offset);
        OddBytes id_bytes(ids, offset);
        OddBytes tag_bytes(tags, offset);
        const bool has_options = options.encrypted != 0 || options.replace_existing != 0;
        const VEKStatus status = VEK_insert_features_to_feature_group(
            m_context, feature_bytes.bytes(), id_bytes.as<uint64_t>(), tag_bytes.bytes(),
            ids.size(), has_options ? &options : nullptr);
        EXPECT_TRUE(feature_bytes.values<T>() == features) << "the caller's rows stay";
        return status;
    }
    VEKStatus erase(const std::vector<uint64_t>& ids) const {
        OddBytes id_bytes(ids);
        return VEK_delete_features_from_feature_group(m_context, id_bytes.as<uint64_t>(),
                                                      ids.size());
    }
    VEKStatus reserve(size_t rows) const { return VEK_reserve_feature_group_size(m_context, rows); }

    Found search(const Query& query) const {
        Search search(query);
        EXPECT_EQ(search(m_context), VEK_OK);
        EXPECT_TRUE(search.counts_set());
        return search.found();
    }

private:
    VEKContext m_context = nullptr;
};

// Features of `rows` rows that differ and are exact in floats.
inline std::vector<float> small_integers(size_t rows, size_t dim, unsigned seed = 1) {
    std::vector<float> features(rows * dim);
    for (float& value : features) {
        seed = seed * 1664525u + 1013904223u;
        value = static_cast<float>(static_cast<int>(seed >> 28) - 8);
    }
    return features;
}

// For the best k rows of each query.
inline Search make_search(size_t nr_query, size_t dim, size_t k = 1) {
    Query query;
    query.features = small_integers(nr_query, dim, 3);
    query.nr_query = nr_query;
    query.k = k;
    return Search(query);
}

// Such rows as the bytes that a group with these settings takes.
inline std::vector<uint8_t> feature_bytes(const VEKFeatureGroupSettings& settings, size_t rows,
                                          unsigned seed = 1) {
    if (settings.index_type != VEK_INDEX_BRUTE_FORCE_INT8)
        return OddBytes(small_integers(rows, settings.feature_size / sizeof(float), seed))
            .values<uint8_t>();
    std::vector<uint8_t> bytes;
    for (float value : small_integers(rows, settings.feature_size, seed))
        bytes.push_back(static_cast<uint8_t>(static_cast<int8_t>(value)));
    return bytes;
}

inline std::vector<uint64_t> running_ids(size_t count, uint64_t first = 0) {
    std::vector<uint64_t> ids(count);
    std::iota(ids.begin(), ids.end(), first);
    return ids;
}
