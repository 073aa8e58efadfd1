// A map from 64-bit ids to 32-bit slots, for the index of a group and for the sets of ids seen
// within one call. Open addressing with linear probing; an erased entry's successors shift back, so
// there are no tombstones (Knuth, The Art of Computer Programming, vol. 3, 6.4, algorithm R). Held
// by value; one thread at a time while it changes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "store/adopted_memory.h"

namespace vek {

class IdTable final {
public:
    // Marks an empty bucket: this id is never held.
    static constexpr uint64_t RESERVED_ID = ~uint64_t{0};

    size_t size() const { return m_size; }
    // Whether it has to grow for one more.
    bool full() const { return m_size >= room_in(m_buckets.size()); }
    // The slot of an id, null for an id that is not held. Valid until the next change.
    const uint32_t* find(uint64_t id) const;
    // Adds an id, or returns the slot of one that is held already. The table grows as needed:
    // std::bad_alloc or std::length_error then leave it as it was.
    std::optional<uint32_t> insert(uint64_t id, uint32_t slot);
    // Sets the slot of an id that is held.
    void assign(uint64_t id, uint32_t slot);
    // Either of the two.
    void put(uint64_t id, uint32_t slot);
    void erase(uint64_t id);
    void clear() noexcept;

    // Room for that many entries in all.
    void reserve(size_t entries);
    // The same as a copy with the room, to be taken over later; nothing when there is room.
    std::optional<IdTable> grown(size_t entries) const;
    // Fits the table to its entries; keeps it when there is no memory for a smaller one.
    void shrink() noexcept;

    // Prefetches the bucket of an id, ahead of one of the operations above.
    void prefetch(uint64_t id) const;

private:
    struct Bucket {
        uint64_t id = RESERVED_ID;
        uint32_t slot = 0;
    };

    // At most four fifths full.
    static size_t room_in(size_t buckets) { return buckets / 5 * 4; }
    static size_t buckets_for(size_t entries);
    size_t home(uint64_t id) const;
    size_t next(size_t index) const { return (index + 1) & (m_buckets.size() - 1); }
    // The bucket of the id, or the empty one where it would go. The table has buckets.
    size_t locate(uint64_t id) const;
    IdTable rehashed(size_t entries) const;

    size_t m_size = 0;
    std::vector<Bucket, LargeAllocator<Bucket>> m_buckets;  // a power of two of them, or none
};

}  // namespace vek
