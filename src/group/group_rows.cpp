#include "group/group_rows.h"

#include <stdexcept>
#include <utility>

#include "group/unaligned.h"
#include "store/options.h"

namespace vek {

GroupRows::GroupRows(orb::CompNode comp_node, size_t element_bytes, size_t feature_dim,
                     size_t tag_bytes)
    : m_tag_bytes(tag_bytes) {
    m_features.init(comp_node, element_bytes, feature_dim, tensor_block_size());
    m_sqrs.init(comp_node, sizeof(float), 1, tensor_block_size());
    m_ids.init(1);
    if (m_tag_bytes != 0)
        m_tags.init(m_tag_bytes);
}

GroupRows::Growth GroupRows::prepare_stores(size_t rows) {
    if (rows > MAX_ROWS)
        throw std::length_error("rows of a group");
    return {m_features.prepare(rows), m_sqrs.prepare(rows), {}, {}};
}

void GroupRows::reserve(size_t rows) {
    Growth growth = prepare_stores(rows);
    growth.ids = m_ids.prepare(rows);
    if (m_tag_bytes != 0)
        growth.tags = m_tags.prepare(rows);
    m_index.reserve(rows);
    commit(std::move(growth));
}

GroupRows::Growth GroupRows::prepare_append(size_t rows) {
    Growth growth = prepare_stores(rows);
    growth.ids = m_ids.prepare_doubling(rows);
    if (m_tag_bytes != 0)
        growth.tags = m_tags.prepare_doubling(rows);
    return growth;
}

void GroupRows::commit(Growth growth) noexcept {
    m_features.commit(std::move(growth.features));
    m_sqrs.commit(std::move(growth.sqrs));
    m_ids.commit(std::move(growth.ids));
    m_tags.commit(std::move(growth.tags));
}

void GroupRows::append(IdClaim& claim, const uint8_t* features, const uint8_t* sqrs,
                       const uint8_t* tags) {
    erase(claim.held().data(), claim.held().size());
    claim.keep();
    m_features.add(features, claim.nr());
    m_sqrs.add(sqrs, claim.nr());
    m_ids.add(claim.ids(), claim.nr());
    if (m_tag_bytes != 0)
        m_tags.add(tags, claim.nr());
}

// Rows further on are prefetched meanwhile, their places in the index first.
void GroupRows::erase(const void* ids, size_t nr) {
    constexpr size_t ROW_AHEAD = 8;
    for_each_id(
        ids, nr, [&](uint64_t id) { prefetch(id); },
        [&](uint64_t id, size_t i) {
            if (i + ROW_AHEAD < nr)
                prefetch_row(read_unaligned<uint64_t>(ids, i + ROW_AHEAD));
            erase_row(id);
        });
}

// The slot may be another one by the time of the erase: then the prefetch was for nothing.
void GroupRows::prefetch_row(uint64_t id) const {
    const uint32_t slot = *m_index.find(id);
    m_features.prefetch(slot);
    m_sqrs.prefetch(slot);
    __builtin_prefetch(m_ids.data() + slot, 1);
}

void GroupRows::erase_row(uint64_t id) {
    const uint32_t slot = *m_index.find(id);
    const uint64_t moved = m_ids.data()[size() - 1];
    m_index.assign(moved, slot);
    m_index.erase(id);  // after the line above, for the last row is its own successor
    m_features.erase(slot);
    m_sqrs.erase(slot);
    m_ids.erase(slot);
    if (m_tag_bytes != 0)
        m_tags.erase(slot);
}

void GroupRows::shrink() {
    m_features.shrink();
    m_sqrs.shrink();
    m_ids.shrink();
    m_tags.shrink();
    m_index.shrink();
}

void GroupRows::clear() {
    m_features.clear();
    m_sqrs.clear();
    m_ids.clear();
    m_tags.clear();
    m_index.clear();
}

}  // namespace vek
