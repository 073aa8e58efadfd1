// The Float32 matrix product over packed panels: A in panels of 8 rows, B in panels of 12 columns,
// the values of one k side by side. (The picture and its words are those of Van Zee and van de
// Geijn, "BLIS: A Framework for Rapidly Instantiating BLAS Functionality", 2015.)
//
// Each element of C is one chain of rounded additions in the order of increasing k, in a vector
// lane of its own, so its bits do not depend on the sizes or on its place in a tile.
#pragma once

#include "kernels/operators/convolution.h"
#include "kernels/operators/matrix_mul_args.h"

namespace kern::fallback {

// Bytes of workspace for a product of these sizes; a size that does not fit stops the process.
size_t packed_product_workspace(size_t rows, size_t columns, size_t depth);

// `workspace` needs no alignment.
void packed_product(const MatrixMulArgs& args, void* workspace);

// The same with filters for A, and for B the patches of one image after the other.
size_t packed_patches_workspace(const ConvolutionSizeRecord& size);
void packed_patches_product(const ConvolutionRunRecord& run, void* workspace);

}  // namespace kern::fallback
