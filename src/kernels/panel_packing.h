// Packing for matrix products: lines of a Float32 operand (rows of the left one, columns of the
// right one) become panels of WIDTH lines, in which the values of one k stand side by side. Pure
// functions on the caller's memory; any thread.
#pragma once

#include <algorithm>
#include <cstring>

#include "kernels/matrix_mul_args.h"
#include "kernels/simd/f32x4.h"

namespace kern {

// Some lines of an operand. Both steps are in elements, and one of them is 1.
struct FloatLines {
    const float* first;
    size_t count;
    ptrdiff_t line_step;
    ptrdiff_t k_step;

    // At most `most` lines from `line` on, each from `k` on.
    FloatLines block(size_t line, size_t most, size_t k) const {
        return {at_step(at_step(first, line, line_step), k, k_step), std::min(most, count - line),
                line_step, k_step};
    }
    // All lines from `line` on.
    FloatLines from(size_t line) const { return block(line, count, 0); }
};

namespace packing {

constexpr size_t LANES = simd::LANES<float>;

// Four lines that are contiguous along k, to lanes of a panel: blocks of 4 x 4 values are turned in
// registers. Lines are too short for the hardware to see them coming, so those `ahead` elements
// further on, which the next panel will need, are asked for here.
template <size_t WIDTH>
void turn_lines(const float* first, ptrdiff_t line_step, ptrdiff_t ahead, size_t depth,
                float* target) {
    const float* line0 = first;
    const float* line1 = line0 + line_step;
    const float* line2 = line1 + line_step;
    const float* line3 = line2 + line_step;
    const auto turn_block = [&] {
        simd::F32x4 r0 = simd::load_next(line0);
        simd::F32x4 r1 = simd::load_next(line1);
        simd::F32x4 r2 = simd::load_next(line2);
        simd::F32x4 r3 = simd::load_next(line3);
        simd::transpose(r0, r1, r2, r3);
        simd::store(target, r0);
        simd::store(target + WIDTH, r1);
        simd::store(target + 2 * WIDTH, r2);
        simd::store(target + 3 * WIDTH, r3);
        target += LANES * WIDTH;
    };
    constexpr size_t CACHE_LINE = 64 / sizeof(float);
    size_t rest = depth;
    for (; rest >= CACHE_LINE; rest -= CACHE_LINE) {
        __builtin_prefetch(line0 + ahead);
        __builtin_prefetch(line1 + ahead);
        __builtin_prefetch(line2 + ahead);
        __builtin_prefetch(line3 + ahead);
        for (size_t block = 0; block < CACHE_LINE; block += LANES)
            turn_block();
    }
    for (; rest >= LANES; rest -= LANES)
        turn_block();
    for (; rest != 0; --rest, target += WIDTH) {
        target[0] = *line0++;
        target[1] = *line1++;
        target[2] = *line2++;
        target[3] = *line3++;
    }
}

// At most four lines, one value at a time, to lanes of a panel; missing lines are zeros.
template <size_t WIDTH>
void copy_lines(const FloatLines& lines, size_t depth, float* target) {
    const size_t count = std::min(LANES, lines.count);
    for (size_t k = 0; k < depth; ++k, target += WIDTH) {
        const float* source = at_step(lines.first, k, lines.k_step);
        for (size_t lane = 0; lane < count; ++lane)
            target[lane] = *at_step(source, lane, lines.line_step);
        std::fill(target + count, target + LANES, 0.0f);
    }
}

}  // namespace packing

// Packs the first WIDTH lines as a depth x WIDTH array; missing lines are zeros.
template <size_t WIDTH>
void pack_panel(const FloatLines& lines, size_t depth, float* panel) {
    if (lines.count >= WIDTH && lines.line_step == 1) {
        for (size_t k = 0; k < depth; ++k)
            std::memcpy(panel + k * WIDTH, at_step(lines.first, k, lines.k_step),
                        WIDTH * sizeof(float));
        return;
    }
    for (size_t lane = 0; lane < WIDTH; lane += packing::LANES) {
        const FloatLines four = lines.from(std::min(lane, lines.count));
        if (four.count < packing::LANES || four.k_step != 1) {
            packing::copy_lines<WIDTH>(four, depth, panel + lane);
            continue;
        }
        const bool is_last = four.count < WIDTH + packing::LANES;
        const ptrdiff_t ahead = is_last ? 0 : four.line_step * static_cast<ptrdiff_t>(WIDTH);
        packing::turn_lines<WIDTH>(four.first, four.line_step, ahead, depth, panel + lane);
    }
}

// Packs all lines, panel behind panel. Returns the number of values packed, with the zeros.
template <size_t WIDTH>
size_t pack_panels(const FloatLines& lines, size_t depth, float* panels) {
    size_t line = 0;
    for (; line < lines.count; line += WIDTH)
        pack_panel<WIDTH>(lines.from(line), depth, panels + line * depth);
    return line * depth;
}

}  // namespace kern
