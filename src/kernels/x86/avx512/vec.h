// The vector of the kernels that are written once for all instruction sets: 16 floats. Everything
// has internal linkage: each file that includes this compiles a copy for itself.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

namespace kern::x86 {
namespace {

using Vec = __m512;
constexpr size_t LANES = 16;

// Accumulators of a tile; with what is multiplied they fit into 32 registers.
constexpr size_t TILE_RESULTS = 16;

inline Vec zero() {
    return _mm512_setzero_ps();
}
inline Vec load(const float* source) {
    return _mm512_loadu_ps(source);
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

// Writes the sum of each vector's lanes; lanes l and l + 8 are added first, then 4, 2 and 1. Each
// step halves two vectors into one.
inline void sum_lanes(const Vec (&sums)[TILE_RESULTS], float* results) {
    // Where the steps leave the sum of each vector.
    constexpr size_t PLACE[] = {0, 2, 1, 3, 8, 10, 9, 11, 4, 6, 5, 7, 12, 14, 13, 15};
    Vec v[TILE_RESULTS];
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
    _mm512_storeu_ps(results, _mm512_add_ps(_mm512_shuffle_ps(v[0], v[1], 0x88),
                                            _mm512_shuffle_ps(v[0], v[1], 0xdd)));
}

}  // namespace
}  // namespace kern::x86
