// A vector of 16 floats for the kernels of convolutions, as Ymm is one of 8.
#pragma once

#include <immintrin.h>

#include <cstddef>

namespace kern::x86 {
namespace {

struct Zmm {
    using Vec = __m512;
    using Mask = __mmask16;
    static constexpr size_t LANES = 16;

    static Vec zero() { return _mm512_setzero_ps(); }
    static Vec broadcast(float value) { return _mm512_set1_ps(value); }
    static Vec load(const float* source) { return _mm512_loadu_ps(source); }
    static void store(float* target, Vec value) { _mm512_storeu_ps(target, value); }
    static Vec multiply_add(Vec a, Vec b, Vec sum) { return _mm512_fmadd_ps(a, b, sum); }

    static Mask lanes(ptrdiff_t begin, ptrdiff_t end) {
        const auto below = [](ptrdiff_t lane) {
            return lane <= 0 ? 0u : lane >= 16 ? 0xffffu : (1u << lane) - 1;
        };
        return static_cast<Mask>(below(end) & ~below(begin));
    }
    static Vec load(const float* source, Mask mask) { return _mm512_maskz_loadu_ps(mask, source); }
    static void store(float* target, Mask mask, Vec value) {
        _mm512_mask_storeu_ps(target, mask, value);
    }
    static Vec merge(Vec a, Vec b) { return _mm512_or_ps(a, b); }
    static Vec even_lanes(Vec low, Vec high) {
        const __m512i order =
            _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
        return _mm512_permutex2var_ps(low, order, high);
    }
};

}  // namespace
}  // namespace kern::x86
