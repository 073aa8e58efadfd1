// Products of signed bytes in vectors. They are 16 bits wide, which holds every single one and
// every sum of two but that of two (-128) x (-128): sums of 16-bit lanes wrap around, here as on
// NEON.
#pragma once

#include "kernels/simd/integers.h"

namespace kern::simd {

inline I8x8 load_eight_next(const int8_t*& source) {
    const I8x8 result = load_eight(source);
    source += sizeof(result);
    keep_in_register(source);
    return result;
}

#if defined(__ARM_NEON)

// The products of the first 8 lanes.
inline I16x8 mul_low(I8x16 a, I8x16 b) {
    return vmull_s8(vget_low_s8(a), vget_low_s8(b));
}
// sum + the products of the last 8 lanes.
inline I16x8 add_product_high(I16x8 sum, I8x16 a, I8x16 b) {
    return vmlal_s8(sum, vget_high_s8(a), vget_high_s8(b));
}
inline I16x8 add_product(I16x8 sum, I8x8 a, I8x8 b) {
    return vmlal_s8(sum, a, b);
}
inline I8x8 load_lane(const int8_t* source) {
    return vld1_dup_s8(source);
}
// Lane i of the sum and the lanes 2i and 2i + 1 of the values, in 32 bits.
inline I32x4 add_pairs(I32x4 sum, I16x8 values) {
    return vpadalq_s16(sum, values);
}
// The four lanes added: of `a` to target[0], of `b` to target[1].
inline void store_sums(int32_t* target, I32x4 a, I32x4 b) {
    vst1_s32(target, vpadd_s32(vpadd_s32(vget_low_s32(a), vget_high_s32(a)),
                               vpadd_s32(vget_low_s32(b), vget_high_s32(b))));
}
inline void store_sum(int32_t* target, I32x4 a) {
    const int32x2_t pairs = vpadd_s32(vget_low_s32(a), vget_high_s32(a));
    vst1_lane_s32(target, vpadd_s32(pairs, pairs), 0);
}

namespace detail {

// Of each pair of neighbours (of 1, 2 or 4 bytes) the second of `a` changes with the first of `b`.
inline void swap_bytes(I8x8& a, I8x8& b) {
    const int8x8x2_t transposed = vtrn_s8(a, b);
    a = transposed.val[0];
    b = transposed.val[1];
}
inline void swap_pairs(I8x8& a, I8x8& b) {
    const int16x4x2_t transposed = vtrn_s16(vreinterpret_s16_s8(a), vreinterpret_s16_s8(b));
    a = vreinterpret_s8_s16(transposed.val[0]);
    b = vreinterpret_s8_s16(transposed.val[1]);
}
inline void swap_quads(I8x8& a, I8x8& b) {
    const int32x2x2_t transposed = vtrn_s32(vreinterpret_s32_s8(a), vreinterpret_s32_s8(b));
    a = vreinterpret_s8_s32(transposed.val[0]);
    b = vreinterpret_s8_s32(transposed.val[1]);
}

}  // namespace detail

#else

namespace detail {

inline I8x8 low(I8x16 values) {
    return __builtin_shufflevector(values, values, 0, 1, 2, 3, 4, 5, 6, 7);
}
inline I8x8 high(I8x16 values) {
    return __builtin_shufflevector(values, values, 8, 9, 10, 11, 12, 13, 14, 15);
}
inline int32_t sum_lanes(I32x4 values) {
    const U32x4 lanes = to_unsigned(values);
    return static_cast<int32_t>(lanes[0] + lanes[1] + lanes[2] + lanes[3]);
}

inline void swap_bytes(I8x8& a, I8x8& b) {
    const I8x8 first = a;
    a = __builtin_shufflevector(first, b, 0, 8, 2, 10, 4, 12, 6, 14);
    b = __builtin_shufflevector(first, b, 1, 9, 3, 11, 5, 13, 7, 15);
}
inline void swap_pairs(I8x8& a, I8x8& b) {
    const I8x8 first = a;
    a = __builtin_shufflevector(first, b, 0, 1, 8, 9, 4, 5, 12, 13);
    b = __builtin_shufflevector(first, b, 2, 3, 10, 11, 6, 7, 14, 15);
}
inline void swap_quads(I8x8& a, I8x8& b) {
    const I8x8 first = a;
    a = __builtin_shufflevector(first, b, 0, 1, 2, 3, 8, 9, 10, 11);
    b = __builtin_shufflevector(first, b, 4, 5, 6, 7, 12, 13, 14, 15);
}

}  // namespace detail

inline I16x8 add_product(I16x8 sum, I8x8 a, I8x8 b) {
    return add(sum, to_int16(a) * to_int16(b));
}
inline I16x8 mul_low(I8x16 a, I8x16 b) {
    return to_int16(detail::low(a)) * to_int16(detail::low(b));
}
inline I16x8 add_product_high(I16x8 sum, I8x16 a, I8x16 b) {
    return add_product(sum, detail::high(a), detail::high(b));
}
inline I8x8 load_lane(const int8_t* source) {
    const int8_t value = *source;
    return I8x8{value, value, value, value, value, value, value, value};
}
inline I32x4 add_pairs(I32x4 sum, I16x8 values) {
    // Both lanes of a pair lie in one 32-bit lane, the first in its low half.
    const auto odd = bit_cast<I32x4>(values) >> 16;
    const auto even = bit_cast<I32x4>(bit_cast<U32x4>(values) << 16) >> 16;
    return add(sum, odd + even);
}
inline void store_sum(int32_t* target, I32x4 a) {
    *target = detail::sum_lanes(a);
}
inline void store_sums(int32_t* target, I32x4 a, I32x4 b) {
    store_sum(target, a);
    store_sum(target + 1, b);
}

#endif

inline I8x8 load_lane_next(const int8_t*& source) {
    const I8x8 result = load_lane(source);
    ++source;
    keep_in_register(source);
    return result;
}

// Lane j of row i becomes lane i of row j.
inline void transpose(I8x8 (&rows)[8]) {
    for (int i = 0; i < 8; i += 2)
        detail::swap_bytes(rows[i], rows[i + 1]);
    for (int i : {0, 1, 4, 5})
        detail::swap_pairs(rows[i], rows[i + 2]);
    for (int i = 0; i < 4; ++i)
        detail::swap_quads(rows[i], rows[i + 4]);
}

}  // namespace kern::simd
