#include "kernels/fallback/packed_product.h"

#include <algorithm>

#include "kernels/checked_math.h"
#include "kernels/operators/convolution_patches.h"
#include "kernels/packing/panel_packing.h"
#include "kernels/simd/f32x4.h"
#include "kernels/workspace.h"

namespace kern::fallback {
namespace {

using simd::F32x4;

constexpr size_t LANES = 4;
constexpr size_t PANEL_ROWS = 8;
constexpr size_t PANEL_COLUMNS = 12;
constexpr size_t TILE_ROWS = 4;  // 4 x 12 accumulators leave room in sixteen registers
constexpr size_t TILE_VECTORS = PANEL_COLUMNS / LANES;
constexpr size_t PANEL_ALIGNMENT = 16;

// Bytes of all panels of one operand, up to a whole cache line.
size_t panel_bytes(size_t lines, size_t panel_width, size_t depth) {
    const size_t values = checked_mul(round_up(lines, panel_width), depth);
    return round_up(checked_mul(values, sizeof(float)), 64);
}

inline void store_row(const F32x4 (&sums)[TILE_VECTORS], float* c, size_t columns) {
    float values[PANEL_COLUMNS];
    float* target = columns == PANEL_COLUMNS ? c : values;
    simd::store(target, sums[0]);
    simd::store(target + LANES, sums[1]);
    simd::store(target + 2 * LANES, sums[2]);
    if (target == values)
        std::copy(values, values + columns, c);
}

// The product of ROWS rows of an A panel and a B panel, into C's real columns.
template <size_t ROWS>
void multiply_tile(const float* a, const float* b, size_t depth, float* c, ptrdiff_t c_row,
                   size_t columns) {
    F32x4 sums[ROWS][TILE_VECTORS];
    for (auto& row : sums)
        row[0] = row[1] = row[2] = simd::zero();
    for (size_t k = 0; k < depth; ++k, a += PANEL_ROWS, b += PANEL_COLUMNS) {
        const F32x4 b0 = simd::load_aligned(b);
        const F32x4 b1 = simd::load_aligned(b + LANES);
        const F32x4 b2 = simd::load_aligned(b + 2 * LANES);
#pragma GCC unroll 4
        for (size_t row = 0; row < ROWS; ++row) {
            const F32x4 factor = simd::broadcast(a[row]);
            sums[row][0] = simd::add_product(sums[row][0], factor, b0);
            sums[row][1] = simd::add_product(sums[row][1], factor, b1);
            sums[row][2] = simd::add_product(sums[row][2], factor, b2);
        }
    }
    // Unrolled, as the sums must be able to stay in registers.
#pragma GCC unroll 4
    for (size_t row = 0; row < ROWS; ++row)
        store_row(sums[row], at_step(c, row, c_row), columns);
}

// Only the panel's real rows are computed: a single query does not pay for eight.
void multiply_panels(const float* a, size_t rows, const float* b, size_t depth, float* c,
                     ptrdiff_t c_row, size_t columns) {
    for (; rows >= TILE_ROWS; rows -= TILE_ROWS, a += TILE_ROWS) {
        multiply_tile<TILE_ROWS>(a, b, depth, c, c_row, columns);
        c = at_step(c, TILE_ROWS, c_row);
    }
    switch (rows) {
        case 3:
            return multiply_tile<3>(a, b, depth, c, c_row, columns);
        case 2:
            return multiply_tile<2>(a, b, depth, c, c_row, columns);
        case 1:
            return multiply_tile<1>(a, b, depth, c, c_row, columns);
        default:
            return;
    }
}

// A panel of B is used up before the next is packed, so all take the same place, which stays in the
// nearest cache.
template <typename Source>
void multiply(const float* a_panels, size_t rows, const Source& b, size_t depth, float* b_panel,
              float* c, ptrdiff_t c_row) {
    for (size_t j = 0; j < b.count; j += PANEL_COLUMNS) {
        const size_t columns = std::min(PANEL_COLUMNS, b.count - j);
        pack_panel<PANEL_COLUMNS>(b.from(j), depth, b_panel);
        for (size_t i = 0; i < rows; i += PANEL_ROWS)
            multiply_panels(a_panels + i * depth, std::min(PANEL_ROWS, rows - i), b_panel, depth,
                            at_step(c, i, c_row) + j, c_row, columns);
    }
}

// Where the panels of A and the one of B lie in a workspace.
struct Panels {
    float* a;
    float* b;

    Panels(size_t rows, size_t depth, void* workspace) {
        uint8_t* base = align_up(workspace, PANEL_ALIGNMENT);
        void* a_area = base;
        void* b_area = base + panel_bytes(rows, PANEL_ROWS, depth) + PANEL_ALIGNMENT;
        a = static_cast<float*>(a_area);
        b = static_cast<float*>(b_area);
    }
};

}  // namespace

size_t packed_product_workspace(size_t rows, size_t columns, size_t depth) {
    const size_t panels = checked_add(panel_bytes(rows, PANEL_ROWS, depth),
                                      panel_bytes(columns, PANEL_COLUMNS, depth));
    return checked_add(panels, 2 * PANEL_ALIGNMENT);
}

void packed_product(const MatrixMulArgs& args, void* workspace) {
    if (args.rows == 0 || args.columns == 0)
        return;
    const Panels panels(args.rows, args.depth, workspace);
    const Lines<float> a{static_cast<const float*>(args.a), args.rows, args.a_row, args.a_k};
    const Lines<float> b{static_cast<const float*>(args.b), args.columns, args.b_column, args.b_k};
    pack_panels<PANEL_ROWS>(a, args.depth, panels.a);
    multiply(panels.a, args.rows, b, args.depth, panels.b, static_cast<float*>(args.c), args.c_row);
}

size_t packed_patches_workspace(const ConvolutionSizeRecord& size) {
    return packed_product_workspace(size.ocpg, PANEL_COLUMNS, size.depth());
}

void packed_patches_product(const ConvolutionRunRecord& run, void* workspace) {
    const size_t depth = run.depth();
    const Panels panels(run.ocpg, depth, workspace);
    pack_panels<PANEL_ROWS>(filter_lines(run), depth, panels.a);
    for (size_t image = 0; image < run.n; ++image)
        multiply(panels.a, run.ocpg, image_patches(run, image), depth, panels.b,
                 static_cast<float*>(run.dst) + image * run.dst_image_step,
                 static_cast<ptrdiff_t>(run.dst_plane()));
}

}  // namespace kern::fallback
