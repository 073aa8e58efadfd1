#include "kernels/armv7/float_small.h"

#include <algorithm>

#include "kernels/operators/matrix_mul_args.h"
#include "kernels/simd/f32x4.h"

namespace kern::armv7 {
namespace {

using simd::F32x4;

constexpr size_t LANES = simd::LANES<float>;

// Vectors of C that are summed at once: with the rows' own, they leave room in sixteen registers.
constexpr size_t vectors_at_once(size_t rows) {
    return rows <= 3 ? 4 : rows <= 6 ? 2 : 1;
}

// ROWS x (4 * VECTORS) elements of C from column `column` on. Each sum walks down B's columns. Of a
// last vector that is PARTIAL only `count` lanes are touched; the others add up zeros.
template <size_t ROWS, size_t VECTORS, bool PARTIAL>
void multiply_columns(const FloatProduct& product, size_t column, size_t count) {
    F32x4 sums[ROWS][VECTORS];
#pragma GCC unroll 8
    for (auto& row : sums) {
#pragma GCC unroll 4
        for (auto& sum : row)
            sum = simd::zero();
    }
    const float* b = product.b + column;
    for (size_t k = 0; k < product.depth; ++k, b += product.ldb) {
        F32x4 b_values[VECTORS];
#pragma GCC unroll 4
        for (size_t vector = 0; vector < VECTORS; ++vector)
            b_values[vector] =
                PARTIAL ? simd::load_first(b, count) : simd::load(b + vector * LANES);
#pragma GCC unroll 8
        for (size_t row = 0; row < ROWS; ++row) {
            const F32x4 factor = simd::broadcast(at_step(product.a, row, product.lda)[k]);
#pragma GCC unroll 4
            for (size_t vector = 0; vector < VECTORS; ++vector)
                sums[row][vector] = simd::add_product(sums[row][vector], factor, b_values[vector]);
        }
    }
#pragma GCC unroll 8
    for (size_t row = 0; row < ROWS; ++row) {
        float* c = at_step(product.c, row, product.ldc) + column;
#pragma GCC unroll 4
        for (size_t vector = 0; vector < VECTORS; ++vector) {
            if (PARTIAL)
                simd::store_first(c, sums[row][vector], count);
            else
                simd::store(c + vector * LANES, sums[row][vector]);
        }
    }
}

template <size_t ROWS>
void multiply_rows(const FloatProduct& product) {
    constexpr size_t VECTORS = vectors_at_once(ROWS);
    size_t column = 0;
    for (; column + VECTORS * LANES <= product.columns; column += VECTORS * LANES)
        multiply_columns<ROWS, VECTORS, false>(product, column, LANES);
    for (; column + LANES <= product.columns; column += LANES)
        multiply_columns<ROWS, 1, false>(product, column, LANES);
    if (column < product.columns)
        multiply_columns<ROWS, 1, true>(product, column, product.columns - column);
}

// Up to four elements of a C of one column, a lane for each row of A. Four values of each row are
// transposed in registers, so that a lane adds its row's products one by one.
void multiply_vector(const FloatProduct& product, size_t row, size_t count) {
    const float* rows[LANES];
    for (size_t lane = 0; lane < LANES; ++lane)
        rows[lane] = at_step(product.a, row + std::min(lane, count - 1), product.lda);
    F32x4 sum = simd::zero();
    const auto add_up_to_four = [&](size_t k, size_t depth) {
        F32x4 a0 = simd::load_first(rows[0] + k, depth);
        F32x4 a1 = simd::load_first(rows[1] + k, depth);
        F32x4 a2 = simd::load_first(rows[2] + k, depth);
        F32x4 a3 = simd::load_first(rows[3] + k, depth);
        simd::transpose(a0, a1, a2, a3);
        const F32x4 b = simd::load_first(product.b + k, depth);
        sum = simd::add_product_lane<0>(sum, a0, b);
        if (depth > 1)
            sum = simd::add_product_lane<1>(sum, a1, b);
        if (depth > 2)
            sum = simd::add_product_lane<2>(sum, a2, b);
        if (depth > 3)
            sum = simd::add_product_lane<3>(sum, a3, b);
    };
    size_t k = 0;
    for (; k + LANES <= product.depth; k += LANES)
        add_up_to_four(k, LANES);
    if (k < product.depth)
        add_up_to_four(k, product.depth - k);
    float values[LANES];
    simd::store(values, sum);
    for (size_t lane = 0; lane < count; ++lane)
        *at_step(product.c, row + lane, product.ldc) = values[lane];
}

}  // namespace

void small_float_product(const FloatProduct& product) {
    if (product.columns == 1 && product.ldb == 1) {
        for (size_t row = 0; row < product.rows; row += LANES)
            multiply_vector(product, row, std::min(LANES, product.rows - row));
        return;
    }
    switch (product.rows) {
        case 1:
            return multiply_rows<1>(product);
        case 2:
            return multiply_rows<2>(product);
        case 3:
            return multiply_rows<3>(product);
        case 4:
            return multiply_rows<4>(product);
        case 5:
            return multiply_rows<5>(product);
        case 6:
            return multiply_rows<6>(product);
        case 7:
            return multiply_rows<7>(product);
        case 8:
            return multiply_rows<8>(product);
        default:
            return;
    }
}

}  // namespace kern::armv7
