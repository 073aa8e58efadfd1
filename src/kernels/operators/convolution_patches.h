// The operands of a Float32 convolution of one group as those of a matrix product: filters
// {ocpg, depth} by patches {depth, oh * ow}, where k runs through the filter in its order in
// memory.
#pragma once

#include "kernels/operators/convolution.h"
#include "kernels/packing/image_patches.h"
#include "kernels/packing/lines.h"

namespace kern {

inline Lines<float> filter_lines(const ConvolutionRunRecord& run) {
    return {static_cast<const float*>(run.filter), run.ocpg, static_cast<ptrdiff_t>(run.depth()),
            1};
}

inline ImagePatches image_patches(const ConvolutionRunRecord& run, size_t image) {
    const bool is_turned = run.mode == ConvolutionMode::CONVOLUTION;
    ImagePatches patches;
    patches.count = run.dst_plane();
    patches.image = static_cast<const float*>(run.src) + image * run.src_image_step;
    patches.rows = PatchAxis::of(run.ih, run.fh, run.stride_h, run.pad_h, run.dilate_h, is_turned);
    patches.columns =
        PatchAxis::of(run.iw, run.fw, run.stride_w, run.pad_w, run.dilate_w, is_turned);
    patches.row_outputs = run.ow;
    if (run.dst_plane() == run.src_plane() && run.taps() == 1 && run.pad_h == 0 && run.pad_w == 0) {
        // What is met is the plane itself: one row, so that no panel crosses the ends of several.
        patches.rows.length = 1;
        patches.columns.length = patches.row_outputs = patches.count;
    }
    return patches;
}

}  // namespace kern
