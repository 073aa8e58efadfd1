// Packing for matrix products: lines of a Float32 operand (rows of the left one, columns of the
// right one) become panels of WIDTH lines, in which the values of one k stand side by side. Pure
// functions on the caller's memory; any thread.
#pragma once

#include <algorithm>
#include <cstring>

#include "kernels/packing/lines.h"
#include "kernels/simd/f32x4.h"

namespace kern {

namespace packing {

constexpr size_t LANES = simd::LANES<float>;
constexpr size_t CACHE_LINE = 64 / sizeof(float);
// Steps of k that all lines of a panel take before any goes on: what they fill of the panel stays
// in the nearest cache until its vectors are complete lines.
constexpr size_t TRANSPOSED_DEPTH = 4 * CACHE_LINE;

// Four lines that are contiguous along k, to lanes of a panel: blocks of 4 x 4 values are
// transposed in registers. Lines are too short for the hardware to see them coming, so those
// `ahead` elements further on, which the next panel will need, are prefetched here.
template <size_t WIDTH>
void transpose_lines(const float* first, ptrdiff_t line_step, ptrdiff_t ahead, size_t depth,
                     float* target) {
    const float* line0 = first;
    const float* line1 = line0 + line_step;
    const float* line2 = line1 + line_step;
    const float* line3 = line2 + line_step;
    ptrdiff_t width = WIDTH;
    simd::keep_in_register(width);
    const auto transpose_block = [&] {
        simd::F32x4 r0 = simd::load_next(line0);
        simd::F32x4 r1 = simd::load_next(line1);
        simd::F32x4 r2 = simd::load_next(line2);
        simd::F32x4 r3 = simd::load_next(line3);
        simd::transpose(r0, r1, r2, r3);
        simd::store_next(target, r0, width);
        simd::store_next(target, r1, width);
        simd::store_next(target, r2, width);
        simd::store_next(target, r3, width);
    };
    ahead -= CACHE_LINE;  // the lines have moved on when they are used
    size_t rest = depth;
    for (; rest >= CACHE_LINE; rest -= CACHE_LINE) {
        for (size_t block = 0; block < CACHE_LINE; block += LANES)
            transpose_block();
        __builtin_prefetch(line0 + ahead);
        __builtin_prefetch(line1 + ahead);
        __builtin_prefetch(line2 + ahead);
        __builtin_prefetch(line3 + ahead);
    }
    for (; rest >= LANES; rest -= LANES)
        transpose_block();
    for (; rest != 0; --rest, target += WIDTH) {
        target[0] = *line0++;
        target[1] = *line1++;
        target[2] = *line2++;
        target[3] = *line3++;
    }
}

// At most four lines, one value at a time, to lanes of a panel; missing lines are zeros.
template <size_t WIDTH>
void copy_lines(const Lines<float>& lines, size_t depth, float* target) {
    const size_t count = std::min(LANES, lines.count);
    for (size_t k = 0; k < depth; ++k, target += WIDTH) {
        const float* source = at_step(lines.first, k, lines.k_step);
        simd::store(target, simd::zero());
        for (size_t lane = 0; lane < count; ++lane)
            target[lane] = *at_step(source, lane, lines.line_step);
    }
}

}  // namespace packing

// Packs the first WIDTH lines as a depth x WIDTH array; missing lines are zeros.
template <size_t WIDTH>
void pack_panel(const Lines<float>& lines, size_t depth, float* panel) {
    if (lines.count >= WIDTH && lines.line_step == 1) {
        for (size_t k = 0; k < depth; ++k)
            std::memcpy(panel + k * WIDTH, at_step(lines.first, k, lines.k_step),
                        WIDTH * sizeof(float));
        return;
    }
    size_t transposed = 0;  // lanes in whole groups of four lines that are contiguous along k
    if (lines.k_step == 1)
        transposed = std::min(WIDTH, lines.count / packing::LANES * packing::LANES);
    const bool is_last = lines.count < 2 * WIDTH;
    const ptrdiff_t ahead = is_last ? 0 : lines.line_step * static_cast<ptrdiff_t>(WIDTH);
    for (size_t k = 0; k < depth; k += packing::TRANSPOSED_DEPTH) {
        const size_t count = std::min(packing::TRANSPOSED_DEPTH, depth - k);
        for (size_t lane = 0; lane < transposed; lane += packing::LANES)
            packing::transpose_lines<WIDTH>(at_step(lines.first, lane, lines.line_step) + k,
                                            lines.line_step, ahead, count,
                                            panel + k * WIDTH + lane);
    }
    for (size_t lane = transposed; lane < WIDTH; lane += packing::LANES)
        packing::copy_lines<WIDTH>(lines.from(std::min(lane, lines.count)), depth, panel + lane);
}

// Packs all lines of a source, of this kind or another one that `pack_panel` takes, panel behind
// panel. Returns the number of values packed, with the zeros.
template <size_t WIDTH, typename Source>
size_t pack_panels(const Source& lines, size_t depth, float* panels) {
    size_t line = 0;
    for (; line < lines.count; line += WIDTH)
        pack_panel<WIDTH>(lines.from(line), depth, panels + line * depth);
    return line * depth;
}

}  // namespace kern
