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

inline Vec zero() {
    return _mm256_setzero_ps();
}
inline Vec load(const float* source) {
    return _mm256_loadu_ps(source);
}
inline Vec add(Vec a, Vec b) {
    return _mm256_add_ps(a, b);
}
inline Vec multiply_add(Vec a, Vec b, Vec sum) {
    return _mm256_fmadd_ps(a, b, sum);
}
// The products of the first `count` lanes, read from memory; the other lanes keep their sums.
inline Vec multiply_add_first(const float* a, const float* b, size_t count, Vec sum) {
    const __m256i mask = _mm256_cmpgt_epi32(_mm256_set1_epi32(static_cast<int>(count)),
                                            _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
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
