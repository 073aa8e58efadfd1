// Convolution on 32-bit Arm: that of arm_common by the blocked product of float_product.h, which
// planes under filters of one tap enter as they are.
#pragma once

#include "kernels/arm_common/convolution_forward.h"

namespace kern::armv7 {

class ConvolutionForwardImpl : public arm_common::ConvolutionForwardImpl {
public:
    using arm_common::ConvolutionForwardImpl::ConvolutionForwardImpl;
    Algorithms all_algorithms_group_free(const ConvolutionSizeRecord& size) override;
    const ConvolutionProducts& products() const override;
    const char* algorithm_set_name() const override { return "A30"; }
};

}  // namespace kern::armv7
