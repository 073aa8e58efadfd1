// The transposes of convolution by loops.
#pragma once

#include "kernels/naive/convolution_loops.h"
#include "kernels/operators/convolution_backward.h"

namespace kern::naive {

class ConvolutionBackwardDataImpl
    : public ConvolutionLoops<ConvolutionBackwardData, &convolve_backward_data> {
public:
    using ConvolutionLoops::ConvolutionLoops;
};
class ConvolutionBackwardFilterImpl final
    : public ConvolutionLoops<ConvolutionBackwardFilter, &convolve_backward_filter> {
public:
    using ConvolutionLoops::ConvolutionLoops;
};
class Convolution3DBackwardDataImpl final
    : public ConvolutionLoops<Convolution3DBackwardData, &convolve_backward_data> {
public:
    using ConvolutionLoops::ConvolutionLoops;
};
class Convolution3DBackwardFilterImpl final
    : public ConvolutionLoops<Convolution3DBackwardFilter, &convolve_backward_filter> {
public:
    using ConvolutionLoops::ConvolutionLoops;
};

}  // namespace kern::naive
