// Convolution by 3 x 3 filters with fewer products: F(6 x 6, 3 x 3), where 64 of them make 36
// outputs (Lavin and Gray, "Fast Algorithms for Convolutional Neural Networks", 2016). Its
// transforms round too, so its bits are its own and its errors larger than those of plain sums.
// Pure functions; any thread.
#pragma once

#include "kernels/operators/convolution.h"

namespace kern::arm_common {

// A stride of 1, no padding, channels in fours; a record of one group.
size_t winograd_workspace(const ConvolutionSizeRecord& size);
ConvolutionAlgorithm::Kernel winograd_kernel(const ConvolutionSizeRecord& size);

}  // namespace kern::arm_common
