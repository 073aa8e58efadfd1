// The ids of an insert, entered in the index of a group ahead of their rows: one look at the index
// finds whether an id is given twice, whether a row holds it, and its place. On the stack of one
// insert; what it entered is taken out again unless it is kept.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "group/id_table.h"

namespace vek {

class IdClaim final {
public:
    // `row_ids`, of the rows there are, by slot; `ids`, of those to come, unaligned. Room is made
    // for all entries: std::bad_alloc or std::length_error leave the index as it was. Of the rows
    // there are, as many as `nr_held` make room; the rows to come follow on the rest.
    IdClaim(IdTable& index, const uint64_t* row_ids, size_t nr_rows, const void* ids, size_t nr,
            size_t nr_held);
    ~IdClaim();
    IdClaim(const IdClaim&) = delete;
    IdClaim& operator=(const IdClaim&) = delete;

    // Enters the id at this place, unless a row holds it; false when it was given before. One place
    // after the other; lack of memory is as above.
    bool enter(uint64_t id, size_t place);
    // The ids that rows hold, in the order of `ids`.
    const std::vector<uint64_t>& held() const { return m_held; }
    // The rows that there will be.
    size_t rows_to_be() const { return m_first_slot + m_nr; }

    const void* ids() const { return m_ids; }
    size_t nr() const { return m_nr; }
    // To be called when the entries of the held ids have been erased: enters these too, and makes
    // all entries last.
    void keep() noexcept;

private:
    bool row_holds(uint64_t id, uint32_t slot) const;
    uint32_t slot_of(size_t place) const { return static_cast<uint32_t>(m_first_slot + place); }

    IdTable& m_index;
    const uint64_t* m_row_ids;
    size_t m_nr_rows;
    const void* m_ids;
    size_t m_nr;
    size_t m_first_slot;
    size_t m_nr_seen = 0;
    bool m_kept = false;
    std::optional<IdTable> m_before;  // the index, when it had to grow
    std::vector<uint64_t> m_held;
    IdTable m_held_places;
};

}  // namespace vek
