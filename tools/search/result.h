// What searches find, and how the finds of several shards become one result: by squared distance,
// in double, then by id. Similarities are carried along and decide nothing: they saturate, so rows
// at different distances often have the same one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "vekfind/vekfind.h"

namespace search {

// As it is, it also travels between the ranks of vekfind-mpi.
struct Match {
    uint64_t id = VEK_INVALID_ID_VALUE;
    double squared_distance = std::numeric_limits<double>::quiet_NaN();
    float score = -1;

    bool is_used() const { return id != VEK_INVALID_ID_VALUE; }
};

// Query q has places q * k to q * k + k - 1: best first, then unused ones.
struct Result {
    Result(size_t queries, size_t places);

    Match* of_query(size_t query) { return matches.data() + query * k; }
    const Match* of_query(size_t query) const { return matches.data() + query * k; }

    size_t nr_query, k;
    std::vector<Match> matches;
};

// A strict order of all matches: those whose distance is NaN come last, and unused places after
// them.
bool is_better(const Match& a, const Match& b);

// Keeps the best k of both for each query. The two have the same queries and k, and no common id.
void merge(Result& into, const Result& from);

// The squared distance of two rows, each difference and the sum in double.
template <typename T>
double squared_distance(const T* a, const T* b, size_t dim) {
    double sum = 0;
    for (size_t i = 0; i < dim; ++i) {
        const double difference = static_cast<double>(a[i]) - static_cast<double>(b[i]);
        sum += difference * difference;
    }
    return sum;
}

}  // namespace search
