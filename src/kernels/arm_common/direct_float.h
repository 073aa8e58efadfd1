// Direct convolution of Float32, without expanding patches: for narrow layers and few channels a
// group. Records of one group; workspace and frame are those of direct_frame.h.
#pragma once

#include "kernels/operators/convolution.h"

namespace kern::arm_common {

// Any filter at a stride of 1, in both modes.
ConvolutionAlgorithm::Kernel float_direct_kernel(const ConvolutionSizeRecord& size);
// Square filters of side 2, 3 or 5 at a stride of 1; of side 2, 3, 5 or 7 at one of 2.
ConvolutionAlgorithm::Kernel float_stride1_kernel(const ConvolutionSizeRecord& size);
ConvolutionAlgorithm::Kernel float_stride2_kernel(const ConvolutionSizeRecord& size);

}  // namespace kern::arm_common
