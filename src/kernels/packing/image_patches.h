// The patches of a Float32 image that a filter sees, as the right operand of a matrix product: a
// column for each output, a k for each channel and tap in the filter's order in memory. They are
// expanded only in the panels that a product packs (implicit im2col; Chellapilla, Puri and Simard,
// "High performance convolutional neural networks for document processing", 2006).
//
// A value that borrows the image; any thread.
#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>

#include "kernels/packing/lines.h"
#include "kernels/simd/f32x4.h"

namespace kern {

// One axis of an image under a filter: output o meets element o * stride + first + tap * tap_step.
// What is outside the image is zero.
struct PatchAxis {
    size_t length;  // of the image
    size_t taps;
    ptrdiff_t stride, first, tap_step;

    // `is_turned`: the last tap meets the first element.
    static PatchAxis of(size_t length, size_t taps, size_t stride, size_t pad, size_t dilate,
                        bool is_turned);
    ptrdiff_t element(size_t output, size_t tap) const {
        return static_cast<ptrdiff_t>(output) * stride + first +
               static_cast<ptrdiff_t>(tap) * tap_step;
    }
    bool is_inside(ptrdiff_t position) const {
        return position >= 0 && position < static_cast<ptrdiff_t>(length);
    }
    // Of `count` outputs, of which the first meets element `left`: how many meet what is before
    // `position`.
    size_t outputs_before(ptrdiff_t position, ptrdiff_t left, size_t count) const {
        ptrdiff_t outputs = position - left;
        if (stride != 1)  // small processors divide slowly
            outputs = (outputs + stride - 1) / stride;
        return std::min(static_cast<size_t>(std::max(outputs, ptrdiff_t{0})), count);
    }
};

struct ImagePatches {
    const float* image;  // of the first channel
    PatchAxis rows, columns;
    size_t row_outputs;  // outputs in a row of them
    size_t first_output = 0;
    size_t count;  // of outputs from there on
    size_t first_k = 0;

    size_t taps() const { return rows.taps * columns.taps; }
    // At most `most` outputs from `output` on, each from `k` on.
    ImagePatches block(size_t output, size_t most, size_t k = 0) const {
        ImagePatches result = *this;
        result.first_output += output;
        result.count = std::min(most, count - output);
        result.first_k += k;
        return result;
    }
    ImagePatches from(size_t output) const { return block(output, count); }
};

namespace packing {

// Channels of one tap that a panel takes, `panel_step` elements apart in the panel.
struct ChannelSteps {
    size_t count;
    size_t plane;  // elements of a channel in the image
    size_t panel_step;
};

// A fixed number of neighbours, as whole vectors: compilers for 32-bit Arm would call memcpy, which
// takes four times the instructions. Both pointers move on by `source_step` and `target_step`.
template <size_t COUNT>
void copy_neighbours(const float*& source, ptrdiff_t source_step, float*& target,
                     ptrdiff_t target_step) {
    constexpr size_t VECTORS = COUNT / simd::LANES<float>;
    constexpr auto COPIED = static_cast<ptrdiff_t>(VECTORS * simd::LANES<float>);
#pragma GCC unroll 8
    for (size_t i = 0; i < VECTORS; ++i)
        simd::store_next(target, simd::load_next(source), simd::LANES<float>);
#pragma GCC unroll 4
    for (ptrdiff_t lane = 0; lane < static_cast<ptrdiff_t>(COUNT) - COPIED; ++lane)
        target[lane] = source[lane];
    source += source_step - COPIED;
    target += target_step - COPIED;
}
template <size_t COUNT>
void zero_neighbours(float* target) {
    constexpr size_t VECTORS = COUNT / simd::LANES<float> * simd::LANES<float>;
    for (size_t lane = 0; lane < VECTORS; lane += simd::LANES<float>)
        simd::store(target + lane, simd::zero());
    for (size_t lane = VECTORS; lane < COUNT; ++lane)
        target[lane] = 0;
}

// COUNT neighbouring lanes of a panel for each channel: a fixed number, so that they are moved as
// vectors. A null source is the padding.
template <size_t COUNT>
void copy_lanes(const float* source, ptrdiff_t step, const ChannelSteps& channels, float* target) {
    if (source == nullptr) {
        for (size_t i = 0; i < channels.count; ++i, target += channels.panel_step)
            zero_neighbours<COUNT>(target);
        return;
    }
    if (step == 1) {
        for (size_t i = channels.count; i != 0; --i)
            copy_neighbours<COUNT>(source, static_cast<ptrdiff_t>(channels.plane), target,
                                   static_cast<ptrdiff_t>(channels.panel_step));
        return;
    }
    for (size_t i = 0; i < channels.count; ++i, target += channels.panel_step) {
        for (size_t lane = 0; lane < COUNT; ++lane)
            target[lane] = *at_step(source, lane, step);
        source += channels.plane;
    }
}

using CopyLanes = void (*)(const float* source, ptrdiff_t step, const ChannelSteps& channels,
                           float* target);
template <size_t... INDEX>
CopyLanes copy_lanes_of(size_t count, std::index_sequence<INDEX...>) {
    static constexpr CopyLanes COPIES[] = {&copy_lanes<INDEX + 1>...};
    return COPIES[count - 1];
}

// Outputs of one row that stand side by side in a panel.
struct OutputRun {
    size_t row, column;  // of the first output
    size_t lane, count;
};

// One tap of one run: zeros where it meets the padding, at both ends.
template <size_t WIDTH>
void pack_run(const ImagePatches& patches, const OutputRun& run, size_t y, size_t x, size_t channel,
              const ChannelSteps& channels, float* target) {
    const PatchAxis& columns = patches.columns;
    const ptrdiff_t row = patches.rows.element(run.row, y);
    const ptrdiff_t left = columns.element(run.column, x);
    const ptrdiff_t length = static_cast<ptrdiff_t>(columns.length);
    const bool is_inside = patches.rows.is_inside(row);
    const size_t begin = is_inside && left < 0 ? columns.outputs_before(0, left, run.count) : 0;
    const size_t end = !is_inside || left >= length
                           ? 0
                           : std::max(begin, columns.outputs_before(length, left, run.count));
    const auto pack = [&](size_t first, size_t last, const float* source) {
        if (first < last)
            copy_lanes_of(last - first, std::make_index_sequence<WIDTH>())(
                source, columns.stride, channels, target + first);
    };
    pack(0, std::min(begin, end), nullptr);
    if (begin < end)
        pack(begin, end,
             patches.image + channel * channels.plane + static_cast<size_t>(row) * columns.length +
                 (left + static_cast<ptrdiff_t>(begin) * columns.stride));
    pack(end, run.count, nullptr);
}

}  // namespace packing

// Packs the first WIDTH outputs as a depth x WIDTH array; missing outputs are zeros. One tap after
// the other, each for all channels, so that the padding is looked for once a tap.
template <size_t WIDTH>
void pack_panel(const ImagePatches& patches, size_t depth, float* panel) {
    const size_t outputs = std::min(WIDTH, patches.count), taps = patches.taps();
    const size_t plane = patches.rows.length * patches.columns.length;
    const size_t end_k = patches.first_k + depth;
    // Divisions are calls on 32-bit Arm: few of them, and none for each tap.
    const size_t first_channel = patches.first_k / taps, end_channel = end_k / taps;
    const size_t first_tap = patches.first_k % taps, end_tap = end_k % taps;
    const size_t first_row = patches.first_output / patches.row_outputs;
    const size_t first_column = patches.first_output % patches.row_outputs;
    size_t tap_y = 0, tap_x = 0;
    for (size_t tap = 0; tap < taps; ++tap, ++tap_x) {
        if (tap_x == patches.columns.taps) {
            tap_x = 0;
            ++tap_y;
        }
        const size_t channel = first_channel + (tap < first_tap ? 1 : 0);
        const size_t last_channel = end_channel + (tap < end_tap ? 1 : 0);
        if (channel >= last_channel)
            continue;
        const packing::ChannelSteps channels{last_channel - channel, plane, taps * WIDTH};
        float* target = panel + (channel * taps + tap - patches.first_k) * WIDTH;
        packing::OutputRun run{first_row, first_column, 0, 0};
        while (run.lane < outputs) {
            run.count = std::min(outputs - run.lane, patches.row_outputs - run.column);
            packing::pack_run<WIDTH>(patches, run, tap_y, tap_x, channel, channels,
                                     target + run.lane);
            run = {run.row + 1, 0, run.lane + run.count, 0};
        }
        if (outputs < WIDTH)
            packing::copy_lanes_of(WIDTH - outputs, std::make_index_sequence<WIDTH>())(
                nullptr, 1, channels, target + outputs);
    }
}

}  // namespace kern
