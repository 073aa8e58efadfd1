// Convolution by the packed product of filters and patches ("F"), or by the naive loops ("N").
#pragma once

#include "kernels/fallback/convolution_choice.h"

namespace kern::fallback {

class ConvolutionForwardImpl : public ConvolutionChoice<naive::ConvolutionForwardImpl> {
public:
    using ConvolutionChoice::ConvolutionChoice;
    const char* algorithm_set_name() const override { return "F0"; }
    Algorithms all_algorithms_group_free(const ConvolutionSizeRecord& size) override;
    const ConvolutionProducts& products() const override;
};

}  // namespace kern::fallback
