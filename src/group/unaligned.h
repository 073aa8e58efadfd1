// Elements of a caller's array, which need not be aligned. No state.
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

}  // namespace vek
