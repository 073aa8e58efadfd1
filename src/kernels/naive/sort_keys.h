// Elements of a row as 64-bit numbers whose plain order is that of the sorting operators: by value,
// then by index, a NaN above every number. Comparing the values themselves would not do: with a NaN
// among them `<` is no strict weak order, and what std::sort does then is undefined.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace kern::naive {

// Rises with the value; equal for equal values.
template <typename T>
uint32_t order_of(T value) {
    constexpr uint32_t TOP_BIT = 0x80000000u;
    if constexpr (std::is_integral<T>::value) {
        return static_cast<uint32_t>(int32_t{value}) ^ TOP_BIT;
    } else {
        const auto number = static_cast<float>(value);
        if (std::isnan(number))
            return UINT32_MAX;
        uint32_t bits = 0;
        std::memcpy(&bits, &number, sizeof(bits));
        if (number == 0)
            return TOP_BIT;  // of either sign
        return bits & TOP_BIT ? ~bits : bits | TOP_BIT;
    }
}

// A key in memory of any alignment.
class UnalignedKey {
public:
    explicit UnalignedKey(uint64_t key) { std::memcpy(m_bytes, &key, sizeof(m_bytes)); }
    operator uint64_t() const {
        uint64_t key = 0;
        std::memcpy(&key, m_bytes, sizeof(key));
        return key;
    }

private:
    uint8_t m_bytes[sizeof(uint64_t)];
};

// Converts rows to keys that sort ascending, and keys back to indices.
class SortKeys {
public:
    // Descending order is that of the inverted keys, ties included.
    explicit SortKeys(bool descending) : m_inversion(descending ? UINT64_MAX : 0) {}

    template <typename T, typename Key>
    void fill(const T* row, size_t length, Key* keys) const {
        for (size_t i = 0; i < length; ++i)
            keys[i] = Key((uint64_t{order_of(row[i])} << 32 | i) ^ m_inversion);
    }

    size_t index_of(uint64_t key) const { return static_cast<uint32_t>(key ^ m_inversion); }

private:
    uint64_t m_inversion;
};

}  // namespace kern::naive
