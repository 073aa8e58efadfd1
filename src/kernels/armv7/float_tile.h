// One 12 x 4 tile of the blocked Float32 product, in column-major terms. Pure functions on the
// caller's memory; any thread.
#pragma once

#include <cstddef>

namespace kern::armv7 {

// The real part of a tile: `columns` 1 to 4 columns of C, `column_step` elements apart, each of
// `rows` 1 to 12 contiguous elements. Nothing beside it is read or written.
struct FloatTile {
    float* c;
    ptrdiff_t column_step;
    size_t rows, columns;
};

// tile = tile * `c_factor` + product of two panels of `depth` steps: `a_panel` has 12 values for
// each k, `b_panel` 4, both aligned to 16 bytes and padded with zeros. With a factor of 0 the old
// values are not read; a factor of 1 costs no multiplication.
void multiply_float_tile(const float* a_panel, const float* b_panel, size_t depth, float c_factor,
                         const FloatTile& tile);

}  // namespace kern::armv7
