// The host-side store of a feature group: records of a fixed number of elements, one after the
// other, addressed by row number. Held by value by its group, whose rules on threads are its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "store/adopted_memory.h"

namespace vek {

// Exists for uint64_t (ids) and uint8_t (tags). Failures are `Error`s, lack of memory is
// std::bad_alloc or std::length_error; either leaves the store as it was.
template <typename T>
class SmartVector {
public:
    using Buffer = std::vector<T, LargeAllocator<T>>;
    // A larger buffer with the present contents, made ahead of a change; nothing when the present
    // one will do.
    using Growth = std::optional<Buffer>;

    // Once, before anything else.
    void init(size_t record_len);
    // Room for that many records in all, without slack.
    void ensure_size(size_t records);
    // Appends records from memory of any alignment.
    void add(const void* records, size_t count);
    // The last record moves into the place of this one.
    void erase(size_t index);
    // Cuts the buffer to the used size; keeps it when there is no memory for a smaller one.
    void shrink() noexcept;
    // Empty again; the buffer stays.
    void clear();

    size_t size() const { return m_size; }
    // Record i begins at element i * record_len.
    const T* data() const { return m_data.data(); }

    // The two halves of `ensure_size`. The first alone can fail; nothing may come between them.
    // `prepare_doubling` grows as `add` does: at least to twice the present records. Both take the
    // number of records in all.
    Growth prepare(size_t records) const;
    Growth prepare_doubling(size_t records) const;
    void commit(Growth growth) noexcept;

private:
    Growth grown(size_t elements) const;

    size_t m_record_len = 0;
    size_t m_size = 0;
    bool m_initialized = false;
    Buffer m_data;
};

extern template class SmartVector<uint64_t>;
extern template class SmartVector<uint8_t>;

}  // namespace vek
