// The last steps of a search: choosing the best candidates of each query from its raw scores, and
// writing them into the caller's result. No state; called on the searching thread.
#pragma once

#include <cstddef>
#include <vector>

#include "group/score_map.h"
#include "group/top_k_heap.h"
#include "kernels/layout.h"
#include "vekfind/vekfind.h"

namespace vek {

// A caller's predicate over the tags of the rows; without one every row is kept.
struct TagFilter {
    VEKTagPredicate predicate = nullptr;
    void* const* contexts = nullptr;  // one for each query
    const uint8_t* tags = nullptr;    // of slot 0
    size_t tag_bytes = 0;
};

// Offers each slot, from `first` up, to the heap of each query, in the order of the queries.
// `scores`, dense Float32 or Int32 in host memory, has a row for each heap and a column for each
// slot. What a predicate throws passes through.
void select_candidates(const kern::RawTensor& scores, size_t first, const TagFilter& filter,
                       std::vector<TopKHeap>& heaps);

// Writes places of the caller's arrays, which may be unaligned.
class ResultWriter final {
public:
    explicit ResultWriter(const VEKFeatureGroupSearchResult& result)
        : m_ids(result.ids), m_scores(result.scores) {}

    // `k` places from `first` on: what the heap holds, then padding. `slot_ids` holds the id of
    // each slot.
    void write_row(size_t first, size_t k, const TopKHeap& heap, const uint64_t* slot_ids,
                   const ScoreMap& score_map);
    // The unused places from `first` up to `end`.
    void pad(size_t first, size_t end);

private:
    void put(size_t place, uint64_t id, float score);

    void* m_ids;
    void* m_scores;
};

}  // namespace vek
