#include "kernels/armv7/float_product.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "kernels/armv7/float_small.h"
#include "kernels/armv7/float_tile.h"
#include "kernels/operators/convolution_patches.h"
#include "kernels/packing/panel_packing.h"
#include "kernels/simd/f32x4.h"
#include "kernels/workspace.h"

namespace kern::armv7 {
namespace {

// A row-major product is the column-major product of the operands in the other order.
FloatProduct in_column_major(const FloatProduct& product) {
    if (product.order == StorageOrder::COLUMN_MAJOR)
        return product;
    FloatProduct result = product;
    result.order = StorageOrder::COLUMN_MAJOR;
    std::swap(result.a, result.b);
    std::swap(result.lda, result.ldb);
    std::swap(result.transpose_a, result.transpose_b);
    std::swap(result.rows, result.columns);
    return result;
}

void scale_panels(float* panels, size_t count, float factor) {
    const simd::F32x4 factors = simd::broadcast(factor);
    for (size_t i = 0; i < count; i += simd::LANES<float>)
        simd::store(panels + i, simd::mul(simd::load_aligned(panels + i), factors));
}

// All tiles of one block: each panel of B, which stays in the nearest cache, meets all those of A.
void multiply_block(const float* a_panels, const float* b_panels, size_t depth, float c_factor,
                    size_t rows, size_t columns, float* c, ptrdiff_t ldc) {
    for (size_t j = 0; j < columns; j += TILE_COLUMNS) {
        for (size_t i = 0; i < rows; i += TILE_ROWS)
            multiply_float_tile(a_panels + i * depth, b_panels + j * depth, depth, c_factor,
                                {at_step(c, j, ldc) + i, ldc, std::min(TILE_ROWS, rows - i),
                                 std::min(TILE_COLUMNS, columns - j)});
    }
}

// C of one product, in column-major terms, and what happens to it.
struct Target {
    float* c;
    ptrdiff_t ldc;
    float alpha, beta;
};

// In column-major terms: A's rows come from any source of panels.
template <typename Source>
void multiply_blocks(const Source& a, const Lines<float>& b, size_t total_depth,
                     const Target& target, void* workspace) {
    uint8_t* base = align_up(workspace, FLOAT_PANEL_ALIGNMENT);
    void* b_area = base;
    void* a_area = base + FLOAT_A_PANELS_OFFSET;
    auto* a_panels = static_cast<float*>(a_area);
    auto* b_panels = static_cast<float*>(b_area);
    size_t k = 0;
    do {  // once for a depth of 0, which leaves beta * C
        const size_t depth = std::min(DEPTH_BLOCK, total_depth - k);
        const float c_factor = k == 0 ? target.beta : 1.0f;
        for (size_t j = 0; j < b.count; j += COLUMN_BLOCK) {
            const Lines<float> b_block = b.block(j, COLUMN_BLOCK, k);
            pack_panels<TILE_COLUMNS>(b_block, depth, b_panels);
            for (size_t i = 0; i < a.count; i += ROW_BLOCK) {
                const Source a_block = a.block(i, ROW_BLOCK, k);
                const size_t a_values = pack_panels<TILE_ROWS>(a_block, depth, a_panels);
                if (target.alpha != 1)
                    scale_panels(a_panels, a_values, target.alpha);
                multiply_block(a_panels, b_panels, depth, c_factor, a_block.count, b_block.count,
                               at_step(target.c, j, target.ldc) + i, target.ldc);
            }
        }
        k += depth;
    } while (k < total_depth);
}

void multiply_operands(const FloatProduct& product, void* workspace) {
    const ptrdiff_t lda = product.lda, ldb = product.ldb;
    const Lines<float> a{product.a, product.rows, product.transpose_a ? lda : 1,
                         product.transpose_a ? 1 : lda};
    const Lines<float> b{product.b, product.columns, product.transpose_b ? 1 : ldb,
                         product.transpose_b ? ldb : 1};
    multiply_blocks(a, b, product.depth, {product.c, product.ldc, product.alpha, product.beta},
                    workspace);
}

}  // namespace

bool takes_small_routine(const FloatProduct& product) {
    return product.order == StorageOrder::ROW_MAJOR && !product.transpose_a &&
           !product.transpose_b && product.alpha == 1 && product.beta == 0 &&
           (product.rows <= 7 || (product.rows == 8 && product.depth <= 2) ||
            (product.columns == 1 && product.ldb == 1));
}

void float_product(const FloatProduct& product, void* workspace) {
    if (takes_small_routine(product))
        small_float_product(product);
    else
        multiply_operands(in_column_major(product), workspace);
}

void float_patches_product(const ConvolutionRunRecord& run, void* workspace) {
    for (size_t image = 0; image < run.n; ++image) {
        float* c = static_cast<float*>(run.dst) + image * run.dst_image_step;
        multiply_blocks(image_patches(run, image), filter_lines(run), run.depth(),
                        {c, static_cast<ptrdiff_t>(run.dst_plane()), 1, 0}, workspace);
    }
}

}  // namespace kern::armv7
