#include "group/brute_force_engine.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <utility>

#include "group/feature_cipher.h"
#include "group/unaligned.h"
#include "store/adopted_memory.h"
#include "store/error.h"

namespace vek {
namespace {

constexpr size_t MAX_K = 1073741823;
constexpr size_t MAX_QUERIES = 107374182;
constexpr size_t NORM_PIECE_BYTES = size_t{1} << 18;

// Rows whose norms are computed in one run: a piece that stays in the cache in the width that norms
// are computed in, at most a block.
size_t norm_piece_rows(const CompareKind& kind, const SmartTensor& features) {
    const size_t elements = features.row_bytes() / kind.feature_dtype.element_bytes();
    const size_t wide_row = size_product(elements, kind.score_dtype.element_bytes());
    return std::clamp(NORM_PIECE_BYTES / wide_row, size_t{1}, features.block_size());
}

// Places of the result; std::length_error where no array could have as many.
size_t result_places(const SearchCall& call) {
    const size_t places = size_product(call.nr_query, call.k);
    size_product(places, sizeof(uint64_t));
    return places;
}

}  // namespace

BruteForceEngine::BruteForceEngine(const CompareKind& kind, EngineFunctions functions,
                                   size_t feature_dim, size_t feature_bytes, size_t tag_bytes)
    : m_functions(std::move(functions)),
      m_feature_bytes(feature_bytes),
      m_tag_bytes(tag_bytes),
      m_comp_node(orb::CompNode::load("cpu:default")),
      m_rows(m_comp_node, kind.feature_dtype.element_bytes(), feature_dim, tag_bytes),
      m_graphs(m_comp_node, kind, feature_dim, norm_piece_rows(kind, m_rows.features())) {}

// ---- search

void BruteForceEngine::search(const SearchCall& call, const VEKComparisonAlgorithm& comparison,
                              VEKFeatureGroupSearchResult* result) {
    const std::lock_guard<std::mutex> lock(m_search_mutex);
    result->nr_query = call.nr_query;
    result->k = call.k;
    ResultWriter writer(*result);
    if (size() == 0) {
        writer.pad(0, result_places(call));
        return;
    }
    check_search(call, comparison);
    if (call.nr_query == 0)
        return;

    const ScoreMap score_map(comparison);
    const bool encrypted = call.options && call.options->encrypted != 0;
    const Buffer plain = decrypted(call.features, call.nr_query, encrypted);
    const float raw_threshold = score_map.raw_threshold(call.threshold);
    const uint8_t* queries = plain ? plain.get() : call.features;
    // Scores come block by block, but a predicate is called query by query: so before them. What it
    // throws is not a lack of memory.
    KeptRows kept;
    if (m_tag_bytes != 0 && call.predicate) {
        with_enough_memory([&] { kept = KeptRows(call.nr_query, size()); });
        kept.ask(call.predicate, call.predicate_contexts, m_rows.tags(), m_tag_bytes);
    }
    std::vector<TopKHeap> heaps;
    with_enough_memory([&] {
        heaps = std::vector<TopKHeap>();  // those of an attempt that failed go first
        heaps = make_heaps(call, raw_threshold);
        compare_all(queries, call.nr_query, [&](size_t first, const kern::RawTensor& scores) {
            select_candidates(scores, first, kept, heaps);
        });
    });

    if (call.options && call.options->sorted > 0)
        std::for_each(heaps.begin(), heaps.end(), [](TopKHeap& heap) { heap.sort(); });
    for (size_t query = 0; query < heaps.size(); ++query)
        writer.write_row(query * call.k, call.k, heaps[query], m_rows.ids(), score_map);
}

void BruteForceEngine::check_search(const SearchCall& call,
                                    const VEKComparisonAlgorithm& comparison) const {
    if (comparison.method != VEK_COMPARISON_SIGMOID_L2)
        throw Error(VEK_INVALID_ARGUMENT, "comparison method not found",
                    m_functions.search.c_str());
    if (call.nr_query != 0 && (call.k > MAX_K || call.nr_query > MAX_QUERIES))
        throw std::length_error("search");
    result_places(call);
}

std::vector<TopKHeap> BruteForceEngine::make_heaps(const SearchCall& call,
                                                   float raw_threshold) const {
    std::vector<TopKHeap> heaps;
    heaps.reserve(call.nr_query);
    for (size_t query = 0; query < call.nr_query; ++query)
        heaps.emplace_back(call.k, raw_threshold, std::min(call.k, size()));
    return heaps;
}

// The graphs keep the memory of earlier runs, and more than those needed. Where memory is lacking
// it is given back and `use` begins again; one that fails twice leaves none behind.
template <typename Use>
void BruteForceEngine::with_enough_memory(const Use& use) {
    try {
        return use();
    } catch (const std::bad_alloc&) {
    } catch (const std::length_error&) {
    }
    m_graphs.release_memory();
    try {
        use();
    } catch (const std::exception&) {
        m_graphs.release_memory();
        throw;
    }
}

void BruteForceEngine::compare_all(const uint8_t* queries, size_t nr_query,
                                   const CompareGraphs::ScoreSink& sink) {
    const auto blocks = m_rows.features().get_all_elements();
    const auto sqr_blocks = m_rows.sqrs().get_all_elements();
    m_graphs.bind_queries(queries, nr_query);
    size_t offset = 0;
    for (size_t i = 0; i < blocks.size(); ++i) {
        const size_t rows = blocks[i].second;
        if (i >= sqr_blocks.size() || sqr_blocks[i].second != rows)
            throw Error(VEK_INTERNAL_ERROR, "base and its sqr conflict!",
                        m_functions.search.c_str());
        m_graphs.compare_block(*blocks[i].first, *sqr_blocks[i].first, rows, offset, sink);
        offset += rows;
    }
}

// Null for rows that are plain as they are.
BruteForceEngine::Buffer BruteForceEngine::decrypted(const uint8_t* features, size_t nr,
                                                     bool encrypted) const {
    if (!encrypted)
        return nullptr;
    return decrypted_rows(features, nr, m_feature_bytes, m_rows.features().row_bytes());
}

// ---- changes

void BruteForceEngine::reserve(size_t rows) {
    with_enough_memory([&] { m_rows.reserve(rows); });
}

void BruteForceEngine::shrink() {
    m_graphs.release_memory();
    m_rows.shrink();
}

void BruteForceEngine::insert(const uint64_t* ids, const uint8_t* features, const uint8_t* tags,
                              size_t nr, const VEKFeatureGroupInsertOptions* options) {
    if (m_tag_bytes != 0 && !tags)
        throw Error(VEK_INVALID_ARGUMENT, "tags can not be nullptr", m_functions.insert.c_str());
    if (nr == 0)
        return;
    if (nr > GroupRows::MAX_ROWS)
        throw std::length_error("rows of a group");
    with_enough_memory([&] { insert_rows(ids, features, tags, nr, options); });
}

// All that can fail comes before the first change that lasts. Room for the norms is first: a number
// out of all proportion is found out before so many ids are read.
void BruteForceEngine::insert_rows(const uint64_t* ids, const uint8_t* features,
                                   const uint8_t* tags, size_t nr,
                                   const VEKFeatureGroupInsertOptions* options) {
    const Buffer sqrs(new uint8_t[size_product(nr, m_rows.sqrs().row_bytes())]);
    const bool replace = options && options->replace_existing != 0;
    IdClaim claim = m_rows.claim(ids, nr);
    enter_ids(claim, replace);
    const bool encrypted = options && options->encrypted != 0;
    const Buffer plain = decrypted(features, nr, encrypted);
    const uint8_t* rows = plain ? plain.get() : features;
    compute_sqrs(rows, nr, sqrs.get());
    m_rows.commit(m_rows.prepare_append(claim.rows_to_be()));
    m_rows.append(claim, rows, sqrs.get(), tags);
}

// That an id is held is told after all of the call have been looked at.
void BruteForceEngine::enter_ids(IdClaim& claim, bool replace) const {
    for_each_id(
        claim.ids(), claim.nr(), [&](uint64_t id) { claim.prefetch(id); },
        [&](uint64_t id, size_t i) {
            if (id == IdTable::RESERVED_ID)
                throw Error(VEK_INVALID_ID, "invalid id", m_functions.insert.c_str());
            if (!claim.enter(id, i))
                throw Error(VEK_DUPLICATED_ID, "duplicated id", m_functions.insert.c_str());
        });
    if (!replace && !claim.held().empty())
        throw Error(VEK_DUPLICATED_ID, "id already exists", m_functions.insert.c_str());
}

void BruteForceEngine::compute_sqrs(const uint8_t* features, size_t nr, uint8_t* sqrs) {
    const size_t norm_bytes = m_rows.sqrs().row_bytes();
    const auto keep = [&](size_t first, const orb::HostTensorND& norms) {
        std::copy_n(norms.raw_ptr(), norms.shape(0) * norm_bytes, &sqrs[first * norm_bytes]);
    };
    m_graphs.compute_sqrs(features, nr, keep);
}

void BruteForceEngine::erase(const uint64_t* ids, size_t nr) {
    with_enough_memory([&] { check_erase_ids(ids, nr); });
    m_rows.erase(ids, nr);
}

// The reserved id is refused as one that the group does not hold.
void BruteForceEngine::check_erase_ids(const uint64_t* ids, size_t nr) const {
    IdTable seen;
    seen.reserve(std::min(nr, size()));  // others are refused before they get there
    for_each_id(
        ids, nr,
        [&](uint64_t id) {
            m_rows.prefetch(id);
            seen.prefetch(id);
        },
        [&](uint64_t id, size_t) {
            if (!m_rows.holds(id))
                throw Error(VEK_ID_NOT_FOUND, "id not found", m_functions.erase.c_str());
            if (seen.insert(id, 0))
                throw Error(VEK_DUPLICATED_ID, "duplicated id", m_functions.erase.c_str());
        });
}

}  // namespace vek
