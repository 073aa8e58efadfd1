#include "search/result.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <tuple>

namespace search {

namespace {

size_t count_places(size_t nr_query, size_t k) {
    if (k > 0 && nr_query > std::numeric_limits<size_t>::max() / sizeof(Match) / k)
        throw std::bad_alloc();
    return nr_query * k;
}

}  // namespace

Result::Result(size_t queries, size_t places)
    : nr_query(queries), k(places), matches(count_places(queries, places)) {}

bool is_better(const Match& a, const Match& b) {
    const bool a_is_nan = std::isnan(a.squared_distance);
    const bool b_is_nan = std::isnan(b.squared_distance);
    if (a_is_nan || b_is_nan)
        return std::tie(a_is_nan, a.id) < std::tie(b_is_nan, b.id);
    return std::tie(a.squared_distance, a.id) < std::tie(b.squared_distance, b.id);
}

void merge(Result& into, const Result& from) {
    std::vector<Match> both(2 * into.k);
    for (size_t query = 0; query < into.nr_query; ++query) {
        Match* best = into.of_query(query);
        const Match* other = from.of_query(query);
        std::merge(best, best + into.k, other, other + into.k, both.begin(), is_better);
        std::copy_n(both.begin(), into.k, best);
    }
}

}  // namespace search
