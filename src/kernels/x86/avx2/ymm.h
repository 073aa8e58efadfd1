// A vector of 8 floats for the kernels of convolutions, which are templates over it. Everything has
// internal linkage: each file that includes this compiles a copy for itself.
#pragma once

#include <immintrin.h>

#include <cstddef>

namespace kern::x86 {
namespace {

struct Ymm {
    using Vec = __m256;
    using Mask = __m256i;  // lanes that are read or written
    static constexpr size_t LANES = 8;

    static Vec zero() { return _mm256_setzero_ps(); }
    static Vec broadcast(float value) { return _mm256_set1_ps(value); }
    static Vec load(const float* source) { return _mm256_loadu_ps(source); }
    static void store(float* target, Vec value) { _mm256_storeu_ps(target, value); }
    static Vec multiply_add(Vec a, Vec b, Vec sum) { return _mm256_fmadd_ps(a, b, sum); }

    // The lanes from `begin` to `end`, which may lie outside the vector.
    static Mask lanes(ptrdiff_t begin, ptrdiff_t end) {
        const auto clamp = [](ptrdiff_t lane) {
            return _mm256_set1_epi32(static_cast<int>(lane < 0 ? 0 : lane > 8 ? 8 : lane));
        };
        const __m256i lane = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
        return _mm256_andnot_si256(_mm256_cmpgt_epi32(clamp(begin), lane),
                                   _mm256_cmpgt_epi32(clamp(end), lane));
    }
    // The other lanes are zeros, or stay as they are.
    static Vec load(const float* source, Mask mask) { return _mm256_maskload_ps(source, mask); }
    static void store(float* target, Mask mask, Vec value) {
        _mm256_maskstore_ps(target, mask, value);
    }
    // Each lane is zero in one of them.
    static Vec merge(Vec a, Vec b) { return _mm256_or_ps(a, b); }
    static Vec even_lanes(Vec low, Vec high) {
        const Vec mixed = _mm256_shuffle_ps(low, high, 0x88);
        return _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(mixed), 0xd8));
    }
};

}  // namespace
}  // namespace kern::x86
