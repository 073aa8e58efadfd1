// Products of 8-bit integers, two in each 32-bit lane, in sums that wrap around.
// Everything has internal linkage: each file that includes this compiles a copy for itself.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

namespace kern::x86 {
namespace {

using Vec = __m256i;

// Elements of a line that fill a vector once prepared: as 16-bit integers, since the instruction
// for bytes would saturate and the one for those is exact.
constexpr size_t CHUNK = 16;
constexpr int32_t OFFSET = 0;

inline Vec load(const void* source) {
    return _mm256_loadu_si256(static_cast<const Vec*>(source));
}
inline void store(void* target, Vec value) {
    _mm256_storeu_si256(static_cast<Vec*>(target), value);
}
// A step of a line of B in all lanes.
inline Vec repeat(const uint8_t* step) {
    int32_t bytes;
    __builtin_memcpy(&bytes, step, sizeof(bytes));
    return _mm256_set1_epi32(bytes);
}
inline Vec multiply_add(Vec a, Vec b, Vec sum) {
    return _mm256_add_epi32(sum, _mm256_madd_epi16(a, b));
}

inline Vec widen(__m128i elements) {
    return _mm256_cvtepi8_epi16(elements);
}
// The first `count` elements, fewer than a chunk, and zeros behind them.
inline __m128i load_first(const int8_t* source, size_t count) {
    __m128i elements = _mm_setzero_si128();
    __builtin_memcpy(&elements, source, count);
    return elements;
}

// A chunk of a line as `multiply_add` wants it, or the first `count` elements of one.
inline Vec prepare_a(const int8_t* source) {
    return widen(_mm_loadu_si128(static_cast<const __m128i*>(static_cast<const void*>(source))));
}
inline Vec prepare_a(const int8_t* source, size_t count) {
    return widen(load_first(source, count));
}
inline Vec prepare_b(const int8_t* source) {
    return prepare_a(source);
}
inline Vec prepare_b(const int8_t* source, size_t count) {
    return prepare_a(source, count);
}
// Half a chunk of a line of B in both halves of a vector.
inline Vec repeat_half(__m128i elements) {
    return _mm256_broadcastsi128_si256(_mm_cvtepi8_epi16(elements));
}
inline Vec repeat_half(const int8_t* source) {
    return repeat_half(
        _mm_loadl_epi64(static_cast<const __m128i*>(static_cast<const void*>(source))));
}
inline Vec repeat_half(const int8_t* source, size_t count) {
    return repeat_half(load_first(source, count));
}

// Lane j of vector i becomes lane i of vector j.
inline void transpose(Vec (&v)[8]) {
    Vec t[8];
#pragma GCC unroll 4
    for (size_t i = 0; i < 8; i += 2) {
        t[i] = _mm256_unpacklo_epi32(v[i], v[i + 1]);
        t[i + 1] = _mm256_unpackhi_epi32(v[i], v[i + 1]);
    }
    // Now v[i + c]: column c of each half, of vectors i to i + 3.
#pragma GCC unroll 2
    for (size_t i = 0; i < 8; i += 4) {
        v[i] = _mm256_unpacklo_epi64(t[i], t[i + 2]);
        v[i + 1] = _mm256_unpackhi_epi64(t[i], t[i + 2]);
        v[i + 2] = _mm256_unpacklo_epi64(t[i + 1], t[i + 3]);
        v[i + 3] = _mm256_unpackhi_epi64(t[i + 1], t[i + 3]);
    }
#pragma GCC unroll 4
    for (size_t c = 0; c < 4; ++c) {
        t[c] = _mm256_permute2x128_si256(v[c], v[c + 4], 0x20);
        t[c + 4] = _mm256_permute2x128_si256(v[c], v[c + 4], 0x31);
    }
#pragma GCC unroll 8
    for (size_t i = 0; i < 8; ++i)
        v[i] = t[i];
}

inline Vec add(Vec a, Vec b) {
    return _mm256_add_epi32(a, b);
}
inline Vec subtract(Vec a, Vec b) {
    return _mm256_sub_epi32(a, b);
}
// Lane n of each half is the sum of the lanes in that half of vector n.
inline Vec sum_each_half(Vec v0, Vec v1, Vec v2, Vec v3) {
    return _mm256_hadd_epi32(_mm256_hadd_epi32(v0, v1), _mm256_hadd_epi32(v2, v3));
}
// Lane i is the sum of the lanes of vector i.
inline Vec sum_lanes(const Vec (&v)[8]) {
    const Vec first = sum_each_half(v[0], v[1], v[2], v[3]);
    const Vec second = sum_each_half(v[4], v[5], v[6], v[7]);
    return add(_mm256_permute2x128_si256(first, second, 0x20),
               _mm256_permute2x128_si256(first, second, 0x31));
}

// Four elements in each half.
inline Vec repeat_four(const int32_t* four) {
    return _mm256_broadcastsi128_si256(
        _mm_loadu_si128(static_cast<const __m128i*>(static_cast<const void*>(four))));
}
// Result 8 i + 4 h + n is the sum of the lanes in half h of vector n of pair i, less subtracted n.
inline void sum_halves(const Vec (&sums)[2][4], Vec subtracted, int32_t* results) {
#pragma GCC unroll 2
    for (size_t i = 0; i < 2; ++i)
        store(results + 8 * i,
              subtract(sum_each_half(sums[i][0], sums[i][1], sums[i][2], sums[i][3]), subtracted));
}

}  // namespace
}  // namespace kern::x86
