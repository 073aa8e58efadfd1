// Four floats side by side, one vector register. Lanes never mix in arithmetic, so a lane has the
// bits that scalar code would give it, apart from denormals, which NEON takes for zeros and gives
// zeros for.
#pragma once

#include "kernels/simd/vector_types.h"

namespace kern::simd {

inline F32x4 load_aligned(const float* source) {
    F32x4 result;
    std::memcpy(&result, __builtin_assume_aligned(source, sizeof(result)), sizeof(result));
    return result;
}

#if defined(__ARM_NEON)

inline F32x4 broadcast(float value) {
    return vdupq_n_f32(value);
}
inline F32x4 add(F32x4 a, F32x4 b) {
    return vaddq_f32(a, b);
}
inline F32x4 sub(F32x4 a, F32x4 b) {
    return vsubq_f32(a, b);
}
inline F32x4 mul(F32x4 a, F32x4 b) {
    return vmulq_f32(a, b);
}
// sum + a * b with both operations rounded.
inline F32x4 add_product(F32x4 sum, F32x4 a, F32x4 b) {
    return vmlaq_f32(sum, a, b);
}
// sum + a * (the LANE-th of the four in b), both operations rounded.
template <int LANE>
inline F32x4 add_product_lane(F32x4 sum, F32x4 a, F32x4 b) {
    return LANE < 2 ? vmlaq_lane_f32(sum, a, vget_low_f32(b), LANE & 1)
                    : vmlaq_lane_f32(sum, a, vget_high_f32(b), LANE & 1);
}
// All bits set in the lanes where a > b; in no lane that holds a NaN.
// Written in assembly, because GCC 12 makes of the intrinsic four scalar comparisons.
inline I32x4 greater(F32x4 a, F32x4 b) {
    I32x4 mask;
    asm("vcgt.f32 %q0, %q1, %q2" : "=w"(mask) : "w"(a), "w"(b));
    return mask;
}

// Lane j of row i becomes lane i of row j.
inline void transpose(F32x4& r0, F32x4& r1, F32x4& r2, F32x4& r3) {
    const float32x4x2_t t01 = vtrnq_f32(r0, r1);
    const float32x4x2_t t23 = vtrnq_f32(r2, r3);
    r0 = t01.val[0];
    r1 = t01.val[1];
    r2 = t23.val[0];
    r3 = t23.val[1];
    // No intrinsic exchanges the halves; written with vcombine_f32, GCC moves six of them instead.
    __asm__("vswp %f0, %e1" : "+w"(r0), "+w"(r2));
    __asm__("vswp %f0, %e1" : "+w"(r1), "+w"(r3));
}

#else

inline F32x4 broadcast(float value) {
    return F32x4{value, value, value, value};
}
inline F32x4 add(F32x4 a, F32x4 b) {
    return a + b;
}
inline F32x4 sub(F32x4 a, F32x4 b) {
    return a - b;
}
inline F32x4 mul(F32x4 a, F32x4 b) {
    return a * b;
}
inline F32x4 add_product(F32x4 sum, F32x4 a, F32x4 b) {
    return sum + a * b;
}
template <int LANE>
inline F32x4 add_product_lane(F32x4 sum, F32x4 a, F32x4 b) {
    return sum + a * b[LANE];
}
inline I32x4 greater(F32x4 a, F32x4 b) {
    return bit_cast<I32x4>(a > b);
}

inline void transpose(F32x4& r0, F32x4& r1, F32x4& r2, F32x4& r3) {
    const F32x4 low01 = __builtin_shufflevector(r0, r1, 0, 4, 1, 5);
    const F32x4 low23 = __builtin_shufflevector(r2, r3, 0, 4, 1, 5);
    const F32x4 high01 = __builtin_shufflevector(r0, r1, 2, 6, 3, 7);
    const F32x4 high23 = __builtin_shufflevector(r2, r3, 2, 6, 3, 7);
    r0 = __builtin_shufflevector(low01, low23, 0, 1, 4, 5);
    r1 = __builtin_shufflevector(low01, low23, 2, 3, 6, 7);
    r2 = __builtin_shufflevector(high01, high23, 0, 1, 4, 5);
    r3 = __builtin_shufflevector(high01, high23, 2, 3, 6, 7);
}

#endif

inline F32x4 zero() {
    return broadcast(0.0f);
}

// Lanes of `a` where the mask's bits are set, of `b` elsewhere.
inline F32x4 select(I32x4 mask, F32x4 a, F32x4 b) {
#if defined(__ARM_NEON)
    return vbslq_f32(vreinterpretq_u32_s32(mask), a, b);
#else
    return bit_cast<F32x4>((mask & bit_cast<I32x4>(a)) | (~mask & bit_cast<I32x4>(b)));
#endif
}

}  // namespace kern::simd
