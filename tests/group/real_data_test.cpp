// The ten nearest rows of real queries are those of the reference files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <map>
#include <set>

#include "tests/group/group_test_util.h"

namespace {

constexpr size_t PLACES = 10;

template <typename T>
std::vector<T> read(const std::string& name) {
    std::ifstream file(std::string(VEKFIND_DATA_DIR) + "/" + name, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    EXPECT_FALSE(bytes.empty() || bytes.size() % sizeof(T)) << name;
    std::vector<T> values(bytes.size() / sizeof(T));
    std::copy_n(bytes.data(), values.size() * sizeof(T),
                static_cast<char*>(static_cast<void*>(values.data())));
    return values;
}

// How an element type and the distances of its sets are named in the files.
template <typename T>
struct Form;
template <>
struct Form<float> {
    using Distance = double;
    static constexpr const char* FEATURES = ".f32";
    static constexpr const char* DISTANCES = ".f64";
};
template <>
struct Form<int8_t> {
    using Distance = int32_t;
    static constexpr const char* FEATURES = ".i8";
    static constexpr const char* DISTANCES = ".i32";
};

template <typename T>
struct DataSet {
    using Distance = typename Form<T>::Distance;
    std::vector<T> base, queries;
    std::vector<uint64_t> ids, nearest;
    std::vector<Distance> d2, next_d2;
    std::map<uint64_t, size_t> row_of;

    explicit DataSet(const std::string& name)
        : base(read<T>(name + "-base" + Form<T>::FEATURES)),
          queries(read<T>(name + "-query" + Form<T>::FEATURES)),
          ids(read<uint64_t>(name + "-base.ids.u64")),
          nearest(read<uint64_t>(name + "-gt10.ids.u64")),
          d2(read<Distance>(name + "-gt10.d2" + Form<T>::DISTANCES)),
          next_d2(read<Distance>(name + "-gt10.next_d2" + Form<T>::DISTANCES)) {
        for (size_t row = 0; row < ids.size(); ++row)
            row_of[ids[row]] = row;
    }
    size_t dim() const { return base.size() / ids.size(); }
    size_t nr_query() const { return next_d2.size(); }

    double distance(size_t query, uint64_t id) const {
        const T* a = &queries[query * dim()];
        const T* b = &base[row_of.at(id) * dim()];
        double sum = 0;
        for (size_t i = 0; i < dim(); ++i)
            sum += std::pow(static_cast<double>(a[i]) - static_cast<double>(b[i]), 2);
        return sum;
    }
    // What the search ranks by, as a distance: integers lose a half of each odd squared norm.
    double ranked_distance(size_t query, uint64_t id) const {
        if (std::is_same_v<T, float>)
            return distance(query, id);
        return distance(query, id) - odd_norm(&queries[query * dim()]) -
               odd_norm(&base[row_of.at(id) * dim()]);
    }

private:
    int odd_norm(const T* row) const {
        int sum = 0;
        for (size_t i = 0; i < dim(); ++i)
            sum += static_cast<int>(row[i]) * static_cast<int>(row[i]);
        return sum % 2;
    }
};

// Integers: the lost halves may exchange rows whose distances differ by one, and no others.
void expect_nearest(const DataSet<int8_t>& set, size_t query, const uint64_t* found) {
    double last = -1e9;
    for (size_t i = 0; i < PLACES; ++i) {
        ASSERT_EQ(set.row_of.count(found[i]), 1u);
        const double ranked = set.ranked_distance(query, found[i]);
        EXPECT_GE(ranked, last) << "place " << i;
        last = ranked;
        EXPECT_NEAR(set.distance(query, found[i]), set.d2[query * PLACES + i], 1.0)
            << "place " << i;
    }
    const std::set<uint64_t> ours(found, found + PLACES);
    EXPECT_EQ(ours.size(), PLACES);
    for (size_t i = 0; i < PLACES; ++i) {
        if (set.d2[query * PLACES + i] + 1 < set.next_d2[query]) {
            EXPECT_EQ(ours.count(set.nearest[query * PLACES + i]), 1u) << "place " << i;
        }
    }
}

void expect_nearest(const DataSet<float>& set, size_t query, const uint64_t* found) {
    std::vector<uint64_t> ours(found, found + PLACES);
    const uint64_t* reference = &set.nearest[query * PLACES];
    const double* d2 = &set.d2[query * PLACES];
    for (size_t i = 0; i < PLACES; ++i) {
        ASSERT_EQ(set.row_of.count(ours[i]), 1u);
        // Equal distances stand in the order of the search, any other in that of the reference.
        ASSERT_NEAR(set.distance(query, ours[i]), d2[i], 1e-12 * (1 + d2[i])) << "place " << i;
    }
    // Only rows as far away as the last one may be others, and only if it ties with the eleventh.
    std::vector<uint64_t> sure;
    for (size_t i = 0; i < PLACES; ++i) {
        if (d2[i] < set.next_d2[query])
            sure.push_back(reference[i]);
    }
    std::sort(ours.begin(), ours.end());
    std::sort(sure.begin(), sure.end());
    EXPECT_TRUE(std::includes(ours.begin(), ours.end(), sure.begin(), sure.end()));
    EXPECT_EQ(std::unique(ours.begin(), ours.end()), ours.end());
}

template <typename T>
void expect_reference(const std::string& name, size_t rows, size_t dim) {
    SCOPED_TRACE(name);
    const DataSet<T> set(name);
    ASSERT_EQ(set.ids.size(), rows);
    ASSERT_EQ(set.dim(), dim);
    ASSERT_EQ(set.nr_query(), 100u);
    const Group group(std::is_same_v<T, float> ? Group::settings(dim) : Group::int8_settings(dim));
    ASSERT_EQ(group.insert(set.ids, set.base), VEK_OK);
    Query query;
    query.bytes.resize(set.queries.size() * sizeof(T));
    std::memcpy(query.bytes.data(), set.queries.data(), query.bytes.size());
    query.nr_query = set.nr_query();
    query.k = PLACES;
    query.options.sorted = 1;
    const Found found = group.search(query);
    for (size_t q = 0; q < set.nr_query(); ++q) {
        SCOPED_TRACE("query " + std::to_string(q));
        expect_nearest(set, q, &found.ids[q * PLACES]);
    }
}

TEST(RealData, TheTenNearestAreThoseOfTheReference) {
    expect_reference<float>("fashion128", 2000, 128);
    expect_reference<float>("digits64", 1697, 64);
    expect_reference<int8_t>("fashion128i8", 2000, 128);
    expect_reference<int8_t>("digits64i8", 1697, 64);
}

}  // namespace
