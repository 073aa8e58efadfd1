// The ten nearest rows of real queries are those of the reference files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <map>

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

struct DataSet {
    std::vector<float> base, queries;
    std::vector<uint64_t> ids, nearest;
    std::vector<double> d2, next_d2;
    std::map<uint64_t, size_t> row_of;

    explicit DataSet(const std::string& name)
        : base(read<float>(name + "-base.f32")),
          queries(read<float>(name + "-query.f32")),
          ids(read<uint64_t>(name + "-base.ids.u64")),
          nearest(read<uint64_t>(name + "-gt10.ids.u64")),
          d2(read<double>(name + "-gt10.d2.f64")),
          next_d2(read<double>(name + "-gt10.next_d2.f64")) {
        for (size_t row = 0; row < ids.size(); ++row)
            row_of[ids[row]] = row;
    }
    size_t dim() const { return base.size() / ids.size(); }
    size_t nr_query() const { return next_d2.size(); }

    double distance(size_t query, uint64_t id) const {
        const float* a = &queries[query * dim()];
        const float* b = &base[row_of.at(id) * dim()];
        double sum = 0;
        for (size_t i = 0; i < dim(); ++i)
            sum += std::pow(double{a[i]} - double{b[i]}, 2);
        return sum;
    }
};

void expect_nearest(const DataSet& set, size_t query, const uint64_t* found) {
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

TEST(RealData, TheTenNearestAreThoseOfTheReference) {
    const std::tuple<const char*, size_t, size_t> sets[] = {{"fashion128", 2000, 128},
                                                            {"digits64", 1697, 64}};
    for (const auto& [name, rows, dim] : sets) {
        SCOPED_TRACE(name);
        const DataSet set(name);
        ASSERT_EQ(set.ids.size(), rows);
        ASSERT_EQ(set.dim(), dim);
        ASSERT_EQ(set.nr_query(), 100u);
        const Group group(dim);
        ASSERT_EQ(group.insert(set.ids, set.base), VEK_OK);
        Query query;
        query.features = set.queries;
        query.nr_query = set.nr_query();
        query.k = PLACES;
        query.options.sorted = 1;
        const Found found = group.search(query);
        for (size_t q = 0; q < set.nr_query(); ++q) {
            SCOPED_TRACE("query " + std::to_string(q));
            expect_nearest(set, q, &found.ids[q * PLACES]);
        }
    }
}

}  // namespace
