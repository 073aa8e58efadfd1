// Products of 8-bit integers, 16 bytes of each operand at a time, in 32-bit lanes that wrap around.
// Everything has internal linkage: each file that includes this compiles a copy for itself.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

namespace kern::x86 {
namespace {

using Vec = __m256i;

// Lines of A side by side in a vector, each with four lanes.
constexpr size_t GROUP_LINES = 2;
constexpr size_t TILE_GROUPS = 2;
// Elements that a line gives to a step: 16 bytes once prepared, since the instruction for bytes
// would saturate and the one for 16-bit integers is exact.
constexpr size_t STEP = 8;
constexpr int32_t OFFSET = 0;

inline Vec zero() {
    return _mm256_setzero_si256();
}
inline Vec load(const void* source) {
    return _mm256_loadu_si256(static_cast<const Vec*>(source));
}
inline void store(void* target, Vec value) {
    _mm256_storeu_si256(static_cast<Vec*>(target), value);
}
// A step of one line of B, for every line of A in a vector.
inline Vec repeat(const uint8_t* step) {
    return _mm256_broadcastsi128_si256(
        _mm_loadu_si128(static_cast<const __m128i*>(static_cast<const void*>(step))));
}
inline Vec multiply_add(Vec a, Vec b, Vec sum) {
    return _mm256_add_epi32(sum, _mm256_madd_epi16(a, b));
}

// A step of a line of A as `multiply_add` wants it.
inline void prepare_a(const int8_t* source, uint8_t* target) {
    const __m128i all =
        _mm_loadl_epi64(static_cast<const __m128i*>(static_cast<const void*>(source)));
    _mm_storeu_si128(static_cast<__m128i*>(static_cast<void*>(target)), _mm_cvtepi8_epi16(all));
}
inline void prepare_b(const int8_t* source, uint8_t* target) {
    prepare_a(source, target);
}

// In each half of the register the sums of the four vectors' halves.
inline Vec sum_halves(Vec v0, Vec v1, Vec v2, Vec v3) {
    const Vec t0 = _mm256_add_epi32(_mm256_unpacklo_epi32(v0, v1), _mm256_unpackhi_epi32(v0, v1));
    const Vec t1 = _mm256_add_epi32(_mm256_unpacklo_epi32(v2, v3), _mm256_unpackhi_epi32(v2, v3));
    return _mm256_add_epi32(_mm256_unpacklo_epi64(t0, t1), _mm256_unpackhi_epi64(t0, t1));
}

// The results of GROUP_LINES lines of A with four lines of B.
inline void store_sums(Vec v0, Vec v1, Vec v2, Vec v3, int32_t* c, ptrdiff_t row) {
    const Vec sums = sum_halves(v0, v1, v2, v3);
    const auto put = [c, row](int line, __m128i results) {
        _mm_storeu_si128(static_cast<__m128i*>(static_cast<void*>(c + line * row)), results);
    };
    put(0, _mm256_castsi256_si128(sums));
    put(1, _mm256_extracti128_si256(sums, 1));
}

// Operands as they lie: elements in a register, and lines of A in a tile.
constexpr size_t RAW_STEP = 16;
constexpr size_t RAW_GROUP = 2;

inline Vec raw_a(const int8_t* source) {
    return _mm256_cvtepi8_epi16(
        _mm_loadu_si128(static_cast<const __m128i*>(static_cast<const void*>(source))));
}
inline Vec raw_b(const int8_t* source) {
    return raw_a(source);
}
// The sums of all lanes of four vectors, plus `start`.
inline void store_all_lanes(Vec v0, Vec v1, Vec v2, Vec v3, int32_t start, int32_t* c) {
    const Vec sums = sum_halves(v0, v1, v2, v3);
    const __m128i all =
        _mm_add_epi32(_mm256_castsi256_si128(sums), _mm256_extracti128_si256(sums, 1));
    _mm_storeu_si128(static_cast<__m128i*>(static_cast<void*>(c)),
                     _mm_add_epi32(all, _mm_set1_epi32(start)));
}

}  // namespace
}  // namespace kern::x86
