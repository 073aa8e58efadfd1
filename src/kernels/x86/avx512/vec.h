// Sixteen floats in one register, for the kernels that are written once for all instruction sets.
// Everything has internal linkage: each file that includes this compiles a copy for itself.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

namespace kern::x86 {
namespace {

using Vec = __m512;

// The tiles that this register file holds: results of a tile in dot form, most lines of A in one;
// lines of B in a tile whose lanes are lines of A.
constexpr size_t DOT_RESULTS = 16;
constexpr size_t DOT_LINES = 4;
constexpr size_t WIDE_VECTORS = 2;
constexpr size_t WIDE_LINES = 12;

inline Vec zero() {
    return _mm512_setzero_ps();
}
inline Vec load(const float* source) {
    return _mm512_loadu_ps(source);
}
inline Vec broadcast(float value) {
    return _mm512_set1_ps(value);
}
inline void store(float* target, Vec value) {
    _mm512_storeu_ps(target, value);
}
inline Vec add(Vec a, Vec b) {
    return _mm512_add_ps(a, b);
}
inline Vec multiply_add(Vec a, Vec b, Vec sum) {
    return _mm512_fmadd_ps(a, b, sum);
}
// The products of the first `count` lanes, read from memory; the other lanes keep their sums.
inline Vec multiply_add_first(const float* a, const float* b, size_t count, Vec sum) {
    const auto mask = static_cast<__mmask16>((1u << count) - 1);
    return _mm512_mask3_fmadd_ps(_mm512_maskz_loadu_ps(mask, a), _mm512_maskz_loadu_ps(mask, b),
                                 sum, mask);
}

// Writes the sum of each vector's lanes, lanes l and l + 8 added first, then 4, 2 and 1. Each step
// halves two vectors into one.
inline void sum_lanes(const Vec (&sums)[DOT_RESULTS], float* results) {
    // Where the steps leave the sum of each vector.
    constexpr size_t PLACE[] = {0, 2, 1, 3, 8, 10, 9, 11, 4, 6, 5, 7, 12, 14, 13, 15};
    Vec v[DOT_RESULTS];
#pragma GCC unroll 16
    for (size_t i = 0; i < 16; ++i)
        v[PLACE[i]] = sums[i];
#pragma GCC unroll 8
    for (size_t i = 0; i < 8; ++i)
        v[i] = _mm512_add_ps(_mm512_mask_blend_ps(0xff00, v[i], v[i + 8]),
                             _mm512_shuffle_f32x4(v[i], v[i + 8], 0x4e));
#pragma GCC unroll 4
    for (size_t i = 0; i < 4; ++i)
        v[i] = _mm512_add_ps(_mm512_shuffle_f32x4(v[i], v[i + 4], 0x88),
                             _mm512_shuffle_f32x4(v[i], v[i + 4], 0xdd));
#pragma GCC unroll 2
    for (size_t i = 0; i < 2; ++i)
        v[i] = _mm512_add_ps(_mm512_shuffle_ps(v[i], v[i + 2], 0x44),
                             _mm512_shuffle_ps(v[i], v[i + 2], 0xee));
    store(results,
          _mm512_add_ps(_mm512_shuffle_ps(v[0], v[1], 0x88), _mm512_shuffle_ps(v[0], v[1], 0xdd)));
}

// Element (i, j) of a block of 16 x 16 goes to (j, i). Steps are in elements.
inline void transpose_block(const float* source, ptrdiff_t source_row, float* target,
                            ptrdiff_t target_row) {
    Vec v[16], t[16];
#pragma GCC unroll 16
    for (int i = 0; i < 16; ++i)
        v[i] = load(source + i * source_row);
        // Turn 4 x 4 blocks, each within a quarter of the registers.
#pragma GCC unroll 4
    for (int i = 0; i < 16; i += 4) {
        const Vec low0 = _mm512_unpacklo_ps(v[i], v[i + 1]);
        const Vec high0 = _mm512_unpackhi_ps(v[i], v[i + 1]);
        const Vec low1 = _mm512_unpacklo_ps(v[i + 2], v[i + 3]);
        const Vec high1 = _mm512_unpackhi_ps(v[i + 2], v[i + 3]);
        t[i] = _mm512_shuffle_ps(low0, low1, 0x44);
        t[i + 1] = _mm512_shuffle_ps(low0, low1, 0xee);
        t[i + 2] = _mm512_shuffle_ps(high0, high1, 0x44);
        t[i + 3] = _mm512_shuffle_ps(high0, high1, 0xee);
    }
    // Then the blocks themselves.
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i) {
        const Vec even0 = _mm512_shuffle_f32x4(t[i], t[i + 4], 0x88);
        const Vec odd0 = _mm512_shuffle_f32x4(t[i], t[i + 4], 0xdd);
        const Vec even1 = _mm512_shuffle_f32x4(t[i + 8], t[i + 12], 0x88);
        const Vec odd1 = _mm512_shuffle_f32x4(t[i + 8], t[i + 12], 0xdd);
        store(target + i * target_row, _mm512_shuffle_f32x4(even0, even1, 0x88));
        store(target + (i + 4) * target_row, _mm512_shuffle_f32x4(odd0, odd1, 0x88));
        store(target + (i + 8) * target_row, _mm512_shuffle_f32x4(even0, even1, 0xdd));
        store(target + (i + 12) * target_row, _mm512_shuffle_f32x4(odd0, odd1, 0xdd));
    }
}

}  // namespace
}  // namespace kern::x86
