// The Float32 matrix product of 32-bit Arm: C = alpha * op(A) * op(B) + beta * C, blocked for the
// caches and packed into panels. (The picture and its words are those of Van Zee and van de Geijn,
// "BLIS: A Framework for Rapidly Instantiating BLAS Functionality", 2015.)
//
// Each element of C is one chain of rounded additions in the order of increasing k, in a vector
// lane of its own, so its bits depend neither on the sizes nor on its place in a block or tile.
#pragma once

#include <cstddef>

#include "kernels/operators/convolution.h"

namespace kern::armv7 {

enum class StorageOrder { ROW_MAJOR, COLUMN_MAJOR };

// A value: tasks carry copies. Borrows the operands' memory. `lda`, `ldb` and `ldc` are the
// elements from one row to the next, or from one column to the next in column-major order.
struct FloatProduct {
    StorageOrder order = StorageOrder::ROW_MAJOR;
    bool transpose_a = false;
    bool transpose_b = false;
    size_t rows = 0;     // M
    size_t columns = 0;  // N
    size_t depth = 0;    // K
    float alpha = 1;     // 1 costs no multiplication
    const float* a = nullptr;
    ptrdiff_t lda = 0;
    const float* b = nullptr;
    ptrdiff_t ldb = 0;
    float beta = 0;  // with 0 the old C is never read
    float* c = nullptr;
    ptrdiff_t ldc = 0;
};

// In column-major terms: panels and tiles are of 12 rows of C and 4 columns, blocks of 480 x 480
// elements and 256 products.
constexpr size_t TILE_ROWS = 12;
constexpr size_t TILE_COLUMNS = 4;
constexpr size_t ROW_BLOCK = 480;
constexpr size_t COLUMN_BLOCK = 480;
constexpr size_t DEPTH_BLOCK = 256;

// The workspace holds the panels of one block of B (the N side in column-major terms) from its
// first 16-byte boundary on, and those of A behind them.
constexpr size_t FLOAT_PANEL_ALIGNMENT = 16;
constexpr size_t FLOAT_A_PANELS_OFFSET =
    DEPTH_BLOCK * (COLUMN_BLOCK + TILE_ROWS) * sizeof(float) + 2 * FLOAT_PANEL_ALIGNMENT;
constexpr size_t FLOAT_PRODUCT_WORKSPACE =
    FLOAT_A_PANELS_OFFSET + DEPTH_BLOCK * (ROW_BLOCK + TILE_COLUMNS) * sizeof(float) +
    2 * FLOAT_PANEL_ALIGNMENT;

// Whether the product is one for the routine without panels (float_small.h).
bool takes_small_routine(const FloatProduct& product);

// `workspace` has FLOAT_PRODUCT_WORKSPACE bytes and needs no alignment.
void float_product(const FloatProduct& product, void* workspace);

// The filters of a Float32 convolution of one group by the patches of one image after the other,
// which are expanded only in the panels. In the same workspace, and adding in the same order.
void float_patches_product(const ConvolutionRunRecord& run, void* workspace);

}  // namespace kern::armv7
