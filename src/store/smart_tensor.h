// The store of row vectors that the compare graphs read: blocks of rows on one node. A small store
// is one block that grows by doubling; beyond one block it is a list of blocks of fixed size, and
// no row moves again except by `erase`. Held by value by its group, whose rules on threads are its
// own.
#pragma once

#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

#include "graph/tensor/storage.h"

namespace vek {

// Row r lies in block r / block_size at byte (r % block_size) * row_bytes. Failures are `Error`s,
// lack of memory is std::bad_alloc or std::length_error; either leaves the store as it was.
class SmartTensor final {
public:
    using Storage = orb::DeviceTensorStorage;
    // A block that holds rows, and how many.
    using Element = std::pair<const Storage*, unsigned int>;

    SmartTensor() = default;
    SmartTensor(SmartTensor&&) noexcept = default;  // a copy would share the blocks
    SmartTensor& operator=(SmartTensor&&) noexcept = default;

    enum class State { NOT_INITIALIZED = 0, SINGLE_BLOCK = 1, FIXED_BLOCKS = 2 };

    // Memory obtained ahead of a change.
    struct Growth {
        State state;
        size_t first_block_capacity;
        std::optional<Storage> first_block;  // with the present rows
        std::vector<Storage> added;
    };

    // Once, before anything else. `block_size` is in rows.
    void init(orb::CompNode comp_node, size_t element_bytes, size_t feature_dim, size_t block_size);
    // Room for that many rows in all.
    void ensure_size(size_t rows);
    // Appends rows from host memory of any alignment, which may be reused on return.
    void add(const void* host_rows, size_t count);
    // The last row moves into the place of this one. Blocks left empty stay.
    void erase(size_t index);
    // The blocks that hold rows, in order; valid until the next change.
    std::vector<Element> get_all_elements() const;
    // Frees all blocks without rows but one; a single growing block stays as it is.
    void shrink();
    void clear();

    size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    size_t row_bytes() const { return m_row_bytes; }
    size_t block_size() const { return m_block_size; }

    // Prefetches a row that will be overwritten soon.
    void prefetch(size_t index) const;

    // The two halves of `ensure_size`. The first alone can fail, and changes nothing that can be
    // seen; nothing may come between them.
    Growth prepare(size_t rows);
    void commit(Growth growth) noexcept;

private:
    size_t block_bytes() const;
    size_t first_capacity_for(size_t rows) const;
    std::vector<Storage> make_blocks(size_t count) const;
    uint8_t* row(size_t index) const;

    size_t m_block_size = 1;
    size_t m_row_bytes = 0;
    size_t m_size = 0;
    size_t m_first_block_capacity = 1;
    State m_state = State::NOT_INITIALIZED;
    orb::CompNode m_comp_node;
    std::vector<Storage> m_blocks;
};

}  // namespace vek
