#include "group/id_claim.h"

#include <algorithm>
#include <utility>

#include "group/unaligned.h"
#include "store/adopted_memory.h"

namespace vek {

IdClaim::IdClaim(IdTable& index, const SmartVector<uint64_t>& row_ids, const void* ids, size_t nr)
    : m_index(index), m_row_ids(row_ids), m_nr_rows(row_ids.size()), m_ids(ids), m_nr(nr) {}

IdClaim::~IdClaim() {
    if (m_kept)
        return;
    if (m_before)
        m_index = std::move(*m_before);
    for_each_id(
        m_ids, m_nr_seen, [&](uint64_t id) { m_index.prefetch(id); },
        [&](uint64_t id, size_t) {
            const uint32_t* slot = m_index.find(id);
            if (slot && !row_holds(id, *slot))
                m_index.erase(id);
        });
}

bool IdClaim::row_holds(uint64_t id, uint32_t slot) const {
    return slot < m_nr_rows && m_row_ids.data()[slot] == id;
}

// Once, and only when an id that is new does not fit: a call that is refused costs as little as may
// be.
void IdClaim::make_room(size_t entries) {
    if (auto grown = m_index.grown(entries))
        m_before = std::exchange(m_index, std::move(*grown));
}

bool IdClaim::enter(uint64_t id, size_t place) {
    if (m_index.full() && !m_index.find(id))
        make_room(size_sum(m_index.size(), m_nr - place));
    // Behind all rows, so that no row seems to hold it.
    const auto slot = m_index.insert(id, static_cast<uint32_t>(m_nr_rows + place));
    m_nr_seen = place + 1;
    if (!slot)
        return true;
    if (!row_holds(id, *slot))
        return false;
    if (m_held.empty())
        m_held_set.reserve(std::min(m_nr - place, m_nr_rows));
    if (m_held_set.insert(id, 0))
        return false;
    m_held.push_back(id);
    return true;
}

void IdClaim::prefetch(uint64_t id) const {
    m_index.prefetch(id);
    m_held_set.prefetch(id);
}

void IdClaim::keep() noexcept {
    m_kept = true;
    if (m_held.empty())
        return;
    // The rows before have moved up.
    const size_t first_slot = m_nr_rows - m_held.size();
    for_each_id(
        m_ids, m_nr, [&](uint64_t id) { m_index.prefetch(id); },
        [&](uint64_t id, size_t place) {
            m_index.put(id, static_cast<uint32_t>(first_slot + place));
        });
}

}  // namespace vek
