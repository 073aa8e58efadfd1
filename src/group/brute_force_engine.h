// Exhaustive search and the changes of a group's content, for every kind of brute-force group. A
// group owns one engine and adds its settings and refusals. Any number of threads may search; they
// take turns. Everything else needs the caller's own exclusion from all calls on the group.
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>

#include "group/compare_graphs.h"
#include "group/group_rows.h"
#include "group/selection.h"
#include "vekfind/vekfind.h"

namespace vek {

// Signatures of the group's operations, for the errors that are raised on their behalf.
struct EngineFunctions {
    std::string search;
    std::string insert;
    std::string erase;
};

// The arguments of a search but the result.
struct SearchCall {
    const uint8_t* features;
    size_t nr_query;
    size_t k;
    float threshold;
    VEKTagPredicate predicate;
    void* const* predicate_contexts;
    const VEKFeatureGroupSearchOptions* options;
};

class BruteForceEngine final {
public:
    // Rows of the caller follow each other by the elements that are stored, `feature_dim` of them;
    // `feature_bytes` is the length that encryption works on, at least as long.
    BruteForceEngine(const CompareKind& kind, EngineFunctions functions, size_t feature_dim,
                     size_t feature_bytes, size_t tag_bytes);

    // Throws `Error`, std::bad_alloc or std::length_error: then only the two counts of the result
    // are written, as also when a predicate throws.
    void search(const SearchCall& call, const VEKComparisonAlgorithm& comparison,
                VEKFeatureGroupSearchResult* result);
    // These throw the same and leave the group as it was. Before one fails for lack of memory, what
    // searches keep is given back.
    void insert(const uint64_t* ids, const uint8_t* features, const uint8_t* tags, size_t nr,
                const VEKFeatureGroupInsertOptions* options);
    void erase(const uint64_t* ids, size_t nr);
    void reserve(size_t rows);

    // Gives back what memory it can, that of searches too.
    void shrink();
    void reset() { m_rows.clear(); }
    size_t size() const { return m_rows.size(); }
    const GroupRows& rows() const { return m_rows; }

private:
    using Buffer = std::unique_ptr<uint8_t[]>;

    void check_search(const SearchCall& call, const VEKComparisonAlgorithm& comparison) const;
    std::vector<TopKHeap> make_heaps(const SearchCall& call, float raw_threshold) const;
    template <typename Use>
    void with_enough_memory(const Use& use);
    void compare_all(const uint8_t* queries, size_t nr_query, const CompareGraphs::ScoreSink& sink);
    void insert_rows(const uint64_t* ids, const uint8_t* features, const uint8_t* tags, size_t nr,
                     const VEKFeatureGroupInsertOptions* options);
    void enter_ids(IdClaim& claim, bool replace) const;
    void check_erase_ids(const uint64_t* ids, size_t nr) const;
    Buffer decrypted(const uint8_t* features, size_t nr, bool encrypted) const;
    // A norm for each row.
    void compute_sqrs(const uint8_t* features, size_t nr, uint8_t* sqrs);

    EngineFunctions m_functions;
    size_t m_feature_bytes;
    size_t m_tag_bytes;
    std::mutex m_search_mutex;
    orb::CompNode m_comp_node;
    GroupRows m_rows;
    CompareGraphs m_graphs;
};

}  // namespace vek
