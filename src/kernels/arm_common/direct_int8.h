// Direct convolution of signed bytes into 16-bit integers that wrap around. Records of one group;
// workspace and frame are those of direct_frame.h.
#pragma once

#include "kernels/operators/convolution.h"

namespace kern::arm_common {

// Square filters of side 2, 3 or 5, at a stride of 1 or 2.
ConvolutionAlgorithm::Kernel int8_direct_kernel(const ConvolutionSizeRecord& size);
// Filters of one tap: a matrix product of filters and planes.
ConvolutionAlgorithm::Kernel int8_pointwise_kernel(const ConvolutionSizeRecord& size);

}  // namespace kern::arm_common
