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
    patches.image = static_cast<const float*>(run.src) + image * run.src_image_step;
    patches.rows = PatchAxis::of(run.ih, run.fh, run.stride_h, run.pad_h, run.dilate_h, is_turned);
    patches.columns =
        PatchAxis::of(run.iw, run.fw, run.stride_w, run.pad_w, run.dilate_w, is_turned);
    patches.row_outputs = run.ow;
    patches.count = run.dst_plane();
    return patches;
}

}  // namespace kern
