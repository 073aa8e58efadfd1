// Two phases. The sweep goes through time and keeps a list of used and free chunks in the order of
// their addresses, best fit first; it decides only who lies above whom. The push-down then gives
// each interval the lowest address that this order allows, so chunks that had to be enlarged in the
// sweep cost nothing where nobody lay above them.
#include "graph/memory/static_allocator.h"

#include <algorithm>
#include <list>
#include <map>

#include "kernels/check.h"
#include "kernels/checked_math.h"

namespace orb {
namespace {

// Chunks in address order. No two free chunks are neighbours.
class ChunkList {
public:
    struct Chunk {
        size_t size;
        bool is_free;
        size_t freed_at;  // orders free chunks of one size
        size_t owner;     // the interval, for used chunks
    };
    using Iterator = std::list<Chunk>::iterator;

    // Makes room for an interval of `size` bytes and returns its chunk.
    Iterator allocate(size_t size, size_t owner) {
        Iterator chunk = choose(size);
        if (chunk == m_chunks.end())
            chunk = m_chunks.insert(chunk, {size, true, 0, 0});
        const size_t rest = chunk->size > size ? chunk->size - size : 0;
        const size_t freed_at = chunk->freed_at;
        *chunk = {size, false, 0, owner};
        if (rest > 0)
            m_chunks.insert(std::next(chunk), {rest, true, freed_at, 0});
        return chunk;
    }

    void free(Iterator chunk) {
        chunk->is_free = true;
        chunk->freed_at = ++m_clock;
        if (chunk != m_chunks.begin() && std::prev(chunk)->is_free) {
            chunk->size += std::prev(chunk)->size;
            m_chunks.erase(std::prev(chunk));
        }
        if (std::next(chunk) != m_chunks.end() && std::next(chunk)->is_free) {
            chunk->size += std::next(chunk)->size;
            m_chunks.erase(std::next(chunk));
        }
    }

    // The nearest used chunks on both sides, or the list's end.
    Iterator used_below(Iterator chunk) {
        while (chunk != m_chunks.begin()) {
            if (!(--chunk)->is_free)
                return chunk;
        }
        return m_chunks.end();
    }
    Iterator used_above(Iterator chunk) {
        do {
            ++chunk;
        } while (chunk != m_chunks.end() && chunk->is_free);
        return chunk;
    }
    Iterator end() { return m_chunks.end(); }

private:
    // The smallest free chunk that is large enough, or the largest one; of equal ones the one that
    // has been free for longer.
    Iterator choose(size_t size) {
        Iterator best = m_chunks.end();
        for (Iterator it = m_chunks.begin(); it != m_chunks.end(); ++it) {
            if (it->is_free && (best == m_chunks.end() || is_better(*it, *best, size)))
                best = it;
        }
        return best;
    }
    static bool is_better(const Chunk& a, const Chunk& b, size_t size) {
        if ((a.size >= size) != (b.size >= size))
            return a.size >= size;
        if (a.size != b.size)
            return a.size >= size ? a.size < b.size : a.size > b.size;
        return a.freed_at < b.freed_at;
    }

    std::list<Chunk> m_chunks;
    size_t m_clock = 0;
};

}  // namespace

StaticMemoryAllocator::StaticMemoryAllocator(size_t alignment) : m_alignment(alignment) {
    KERN_CHECK(kern::is_power_of_two(alignment));
}

size_t StaticMemoryAllocator::add(size_t begin, size_t end, size_t size) {
    KERN_CHECK(begin < end);
    Interval interval{};
    interval.begin = interval.orig_begin = begin;
    interval.end = interval.orig_end = end;
    interval.size = interval.orig_size = kern::round_up(size, m_alignment);
    interval.overwrite_dest = interval.overwrite_root = interval.addr = NONE;
    m_intervals.push_back(std::move(interval));
    return m_intervals.size() - 1;
}

void StaticMemoryAllocator::add_overwrite_spec(size_t id_src, size_t id_dest, size_t offset) {
    KERN_CHECK(id_src != id_dest && id_src < m_intervals.size() && id_dest < m_intervals.size());
    Interval& src = m_intervals[id_src];
    KERN_CHECK(kern::checked_add(src.size, offset) <= m_intervals[id_dest].size);
    KERN_CHECK(src.overwrite_dest == NONE);
    src.overwrite_dest = id_dest;
    src.offset_in_dest = offset;
}

void StaticMemoryAllocator::solve() {
    merge_overwrites();
    sweep();
    m_peak = 0;
    for (size_t id = 0; id < m_intervals.size(); ++id) {
        const Interval& interval = m_intervals[id];
        const size_t end = push_down(id) + interval.size;
        m_peak = std::max(m_peak, kern::round_up(end, m_alignment));
    }
    check_plan();
}

// Chains and stacks may be as long as the graph, so both walks keep their own stack.
void StaticMemoryAllocator::find_root(size_t id) {
    std::vector<size_t> chain;
    while (m_intervals[id].overwrite_root == NONE && m_intervals[id].overwrite_dest != NONE) {
        chain.push_back(id);
        id = m_intervals[id].overwrite_dest;
    }
    if (m_intervals[id].overwrite_root == NONE)
        m_intervals[id].overwrite_root = id;
    for (; !chain.empty(); chain.pop_back()) {
        Interval& interval = m_intervals[chain.back()];
        const Interval& dest = m_intervals[interval.overwrite_dest];
        interval.overwrite_root = dest.overwrite_root;
        interval.offset_in_root = dest.offset_in_root + interval.offset_in_dest;
    }
}

// A chain is planned as one interval: its root, extended over the life of all that overwrite it.
void StaticMemoryAllocator::merge_overwrites() {
    for (size_t id = 0; id < m_intervals.size(); ++id)
        find_root(id);
    for (const Interval& interval : m_intervals) {
        Interval& root = m_intervals[interval.overwrite_root];
        root.begin = std::min(root.begin, interval.orig_begin);
        root.end = std::max(root.end, interval.orig_end);
        root.size = std::max(root.size, interval.offset_in_root + interval.orig_size);
    }
}

void StaticMemoryAllocator::sweep() {
    struct TimePoints {
        std::vector<size_t> ending, beginning;
    };
    std::map<size_t, TimePoints> times;
    for (size_t id = 0; id < m_intervals.size(); ++id) {
        const Interval& interval = m_intervals[id];
        if (interval.overwrite_root != id || interval.size == 0)
            continue;
        times[interval.begin].beginning.push_back(id);
        times[interval.end].ending.push_back(id);
    }
    ChunkList chunks;
    std::map<size_t, ChunkList::Iterator> live;
    for (const auto& [time, points] : times) {
        for (size_t id : points.ending)
            chunks.free(live.at(id));
        for (size_t id : points.beginning) {
            const auto chunk = chunks.allocate(m_intervals[id].size, id);
            live[id] = chunk;
            const auto below = chunks.used_below(chunk);
            if (below != chunks.end())
                m_intervals[id].below.push_back(below->owner);
            // The neighbour above may have to move up for a chunk that was enlarged.
            const auto above = chunks.used_above(chunk);
            if (above != chunks.end())
                m_intervals[above->owner].below.push_back(id);
        }
    }
}

size_t StaticMemoryAllocator::push_down(size_t id) {
    std::vector<size_t> pending{id};
    while (!pending.empty()) {
        Interval& interval = m_intervals[pending.back()];
        const size_t nr_before = pending.size();
        const bool is_root = interval.overwrite_root == pending.back();
        const auto require = [&](size_t other) {
            if (m_intervals[other].addr == NONE)
                pending.push_back(other);
        };
        if (interval.addr == NONE && is_root)
            std::for_each(interval.below.begin(), interval.below.end(), require);
        else if (interval.addr == NONE)
            require(interval.overwrite_root);
        if (pending.size() > nr_before)
            continue;
        pending.pop_back();
        if (interval.addr == NONE)
            interval.addr =
                is_root ? lowest_address(interval)
                        : m_intervals[interval.overwrite_root].addr + interval.offset_in_root;
    }
    return m_intervals[id].addr;
}

size_t StaticMemoryAllocator::lowest_address(const Interval& interval) const {
    size_t addr = 0;
    for (size_t below : interval.below) {
        const Interval& other = m_intervals[below];
        addr = std::max(addr, kern::checked_add(other.addr, other.size));
    }
    return kern::round_up(addr, m_alignment);
}

size_t StaticMemoryAllocator::get_interval_addr(size_t id) const {
    KERN_CHECK(id < m_intervals.size() && m_intervals[id].addr != NONE);
    return m_intervals[id].addr;
}

// Replays the plan in the order of time: ranges that live at once must not overlap.
void StaticMemoryAllocator::check_plan() {
    struct Event {
        size_t time;
        bool begins;
        size_t id;
    };
    std::vector<Event> events;
    for (size_t id = 0; id < m_intervals.size(); ++id) {
        const Interval& interval = m_intervals[id];
        if (interval.overwrite_root != id || interval.size == 0)
            continue;
        events.push_back({interval.begin, true, id});
        events.push_back({interval.end, false, id});
    }
    std::sort(events.begin(), events.end(), [](const Event& a, const Event& b) {
        return a.time != b.time ? a.time < b.time : a.begins < b.begins;
    });
    std::map<size_t, size_t> live;  // address to end
    size_t total = 0;
    m_lower_bound = 0;
    for (const Event& event : events) {
        const Interval& interval = m_intervals[event.id];
        if (!event.begins) {
            total -= interval.size;
            live.erase(interval.addr);
            continue;
        }
        total += interval.size;
        m_lower_bound = std::max(m_lower_bound, total);
        const auto [it, is_new] = live.emplace(interval.addr, interval.addr + interval.size);
        KERN_CHECK(is_new);
        KERN_CHECK(it == live.begin() || std::prev(it)->second <= interval.addr);
        KERN_CHECK(std::next(it) == live.end() || it->second <= std::next(it)->first);
    }
    KERN_CHECK(total == 0);
}

}  // namespace orb
