// Products of 8-bit integers, 16 bytes of each operand at a time, in 32-bit lanes that wrap around.
// Everything has internal linkage: each file that includes this compiles a copy for itself.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

namespace kern::x86 {
namespace {

using Vec = __m512i;

// Lines of A side by side in a vector, each with four lanes.
constexpr size_t GROUP_LINES = 4;
constexpr size_t TILE_GROUPS = 4;
// Elements that a line gives to a step: 16 bytes once prepared.
constexpr size_t STEP = 16;

// The instruction takes one operand as unsigned. Elements of B are moved up by 128, and every sum
// begins at -128 times the sum of the line of A.
constexpr int32_t OFFSET = 128;

inline Vec zero() {
    return _mm512_setzero_si512();
}
inline Vec load(const void* source) {
    return _mm512_loadu_si512(source);
}
inline void store(void* target, Vec value) {
    _mm512_storeu_si512(target, value);
}
// A step of one line of B, for every line of A in a vector.
inline Vec repeat(const uint8_t* step) {
    return _mm512_broadcast_i32x4(
        _mm_loadu_si128(static_cast<const __m128i*>(static_cast<const void*>(step))));
}
inline Vec multiply_add(Vec a, Vec b, Vec sum) {
    return _mm512_dpbusd_epi32(sum, b, a);
}

// A step of a line of A as `multiply_add` wants it.
inline void prepare_a(const int8_t* source, uint8_t* target) {
    __builtin_memcpy(target, source, STEP);
}
inline void prepare_b(const int8_t* source, uint8_t* target) {
    const __m128i all =
        _mm_loadu_si128(static_cast<const __m128i*>(static_cast<const void*>(source)));
    _mm_storeu_si128(static_cast<__m128i*>(static_cast<void*>(target)),
                     _mm_xor_si128(all, _mm_set1_epi8(-128)));
}

// In each quarter of the register the sums of the four vectors' quarters.
inline Vec sum_quarters(Vec v0, Vec v1, Vec v2, Vec v3) {
    const Vec t0 = _mm512_add_epi32(_mm512_unpacklo_epi32(v0, v1), _mm512_unpackhi_epi32(v0, v1));
    const Vec t1 = _mm512_add_epi32(_mm512_unpacklo_epi32(v2, v3), _mm512_unpackhi_epi32(v2, v3));
    return _mm512_add_epi32(_mm512_unpacklo_epi64(t0, t1), _mm512_unpackhi_epi64(t0, t1));
}

// The results of GROUP_LINES lines of A with four lines of B.
inline void store_sums(Vec v0, Vec v1, Vec v2, Vec v3, int32_t* c, ptrdiff_t row) {
    const Vec sums = sum_quarters(v0, v1, v2, v3);
    const auto put = [c, row](int line, __m128i results) {
        _mm_storeu_si128(static_cast<__m128i*>(static_cast<void*>(c + line * row)), results);
    };
    put(0, _mm512_castsi512_si128(sums));
    put(1, _mm512_extracti32x4_epi32(sums, 1));
    put(2, _mm512_extracti32x4_epi32(sums, 2));
    put(3, _mm512_extracti32x4_epi32(sums, 3));
}

// Operands as they lie: elements in a register, and lines of A in a tile.
constexpr size_t RAW_STEP = 64;
constexpr size_t RAW_GROUP = 4;

inline Vec raw_a(const int8_t* source) {
    return load(source);
}
inline Vec raw_b(const int8_t* source) {
    return _mm512_xor_si512(load(source), _mm512_set1_epi8(-128));
}
// The sums of all lanes of four vectors, plus `start`.
inline void store_all_lanes(Vec v0, Vec v1, Vec v2, Vec v3, int32_t start, int32_t* c) {
    const Vec sums = sum_quarters(v0, v1, v2, v3);
    const __m256i halves =
        _mm256_add_epi32(_mm512_castsi512_si256(sums), _mm512_extracti64x4_epi64(sums, 1));
    const __m128i all =
        _mm_add_epi32(_mm256_castsi256_si128(halves), _mm256_extracti128_si256(halves, 1));
    _mm_storeu_si128(static_cast<__m128i*>(static_cast<void*>(c)),
                     _mm_add_epi32(all, _mm_set1_epi32(start)));
}

}  // namespace
}  // namespace kern::x86
