// The vector of the kernels that are written once for all instruction sets: 8 floats. Everything
// has internal linkage: each file that includes this compiles a copy for itself.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

namespace kern::x86 {
namespace {

using Vec = __m256;
constexpr size_t LANES = 8;

// Accumulators of a tile; with what is multiplied they fit into 16 registers.
constexpr size_t TILE_RESULTS = 12;
// The same of a tile of two vectors a line.
constexpr size_t PANEL_TILE_LINES = 6;

inline Vec zero() {
    return _mm256_setzero_ps();
}
inline Vec load(const float* source) {
    return _mm256_loadu_ps(source);
}
inline Vec broadcast(float value) {
    return _mm256_set1_ps(value);
}
// Lanes that are read or written; the others are zeros, or stay as they are.
using Mask = __m256i;
// Those from `begin` to `end`, which may lie outside the vector.
inline Mask lanes(ptrdiff_t begin, ptrdiff_t end) {
    const auto clamp = [](ptrdiff_t lane) {
        return _mm256_set1_epi32(static_cast<int>(lane < 0 ? 0 : lane > 8 ? 8 : lane));
    };
    const __m256i lane = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    return _mm256_andnot_si256(_mm256_cmpgt_epi32(clamp(begin), lane),
                               _mm256_cmpgt_epi32(clamp(end), lane));
}
inline Vec load(const float* source, Mask mask) {
    return _mm256_maskload_ps(source, mask);
}
inline void store(float* target, Mask mask, Vec value) {
    _mm256_maskstore_ps(target, mask, value);
}
inline void store(float* target, Vec value) {
    _mm256_storeu_ps(target, value);
}
// Each lane is zero in one of them.
inline Vec merge(Vec a, Vec b) {
    return _mm256_or_ps(a, b);
}
// The even lanes of both.
inline Vec even_lanes(Vec low, Vec high) {
    const Vec mixed = _mm256_shuffle_ps(low, high, 0x88);
    return _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(mixed), 0xd8));
}
inline Vec add(Vec a, Vec b) {
    return _mm256_add_ps(a, b);
}
inline Vec multiply_add(Vec a, Vec b, Vec sum) {
    return _mm256_fmadd_ps(a, b, sum);
}
// The products of the first `count` lanes, read from memory; the other lanes keep their sums.
inline Vec multiply_add_first(const float* a, const float* b, size_t count, Vec sum) {
    const Mask mask = lanes(0, static_cast<ptrdiff_t>(count));
    const Vec all = _mm256_fmadd_ps(_mm256_maskload_ps(a, mask), _mm256_maskload_ps(b, mask), sum);
    return _mm256_blendv_ps(sum, all, _mm256_castsi256_ps(mask));
}

// Writes the sum of each vector's lanes; lanes l and l + 4 are added first, then 2 and 1. Each step
// halves two vectors into one.
inline void sum_lanes(const Vec (&sums)[TILE_RESULTS], float* results) {
#pragma GCC unroll 3
    for (size_t i = 0; i < TILE_RESULTS; i += 4) {
        const Vec fours0 = add(_mm256_permute2f128_ps(sums[i], sums[i + 1], 0x20),
                               _mm256_permute2f128_ps(sums[i], sums[i + 1], 0x31));
        const Vec fours1 = add(_mm256_permute2f128_ps(sums[i + 2], sums[i + 3], 0x20),
                               _mm256_permute2f128_ps(sums[i + 2], sums[i + 3], 0x31));
        const Vec twos =
            add(_mm256_shuffle_ps(fours0, fours1, 0x44), _mm256_shuffle_ps(fours0, fours1, 0xee));
        const Vec ones =
            add(_mm256_shuffle_ps(twos, twos, 0x88), _mm256_shuffle_ps(twos, twos, 0xdd));
        _mm_storeu_ps(results + i, _mm_unpacklo_ps(_mm256_castps256_ps128(ones),
                                                   _mm256_extractf128_ps(ones, 1)));
    }
}

}  // namespace
}  // namespace kern::x86
