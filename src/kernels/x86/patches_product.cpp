#include "kernels/x86/patches_product.h"

#include <algorithm>
#include <cstring>

#include "kernels/checked_math.h"
#include "kernels/operators/convolution_patches.h"
#include "kernels/x86/kernel_table.h"

namespace kern::x86 {
namespace {

constexpr size_t ALIGNMENT = alignment_of(HandleLevel::X86);
// Filters that stay in the second-level cache while all patches pass by.
constexpr size_t FILTER_BLOCK = 512;
constexpr size_t MOST_COLUMNS = 32;

// A stretch of depth that is not much longer than others: the last would be short.
size_t depth_block(size_t depth) {
    const size_t blocks = (depth + PANEL_DEPTH - 1) / PANEL_DEPTH;
    return (depth + blocks - 1) / blocks;
}

// The stretches are too short for the hardware to see the next one coming.
void copy_filters(const Lines<float>& filters, size_t depth, float* target) {
    constexpr size_t AHEAD = 8, LINE = 64 / sizeof(float);
    for (size_t line = 0; line < filters.count; ++line) {
        const float* source = at_step(filters.first, line, filters.line_step);
        if (line + AHEAD < filters.count) {
            const float* later = at_step(source, AHEAD, filters.line_step);
            for (size_t k = 0; k < depth; k += LINE)
                __builtin_prefetch(later + k);
        }
        std::memcpy(target + line * PANEL_A_STEP, source, depth * sizeof(float));
    }
}

// What the panel's columns meet at one tap: a piece for each row of outputs that they belong to.
size_t pieces_of(const ImagePatches& patches, size_t columns, size_t y, size_t x,
                 PatchPiece* pieces) {
    const PatchAxis& axis = patches.columns;
    const auto rows = static_cast<ptrdiff_t>(patches.rows.length);
    const auto length = static_cast<ptrdiff_t>(axis.length);
    size_t count = 0, row = patches.first_output / patches.row_outputs;
    size_t output = patches.first_output % patches.row_outputs;
    for (size_t column = 0; column < columns; ++row, output = 0) {
        const size_t end = std::min(columns, column + patches.row_outputs - output);
        const ptrdiff_t image_row = patches.rows.element(row, y);
        ptrdiff_t left = axis.element(output, x);
        PatchPiece piece{column, end, 0};
        column = end;
        if (image_row < 0 || image_row >= rows)
            continue;
        for (; left < 0 && piece.begin < piece.end; ++piece.begin)
            left += axis.stride;
        const auto last = [&] {
            return left + static_cast<ptrdiff_t>(piece.end - 1 - piece.begin) * axis.stride;
        };
        while (piece.begin < piece.end && last() >= length)
            --piece.end;
        piece.offset = image_row * length + left;
        if (piece.begin < piece.end)
            pieces[count++] = piece;
    }
    return count;
}

// A panel of `depth` steps, one tap after the other.
void pack(const KernelTable& kernels, const ImagePatches& patches, size_t depth, float* panel) {
    const size_t columns = std::min(kernels.panel_columns, patches.count);
    const size_t taps = patches.taps();
    PatchPiece pieces[MOST_COLUMNS];
    PatchTap tap{};
    tap.pieces = pieces;
    tap.stride = patches.columns.stride;
    tap.plane = patches.rows.length * patches.columns.length;
    tap.panel_step = taps * kernels.panel_columns;
    for (size_t i = 0; i < std::min(taps, depth); ++i) {
        const size_t k = patches.first_k + i, place = k % taps;
        tap.nr_channels = (depth - i + taps - 1) / taps;
        tap.channel = patches.image + k / taps * tap.plane;
        tap.panel = panel + i * kernels.panel_columns;
        tap.nr_pieces = pieces_of(patches, columns, place / patches.columns.taps,
                                  place % patches.columns.taps, pieces);
        kernels.pack_tap(tap);
    }
}

// The panels of one image. `product` has A, the depth and where the image's results begin.
void multiply_image(const KernelTable& kernels, const ImagePatches& patches, float* panel,
                    PanelProduct product) {
    for (size_t j = 0; j < patches.count; j += kernels.panel_columns) {
        product.columns = std::min(kernels.panel_columns, patches.count - j);
        pack(kernels, patches.from(j), product.depth, panel);
        product.later = panel;
        product.later_step = 0;
        if (patches.taps() == 1 && patches.count - j > kernels.panel_columns) {
            const auto plane = patches.rows.length * patches.columns.length;
            const size_t next = patches.first_output + j + kernels.panel_columns;
            product.later = patches.image + patches.first_k * plane +
                            patches.rows.element(next / patches.row_outputs, 0) * patches.columns.length + patches.columns.element(next % patches.row_outputs, 0);
            product.later_step = static_cast<ptrdiff_t>(plane);
        }
        kernels.panel_product(product);
        product.c += product.columns;
    }
}

}  // namespace

size_t patches_workspace(const ConvolutionSizeRecord& size) {
    const size_t filters = std::min(size.ocpg, FILTER_BLOCK) * PANEL_A_STEP;
    return (filters + PANEL_DEPTH * MOST_COLUMNS) * sizeof(float) + ALIGNMENT;
}

void multiply_patches(const ConvolutionRunRecord& run, void* workspace) {
    const KernelTable& kernels = kernel_table(instruction_set());
    void* base = align_up(workspace, ALIGNMENT);
    auto* panel = static_cast<float*>(base);
    float* filters = panel + PANEL_DEPTH * MOST_COLUMNS;
    const size_t depth = run.depth(), stretch = depth_block(std::max(depth, size_t{1}));
    PanelProduct product{};
    product.a = filters;
    product.b = panel;
    product.c_row = static_cast<ptrdiff_t>(run.dst_plane());
    size_t k = 0;
    do {  // once for a depth of 0, which leaves zeros
        product.depth = std::min(stretch, depth - k);
        product.adds = k > 0;
        for (size_t channel = 0; channel < run.ocpg; channel += FILTER_BLOCK) {
            const auto block = filter_lines(run).block(channel, FILTER_BLOCK, k);
            copy_filters(block, product.depth, filters);
            product.a_count = block.count;
            for (size_t image = 0; image < run.n; ++image) {
                product.c = static_cast<float*>(run.dst) + image * run.dst_image_step +
                            channel * run.dst_plane();
                multiply_image(kernels, image_patches(run, image).block(0, run.dst_plane(), k),
                               panel, product);
            }
        }
        k += product.depth;
    } while (k < depth);
}

}  // namespace kern::x86
