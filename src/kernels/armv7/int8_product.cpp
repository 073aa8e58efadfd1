#include "kernels/armv7/int8_product.h"

#include <algorithm>

#include "kernels/checked_math.h"
#include "kernels/simd/i8x16.h"
#include "kernels/workspace.h"

namespace kern::armv7 {
namespace {

using simd::I16x8;
using simd::I32x4;
using simd::I8x16;
using simd::I8x8;

constexpr size_t PANEL_ROWS = 4;
constexpr size_t PANEL_COLUMNS = 2;
constexpr size_t STEP = 16;  // bytes of depth that are multiplied at once
constexpr size_t BLOCK = 8;  // lines and positions of a block that is transposed in registers
constexpr size_t BLOCK_COLUMNS = BLOCK;  // columns of B that are packed at once
constexpr size_t PANEL_ALIGNMENT = 16;

size_t panel_bytes(size_t lines, size_t panel_width, size_t depth) {
    return round_up(checked_mul(round_up(lines, panel_width), round_up(depth, STEP)), 64);
}

// Where panels of WIDTH lines keep an element.
template <size_t WIDTH>
struct PanelPlaces {
    int8_t* panels;
    size_t padded_depth;

    int8_t* at(size_t line, size_t k) const {
        return panels + line / WIDTH * WIDTH * padded_depth +
               (k / STEP * WIDTH + line % WIDTH) * STEP + k % STEP;
    }
};

template <size_t WIDTH>
void pack_contiguous(const Lines<int8_t>& lines, size_t depth, const PanelPlaces<WIDTH>& places) {
    ptrdiff_t step = WIDTH * STEP;
    simd::keep_in_register(step);
    for (size_t line = 0; line < lines.count; ++line) {
        const int8_t* source = at_step(lines.first, line, lines.line_step);
        int8_t* target = places.at(line, 0);
        for (size_t whole = depth / STEP; whole != 0; --whole)
            simd::store_next(target, simd::load_next(source), step);
        if (depth % STEP != 0)
            simd::store(target, simd::load_first(source, depth % STEP));
    }
}

// Eight positions of eight lines change places in registers.
template <size_t WIDTH>
inline void transpose_block(const int8_t* source, ptrdiff_t k_step, int8_t* target,
                            size_t panel_bytes) {
    I8x8 block[BLOCK];
    for (size_t i = 0; i < BLOCK; ++i, source += k_step)
        block[i] = simd::load_eight(source);
    simd::transpose(block);
    for (size_t i = 0; i < BLOCK; ++i)
        simd::store_eight(target + i / WIDTH * panel_bytes + i % WIDTH * STEP, block[i]);
}

// For lines that are neighbours in memory.
template <size_t WIDTH>
void pack_transposed(const Lines<int8_t>& lines, size_t depth, const PanelPlaces<WIDTH>& places) {
    for (size_t line = 0; line < lines.count; line += BLOCK) {
        const size_t count = std::min(BLOCK, lines.count - line);
        const int8_t* source = lines.first + line;
        size_t k = 0;
        for (; count == BLOCK && k + BLOCK <= depth; k += BLOCK)
            transpose_block<WIDTH>(at_step(source, k, lines.k_step), lines.k_step,
                                   places.at(line, k), WIDTH * places.padded_depth);
        for (; k < places.padded_depth; ++k) {
            for (size_t i = 0; i < count; ++i)
                *places.at(line + i, k) =
                    k < depth ? at_step(source, k, lines.k_step)[i] : int8_t{0};
        }
    }
}

// The product of the first ROWS rows of an A panel and the first COLUMNS columns of a B panel: the
// lines that a short panel lacks cost nothing.
template <size_t ROWS, size_t COLUMNS>
void multiply_tile(const int8_t* a, const int8_t* b, size_t steps, int32_t* c, ptrdiff_t c_row) {
    I32x4 sums[ROWS][COLUMNS] = {};
    for (; steps != 0; --steps) {
        I8x16 columns[COLUMNS];
#pragma GCC unroll 2
        for (size_t j = 0; j < COLUMNS; ++j)
            columns[j] = simd::load_next(b);
#pragma GCC unroll 4
        for (size_t i = 0; i < ROWS; ++i) {
            const I8x16 row = simd::load_next(a);
#pragma GCC unroll 2
            for (size_t j = 0; j < COLUMNS; ++j) {
                const I16x8 pairs =
                    simd::add_product_high(simd::mul_low(row, columns[j]), row, columns[j]);
                sums[i][j] = simd::add_pairs(sums[i][j], pairs);
            }
        }
        a += (PANEL_ROWS - ROWS) * STEP;
        b += (PANEL_COLUMNS - COLUMNS) * STEP;
    }
#pragma GCC unroll 4
    for (size_t i = 0; i < ROWS; ++i, c += c_row) {
        if constexpr (COLUMNS == 2)
            simd::store_sums(c, sums[i][0], sums[i][1]);
        else
            simd::store_sum(c, sums[i][0]);
    }
}

template <size_t COLUMNS>
void multiply_panels(const int8_t* a, size_t rows, const int8_t* b, size_t steps, int32_t* c,
                     ptrdiff_t c_row) {
    for (; rows >= PANEL_ROWS; rows -= PANEL_ROWS, a += PANEL_ROWS * steps * STEP) {
        multiply_tile<PANEL_ROWS, COLUMNS>(a, b, steps, c, c_row);
        c = at_step(c, PANEL_ROWS, c_row);
    }
    switch (rows) {
        case 3:
            return multiply_tile<3, COLUMNS>(a, b, steps, c, c_row);
        case 2:
            return multiply_tile<2, COLUMNS>(a, b, steps, c, c_row);
        case 1:
            return multiply_tile<1, COLUMNS>(a, b, steps, c, c_row);
        default:
            return;
    }
}

}  // namespace

template <size_t WIDTH>
void pack_int8_panels(const Lines<int8_t>& lines, size_t depth, int8_t* panels) {
    const PanelPlaces<WIDTH> places{panels, round_up(depth, STEP)};
    if (lines.k_step == 1)
        pack_contiguous(lines, depth, places);
    else
        pack_transposed(lines, depth, places);
}

template void pack_int8_panels<PANEL_ROWS>(const Lines<int8_t>&, size_t, int8_t*);
template void pack_int8_panels<PANEL_COLUMNS>(const Lines<int8_t>&, size_t, int8_t*);

size_t int8_product_workspace(size_t rows, size_t columns, size_t depth) {
    const size_t panels = checked_add(panel_bytes(rows, PANEL_ROWS, depth),
                                      panel_bytes(columns, PANEL_COLUMNS, depth));
    return checked_add(panels, 2 * PANEL_ALIGNMENT);
}

void int8_product(const MatrixMulArgs& args, void* workspace) {
    void* a_area = align_up(workspace, PANEL_ALIGNMENT);
    auto* a_panels = static_cast<int8_t*>(a_area);
    int8_t* b_panels = a_panels + panel_bytes(args.rows, PANEL_ROWS, args.depth) + PANEL_ALIGNMENT;
    const size_t steps = round_up(args.depth, STEP) / STEP;
    const Lines<int8_t> a{static_cast<const int8_t*>(args.a), args.rows, args.a_row, args.a_k};
    const Lines<int8_t> b{static_cast<const int8_t*>(args.b), args.columns, args.b_column,
                          args.b_k};
    auto* c = static_cast<int32_t*>(args.c);

    pack_int8_panels<PANEL_ROWS>(a, args.depth, a_panels);
    // A block of B is used up before the next is packed, so all take the same place, which stays in
    // the nearest cache.
    for (size_t block = 0; block < args.columns; block += BLOCK_COLUMNS) {
        const size_t end = std::min(block + BLOCK_COLUMNS, args.columns);
        pack_int8_panels<PANEL_COLUMNS>(b.block(block, BLOCK_COLUMNS), args.depth, b_panels);
        const int8_t* b_panel = b_panels;
        for (size_t j = block; j < end; j += PANEL_COLUMNS, b_panel += PANEL_COLUMNS * steps * STEP)
            end - j == 1
                ? multiply_panels<1>(a_panels, args.rows, b_panel, steps, c + j, args.c_row)
                : multiply_panels<PANEL_COLUMNS>(a_panels, args.rows, b_panel, steps, c + j,
                                                 args.c_row);
    }
}

}  // namespace kern::armv7
