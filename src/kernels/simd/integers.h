// Operations on integer vectors of all widths. They wrap around unless they say that they saturate.
// The names are those of the float operations, so that one formula can serve both.
#pragma once

#include <cstddef>
#include <limits>
#include <type_traits>

#include "kernels/simd/vector_types.h"

namespace kern::simd {

// The vectors of integers, each with that of the unsigned type: its lanes may wrap around, while
// the compiler takes for granted that signed ones do not (the intrinsics are no better: they are
// the same operators inside).
template <typename V>
struct UnsignedOf;
template <>
struct UnsignedOf<I32x4> {
    using Type = U32x4;
};
template <>
struct UnsignedOf<I16x8> {
    using Type = U16x8;
};
template <>
struct UnsignedOf<I8x16> {
    using Type = U8x16;
};

// V, for a V that is a vector of integers.
template <typename V>
using IfIntegers = std::enable_if_t<sizeof(typename UnsignedOf<V>::Type) == sizeof(V), V>;

template <typename V>
inline typename UnsignedOf<V>::Type to_unsigned(V x) {
    return bit_cast<typename UnsignedOf<V>::Type>(x);
}

template <typename V>
inline IfIntegers<V> add(V a, V b) {
    return bit_cast<V>(to_unsigned(a) + to_unsigned(b));
}
template <typename V>
inline IfIntegers<V> sub(V a, V b) {
    return bit_cast<V>(to_unsigned(a) - to_unsigned(b));
}
template <typename V>
inline IfIntegers<V> mul(V a, V b) {
    return bit_cast<V>(to_unsigned(a) * to_unsigned(b));
}
template <typename V>
inline IfIntegers<V> add_product(V sum, V a, V b) {
    return add(sum, mul(a, b));
}
// All bits set in the lanes where the comparison holds.
template <typename V>
inline IfIntegers<V> greater(V a, V b) {
    return a > b;
}
template <typename V>
inline IfIntegers<V> less_equal(V a, V b) {
    return a <= b;
}
template <typename V>
inline IfIntegers<V> select(V mask, V a, V b) {
    return (mask & a) | (~mask & b);
}
// The smallest value stays as it is.
template <typename V>
inline IfIntegers<V> absolute(V x) {
    const V sign = x < 0;
    return sub(x ^ sign, sign);
}

#if defined(__ARM_NEON)

inline I32x4 broadcast(int32_t value) {
    return vdupq_n_s32(value);
}
inline I16x8 broadcast(int16_t value) {
    return vdupq_n_s16(value);
}
inline I8x16 broadcast(int8_t value) {
    return vdupq_n_s8(value);
}

// The upper half of the doubled product, rounded; the square of the smallest value gives the
// largest.
inline I32x4 rounding_high_mul(I32x4 a, I32x4 b) {
    return vqrdmulhq_s32(a, b);
}
inline I16x8 rounding_high_mul(I16x8 a, I16x8 b) {
    return vqrdmulhq_s16(a, b);
}
inline I8x16 rounding_high_mul(I8x16 a, I8x16 b) {
    const I16x8 low_products = vmull_s8(vget_low_s8(a), vget_low_s8(b));
    const I16x8 high_products = vmull_s8(vget_high_s8(a), vget_high_s8(b));
    return vcombine_s8(vqrshrn_n_s16(low_products, 7), vqrshrn_n_s16(high_products, 7));
}

// Eight bytes from anywhere, and eight of the four or eight lanes to anywhere.
inline I8x8 load_eight(const int8_t* source) {
    return vld1_s8(source);
}
inline void store_eight(int8_t* target, I8x8 value) {
    vst1_s8(target, value);
}
inline I16x8 to_int16(I8x8 x) {
    return vmovl_s8(x);
}
inline I32x4 first_to_int32(I16x8 x) {
    return vmovl_s16(vget_low_s16(x));
}
inline I32x4 last_to_int32(I16x8 x) {
    return vmovl_s16(vget_high_s16(x));
}
// Values that do not fit take the nearest one that does.
inline I16x8 saturate_to_int16(I32x4 first, I32x4 last) {
    return vcombine_s16(vqmovn_s32(first), vqmovn_s32(last));
}
inline I8x8 saturate_to_int8(I16x8 x) {
    return vqmovn_s16(x);
}
inline I8x8 saturate_to_uint8(I16x8 x) {
    return vreinterpret_s8_u8(vqmovun_s16(x));
}

#else

template <typename V, typename Element>
inline V broadcast_lanes(Element value) {
    V result;
    for (size_t lane = 0; lane < sizeof(V) / sizeof(Element); ++lane)
        result[lane] = value;
    return result;
}
inline I32x4 broadcast(int32_t value) {
    return broadcast_lanes<I32x4>(value);
}
inline I16x8 broadcast(int16_t value) {
    return broadcast_lanes<I16x8>(value);
}
inline I8x16 broadcast(int8_t value) {
    return broadcast_lanes<I8x16>(value);
}

template <typename V, typename Element>
inline V rounding_high_mul_lanes(V a, V b) {
    constexpr int BITS = std::numeric_limits<Element>::digits;
    V result;
    for (size_t lane = 0; lane < sizeof(V) / sizeof(Element); ++lane) {
        const int64_t product = int64_t{a[lane]} * b[lane];
        const int64_t rounded = (product + (int64_t{1} << (BITS - 1))) >> BITS;
        constexpr int64_t MOST = std::numeric_limits<Element>::max();
        result[lane] = static_cast<Element>(rounded < MOST ? rounded : MOST);
    }
    return result;
}
inline I32x4 rounding_high_mul(I32x4 a, I32x4 b) {
    return rounding_high_mul_lanes<I32x4, int32_t>(a, b);
}
inline I16x8 rounding_high_mul(I16x8 a, I16x8 b) {
    return rounding_high_mul_lanes<I16x8, int16_t>(a, b);
}
inline I8x16 rounding_high_mul(I8x16 a, I8x16 b) {
    return rounding_high_mul_lanes<I8x16, int8_t>(a, b);
}

inline I8x8 load_eight(const int8_t* source) {
    I8x8 result;
    std::memcpy(&result, source, sizeof(result));
    return result;
}
inline void store_eight(int8_t* target, I8x8 value) {
    std::memcpy(target, &value, sizeof(value));
}
inline I16x8 to_int16(I8x8 x) {
    return __builtin_convertvector(x, I16x8);
}
inline I32x4 first_to_int32(I16x8 x) {
    return I32x4{x[0], x[1], x[2], x[3]};
}
inline I32x4 last_to_int32(I16x8 x) {
    return I32x4{x[4], x[5], x[6], x[7]};
}
template <typename Element>
inline Element saturate_lane(int32_t value) {
    using Limits = std::numeric_limits<Element>;
    return static_cast<Element>(value < Limits::min()   ? Limits::min()
                                : value > Limits::max() ? Limits::max()
                                                        : value);
}
inline I16x8 saturate_to_int16(I32x4 first, I32x4 last) {
    I16x8 result;
    for (size_t lane = 0; lane < 4; ++lane) {
        result[lane] = saturate_lane<int16_t>(first[lane]);
        result[lane + 4] = saturate_lane<int16_t>(last[lane]);
    }
    return result;
}
inline I8x8 saturate_to_int8(I16x8 x) {
    I8x8 result;
    for (size_t lane = 0; lane < 8; ++lane)
        result[lane] = saturate_lane<int8_t>(x[lane]);
    return result;
}
inline I8x8 saturate_to_uint8(I16x8 x) {
    I8x8 result;
    for (size_t lane = 0; lane < 8; ++lane)
        result[lane] = static_cast<int8_t>(saturate_lane<uint8_t>(x[lane]));
    return result;
}

#endif

}  // namespace kern::simd
