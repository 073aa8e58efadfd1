// Filters by patches over panels that are packed as they are needed: the loops around the panel
// product of kernel_table.h. (The picture and its words are those of Van Zee and van de Geijn,
// "BLIS: A Framework for Rapidly Instantiating BLAS Functionality", 2015.)
#pragma once

#include "kernels/operators/convolution.h"

namespace kern::x86 {

// Of records of one group, all Float32. The workspace is of one size for all of them.
size_t patches_workspace(const ConvolutionSizeRecord& size);
// `workspace` needs no alignment.
void multiply_patches(const ConvolutionRunRecord& run, void* workspace);

}  // namespace kern::x86
