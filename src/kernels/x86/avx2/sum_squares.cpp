// Sums of squares along rows, each from left to right: a lane is a row, for 8 rows at a time. For
// every set of this level: wider vectors would transpose more than they add.
#include <immintrin.h>

#include "kernels/x86/kernel_table.h"

namespace kern::x86 {
namespace {

constexpr size_t LANES = 8;

using Rows = const float* [LANES];

// Adds the squares of columns k to k + 7, one column after the other.
inline __m256 add_columns(const Rows& rows, size_t k, __m256 sums) {
    __m256 fours[LANES];  // row i and row i + 4, four columns of each
#pragma GCC unroll 8
    for (size_t i = 0; i < LANES; ++i) {
        const size_t row = i % 4, column = k + i / 4 * 4;
        const __m256 x =
            _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(rows[row] + column)),
                                 _mm_loadu_ps(rows[row + 4] + column), 1);
        fours[i] = _mm256_mul_ps(x, x);
    }
#pragma GCC unroll 2
    for (size_t i = 0; i < LANES; i += 4) {
        const __m256 low01 = _mm256_unpacklo_ps(fours[i], fours[i + 1]);
        const __m256 high01 = _mm256_unpackhi_ps(fours[i], fours[i + 1]);
        const __m256 low23 = _mm256_unpacklo_ps(fours[i + 2], fours[i + 3]);
        const __m256 high23 = _mm256_unpackhi_ps(fours[i + 2], fours[i + 3]);
        sums = _mm256_add_ps(sums, _mm256_shuffle_ps(low01, low23, 0x44));
        sums = _mm256_add_ps(sums, _mm256_shuffle_ps(low01, low23, 0xee));
        sums = _mm256_add_ps(sums, _mm256_shuffle_ps(high01, high23, 0x44));
        sums = _mm256_add_ps(sums, _mm256_shuffle_ps(high01, high23, 0xee));
    }
    return sums;
}

inline __m256 add_column(const Rows& rows, size_t k, __m256 sums) {
    const __m256 x = _mm256_setr_ps(rows[0][k], rows[1][k], rows[2][k], rows[3][k], rows[4][k],
                                    rows[5][k], rows[6][k], rows[7][k]);
    return _mm256_add_ps(sums, _mm256_mul_ps(x, x));
}

}  // namespace

// Two groups of rows at a time: the additions of one wait for each other.
void avx2::sum_squares(const float* first, size_t row_step, size_t row_count, size_t length,
                       float* results) {
    constexpr size_t GROUPS = 2;
    for (size_t row = 0; row < row_count; row += GROUPS * LANES) {
        Rows rows[GROUPS];
        __m256 sums[GROUPS];
        for (size_t group = 0; group < GROUPS; ++group) {
            sums[group] = _mm256_set1_ps(-0.0f);
            for (size_t lane = 0; lane < LANES; ++lane) {  // the last row for those that miss
                const size_t wanted = row + group * LANES + lane;
                rows[group][lane] =
                    first + (wanted < row_count ? wanted : row_count - 1) * row_step;
            }
        }
        size_t k = 0;
        for (; k + LANES <= length; k += LANES)
            for (size_t group = 0; group < GROUPS; ++group)
                sums[group] = add_columns(rows[group], k, sums[group]);
        for (; k < length; ++k)
            for (size_t group = 0; group < GROUPS; ++group)
                sums[group] = add_column(rows[group], k, sums[group]);
        float sum[GROUPS * LANES];
        for (size_t group = 0; group < GROUPS; ++group)
            _mm256_storeu_ps(sum + group * LANES, sums[group]);
        for (size_t i = 0; i < GROUPS * LANES && row + i < row_count; ++i)
            results[row + i] = sum[i];
    }
}

}  // namespace kern::x86
