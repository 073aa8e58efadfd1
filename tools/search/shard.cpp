#include "search/shard.h"

#include <algorithm>

#include "common/failure.h"
#include "features/pieces.h"

namespace search {

namespace {

template <typename T>
vekfind::Settings with_type(vekfind::Settings settings) {
    settings.is_int8 = sizeof(T) == 1;
    settings.allow_non_finite = true;  // reading has checked
    return settings;
}

// A row found for a query, before its id and distance are known.
struct Candidate {
    uint64_t place;  // in the shard
    size_t number;   // in the result
};

std::vector<Candidate> candidates_of(const vekfind::SearchResult& found) {
    std::vector<Candidate> candidates;
    for (size_t number = 0; number < found.ids.size(); ++number)
        if (found.ids[number] != VEK_INVALID_ID_VALUE)
            candidates.push_back({found.ids[number], number});
    return candidates;
}

}  // namespace

template <typename T>
Shard<T>::Shard(const std::vector<Slice>& slices, const vekfind::Settings& settings)
    : m_group(with_type<T>(settings)) {
    uint64_t nr_wanted = 0, begin = 0;
    for (const Slice& slice : slices) {
        for (uint64_t row = slice.first; row < slice.end; ++row)
            nr_wanted += slice.source->is_wanted(row);
        m_parts.push_back({slice, begin, features::open_features(slice.source->path())});
        begin += slice.end - slice.first;
    }
    try {
        m_group.reserve(static_cast<size_t>(nr_wanted));
    } catch (const vekfind::Error&) {
        throw tools::BadFile("memory is lacking for a shard of " + std::to_string(nr_wanted) +
                             " rows");
    }
    for (Part& part : m_parts)
        load(part);
}

template <typename T>
void Shard<T>::load(Part& part) {
    const Source& source = *part.slice.source;
    const uint64_t nr_rows = part.slice.end - part.slice.first;
    const size_t dim = source.dim(), most = features::rows_per_piece(dim * sizeof(T));
    std::vector<T> rows(static_cast<size_t>(std::min<uint64_t>(most, nr_rows)) * dim);
    std::vector<uint64_t> places;
    features::for_each_span(part.slice.first, nr_rows, most, [&](uint64_t first, size_t count) {
        m_nr_changed += read_rows(*part.file, source.preparation(), first, count, rows.data());
        places.clear();
        for (size_t i = 0; i < count; ++i) {
            if (!source.is_wanted(first + i))
                continue;
            if (places.size() < i)
                std::copy_n(&rows[i * dim], dim, &rows[places.size() * dim]);
            places.push_back(part.begin + (first + i - part.slice.first));
        }
        m_group.insert(places, vekfind::Features(rows.data(), places.size() * dim));
    });
}

template <typename T>
const typename Shard<T>::Part& Shard<T>::part_of(uint64_t place) const {
    const auto is_before = [](uint64_t number, const Part& part) { return number < part.begin; };
    return *(std::upper_bound(m_parts.begin(), m_parts.end(), place, is_before) - 1);
}

template <typename T>
Result Shard<T>::search(const T* queries, size_t nr_query, size_t k, float threshold) const {
    const size_t dim = m_group.settings().dim;
    vekfind::SearchOptions options;
    options.threshold = threshold;
    options.sorted = false;
    const vekfind::SearchResult found =
        m_group.search(vekfind::Features(queries, nr_query * dim), k, options);

    Result result(nr_query, k);
    std::vector<Candidate> candidates = candidates_of(found);
    // In the order of the rows: no file is read backwards, and no row twice.
    std::sort(candidates.begin(), candidates.end(),
              [](const Candidate& a, const Candidate& b) { return a.place < b.place; });
    std::vector<T> row(dim);
    uint64_t id = VEK_INVALID_ID_VALUE, place = VEK_INVALID_ID_VALUE;
    for (const Candidate& candidate : candidates) {
        if (candidate.place != place) {
            place = candidate.place;
            const Part& part = part_of(place);
            const Source& source = *part.slice.source;
            const uint64_t number = place - part.begin + part.slice.first;
            read_rows(*part.file, source.preparation(), number, 1, row.data());
            id = source.id_of(number);
        }
        const T* query = queries + candidate.number / k * dim;
        result.matches[candidate.number] = {id, squared_distance(query, row.data(), dim),
                                            found.scores[candidate.number]};
    }
    for (size_t query = 0; query < nr_query; ++query)
        std::sort(result.of_query(query), result.of_query(query) + k, is_better);
    return result;
}

template class Shard<float>;
template class Shard<int8_t>;

}  // namespace search
