// How a level multiplies, as plain functions, so that algorithms that several levels share get the
// product of the level that runs them. Constants, valid until the process ends.
#pragma once

#include "kernels/operators/convolution.h"
#include "kernels/operators/matrix_mul_args.h"

namespace kern {

struct ConvolutionProducts {
    // Float32 matrices, of which the left one may be transposed.
    size_t (*matrix_workspace)(size_t rows, size_t columns, size_t depth);
    void (*multiply_matrix)(const MatrixMulArgs& args, void* workspace);
    // The filters {ocpg, depth} by the patches of the images {depth, oh * ow} of a Float32 record
    // of one group. The patches are packed as they are needed (implicit im2col), so the workspace
    // depends neither on the images' number nor on their size.
    size_t (*patches_workspace)(const ConvolutionSizeRecord& size);
    void (*multiply_patches)(const ConvolutionRunRecord& run, void* workspace);
};

}  // namespace kern
