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

void copy_filters(const Lines<float>& filters, size_t depth, float* target) {
    for (size_t line = 0; line < filters.count; ++line)
        std::memcpy(target + line * PANEL_A_STEP, at_step(filters.first, line, filters.line_step),
                    depth * sizeof(float));
}

void pack(const KernelTable& kernels, const ImagePatches& patches, size_t depth, float* panel) {
    if (kernels.panel_columns == MOST_COLUMNS)
        pack_panel<MOST_COLUMNS>(patches, depth, panel);
    else
        pack_panel<MOST_COLUMNS / 2>(patches, depth, panel);
}

// The panels of one image. `product` has A, the depth and where the image's results begin.
void multiply_image(const KernelTable& kernels, const ImagePatches& patches, float* panel,
                    PanelProduct product) {
    for (size_t j = 0; j < patches.count; j += kernels.panel_columns) {
        product.columns = std::min(kernels.panel_columns, patches.count - j);
        pack(kernels, patches.from(j), product.depth, panel);
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
