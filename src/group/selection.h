// The last steps of a search: choosing the best candidates of each query from its raw scores, and
// writing them into the caller's result. No state; called on the searching thread.
#pragma once

#include <cstddef>
#include <vector>

#include "group/score_map.h"
#include "group/top_k_heap.h"
#include "kernels/types/layout.h"
#include "store/adopted_memory.h"
#include "vekfind/vekfind.h"

namespace vek {

// Which rows a caller's predicate keeps for each query, a bit for each pair; all rows unless it was
// asked.
class KeptRows final {
public:
    KeptRows() = default;
    // Room for the answers; nothing is kept yet.
    KeptRows(size_t nr_query, size_t rows);

    // Asks about every pair, query by query, slot by slot. What a predicate throws passes through.
    void ask(VEKTagPredicate predicate, void* const* contexts, const uint8_t* tags,
             size_t tag_bytes);
    bool keeps(size_t query, size_t slot) const {
        if (m_words.empty())
            return true;
        return (m_words[query * words_of_query() + slot / BITS] << slot % BITS >> (BITS - 1)) != 0;
    }

private:
    static constexpr size_t BITS = 64;  // of a word, whose highest is the first row's
    size_t words_of_query() const { return m_rows / BITS + 1; }

    size_t m_rows = 0;
    std::vector<uint64_t, LargeAllocator<uint64_t>> m_words;
};

// Offers each slot that is kept, from `first` up, to the heap of each query, in the order of the
// queries. `scores`, dense Float32 or Int32 in host memory, has a row for each heap and a column
// for each slot.
void select_candidates(const kern::RawTensor& scores, size_t first, const KeptRows& kept,
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
