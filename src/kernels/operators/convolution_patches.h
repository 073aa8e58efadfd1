// How a convolution of one group looks at its image, and its Float32 operands as those of a matrix
// product: filters {ocpg, depth} by patches {depth, oh * ow}, where k runs through the filter in
// its order in memory. Products are of images of two spatial axes.
#pragma once

#include "kernels/operators/convolution.h"
#include "kernels/packing/image_patches.h"
#include "kernels/packing/lines.h"

namespace kern {

struct ConvolutionAxes {
    PatchAxis planes, rows, columns;

    explicit ConvolutionAxes(const ConvolutionSizeRecord& size)
        : planes(PatchAxis::of(size.id, size.fd, size.stride_d, size.pad_d, size.dilate_d,
                               size.mode == ConvolutionMode::CONVOLUTION)),
          rows(PatchAxis::of(size.ih, size.fh, size.stride_h, size.pad_h, size.dilate_h,
                             size.mode == ConvolutionMode::CONVOLUTION)),
          columns(PatchAxis::of(size.iw, size.fw, size.stride_w, size.pad_w, size.dilate_w,
                                size.mode == ConvolutionMode::CONVOLUTION)) {}
};

// One tap that meets every element: the patches are the planes themselves.
inline bool is_pointwise(const ConvolutionSizeRecord& size) {
    return size.taps() == 1 && size.stride_h == 1 && size.stride_w == 1 && size.pad_h == 0 &&
           size.pad_w == 0;
}

inline Lines<float> filter_lines(const ConvolutionRunRecord& run) {
    return {static_cast<const float*>(run.filter), run.ocpg, static_cast<ptrdiff_t>(run.depth()),
            1};
}

inline ImagePatches image_patches(const ConvolutionRunRecord& run, size_t image) {
    const ConvolutionAxes axes(run);
    ImagePatches patches;
    patches.count = run.dst_plane();
    patches.image = static_cast<const float*>(run.src) + image * run.src_image_step;
    patches.rows = axes.rows;
    patches.columns = axes.columns;
    patches.row_outputs = run.ow;
    if (is_pointwise(run)) {  // one row, so that no panel crosses the ends of several
        patches.rows.length = 1;
        patches.columns.length = patches.row_outputs = patches.count;
    }
    return patches;
}

}  // namespace kern
