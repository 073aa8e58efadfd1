#include "group/id_table.h"

#include <algorithm>
#include <exception>

namespace vek {
namespace {

constexpr size_t MIN_BUCKETS = 8;

// All bits of an id, often a running number, take part in its place. The finalizer of SplitMix64
// (Steele, Lea and Flood, Fast splittable pseudorandom number generators, 2014).
uint64_t mix(uint64_t x) {
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9u;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebu;
    return x ^ (x >> 31);
}

}  // namespace

size_t IdTable::buckets_for(size_t entries) {
    size_product(entries, 4 * sizeof(Bucket));  // refuses what the doubling would overflow on
    size_t buckets = MIN_BUCKETS;
    while (room_in(buckets) < entries)
        buckets *= 2;
    return buckets;
}

size_t IdTable::home(uint64_t id) const {
    return static_cast<size_t>(mix(id)) & (m_buckets.size() - 1);
}

size_t IdTable::locate(uint64_t id) const {
    size_t index = home(id);
    while (m_buckets[index].id != id && m_buckets[index].id != RESERVED_ID)
        index = next(index);
    return index;
}

const uint32_t* IdTable::find(uint64_t id) const {
    if (m_buckets.empty() || id == RESERVED_ID)
        return nullptr;
    const Bucket& bucket = m_buckets[locate(id)];
    return bucket.id == id ? &bucket.slot : nullptr;
}

std::optional<uint32_t> IdTable::insert(uint64_t id, uint32_t slot) {
    if (full()) {
        if (const uint32_t* held = find(id))
            return *held;
        reserve(m_size + 1);
    }
    Bucket& bucket = m_buckets[locate(id)];
    if (bucket.id == id)
        return bucket.slot;
    bucket = {id, slot};
    ++m_size;
    return std::nullopt;
}

void IdTable::assign(uint64_t id, uint32_t slot) {
    m_buckets[locate(id)].slot = slot;
}

void IdTable::put(uint64_t id, uint32_t slot) {
    if (insert(id, slot))
        assign(id, slot);
}

void IdTable::erase(uint64_t id) {
    size_t hole = locate(id);
    for (size_t index = next(hole); m_buckets[index].id != RESERVED_ID; index = next(index)) {
        // An entry may move to the hole unless its home lies behind the hole.
        const size_t mask = m_buckets.size() - 1;
        const size_t from_home = (index - home(m_buckets[index].id)) & mask;
        const size_t from_hole = (index - hole) & mask;
        if (from_home >= from_hole) {
            m_buckets[hole] = m_buckets[index];
            hole = index;
        }
    }
    m_buckets[hole].id = RESERVED_ID;
    --m_size;
}

void IdTable::clear() noexcept {
    std::fill(m_buckets.begin(), m_buckets.end(), Bucket{});
    m_size = 0;
}

IdTable IdTable::rehashed(size_t entries) const {
    IdTable table;
    table.m_buckets.resize(buckets_for(entries));
    for (const Bucket& bucket : m_buckets) {
        if (bucket.id != RESERVED_ID)
            table.m_buckets[table.locate(bucket.id)] = bucket;
    }
    table.m_size = m_size;
    return table;
}

std::optional<IdTable> IdTable::grown(size_t entries) const {
    if (entries <= room_in(m_buckets.size()))
        return std::nullopt;
    return rehashed(entries);
}

void IdTable::reserve(size_t entries) {
    if (entries > room_in(m_buckets.size()))
        *this = rehashed(entries);
}

void IdTable::shrink() noexcept {
    try {
        if (buckets_for(m_size) < m_buckets.size())
            *this = rehashed(m_size);
    } catch (const std::exception&) {
        // The larger table serves as well.
    }
}

void IdTable::prefetch(uint64_t id) const {
    if (!m_buckets.empty())
        __builtin_prefetch(&m_buckets[home(id)], 1);
}

}  // namespace vek
