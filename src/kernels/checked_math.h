// Arithmetic of machine words; products and sums stop the process instead of wrapping.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "kernels/check.h"

namespace kern {

// In the common type of both operands: size_t for counts, ptrdiff_t for strides.
template <typename A, typename B>
std::common_type_t<A, B> checked_mul(A a, B b) {
    std::common_type_t<A, B> result = 0;
    KERN_CHECK(!__builtin_mul_overflow(a, b, &result));
    return result;
}

template <typename A, typename B>
std::common_type_t<A, B> checked_add(A a, B b) {
    std::common_type_t<A, B> result = 0;
    KERN_CHECK(!__builtin_add_overflow(a, b, &result));
    return result;
}

// A count as a stride or a factor of one.
inline ptrdiff_t checked_stride(size_t count) {
    KERN_CHECK(count <= static_cast<size_t>(PTRDIFF_MAX));
    return static_cast<ptrdiff_t>(count);
}

inline bool is_power_of_two(size_t value) {
    return value != 0 && (value & (value - 1)) == 0;
}

// The smallest multiple of `unit` that is not below `value`; `unit` is not 0.
inline size_t round_up(size_t value, size_t unit) {
    const size_t rest = value % unit;
    return rest == 0 ? value : checked_add(value, unit - rest);
}

}  // namespace kern
