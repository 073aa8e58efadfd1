#include "group/top_k_heap.h"

#include <cmath>

namespace vek {

TopKHeap::TopKHeap(size_t k, float raw_threshold, size_t capacity)
    : m_k(k), m_raw_threshold(raw_threshold), m_bar(raw_threshold) {
    m_slots.reserve(capacity);
    m_raws.reserve(capacity);
}

void TopKHeap::place(size_t position, uint32_t slot, float raw) {
    m_slots[position - 1] = slot;
    m_raws[position - 1] = raw;
}

void TopKHeap::move(size_t from, size_t to) {
    place(to, m_slots[from - 1], m_raws[from - 1]);
}

void TopKHeap::accept(uint32_t slot, float raw) {
    if (m_k == 0)
        return;
    if (size() < m_k)
        push(slot, raw);
    else
        sift_down(slot, raw, size());
    // What is kept is not below the threshold, so a full heap's top is the higher bar; but nothing
    // is below a top that is NaN.
    if (size() == m_k)
        m_bar = std::isnan(value(1)) ? m_raw_threshold : value(1);
}

// A candidate equal to its parent rises past it.
void TopKHeap::push(uint32_t slot, float raw) {
    m_slots.push_back(slot);
    m_raws.push_back(raw);
    size_t position = size();
    while (position > 1) {
        const size_t parent = position / 2;
        if (value(parent) < raw)
            break;
        move(parent, position);
        position = parent;
    }
    place(position, slot, raw);
}

// Into the place of the top of the first `size` entries. Of equal children the right one rises, and
// a candidate sinks past an equal child.
void TopKHeap::sift_down(uint32_t slot, float raw, size_t size) {
    size_t position = 1;
    while (2 * position <= size) {
        const size_t left = 2 * position;
        const size_t right = left + 1;
        const size_t child = right <= size && !(value(left) < value(right)) ? right : left;
        if (raw < value(child))
            break;
        move(child, position);
        position = child;
    }
    place(position, slot, raw);
}

void TopKHeap::sort() {
    for (size_t end = size(); end > 0; --end) {
        const uint32_t last_slot = m_slots[end - 1];
        const float last_raw = m_raws[end - 1];
        move(1, end);
        sift_down(last_slot, last_raw, end - 1);
    }
}

}  // namespace vek
