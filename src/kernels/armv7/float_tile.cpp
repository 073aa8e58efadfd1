#include "kernels/armv7/float_tile.h"

#include <algorithm>

#include "kernels/armv7/float_product.h"
#include "kernels/operators/matrix_mul_args.h"
#include "kernels/simd/f32x4.h"

namespace kern::armv7 {
namespace {

using simd::F32x4;

constexpr size_t LANES = simd::LANES<float>;

// One column of a tile.
struct Column {
    F32x4 low, middle, high;
};
static_assert(sizeof(Column) == TILE_ROWS * sizeof(float), "a tile is one Column high");

// Four rows of a tile, a vector for each column. Sums are named members of named variables: the
// compiler would keep an array of them in memory.
struct Rows {
    F32x4 column0, column1, column2, column3;
};

Column load_column(const float* c, size_t rows, float factor) {
    if (factor == 0)
        return {simd::zero(), simd::zero(), simd::zero()};
    float values[TILE_ROWS] = {};
    if (rows < TILE_ROWS) {
        std::copy(c, c + rows, values);
        c = values;
    }
    const F32x4 factors = simd::broadcast(factor);
    const auto load = [&](size_t row) {
        const F32x4 value = simd::load(c + row);
        return factor == 1 ? value : simd::mul(value, factors);
    };
    return {load(0), load(LANES), load(2 * LANES)};
}

void store_column(float* c, size_t rows, const Column& column) {
    float values[TILE_ROWS];
    float* target = rows == TILE_ROWS ? c : values;
    simd::store(target, column.low);
    simd::store(target + LANES, column.middle);
    simd::store(target + 2 * LANES, column.high);
    if (target == values)
        std::copy(values, values + rows, c);
}

template <size_t COLUMNS>
inline void add_products(Rows& sums, F32x4 a, F32x4 b) {
    sums.column0 = simd::add_product_lane<0>(sums.column0, a, b);
    if (COLUMNS > 1)
        sums.column1 = simd::add_product_lane<1>(sums.column1, a, b);
    if (COLUMNS > 2)
        sums.column2 = simd::add_product_lane<2>(sums.column2, a, b);
    if (COLUMNS > 3)
        sums.column3 = simd::add_product_lane<3>(sums.column3, a, b);
}

// A tile of few columns computes only those: a single query does not pay for four.
template <size_t COLUMNS>
void multiply(const float* a, const float* b, size_t depth, float c_factor, const FloatTile& tile) {
    Rows low, middle, high;
    const auto load = [&](size_t column, F32x4 Rows::*member) {
        if (column >= COLUMNS)
            return;
        const float* c = at_step(tile.c, column, tile.column_step);
        const Column values = load_column(c, tile.rows, c_factor);
        low.*member = values.low;
        middle.*member = values.middle;
        high.*member = values.high;
    };
    load(0, &Rows::column0);
    load(1, &Rows::column1);
    load(2, &Rows::column2);
    load(3, &Rows::column3);

    const auto step = [&] {
        const F32x4 b_vector = simd::load_next(b);
        add_products<COLUMNS>(low, simd::load_next(a), b_vector);
        add_products<COLUMNS>(middle, simd::load_next(a), b_vector);
        add_products<COLUMNS>(high, simd::load_next(a), b_vector);
    };
    constexpr size_t AHEAD = 96 / sizeof(float);
    for (size_t pairs = depth / 2; pairs != 0; --pairs) {
        step();
        step();
        __builtin_prefetch(a + AHEAD);
    }
    if (depth % 2 != 0)
        step();

    const auto store = [&](size_t column, F32x4 Rows::*member) {
        if (column < COLUMNS)
            store_column(at_step(tile.c, column, tile.column_step), tile.rows,
                         {low.*member, middle.*member, high.*member});
    };
    store(0, &Rows::column0);
    store(1, &Rows::column1);
    store(2, &Rows::column2);
    store(3, &Rows::column3);
}

}  // namespace

void multiply_float_tile(const float* a_panel, const float* b_panel, size_t depth, float c_factor,
                         const FloatTile& tile) {
    switch (tile.columns) {
        case 1:
            return multiply<1>(a_panel, b_panel, depth, c_factor, tile);
        case 2:
            return multiply<2>(a_panel, b_panel, depth, c_factor, tile);
        case 3:
            return multiply<3>(a_panel, b_panel, depth, c_factor, tile);
        default:
            return multiply<TILE_COLUMNS>(a_panel, b_panel, depth, c_factor, tile);
    }
}

}  // namespace kern::armv7
