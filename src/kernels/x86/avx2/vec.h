// Sixteen floats in two registers, for the kernels that are written once for all instruction sets.
// Everything has internal linkage: each file that includes this compiles a copy for itself.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

namespace kern::x86 {
namespace {

struct Vec {
    __m256 low, high;
};

// The tiles that this register file holds: results of a tile in dot form, most lines of A in one;
// lines of B in a tile whose lanes are lines of A.
constexpr size_t DOT_RESULTS = 4;
constexpr size_t DOT_LINES = 2;
constexpr size_t WIDE_VECTORS = 1;
constexpr size_t WIDE_LINES = 6;

inline Vec zero() {
    return {_mm256_setzero_ps(), _mm256_setzero_ps()};
}
inline Vec load(const float* source) {
    return {_mm256_loadu_ps(source), _mm256_loadu_ps(source + 8)};
}
inline Vec broadcast(float value) {
    const __m256 all = _mm256_set1_ps(value);
    return {all, all};
}
inline void store(float* target, Vec value) {
    _mm256_storeu_ps(target, value.low);
    _mm256_storeu_ps(target + 8, value.high);
}
inline Vec add(Vec a, Vec b) {
    return {_mm256_add_ps(a.low, b.low), _mm256_add_ps(a.high, b.high)};
}
inline Vec multiply_add(Vec a, Vec b, Vec sum) {
    return {_mm256_fmadd_ps(a.low, b.low, sum.low), _mm256_fmadd_ps(a.high, b.high, sum.high)};
}
// The products of the first `count` lanes, read from memory; the other lanes keep their sums.
inline Vec multiply_add_first(const float* a, const float* b, size_t count, Vec sum) {
    const __m256i limit = _mm256_set1_epi32(static_cast<int>(count));
    const __m256i low = _mm256_cmpgt_epi32(limit, _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
    const __m256i high = _mm256_cmpgt_epi32(limit, _mm256_setr_epi32(8, 9, 10, 11, 12, 13, 14, 15));
    const Vec all =
        multiply_add({_mm256_maskload_ps(a, low), _mm256_maskload_ps(a + 8, high)},
                     {_mm256_maskload_ps(b, low), _mm256_maskload_ps(b + 8, high)}, sum);
    return {_mm256_blendv_ps(sum.low, all.low, _mm256_castsi256_ps(low)),
            _mm256_blendv_ps(sum.high, all.high, _mm256_castsi256_ps(high))};
}

// Writes the sum of each vector's lanes, lanes l and l + 8 added first, then 4, 2 and 1. Each step
// halves two vectors into one.
inline void sum_lanes(const Vec (&sums)[DOT_RESULTS], float* results) {
    __m256 v[DOT_RESULTS];
#pragma GCC unroll 4
    for (size_t i = 0; i < 4; ++i)
        v[i] = _mm256_add_ps(sums[i].low, sums[i].high);
#pragma GCC unroll 2
    for (size_t i = 0; i < 4; i += 2)
        v[i] = _mm256_add_ps(_mm256_permute2f128_ps(v[i], v[i + 1], 0x20),
                             _mm256_permute2f128_ps(v[i], v[i + 1], 0x31));
    const __m256 pairs =
        _mm256_add_ps(_mm256_shuffle_ps(v[0], v[2], 0x44), _mm256_shuffle_ps(v[0], v[2], 0xee));
    const __m256 ones =
        _mm256_add_ps(_mm256_shuffle_ps(pairs, pairs, 0x88), _mm256_shuffle_ps(pairs, pairs, 0xdd));
    _mm_storeu_ps(results,
                  _mm_unpacklo_ps(_mm256_castps256_ps128(ones), _mm256_extractf128_ps(ones, 1)));
}

inline void transpose_8(const float* source, ptrdiff_t source_row, float* target,
                        ptrdiff_t target_row) {
    __m256 v[8], t[8];
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i)
        v[i] = _mm256_loadu_ps(source + i * source_row);
#pragma GCC unroll 2
    for (int i = 0; i < 8; i += 4) {
        const __m256 low0 = _mm256_unpacklo_ps(v[i], v[i + 1]);
        const __m256 high0 = _mm256_unpackhi_ps(v[i], v[i + 1]);
        const __m256 low1 = _mm256_unpacklo_ps(v[i + 2], v[i + 3]);
        const __m256 high1 = _mm256_unpackhi_ps(v[i + 2], v[i + 3]);
        t[i] = _mm256_shuffle_ps(low0, low1, 0x44);
        t[i + 1] = _mm256_shuffle_ps(low0, low1, 0xee);
        t[i + 2] = _mm256_shuffle_ps(high0, high1, 0x44);
        t[i + 3] = _mm256_shuffle_ps(high0, high1, 0xee);
    }
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i) {
        _mm256_storeu_ps(target + i * target_row, _mm256_permute2f128_ps(t[i], t[i + 4], 0x20));
        _mm256_storeu_ps(target + (i + 4) * target_row,
                         _mm256_permute2f128_ps(t[i], t[i + 4], 0x31));
    }
}

// Element (i, j) of a block of 16 x 16 goes to (j, i). Steps are in elements.
inline void transpose_block(const float* source, ptrdiff_t source_row, float* target,
                            ptrdiff_t target_row) {
    for (ptrdiff_t i = 0; i < 16; i += 8) {
        for (ptrdiff_t j = 0; j < 16; j += 8)
            transpose_8(source + i * source_row + j, source_row, target + j * target_row + i,
                        target_row);
    }
}

}  // namespace
}  // namespace kern::x86
