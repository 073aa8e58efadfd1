// The ten nearest rows of real queries are those of the reference files.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <numeric>
#include <set>
#include <type_traits>

#include "tests/group/group_test_util.h"
#include "tests/store/file_test_util.h"

namespace {

constexpr size_t PLACES = 10;

template <typename T>
std::vector<T> read(const std::string& name) {
    const std::string bytes = bytes_of_file(VEKFIND_DATA_DIR "/" + name);
    EXPECT_FALSE(bytes.empty() || bytes.size() % sizeof(T)) << name;
    std::vector<T> values(bytes.size() / sizeof(T));
    std::memcpy(values.data(), bytes.data(), values.size() * sizeof(T));
    return values;
}

template <typename T>
struct DataSet {
    static constexpr bool IS_FLOAT = std::is_same_v<T, float>;
    // By how much the distances of two rows that are ranked as equal may differ: integers lose a
    // half of each odd squared norm.
    static constexpr double LOST = IS_FLOAT ? 0 : 1;
    using Distance = std::conditional_t<IS_FLOAT, double, int32_t>;
    std::vector<T> base, queries;
    std::vector<uint64_t> ids, nearest;
    std::vector<Distance> d2, next_d2;
    std::map<uint64_t, size_t> row_of;

    explicit DataSet(const std::string& name)
        : base(read<T>(name + "-base" + (IS_FLOAT ? ".f32" : ".i8"))),
          queries(read<T>(name + "-query" + (IS_FLOAT ? ".f32" : ".i8"))),
          ids(read<uint64_t>(name + "-base.ids.u64")),
          nearest(read<uint64_t>(name + "-gt10.ids.u64")),
          d2(read<Distance>(name + "-gt10.d2" + (IS_FLOAT ? ".f64" : ".i32"))),
          next_d2(read<Distance>(name + "-gt10.next_d2" + (IS_FLOAT ? ".f64" : ".i32"))) {
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
    // What the search ranks by, as a distance.
    double ranked_distance(size_t query, uint64_t id) const {
        const auto odd_norm = [this](const T* row) {
            return std::inner_product(row, row + dim(), row, 0) % 2;
        };
        const int lost = odd_norm(&queries[query * dim()]) + odd_norm(&base[row_of.at(id) * dim()]);
        return distance(query, id) - lost;
    }
};

// Rows whose distances are one may stand in any order, integers also where they differ by what was
// lost and are ranked so. What is nearer than the eleventh is among the ten.
template <typename T>
void expect_nearest(const DataSet<T>& set, size_t query, const uint64_t* found) {
    constexpr double LOST = DataSet<T>::LOST;
    const std::set<uint64_t> ours(found, found + PLACES);
    EXPECT_EQ(ours.size(), PLACES);
    for (size_t i = 0; i < PLACES; ++i) {
        SCOPED_TRACE("place " + std::to_string(i));
        ASSERT_EQ(set.row_of.count(found[i]), 1u);
        const size_t place = query * PLACES + i;
        const double d2 = set.d2[place];
        EXPECT_NEAR(set.distance(query, found[i]), d2, LOST + 1e-12 * (1 + d2));
        if (LOST != 0 && i > 0) {
            EXPECT_GE(set.ranked_distance(query, found[i]),
                      set.ranked_distance(query, found[i - 1]));
        }
        if (d2 + LOST < set.next_d2[query]) {
            EXPECT_EQ(ours.count(set.nearest[place]), 1u);
        }
    }
}

template <typename T>
void expect_reference(const std::string& name, size_t rows, size_t dim) {
    SCOPED_TRACE(name);
    const DataSet<T> set(name);
    ASSERT_EQ(set.ids.size(), rows);
    ASSERT_EQ(set.dim(), dim);
    ASSERT_EQ(set.nr_query(), 100u);
    const Group group(set.IS_FLOAT ? Group::settings(dim) : Group::int8_settings(dim));
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
