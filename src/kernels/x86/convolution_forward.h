// Convolution with AVX2 or AVX-512: with one input channel a group, plane by plane ("X86PLANES"),
// or as the product of filters and patches over panels ("X86PATCHES"). What has no algorithm here
// runs at the fallback level.
//
// Each Float32 output is one chain of fused multiply-adds in the order of the filter's memory, from
// zero on. So AVX2 and AVX-512 give the same bits, whatever the sizes; they are not those of the
// levels below, which round each product.
#pragma once

#include "kernels/fallback/convolution_forward.h"

namespace kern::x86 {

class ConvolutionForwardImpl final : public fallback::ConvolutionForwardImpl {
public:
    using fallback::ConvolutionForwardImpl::ConvolutionForwardImpl;
    const char* algorithm_set_name() const override { return "X86"; }
    Algorithms all_algorithms_group_free(const ConvolutionSizeRecord& size) override;
    const ConvolutionProducts& products() const override;
};

}  // namespace kern::x86
