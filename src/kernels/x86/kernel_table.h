// What the files that are compiled for one instruction set offer to the rest of this level: plain
// functions over plain data. Those files include this header, the compiler's own and macros,
// nothing else: an inline function of a shared header could be emitted there with instructions that
// not every CPU has, and the linker might keep that copy for all.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kernels/x86/cpu.h"

namespace kern::x86 {

// C = A x transposed B over lines that are contiguous along k. Steps are in elements. Borrows all
// memory.
struct Product {
    const void* a;
    ptrdiff_t a_step;
    size_t a_count;
    const void* b;
    ptrdiff_t b_step;
    size_t b_count;
    size_t depth;
    void* c;  // row i, column j: line i of A times line j of B
    ptrdiff_t c_row;
    void* workspace;  // aligned to 64 bytes
    // The epilogue: what is subtracted from each result before it is written, one after the other,
    // for each line of A and for each line of B, of the results' type. Either may be null.
    const void* row_epilogue = nullptr;
    const void* column_epilogue = nullptr;
};

// 16 partial sums make up one element of a float product: partial l adds the products of
// k = l, l + 16, ... in that order, each by a fused multiply-add, to zero. The sum of the partials
// is a tree: l and l + 8 are added for every l < 8, of these eight l and l + 4, then 2, then 1.
// All kernels of all sets give these bits.
constexpr size_t NR_PARTIALS = 16;

// The workspace of an integer product: a panel of lines of B and a block of lines of A, prepared.
// The functions are static, so that each file of an instruction set has them for itself. At most so
// many lanes in a vector, and bytes of an element:
constexpr size_t INT8_LANES = 16;
constexpr size_t INT8_ELEMENT_BYTES = 2;
static constexpr size_t int8_line_bytes(size_t depth) {
    constexpr size_t VECTOR = 64;
    return ((depth * INT8_ELEMENT_BYTES + VECTOR - 1) / VECTOR + 1) * VECTOR;
}
// Lines of A in a block stay in the second-level cache while the lines of B pass by.
static constexpr size_t int8_block_lines(size_t depth) {
    constexpr size_t BLOCK_BYTES = 256 * 1024;
    const size_t lines = BLOCK_BYTES / int8_line_bytes(depth);
    return lines < INT8_LANES ? INT8_LANES : lines / INT8_LANES * INT8_LANES;
}
static constexpr size_t int8_workspace(size_t a_count, size_t depth) {
    const size_t block = int8_block_lines(depth);
    const size_t lines =
        a_count < block ? (a_count + INT8_LANES - 1) / INT8_LANES * INT8_LANES : block;
    return (INT8_LANES + lines) * int8_line_bytes(depth);
}

// The sum of the squares of each of `row_count` rows of `length` floats, from left to right.
using SumSquares = void (*)(const float* first, size_t row_step, size_t row_count, size_t length,
                            float* results);

// C = A x B, or C + A x B, over a stretch of depth: the lines of A, contiguous along k, by a panel
// of columns of B, of which the values of one k stand side by side. Each element of C is one chain
// of fused multiply-adds in the order of k, so a product that is cut along k has the same bits.
struct PanelProduct {
    const float* a;  // lines are PANEL_A_STEP elements apart
    size_t a_count;
    const float* b;
    ptrdiff_t b_step;  // elements from one k to the next
    size_t columns;    // from 1 to KernelTable::panel_columns; nothing beside them is touched
    size_t depth;      // at most PANEL_DEPTH
    float* c;
    ptrdiff_t c_row;
    bool adds;  // to what is in C
    // What will be needed next, to be on its way by then: short stretches of memory, which the
    // hardware does not see coming. One cache line for each k, `step` elements after the one
    // before; after every 16 of them `jump` more. A tile begins `line_step` further on for each of
    // the lines before it.
    struct Prefetch {
        const float* first;
        ptrdiff_t step, jump, line_step;
    } later;
};
constexpr size_t PANEL_DEPTH = 192;
// A constant, so that the lines of a tile need one address. Not a power of two, or the lines would
// meet in the nearest cache.
constexpr size_t PANEL_A_STEP = PANEL_DEPTH + 16;

// One tap of the filter as a block of outputs sees it: what they meet, channel after channel, goes
// into panels. Columns that belong to no piece meet the padding and become zeros.
struct PatchPiece {
    size_t begin, end;  // columns of the block
    ptrdiff_t offset;   // of what the first of them meets, from a channel's first element
};
struct PatchTap {
    const PatchPiece* pieces;  // from left to right
    size_t nr_pieces;
    size_t nr_columns;  // at most PATCH_COLUMNS, up to whole panels
    ptrdiff_t stride;   // elements from one column to the next
    const float* channel;
    size_t plane;  // elements from one channel to the next
    size_t nr_channels;
    float* panels;
    size_t k_step;      // elements of a panel from one channel to the next
    size_t panel_step;  // and from a panel to the next
};
constexpr size_t PATCH_COLUMNS = 256;

// One channel under one filter. Each output is one chain of fused multiply-adds in the order of the
// filter's memory; what meets the padding counts as zero.
struct PlaneConvolution {
    const float* src;
    size_t ih, iw;
    const float* filter;
    size_t fh, fw;  // fw at most PLANE_TAPS
    float* dst;
    size_t oh, ow;
    size_t stride_h, stride_w;  // stride_w 1 or 2
    size_t pad_h, pad_w;
    size_t dilate_h, dilate_w;
};
constexpr size_t PLANE_TAPS = 16;

struct KernelTable {
    const char* name;
    size_t panel_columns;
    void (*float_product)(const Product& product);
    void (*int8_product)(const Product& product);
    SumSquares sum_squares;
    void (*panel_product)(const PanelProduct& product);
    void (*pack_tap)(const PatchTap& tap);
    void (*convolve_plane)(const PlaneConvolution& plane);
};

// Stops the process on NONE.
const KernelTable& kernel_table(InstructionSet set);

namespace avx2 {
void float_product(const Product& product);
void int8_product(const Product& product);
void sum_squares(const float* first, size_t row_step, size_t row_count, size_t length,
                 float* results);
void panel_product(const PanelProduct& product);
void pack_tap(const PatchTap& tap);
void convolve_plane(const PlaneConvolution& plane);
}  // namespace avx2

namespace avx512 {
void float_product(const Product& product);
void int8_product(const Product& product);
void panel_product(const PanelProduct& product);
void pack_tap(const PatchTap& tap);
void convolve_plane(const PlaneConvolution& plane);
}  // namespace avx512

}  // namespace kern::x86
