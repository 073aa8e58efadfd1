// The content of a group: four parallel stores with one row per slot, and the index from id to
// slot. Slots are dense from 0; an erase moves the last row into the gap. Owned by the group's
// engine, whose rules on threads are its own.
#pragma once

#include <cstddef>

#include "group/id_claim.h"
#include "group/id_table.h"
#include "store/smart_tensor.h"
#include "store/smart_vector.h"

namespace vek {

// Between operations, and while no claim lives: all stores and the index have the same size, and
// the slot of the id in slot s is s. Lack of memory is std::bad_alloc or std::length_error and
// leaves everything as it was.
class GroupRows final {
public:
    static constexpr size_t MAX_ROWS = UINT32_MAX;  // slots have 32 bits

    // Memory obtained ahead of a change of all stores.
    struct Growth {
        SmartTensor::Growth features;
        SmartTensor::Growth sqrs;
        SmartVector<uint64_t>::Growth ids;
        SmartVector<uint8_t>::Growth tags;
    };

    // `tag_bytes` 0: no tags.
    GroupRows(orb::CompNode comp_node, size_t element_bytes, size_t feature_dim, size_t tag_bytes);

    size_t size() const { return m_features.size(); }
    const SmartTensor& features() const { return m_features; }
    const SmartTensor& sqrs() const { return m_sqrs; }
    const uint64_t* ids() const { return m_ids.data(); }
    const uint8_t* tags() const { return m_tags.data(); }
    bool holds(uint64_t id) const { return m_index.find(id) != nullptr; }

    // Room for that many rows in all, without slack in the host stores.
    void reserve(size_t rows);
    // To enter the ids of an insert in the index. As long as it lives they seem to be held.
    IdClaim claim(const void* ids, size_t nr) { return {m_index, m_ids, ids, nr}; }
    // Room in the stores for that many rows in all, in two halves. The first alone can fail;
    // nothing may come between them.
    Growth prepare_append(size_t rows);
    void commit(Growth growth) noexcept;
    // Erases the rows whose ids a claim found held, then appends its rows. All its ids have been
    // entered and room has been made, so this does not fail. Memory of any alignment; `sqrs` holds
    // a norm for each row, `tags` is ignored by a group without.
    void append(IdClaim& claim, const uint8_t* features, const uint8_t* sqrs, const uint8_t* tags);
    // Erases the rows of ids that are held, each once, in their order.
    void erase(const void* ids, size_t nr);
    // Prefetches the index entry of an id that will be looked up soon.
    void prefetch(uint64_t id) const { m_index.prefetch(id); }

    // Gives back what memory it can.
    void shrink();
    void clear();

private:
    Growth prepare_stores(size_t rows);
    void erase_row(uint64_t id);
    void prefetch_row(uint64_t id) const;

    size_t m_tag_bytes;
    SmartTensor m_features;
    SmartTensor m_sqrs;
    SmartVector<uint64_t> m_ids;
    SmartVector<uint8_t> m_tags;
    IdTable m_index;
};

}  // namespace vek
