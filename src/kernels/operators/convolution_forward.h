// dst = src convolved with filter, image by image, group by group.
#pragma once

#include "kernels/operators/convolution_operator.h"

namespace kern {

// Naive adds the products of one output in the order of the filter's memory into one accumulator,
// and those that would meet the padding are left out; algorithms that fill the padding in multiply
// zeros there, which differs only where a filter holds an infinity or a NaN. Bits other than
// naive's: x86, "WINOGRAD".
class ConvolutionForward : public ConvolutionOperator<ConvolutionParam, ConvolutionOperand::DST> {
public:
    using ConvolutionOperator::ConvolutionOperator;
};

// The same along three spatial axes.
class Convolution3DForward
    : public ConvolutionOperator<Convolution3DParam, ConvolutionOperand::DST> {
public:
    using ConvolutionOperator::ConvolutionOperator;
};

}  // namespace kern
