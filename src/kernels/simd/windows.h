// Lanes that begin between those of two neighbouring vectors, and loads that tell even elements
// from odd ones: what a filter sees as it moves along a row.
#pragma once

#include "kernels/simd/vector_types.h"

namespace kern::simd {

// 16 bytes, after which `source` moves on by `step` elements.
template <typename Element>
inline Vector<Element> load_and_move(const Element*& source, ptrdiff_t step) {
    const Vector<Element> result = load(source);
    source += step;
    keep_in_register(source);
    return result;
}

// Of neighbours in memory: those at even offsets and those at odd ones.
template <typename V>
struct EvenOdd {
    V even, odd;
};

#if defined(__ARM_NEON)

// The last lanes of `a`, from FIRST on, and behind them the first ones of `b`.
template <int FIRST>
inline F32x4 lanes_from(F32x4 a, F32x4 b) {
    return vextq_f32(a, b, FIRST);
}
template <int FIRST>
inline I8x8 lanes_from(I8x8 a, I8x8 b) {
    return vext_s8(a, b, FIRST);
}
inline EvenOdd<F32x4> load_even_odd(const float* source) {
    const float32x4x2_t loaded = vld2q_f32(source);
    return {loaded.val[0], loaded.val[1]};
}
inline EvenOdd<I8x8> load_even_odd(const int8_t* source) {
    const int8x8x2_t loaded = vld2_s8(source);
    return {loaded.val[0], loaded.val[1]};
}
// The even and the odd lanes, each in the first half of a vector; the rest is anything.
inline EvenOdd<F32x4> even_odd_lanes(F32x4 values) {
    const float32x4x2_t lanes = vuzpq_f32(values, values);
    return {lanes.val[0], lanes.val[1]};
}
inline I8x8 first_eight(I8x16 values) {
    return vget_low_s8(values);
}
inline I8x8 last_eight(I8x16 values) {
    return vget_high_s8(values);
}

#else

template <int FIRST>
inline F32x4 lanes_from(F32x4 a, F32x4 b) {
    return __builtin_shufflevector(a, b, FIRST, FIRST + 1, FIRST + 2, FIRST + 3);
}
template <int FIRST>
inline I8x8 lanes_from(I8x8 a, I8x8 b) {
    return __builtin_shufflevector(a, b, FIRST, FIRST + 1, FIRST + 2, FIRST + 3, FIRST + 4,
                                   FIRST + 5, FIRST + 6, FIRST + 7);
}
inline EvenOdd<F32x4> load_even_odd(const float* source) {
    const F32x4 a = load(source), b = load(source + 4);
    return {__builtin_shufflevector(a, b, 0, 2, 4, 6), __builtin_shufflevector(a, b, 1, 3, 5, 7)};
}
inline EvenOdd<I8x8> load_even_odd(const int8_t* source) {
    const I8x16 a = load(source);
    return {__builtin_shufflevector(a, a, 0, 2, 4, 6, 8, 10, 12, 14),
            __builtin_shufflevector(a, a, 1, 3, 5, 7, 9, 11, 13, 15)};
}
inline EvenOdd<F32x4> even_odd_lanes(F32x4 values) {
    return {__builtin_shufflevector(values, values, 0, 2, 0, 2),
            __builtin_shufflevector(values, values, 1, 3, 1, 3)};
}
inline I8x8 first_eight(I8x16 values) {
    return __builtin_shufflevector(values, values, 0, 1, 2, 3, 4, 5, 6, 7);
}
inline I8x8 last_eight(I8x16 values) {
    return __builtin_shufflevector(values, values, 8, 9, 10, 11, 12, 13, 14, 15);
}

#endif

}  // namespace kern::simd
