// Filters by patches over panels that are packed as they are needed: the loops around the panel
// product of kernel_table.h.
#pragma once

#include "kernels/operators/convolution.h"

namespace kern::x86 {

// Of records of one group, all Float32. The workspace depends on the channels alone.
size_t patches_workspace(const ConvolutionSizeRecord& size);
// `workspace` needs no alignment.
void multiply_patches(const ConvolutionRunRecord& run, void* workspace);

}  // namespace kern::x86
