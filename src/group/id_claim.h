// The ids of an insert, entered in the index of a group ahead of their rows: one look at the index
// finds whether an id is given twice, whether a row holds it, and its place. On the stack of one
// insert; what it entered is taken out again unless it is kept.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "group/id_table.h"
#include "store/smart_vector.h"

namespace vek {

class IdClaim final {
public:
    // `row_ids`, of the rows there are, by slot; `ids`, of those to come, of any alignment. Borrows
    // all.
    IdClaim(IdTable& index, const SmartVector<uint64_t>& row_ids, const void* ids, size_t nr);
    ~IdClaim();
    IdClaim(const IdClaim&) = delete;
    IdClaim& operator=(const IdClaim&) = delete;

    // Enters the id at this place of `ids`, unless a row holds it; false when it was given before.
    // One place after the other. Throws std::bad_alloc or std::length_error.
    bool enter(uint64_t id, size_t place);
    // Prefetches what `enter` will look at.
    void prefetch(uint64_t id) const;

    const void* ids() const { return m_ids; }
    size_t nr() const { return m_nr; }
    // The ids that rows hold, in the order of `ids`.
    const std::vector<uint64_t>& held() const { return m_held; }
    // The rows that there will be without those.
    size_t rows_to_be() const { return m_nr_rows - m_held.size() + m_nr; }
    // To be called when the rows of the held ids have been erased and before others are appended:
    // all entries last.
    void keep() noexcept;

private:
    bool row_holds(uint64_t id, uint32_t slot) const;
    void make_room(size_t entries);

    IdTable& m_index;
    const SmartVector<uint64_t>& m_row_ids;
    size_t m_nr_rows;
    const void* m_ids;
    size_t m_nr;
    size_t m_nr_seen = 0;
    bool m_kept = false;
    std::optional<IdTable> m_before;  // the index, when it had to grow
    std::vector<uint64_t> m_held;
    IdTable m_held_set;
};

}  // namespace vek
