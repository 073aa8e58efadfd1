#include "group/id_claim.h"

#include <algorithm>
#include <utility>

#include "group/unaligned.h"
#include "store/adopted_memory.h"

namespace vek {

IdClaim::IdClaim(IdTable& index, const uint64_t* row_ids, size_t nr_rows, const void* ids,
                 size_t nr, size_t nr_held)
    : m_index(index),
      m_row_ids(row_ids),
      m_nr_rows(nr_rows),
      m_ids(ids),
      m_nr(nr),
      m_first_slot(nr_rows - std::min(nr_rows, nr_held)) {  // more, when ids are given twice
    if (auto grown = m_index.grown(size_sum(m_first_slot, m_nr)))
        m_before = std::exchange(m_index, std::move(*grown));
}

IdClaim::~IdClaim() {
    if (m_kept)
        return;
    if (m_before) {
        m_index = std::move(*m_before);
        return;
    }
    for_each_id(
        m_ids, m_nr_seen, [&](uint64_t id) { m_index.prefetch(id); },
        [&](uint64_t id, size_t) {
            const uint32_t* slot = m_index.find(id);
            if (slot && !row_holds(id, *slot))
                m_index.erase(id);
        });
}

bool IdClaim::row_holds(uint64_t id, uint32_t slot) const {
    return slot < m_nr_rows && m_row_ids[slot] == id;
}

bool IdClaim::enter(uint64_t id, size_t place) {
    const std::optional<uint32_t> slot = m_index.insert(id, slot_of(place));
    m_nr_seen = place + 1;
    if (!slot)
        return true;
    if (!row_holds(id, *slot) || m_held_places.insert(id, static_cast<uint32_t>(place)))
        return false;
    m_held.push_back(id);
    return true;
}

void IdClaim::keep() noexcept {
    for (uint64_t id : m_held)
        m_index.insert(id, slot_of(*m_held_places.find(id)));
    m_kept = true;
}

}  // namespace vek
