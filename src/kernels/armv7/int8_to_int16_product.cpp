#include "kernels/armv7/int8_to_int16_product.h"

#include <algorithm>
#include <cstring>

#include "kernels/checked_math.h"
#include "kernels/simd/i8x16.h"
#include "kernels/workspace.h"

namespace kern::armv7 {
namespace {

using simd::I16x8;
using simd::I8x8;

constexpr size_t LANES = 8;
constexpr size_t TILE_ROWS = 4;
constexpr size_t TILE_COLUMNS = 2 * LANES;

// The workspace has two areas. In both the values of one k stand together, and behind those of each
// k there is room for a vector, so that a load may begin at any of them. What lies there is loaded
// but never stored.
WorkspaceBundle areas(void* workspace, size_t rows, size_t columns, size_t depth) {
    return {workspace,
            {checked_mul(depth, checked_add(rows, LANES)),
             checked_mul(depth, checked_add(columns, LANES))}};
}

// One operand in its area.
struct Packed {
    const int8_t* values;
    size_t k_step;
};

Packed pack_a(const MatrixMulArgs& args, int8_t* area) {
    const size_t k_step = args.rows + LANES;
    for (size_t i = 0; i < args.rows; ++i) {
        const int8_t* row = at_step(static_cast<const int8_t*>(args.a), i, args.a_row);
        for (size_t k = 0; k < args.depth; ++k)
            area[k * k_step + i] = row[k];
    }
    return {area, k_step};
}

Packed pack_b(const MatrixMulArgs& args, int8_t* area) {
    const size_t k_step = args.columns + LANES;
    const auto* b = static_cast<const int8_t*>(args.b);
    for (size_t k = 0; k < args.depth; ++k)
        std::memcpy(area + k * k_step, at_step(b, k, args.b_k), args.columns);
    return {area, k_step};
}

// ROWS rows by `columns` columns of C, for which it takes VECTORS vectors.
template <size_t ROWS, size_t VECTORS>
void multiply_tile(Packed a, Packed b, size_t depth, int16_t* c, ptrdiff_t c_row, size_t columns) {
    I16x8 sums[ROWS][VECTORS] = {};
    for (; depth != 0; --depth) {
        I8x8 b_values[VECTORS];
#pragma GCC unroll 2
        for (size_t v = 0; v < VECTORS; ++v)
            b_values[v] = simd::load_eight_next(b.values);
#pragma GCC unroll 4
        for (size_t row = 0; row < ROWS; ++row) {
            const I8x8 factor = simd::load_lane_next(a.values);
#pragma GCC unroll 2
            for (size_t v = 0; v < VECTORS; ++v)
                sums[row][v] = simd::add_product(sums[row][v], b_values[v], factor);
        }
        a.values += a.k_step - ROWS;
        b.values += b.k_step - VECTORS * LANES;
    }
#pragma GCC unroll 4
    for (size_t row = 0; row < ROWS; ++row, c += c_row) {
        for (size_t v = 0; v + 1 < VECTORS; ++v)
            simd::store(c + v * LANES, sums[row][v]);
        constexpr size_t LAST = VECTORS - 1;
        simd::store_first(c + LAST * LANES, sums[row][LAST], columns - LAST * LANES);
    }
}

template <size_t VECTORS>
void multiply_rows(const MatrixMulArgs& args, Packed a, Packed b, size_t first, size_t columns) {
    int16_t* c = static_cast<int16_t*>(args.c) + first;
    b.values += first;
    size_t rows = args.rows;
    for (; rows >= TILE_ROWS; rows -= TILE_ROWS, a.values += TILE_ROWS) {
        multiply_tile<TILE_ROWS, VECTORS>(a, b, args.depth, c, args.c_row, columns);
        c = at_step(c, TILE_ROWS, args.c_row);
    }
    switch (rows) {
        case 3:
            return multiply_tile<3, VECTORS>(a, b, args.depth, c, args.c_row, columns);
        case 2:
            return multiply_tile<2, VECTORS>(a, b, args.depth, c, args.c_row, columns);
        case 1:
            return multiply_tile<1, VECTORS>(a, b, args.depth, c, args.c_row, columns);
        default:
            return;
    }
}

}  // namespace

size_t int8_to_int16_product_workspace(size_t rows, size_t columns, size_t depth) {
    return areas(nullptr, rows, columns, depth).total_size();
}

void int8_to_int16_product(const MatrixMulArgs& args, void* workspace) {
    if (args.columns == 0)
        return;
    const WorkspaceBundle bundle = areas(workspace, args.rows, args.columns, args.depth);
    const Packed a = pack_a(args, static_cast<int8_t*>(bundle.get(0)));
    const Packed b = pack_b(args, static_cast<int8_t*>(bundle.get(1)));
    size_t j = 0;
    for (; args.columns - j > LANES; j += std::min(TILE_COLUMNS, args.columns - j))
        multiply_rows<2>(args, a, b, j, std::min(TILE_COLUMNS, args.columns - j));
    if (j < args.columns)
        multiply_rows<1>(args, a, b, j, args.columns - j);
}

}  // namespace kern::armv7
