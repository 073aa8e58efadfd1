// The best candidates of one query. A binary min-heap on raw scores in which every step, and with
// it the order of equal scores, is fixed: callers can observe it. Alive during one search, used by
// its thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vek {

class TopKHeap final {
public:
    // Keeps at most `k` candidates that are not below the threshold. Room is made for `capacity` of
    // them, which must not be fewer than will be kept.
    TopKHeap(size_t k, float raw_threshold, size_t capacity);

    // Takes the candidate in unless it is weaker than the threshold or, in a full heap, than the
    // weakest one kept; an equal one replaces that. Almost every candidate ends at this comparison.
    void offer(uint32_t slot, float raw) {
        if (raw < m_bar)
            return;
        accept(slot, raw);
    }
    // From best to worst instead of heap order; nothing can be offered afterwards.
    void sort();

    // What is below it is not taken in.
    float bar() const { return m_bar; }
    size_t size() const { return m_raws.size(); }
    uint32_t slot(size_t index) const { return m_slots[index]; }
    float raw(size_t index) const { return m_raws[index]; }

private:
    void accept(uint32_t slot, float raw);
    void push(uint32_t slot, float raw);
    void sift_down(uint32_t slot, float raw, size_t size);
    void place(size_t position, uint32_t slot, float raw);
    void move(size_t from, size_t to);
    float value(size_t position) const { return m_raws[position - 1]; }

    size_t m_k;
    float m_raw_threshold;
    float m_bar;  // nothing below it can come in
    // Position p of the algorithms, counted from 1, is index p - 1.
    std::vector<uint32_t> m_slots;
    std::vector<float> m_raws;
};

}  // namespace vek
