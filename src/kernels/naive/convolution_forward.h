// Convolution by loops.
#pragma once

#include "kernels/naive/convolution_loops.h"
#include "kernels/operators/convolution_forward.h"

namespace kern::naive {

class ConvolutionForwardImpl : public ConvolutionLoops<ConvolutionForward, &convolve> {
public:
    using ConvolutionLoops::ConvolutionLoops;
};
class Convolution3DForwardImpl final : public ConvolutionLoops<Convolution3DForward, &convolve> {
public:
    using ConvolutionLoops::ConvolutionLoops;
};

}  // namespace kern::naive
