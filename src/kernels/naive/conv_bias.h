// Convolution and then elementwise operations on its result, each by the best operator that the
// handle has.
#pragma once

#include <memory>

#include "kernels/operators/conv_bias.h"
#include "kernels/operators/convolution_forward.h"

namespace kern::naive {

class ConvBiasForwardImpl final : public ConvBiasForward {
public:
    explicit ConvBiasForwardImpl(KernelHandle* handle);
    void exec(const RawTensor& src, const RawTensor& filter, const RawTensor& bias,
              const RawTensor& dst, const Workspace& workspace) override;
    size_t workspace_in_bytes(const TensorLayout& src, const TensorLayout& filter,
                              const TensorLayout& bias, const TensorLayout& dst) override;

private:
    // With the parameters of this moment.
    ConvolutionForward& convolution();
    void apply(ElementwiseMode mode, const std::vector<RawTensor>& inputs, const RawTensor& dst);
    void apply_hard_swish(const RawTensor& dst);

    std::unique_ptr<ConvolutionForward> m_convolution;
    std::unique_ptr<Elementwise> m_elementwise;
};

}  // namespace kern::naive
