// Comparisons, quotients and conversions of four floats side by side, beside the sums and products
// of f32x4.h.
#pragma once

#include "kernels/simd/f32x4.h"

namespace kern::simd {

// a / b, rounded once in every lane. NEON has no such operation: there the compiler divides lane by
// lane.
inline F32x4 divide(F32x4 a, F32x4 b) {
    return a / b;
}

#if defined(__ARM_NEON)

// All bits set in the lanes where a <= b; in no lane that holds a NaN. In assembly as `greater` is.
inline I32x4 less_equal(F32x4 a, F32x4 b) {
    I32x4 mask;
    asm("vcge.f32 %q0, %q1, %q2" : "=w"(mask) : "w"(b), "w"(a));
    return mask;
}
inline F32x4 absolute(F32x4 x) {
    return vabsq_f32(x);
}
inline F32x4 negate(F32x4 x) {
    return vnegq_f32(x);
}
// Rounds toward zero. What 32 bits cannot hold takes the nearest value, and NaN is 0.
inline I32x4 truncate_to_int32(F32x4 x) {
    return vcvtq_s32_f32(x);
}
inline F32x4 to_float(I32x4 x) {
    return vcvtq_f32_s32(x);
}
// 1 / x by the estimate of eight bits and `NEWTON_STEPS` steps, each of which doubles the number of
// good bits. Where there is no estimate it is the rounded quotient.
template <int NEWTON_STEPS>
inline F32x4 reciprocal(F32x4 x) {
    F32x4 result = vrecpeq_f32(x);
    for (int step = 0; step < NEWTON_STEPS; ++step)
        result = vmulq_f32(result, vrecpsq_f32(x, result));
    return result;
}

#else

inline I32x4 less_equal(F32x4 a, F32x4 b) {
    return bit_cast<I32x4>(a <= b);
}
inline F32x4 absolute(F32x4 x) {
    return bit_cast<F32x4>(bit_cast<I32x4>(x) & 0x7fffffff);
}
inline F32x4 negate(F32x4 x) {
    return -x;
}
inline I32x4 truncate_to_int32(F32x4 x) {
    const F32x4 limit = broadcast(2147483648.0f);
    const I32x4 too_large = less_equal(limit, x);
    const I32x4 fits = less_equal(-limit, x) & ~too_large;
    const F32x4 bounded = bit_cast<F32x4>(fits & bit_cast<I32x4>(x));
    const I32x4 too_small = greater(-limit, x);
    return __builtin_convertvector(bounded, I32x4) | (too_large & INT32_MAX) |
           (too_small & INT32_MIN);
}
inline F32x4 to_float(I32x4 x) {
    return __builtin_convertvector(x, F32x4);
}
template <int NEWTON_STEPS>
inline F32x4 reciprocal(F32x4 x) {
    return 1.0f / x;
}

#endif

// The largest whole numbers not above x, for what 32 bits can hold.
inline I32x4 floor_to_int32(F32x4 x) {
    const I32x4 truncated = truncate_to_int32(x);
    return truncated + greater(to_float(truncated), x);
}

// Rounds to the nearest whole number, ties away from zero, as std::round does; then as
// `truncate_to_int32`.
inline I32x4 round_to_int32(F32x4 x) {
    const I32x4 truncated = truncate_to_int32(x);
    // From 2^23 on every float is whole, and the difference below would not be exact.
    const I32x4 has_fraction = greater(broadcast(8388608.0f), absolute(x));
    const F32x4 fraction = sub(x, to_float(truncated));
    const I32x4 up = less_equal(broadcast(0.5f), fraction);
    const I32x4 down = less_equal(fraction, broadcast(-0.5f));
    return truncated + ((down - up) & has_fraction);
}

}  // namespace kern::simd
