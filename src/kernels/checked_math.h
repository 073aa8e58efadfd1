// Products and sums of machine words that stop the process instead of wrapping.
#pragma once

#include <cstddef>

#include "kernels/check.h"

namespace kern {

inline size_t checked_mul(size_t a, size_t b) {
    size_t result = 0;
    KERN_CHECK(!__builtin_mul_overflow(a, b, &result));
    return result;
}

inline size_t checked_add(size_t a, size_t b) {
    size_t result = 0;
    KERN_CHECK(!__builtin_add_overflow(a, b, &result));
    return result;
}

// The smallest multiple of `unit` that is not below `value`; `unit` is not 0.
inline size_t round_up(size_t value, size_t unit) {
    const size_t rest = value % unit;
    return rest == 0 ? value : checked_add(value, unit - rest);
}

}  // namespace kern
