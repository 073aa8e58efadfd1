// How stored elements take part in arithmetic: floats of any width in 32-bit float, integers in
// 32-bit integers that wrap around. `widen` takes an element to its working type and `narrow` back.
#pragma once

#include <cstdint>

#include "kernels/types/float16.h"

namespace kern {

// A 32-bit integer whose sums, differences and products wrap, so that no element value is undefined
// behaviour. Converts from int, so formulas may mix it with literals.
class WrappingInt {
public:
    constexpr WrappingInt() = default;
    constexpr WrappingInt(int32_t value) : m_value(value) {}
    constexpr int32_t value() const { return m_value; }
    constexpr uint32_t bits() const { return static_cast<uint32_t>(m_value); }
    static constexpr WrappingInt from_bits(uint32_t bits) {
        return WrappingInt(static_cast<int32_t>(bits));
    }

    friend constexpr WrappingInt operator+(WrappingInt a, WrappingInt b) {
        return from_bits(a.bits() + b.bits());
    }
    friend constexpr WrappingInt operator-(WrappingInt a, WrappingInt b) {
        return from_bits(a.bits() - b.bits());
    }
    friend constexpr WrappingInt operator*(WrappingInt a, WrappingInt b) {
        return from_bits(a.bits() * b.bits());
    }
    friend constexpr WrappingInt operator-(WrappingInt a) { return from_bits(0u - a.bits()); }
    friend constexpr bool operator<(WrappingInt a, WrappingInt b) { return a.m_value < b.m_value; }
    friend constexpr bool operator>(WrappingInt a, WrappingInt b) { return b < a; }
    friend constexpr bool operator<=(WrappingInt a, WrappingInt b) { return !(b < a); }
    friend constexpr bool operator==(WrappingInt a, WrappingInt b) {
        return a.m_value == b.m_value;
    }

private:
    int32_t m_value = 0;
};

template <typename T>
struct WorkingType {
    using Type = WrappingInt;
};
template <>
struct WorkingType<float> {
    using Type = float;
};
template <>
struct WorkingType<Float16> {
    using Type = float;
};
template <typename T>
using Working = typename WorkingType<T>::Type;

template <typename T>
inline Working<T> widen(T value) {
    return static_cast<Working<T>>(value);
}

// Integers keep their low bits; floats round to nearest.
template <typename T>
inline T narrow(WrappingInt value) {
    return static_cast<T>(value.value());
}
template <typename T>
inline T narrow(float value) {
    return static_cast<T>(value);
}

}  // namespace kern
