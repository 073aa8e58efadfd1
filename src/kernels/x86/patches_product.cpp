#include "kernels/x86/patches_product.h"

#include <algorithm>
#include <cstring>

#include "kernels/checked_math.h"
#include "kernels/operators/convolution_patches.h"
#include "kernels/x86/kernel_table.h"

namespace kern::x86 {
namespace {

constexpr size_t ALIGNMENT = alignment_of(HandleLevel::X86);
constexpr size_t CACHE_LINE = 64 / sizeof(float);
constexpr size_t MOST_PANEL_COLUMNS = 32;
// Outputs whose panels, and filters that, stay in the second-level cache while they meet.
constexpr size_t OUTPUT_BLOCK = PATCH_COLUMNS;
constexpr size_t TILE_LINES = 14;
constexpr size_t FILTER_BLOCK = 8 * TILE_LINES;
constexpr size_t SMALL_IMAGE = 128;
constexpr size_t SHALLOW = 128;

// The length of blocks that are as equal as they can be: a short last one would be slow.
size_t equal_blocks(size_t length, size_t most) {
    const size_t blocks = std::max<size_t>((length + most - 1) / most, 1);
    return std::max<size_t>((length + blocks - 1) / blocks, 1);
}

// What the whole call works on. Outputs are numbered through all images, so that a panel may hold
// those of several small ones.
struct Call {
    const ConvolutionRunRecord& run;
    const KernelTable& kernels;
    ImagePatches patches;  // of the first image
    size_t outputs;        // of an image
    bool is_pointwise;     // what outputs meet is multiplied where it lies
    float* panels;
    float* filters;
    float* results;  // of a panel that holds outputs of several images

    Call(const ConvolutionRunRecord& record, void* workspace)
        : run(record),
          kernels(kernel_table(instruction_set())),
          patches(image_patches(record, 0)),
          outputs(record.dst_plane()),
          // Small images waste less of a panel's columns when they are packed together.
          is_pointwise(kern::is_pointwise(record) && (record.n == 1 || outputs >= SMALL_IMAGE)) {
        void* base = align_up(workspace, ALIGNMENT);
        panels = static_cast<float*>(base);
        filters = panels + PANEL_DEPTH * OUTPUT_BLOCK;
        results = filters + PANEL_A_STEP * FILTER_BLOCK;
    }
    size_t plane() const { return patches.rows.length * patches.columns.length; }
    // What the first tap of an output meets, in the channel of step k, where all taps are alike.
    const float* met_by(size_t output, size_t k) const {
        const size_t image = output / outputs, place = output % outputs;
        return patches.image + image * run.src_image_step + k * plane() +
               (patches.rows.element(place / patches.row_outputs, 0) *
                    static_cast<ptrdiff_t>(patches.columns.length) +
                patches.columns.element(place % patches.row_outputs, 0));
    }
    float* result(size_t channel, size_t output) const {
        return static_cast<float*>(run.dst) + output / outputs * run.dst_image_step +
               channel * outputs + output % outputs;
    }
};

// What `columns` outputs from `first` on meet at one tap: a piece for each row of outputs.
size_t pieces_of(const Call& call, size_t first, size_t columns, size_t y, size_t x,
                 PatchPiece* pieces) {
    const PatchAxis& axis = call.patches.columns;
    const auto rows = static_cast<ptrdiff_t>(call.patches.rows.length);
    const auto length = static_cast<ptrdiff_t>(axis.length);
    const size_t row_outputs = call.patches.row_outputs, nr_rows = call.outputs / row_outputs;
    size_t count = 0, image = first / call.outputs;
    size_t row = first % call.outputs / row_outputs, output = first % row_outputs;
    for (size_t column = 0; column < columns; ++row, output = 0) {
        if (row == nr_rows) {
            row = 0;
            ++image;
        }
        const ptrdiff_t image_row = call.patches.rows.element(row, y);
        ptrdiff_t left = axis.element(output, x);
        PatchPiece piece{column, std::min(columns, column + row_outputs - output), 0};
        column = piece.end;
        if (image_row < 0 || image_row >= rows)
            continue;
        for (; left < 0 && piece.begin < piece.end; ++piece.begin)
            left += axis.stride;
        const auto last = [&] {
            return left + static_cast<ptrdiff_t>(piece.end - 1 - piece.begin) * axis.stride;
        };
        while (piece.begin < piece.end && last() >= length)
            --piece.end;
        piece.offset =
            static_cast<ptrdiff_t>(image * call.run.src_image_step) + image_row * length + left;
        if (piece.begin < piece.end)
            pieces[count++] = piece;
    }
    return count;
}

// The panels of `columns` outputs from `first` on, from step k on, one tap after the other.
void pack(const Call& call, size_t first, size_t columns, size_t k, size_t depth) {
    const size_t taps = call.patches.taps(), width = call.kernels.panel_columns;
    PatchPiece pieces[OUTPUT_BLOCK];
    PatchTap tap{};
    tap.pieces = pieces;
    tap.nr_columns = round_up(columns, width);
    tap.stride = call.patches.columns.stride;
    tap.plane = call.plane();
    tap.k_step = taps * width;
    tap.panel_step = PANEL_DEPTH * width;
    for (size_t i = 0; i < std::min(taps, depth); ++i) {
        const size_t place = (k + i) % taps;
        tap.nr_channels = (depth - i + taps - 1) / taps;
        tap.channel = call.patches.image + (k + i) / taps * tap.plane;
        tap.panels = call.panels + i * width;
        tap.nr_pieces = pieces_of(call, first, columns, place / call.patches.columns.taps,
                                  place % call.patches.columns.taps, pieces);
        call.kernels.pack_tap(tap);
    }
}

// The stretches are too short for the hardware to see the next one coming.
void copy_filters(const Lines<float>& filters, size_t depth, float* target) {
    constexpr size_t AHEAD = 8;
    for (size_t line = 0; line < filters.count; ++line) {
        const float* source = at_step(filters.first, line, filters.line_step);
        if (line + AHEAD < filters.count) {
            const float* later = at_step(source, AHEAD, filters.line_step);
            for (size_t k = 0; k < depth; k += CACHE_LINE)
                __builtin_prefetch(later + k);
        }
        std::memcpy(target + line * PANEL_A_STEP, source, depth * sizeof(float));
    }
}

// Moves the results of a panel, those of channel after channel, to where they belong or back.
template <typename Move>
void move_results(const Call& call, size_t channel, size_t channels, size_t first, size_t columns,
                  Move move) {
    for (size_t column = 0; column < columns;) {
        const size_t place = (first + column) % call.outputs;
        const size_t count = std::min(columns - column, call.outputs - place);
        float* dst = call.result(channel, first + column);
        for (size_t i = 0; i < channels; ++i)
            move(dst + i * call.outputs, call.results + i * MOST_PANEL_COLUMNS + column, count);
        column += count;
    }
}

// `product` has all but C. Outputs of several images are computed side by side.
void multiply_panel(const Call& call, size_t channel, size_t first, PanelProduct product) {
    if (first % call.outputs + product.columns <= call.outputs) {
        product.c = call.result(channel, first);
        product.c_row = static_cast<ptrdiff_t>(call.outputs);
        call.kernels.panel_product(product);
        return;
    }
    product.c = call.results;
    product.c_row = MOST_PANEL_COLUMNS;
    if (product.adds)
        move_results(
            call, channel, product.a_count, first, product.columns,
            [](const float* dst, float* result, size_t count) { std::copy_n(dst, count, result); });
    call.kernels.panel_product(product);
    move_results(
        call, channel, product.a_count, first, product.columns,
        [](float* dst, const float* result, size_t count) { std::copy_n(result, count, dst); });
}

// While a panel is multiplied, the next block of filters is on its way into the cache: tile after
// tile the lines that take the place of its own.
PanelProduct::Prefetch filters_later(const Lines<float>& filters) {
    constexpr auto LINE = static_cast<ptrdiff_t>(CACHE_LINE);
    return {filters.first, filters.line_step, LINE - LINE * filters.line_step, filters.line_step};
}

// Or what outputs from `first` on meet, if taps do not share it: a line of each channel, by each
// tile further on.
PanelProduct::Prefetch outputs_later(const Call& call, size_t first, size_t k) {
    return {call.met_by(first, k), static_cast<ptrdiff_t>(call.plane()), 0, 1};
}

// All filters by `count` outputs from `first` on, over a stretch of depth.
void multiply_block(const Call& call, size_t first, size_t count, size_t k, size_t depth) {
    const size_t width = call.kernels.panel_columns, all = call.run.n * call.outputs;
    const size_t ahead = call.is_pointwise ? width : count;
    if (!call.is_pointwise)
        pack(call, first, count, k, depth);
    PanelProduct product{};
    product.depth = depth;
    product.b_step = static_cast<ptrdiff_t>(call.is_pointwise ? call.plane() : width);
    product.adds = k > 0;
    const size_t filters = equal_blocks(call.run.ocpg, FILTER_BLOCK);
    for (size_t channel = 0; channel < call.run.ocpg; channel += filters) {
        const auto block = filter_lines(call.run).block(channel, filters, k);
        copy_filters(block, depth, call.filters);
        // Where few products make a result, writing takes longest: each row goes from left to
        // right.
        const size_t lines =
            call.run.depth() <= SHALLOW ? equal_blocks(block.count, TILE_LINES) : block.count;
        for (size_t line = 0; line < block.count; line += lines) {
            product.a = call.filters + line * PANEL_A_STEP;
            product.a_count = std::min(lines, block.count - line);
            const size_t next = channel + line + filters;
            for (size_t j = 0; j < count; j += width) {
                product.b =
                    call.is_pointwise ? call.met_by(first + j, k) : call.panels + j * PANEL_DEPTH;
                product.columns = std::min(width, count - j);
                product.later = {product.b, 0, 0, 0};
                if (j == 0 && next < call.run.ocpg)
                    product.later = filters_later(filter_lines(call.run).block(next, filters, k));
                else if (channel + line == 0 && call.patches.taps() == 1 && first + j + ahead < all)
                    product.later = outputs_later(call, first + j + ahead, k);
                multiply_panel(call, channel + line, first + j, product);
            }
        }
    }
}

}  // namespace

size_t patches_workspace(const ConvolutionSizeRecord&) {
    constexpr size_t ELEMENTS =
        PANEL_DEPTH * OUTPUT_BLOCK + (PANEL_A_STEP + MOST_PANEL_COLUMNS) * FILTER_BLOCK;
    return ELEMENTS * sizeof(float) + ALIGNMENT;
}

void multiply_patches(const ConvolutionRunRecord& run, void* workspace) {
    const Call call(run, workspace);
    const size_t depth = run.depth(), stretch = equal_blocks(depth, PANEL_DEPTH);
    // Blocks of an image, or of all images together.
    const size_t outputs = call.is_pointwise ? call.outputs : run.n * call.outputs;
    const size_t block = round_up(equal_blocks(outputs, OUTPUT_BLOCK), call.kernels.panel_columns);
    for (size_t start = 0; start < run.n * call.outputs; start += outputs) {
        for (size_t first = 0; first < outputs; first += block) {
            for (size_t k = 0; k < depth; k += stretch)
                multiply_block(call, start + first, std::min(block, outputs - first), k,
                               std::min(stretch, depth - k));
        }
    }
}

}  // namespace kern::x86
