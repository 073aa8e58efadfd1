// The transposes of a convolution, which is linear in its images and in its filter: what a gradient
// by dst makes of the gradients by src and by filter.
#pragma once

#include "kernels/operators/convolution_operator.h"

namespace kern {

// src = the sum of what each element of dst gives, by the filter's taps, to the elements that it
// was made of; elements that none reaches are zero. Naive adds in the order of the filter's memory.
class ConvolutionBackwardData
    : public ConvolutionOperator<ConvolutionParam, ConvolutionOperand::SRC> {
public:
    using ConvolutionOperator::ConvolutionOperator;
};

// filter = for each tap the sum of the products of dst and what the tap meets in src, over all
// images and outputs in their order in memory.
class ConvolutionBackwardFilter
    : public ConvolutionOperator<ConvolutionParam, ConvolutionOperand::FILTER> {
public:
    using ConvolutionOperator::ConvolutionOperator;
};

// The same along three spatial axes.
class Convolution3DBackwardData
    : public ConvolutionOperator<Convolution3DParam, ConvolutionOperand::SRC> {
public:
    using ConvolutionOperator::ConvolutionOperator;
};
class Convolution3DBackwardFilter
    : public ConvolutionOperator<Convolution3DParam, ConvolutionOperand::FILTER> {
public:
    using ConvolutionOperator::ConvolutionOperator;
};

}  // namespace kern
