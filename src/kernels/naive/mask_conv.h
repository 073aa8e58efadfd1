// Convolution by the best operator that the handle has, whose outputs are cleared where the mask is
// zero, and the propagation of masks by loops.
#pragma once

#include <memory>

#include "kernels/operators/convolution_forward.h"
#include "kernels/operators/mask_conv.h"

namespace kern::naive {

class MaskConvForwardImpl final : public MaskConvForward {
public:
    explicit MaskConvForwardImpl(KernelHandle* handle);
    void exec(const RawTensor& src, const RawTensor& filter, const RawTensor& mask,
              const RawTensor& dst, const Workspace& workspace) override;
    size_t workspace_in_bytes(const TensorLayout& src, const TensorLayout& filter,
                              const TensorLayout& mask, const TensorLayout& dst) override;

private:
    // With the parameters of this moment.
    ConvolutionForward& convolution();

    std::unique_ptr<ConvolutionForward> m_convolution;
};

class MaskPropagateImpl final : public MaskPropagate {
public:
    using MaskPropagate::MaskPropagate;
    void exec(const RawTensor& src, const RawTensor& dst, const Workspace& workspace) override;
    size_t workspace_in_bytes(const TensorLayout&, const TensorLayout&) override { return 0; }
};

}  // namespace kern::naive
