#include "group/selection.h"

#include <algorithm>

#include "group/id_table.h"
#include "group/unaligned.h"
#include "kernels/check.h"
#include "kernels/simd/f32x4_functions.h"

namespace vek {
namespace {

using kern::simd::F32x4;
using kern::simd::I32x4;

F32x4 load_as_float(const float* scores) {
    return kern::simd::load(scores);
}
F32x4 load_as_float(const int32_t* scores) {
    return kern::simd::to_float(kern::simd::load(scores));
}

constexpr size_t SCAN_WIDTH = 16;

// Whether all of SCAN_WIDTH scores are below the bar. "No" may be wrong for a denormal score, which
// counts as zero on NEON; "yes" never is, and a NaN is not below anything.
template <typename Raw>
bool all_below(const Raw* scores, F32x4 bar) {
    const auto below = [&](size_t first) {
        return kern::simd::greater(bar, load_as_float(scores + first));
    };
    return kern::simd::all_set((below(0) & below(4)) & (below(8) & below(12)));
}

// Integer scores become floats before anything is compared, so that those which are one float tie.
// Almost all scores are below the bar, so they are looked at many at a time.
template <typename Raw>
void select_row(const Raw* row, size_t columns, size_t first, size_t query, const KeptRows& kept,
                TopKHeap& heap) {
    size_t column = 0;
    const auto offer_up_to = [&](size_t end) {
        for (; column < end; ++column) {
            if (kept.keeps(query, first + column))
                heap.offer(static_cast<uint32_t>(first + column), static_cast<float>(row[column]));
        }
    };
    while (column + SCAN_WIDTH <= columns) {
        const F32x4 bar = kern::simd::broadcast(heap.bar());
        while (column + SCAN_WIDTH <= columns && all_below(row + column, bar))
            column += SCAN_WIDTH;
        offer_up_to(std::min(column + SCAN_WIDTH, columns));
    }
    offer_up_to(columns);
}

template <typename Raw>
void select_rows(const Raw* row, size_t columns, size_t first, const KeptRows& kept,
                 std::vector<TopKHeap>& heaps) {
    for (size_t query = 0; query < heaps.size(); ++query, row += columns)
        select_row(row, columns, first, query, kept, heaps[query]);
}

// The answers about a run of rows, that about the last one in the lowest bit. As little as can be
// done beside the calls; by itself, so that all variables stay in registers across them.
[[gnu::noinline]] uint64_t ask_about(const uint8_t* tag, const uint8_t* end, size_t tag_bytes,
                                     VEKTagPredicate predicate, void* context) {
    uint64_t answers = 0;
    for (; tag != end; tag += tag_bytes)
        answers = 2 * answers + (predicate(context, tag) > 0);
    return answers;
}

}  // namespace

KeptRows::KeptRows(size_t nr_query, size_t rows) : m_rows(rows) {
    m_words.resize(size_product(nr_query, words_of_query()));
}

void KeptRows::ask(VEKTagPredicate predicate, void* const* contexts, const uint8_t* tags,
                   size_t tag_bytes) {
    const size_t nr_query = m_words.size() / words_of_query();
    for (size_t query = 0; query < nr_query; ++query) {
        uint64_t* word = &m_words[query * words_of_query()];
        for (size_t first = 0; first < m_rows; first += BITS) {
            const size_t nr = std::min(BITS, m_rows - first);
            const uint8_t* begin = tags + first * tag_bytes;
            const uint64_t answers =
                ask_about(begin, begin + nr * tag_bytes, tag_bytes, predicate, contexts[query]);
            *word++ = answers << (BITS - nr);
        }
    }
}

void select_candidates(const kern::RawTensor& scores, size_t first, const KeptRows& kept,
                       std::vector<TopKHeap>& heaps) {
    const kern::TensorLayout& layout = scores.layout;
    KERN_CHECK(layout.ndim == 2 && layout[0] == heaps.size() && layout.is_dense());
    if (layout.dtype == kern::DType::Float32()) {
        select_rows(scores.ptr<const float>(), layout[1], first, kept, heaps);
    } else {
        KERN_CHECK(layout.dtype == kern::DType::Int32());
        select_rows(scores.ptr<const int32_t>(), layout[1], first, kept, heaps);
    }
}

void ResultWriter::put(size_t place, uint64_t id, float score) {
    write_unaligned(m_ids, place, id);
    write_unaligned(m_scores, place, score);
}

void ResultWriter::pad(size_t first, size_t end) {
    for (size_t place = first; place < end; ++place)
        put(place, IdTable::RESERVED_ID, -1.0f);
}

void ResultWriter::write_row(size_t first, size_t k, const TopKHeap& heap, const uint64_t* slot_ids,
                             const ScoreMap& score_map) {
    for (size_t i = 0; i < heap.size(); ++i)
        put(first + i, slot_ids[heap.slot(i)], score_map.similarity(heap.raw(i)));
    pad(first + heap.size(), first + k);
}

}  // namespace vek
