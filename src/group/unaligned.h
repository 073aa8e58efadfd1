// Elements of a caller's array, which need not be aligned, and the ids of one in their order. No
// state.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vek {

template <typename T>
T read_unaligned(const void* array, size_t index) {
    T value;
    std::memcpy(&value, static_cast<const uint8_t*>(array) + index * sizeof(T), sizeof(T));
    return value;
}

template <typename T>
void write_unaligned(void* array, size_t index, T value) {
    std::memcpy(static_cast<uint8_t*>(array) + index * sizeof(T), &value, sizeof(T));
}

// Calls `use` with each of the ids and its place, in their order. Ids come in no order of the
// tables where they are looked up, so nearly every lookup misses the caches: `prefetch` is called
// with an id that comes later.
template <typename Prefetch, typename Use>
void for_each_id(const void* ids, size_t nr, const Prefetch& prefetch, const Use& use) {
    constexpr size_t AHEAD = 32;
    for (size_t i = 0; i < nr; ++i) {
        if (i + AHEAD < nr)
            prefetch(read_unaligned<uint64_t>(ids, i + AHEAD));
        use(read_unaligned<uint64_t>(ids, i), i);
    }
}

}  // namespace vek
