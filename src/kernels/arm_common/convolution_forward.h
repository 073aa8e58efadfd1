// The choice of convolutions on Arm: a product of filters and patches for wide layers, direct
// kernels for narrow ones, whatever the number of images.
#pragma once

#include "kernels/fallback/convolution_forward.h"

namespace kern::arm_common {

class ConvolutionForwardImpl : public fallback::ConvolutionForwardImpl {
public:
    using fallback::ConvolutionForwardImpl::ConvolutionForwardImpl;
    Algorithms all_algorithms_group_free(const ConvolutionSizeRecord& size) override;
    const char* algorithm_set_name() const override { return "AC0"; }
};

bool has_square_filter(const ConvolutionSizeRecord& size, std::initializer_list<size_t> sides);

// The filters by the planes of each image, by the product of the record's level.
void multiply_planes(const ConvolutionRunRecord& run);

}  // namespace kern::arm_common
