// A convolution, a bias for each of its channels and a nonlinearity.
#pragma once

#include "kernels/operators/convolution.h"

namespace kern {

// The numbers never change.
enum class Nonlinearity : uint32_t {
    NONE = 0,
    RELU = 1,
    SIGMOID = 2,
    TANH = 3,
    FAST_TANH = 4,   // ElementwiseMode::RATIONAL_TANH
    HARD_SWISH = 5,  // x * min(max(x + 3, 0), 6) / 6
};

struct ConvBiasParam : ConvolutionParam {
    Nonlinearity nonlinearity = Nonlinearity::NONE;
};

class ConvBiasForward : public ParamOperator<ConvBiasParam> {
public:
    using ParamOperator::ParamOperator;

    // As ConvolutionForward. The bias is {1, oc, 1, 1} of the dtype of dst, which is no quantised
    // one, and a float but for NONE and RELU.
    virtual void exec(const RawTensor& src, const RawTensor& filter, const RawTensor& bias,
                      const RawTensor& dst, const Workspace& workspace) = 0;
    virtual size_t workspace_in_bytes(const TensorLayout& src, const TensorLayout& filter,
                                      const TensorLayout& bias, const TensorLayout& dst) = 0;

protected:
    // What the convolution does not check.
    void check_bias(const TensorLayout& bias, const TensorLayout& dst) const;
};

}  // namespace kern
