// Plans memory: given intervals of time with sizes, finds an address for each so that no two that
// live at once overlap. A pure function of what was added: it touches no memory.
#pragma once

#include <cstddef>
#include <vector>

namespace orb {

class StaticMemoryAllocator {
public:
    // A power of two; addresses are multiples of it, and sizes are rounded up to it.
    explicit StaticMemoryAllocator(size_t alignment);

    // An interval from step `begin` up to, not including, `end`; returns its id. An empty one stops
    // the process.
    size_t add(size_t begin, size_t end, size_t size);
    // Interval `id_src` lives inside the memory of `id_dest`, from `offset` bytes on.
    void add_overwrite_spec(size_t id_src, size_t id_dest, size_t offset);
    void solve();

    // Valid after `solve`.
    size_t get_interval_addr(size_t id) const;
    size_t peak() const { return m_peak; }
    // The most that lives at one time: no plan can need less.
    size_t tot_alloc_lower_bound() const { return m_lower_bound; }
    size_t alignment() const { return m_alignment; }

private:
    static constexpr size_t NONE = static_cast<size_t>(-1);

    struct Interval {
        size_t begin, end, size;
        size_t overwrite_dest = NONE;  // whose memory this one reuses
        size_t offset_in_dest = 0;
        size_t overwrite_root = NONE;  // the end of that chain, itself when there is none
        size_t offset_in_root = 0;
        size_t orig_begin, orig_end, orig_size;  // as added: chains extend their root
        std::vector<size_t> below = {};          // roots that lay directly below this one
        size_t addr = NONE;
    };

    void merge_overwrites();
    void find_root(size_t id);
    void sweep();
    size_t push_down(size_t id);
    size_t lowest_address(const Interval& interval) const;
    void check_plan();

    size_t m_alignment;
    size_t m_peak = 0;
    size_t m_lower_bound = 0;
    std::vector<Interval> m_intervals;
};

}  // namespace orb
