// Products of 8-bit integers, four in each 32-bit lane, in sums that wrap around.
// Everything has internal linkage: each file that includes this compiles a copy for itself.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

namespace kern::x86 {
namespace {

using Vec = __m512i;

// Elements of a line that fill a vector once prepared.
constexpr size_t CHUNK = 64;

// The instruction takes one operand as unsigned. Elements of B are moved up by 128, and every sum
// begins at -128 times the sum of the line of A.
constexpr int32_t OFFSET = 128;

inline Vec load(const void* source) {
    return _mm512_loadu_si512(source);
}
inline void store(void* target, Vec value) {
    _mm512_storeu_si512(target, value);
}
// A step of a line of B in all lanes.
inline Vec repeat(const uint8_t* step) {
    int32_t bytes;
    __builtin_memcpy(&bytes, step, sizeof(bytes));
    return _mm512_set1_epi32(bytes);
}
// Not the intrinsic: with that GCC 12 moves all sums of a tile to other registers at every step.
inline Vec multiply_add(Vec a, Vec b, Vec sum) {
    asm("vpdpbusd %1, %2, %0" : "+v"(sum) : "vm"(a), "v"(b));
    return sum;
}

// The first `count` elements, fewer than a chunk, and zeros behind them.
inline Vec load_first(const int8_t* source, size_t count) {
    return _mm512_maskz_loadu_epi8((uint64_t{1} << count) - 1, source);
}

// A chunk of a line as `multiply_add` wants it, or the first `count` elements of one.
inline Vec prepare_a(const int8_t* source) {
    return load(source);
}
inline Vec prepare_a(const int8_t* source, size_t count) {
    return load_first(source, count);
}
inline Vec move_up(Vec b) {
    return _mm512_xor_si512(b, _mm512_set1_epi8(-128));
}
inline Vec prepare_b(const int8_t* source) {
    return move_up(load(source));
}
inline Vec prepare_b(const int8_t* source, size_t count) {
    return move_up(load_first(source, count));
}
// Half a chunk of a line of B in both halves of a vector.
inline Vec repeat_half(const int8_t* source) {
    const auto* half = static_cast<const __m256i*>(static_cast<const void*>(source));
    return move_up(_mm512_broadcast_i64x4(_mm256_loadu_si256(half)));
}
inline Vec repeat_half(const int8_t* source, size_t count) {
    return move_up(_mm512_broadcast_i64x4(_mm512_castsi512_si256(load_first(source, count))));
}

// Lane j of vector i becomes lane i of vector j.
inline void transpose(Vec (&v)[16]) {
    Vec t[16];
#pragma GCC unroll 8
    for (size_t i = 0; i < 16; i += 2) {
        t[i] = _mm512_unpacklo_epi32(v[i], v[i + 1]);
        t[i + 1] = _mm512_unpackhi_epi32(v[i], v[i + 1]);
    }
    // Now v[i + c]: column c of each quarter, of vectors i to i + 3.
#pragma GCC unroll 4
    for (size_t i = 0; i < 16; i += 4) {
        v[i] = _mm512_unpacklo_epi64(t[i], t[i + 2]);
        v[i + 1] = _mm512_unpackhi_epi64(t[i], t[i + 2]);
        v[i + 2] = _mm512_unpacklo_epi64(t[i + 1], t[i + 3]);
        v[i + 3] = _mm512_unpackhi_epi64(t[i + 1], t[i + 3]);
    }
#pragma GCC unroll 4
    for (size_t c = 0; c < 4; ++c) {
        t[c] = _mm512_shuffle_i32x4(v[c], v[c + 4], 0x88);      // quarters 0 and 2
        t[c + 4] = _mm512_shuffle_i32x4(v[c], v[c + 4], 0xdd);  // 1 and 3
        t[c + 8] = _mm512_shuffle_i32x4(v[c + 8], v[c + 12], 0x88);
        t[c + 12] = _mm512_shuffle_i32x4(v[c + 8], v[c + 12], 0xdd);
    }
#pragma GCC unroll 4
    for (size_t c = 0; c < 4; ++c) {
        v[c] = _mm512_shuffle_i32x4(t[c], t[c + 8], 0x88);
        v[c + 4] = _mm512_shuffle_i32x4(t[c + 4], t[c + 12], 0x88);
        v[c + 8] = _mm512_shuffle_i32x4(t[c], t[c + 8], 0xdd);
        v[c + 12] = _mm512_shuffle_i32x4(t[c + 4], t[c + 12], 0xdd);
    }
}

inline Vec add(Vec a, Vec b) {
    return _mm512_add_epi32(a, b);
}
inline Vec subtract(Vec a, Vec b) {
    return _mm512_sub_epi32(a, b);
}
// Lane i is the sum of the lanes of vector i. Each step halves two vectors into one.
inline Vec sum_lanes(const Vec (&sums)[16]) {
    // Where the steps leave the sum of each vector.
    constexpr size_t PLACE[] = {0, 2, 1, 3, 8, 10, 9, 11, 4, 6, 5, 7, 12, 14, 13, 15};
    Vec v[16];
#pragma GCC unroll 16
    for (size_t i = 0; i < 16; ++i)
        v[PLACE[i]] = sums[i];
#pragma GCC unroll 8
    for (size_t i = 0; i < 8; ++i)
        v[i] = add(_mm512_mask_blend_epi32(0xff00, v[i], v[i + 8]),
                   _mm512_shuffle_i32x4(v[i], v[i + 8], 0x4e));
#pragma GCC unroll 4
    for (size_t i = 0; i < 4; ++i)
        v[i] = add(_mm512_shuffle_i32x4(v[i], v[i + 4], 0x88),
                   _mm512_shuffle_i32x4(v[i], v[i + 4], 0xdd));
#pragma GCC unroll 2
    for (size_t i = 0; i < 2; ++i)
        v[i] = add(_mm512_unpacklo_epi32(v[i], v[i + 2]), _mm512_unpackhi_epi32(v[i], v[i + 2]));
    return add(_mm512_unpacklo_epi64(v[0], v[1]), _mm512_unpackhi_epi64(v[0], v[1]));
}

// Four elements in each quarter.
inline Vec repeat_four(const int32_t* four) {
    return _mm512_broadcast_i32x4(
        _mm_loadu_si128(static_cast<const __m128i*>(static_cast<const void*>(four))));
}
// Result 8 i + 4 h + n is the sum of the lanes in half h of vector n of pair i, less subtracted n.
inline void sum_halves(const Vec (&sums)[2][4], Vec subtracted, int32_t* results) {
    Vec v[4];  // quarter 2 i + h: of half h of pair i
#pragma GCC unroll 4
    for (size_t n = 0; n < 4; ++n)
        v[n] = add(_mm512_shuffle_i32x4(sums[0][n], sums[1][n], 0x88),
                   _mm512_shuffle_i32x4(sums[0][n], sums[1][n], 0xdd));
#pragma GCC unroll 2
    for (size_t n = 0; n < 4; n += 2)
        v[n] = add(_mm512_unpacklo_epi32(v[n], v[n + 1]), _mm512_unpackhi_epi32(v[n], v[n + 1]));
    const Vec ones = add(_mm512_unpacklo_epi64(v[0], v[2]), _mm512_unpackhi_epi64(v[0], v[2]));
    store(results, subtract(ones, subtracted));
}

}  // namespace
}  // namespace kern::x86
