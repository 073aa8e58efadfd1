// Convolutions of images of which only a part counts, which a mask {height, width} of plain numbers
// tells: what is not zero is live.
#pragma once

#include "kernels/operators/convolution.h"

namespace kern {

class MaskConvForward : public ParamOperator<ConvolutionParam> {
public:
    using ParamOperator::ParamOperator;

    // As ConvolutionForward; zeros where the mask {oh, ow} of the outputs is zero.
    virtual void exec(const RawTensor& src, const RawTensor& filter, const RawTensor& mask,
                      const RawTensor& dst, const Workspace& workspace) = 0;
    virtual size_t workspace_in_bytes(const TensorLayout& src, const TensorLayout& filter,
                                      const TensorLayout& mask, const TensorLayout& dst) = 0;

protected:
    // What the convolution does not check.
    void check_mask(const TensorLayout& mask, const TensorLayout& dst) const;
};

struct MaskPropagateParam {
    uint32_t pad_h = 0, pad_w = 0;
    uint32_t stride_h = 1, stride_w = 1;
    uint32_t kernel_h = 1, kernel_w = 1;
    uint32_t dilate_h = 1, dilate_w = 1;
};

// The mask of the outputs for that of the images: 1 for an output of which a tap meets what is
// live, 0 for the others.
class MaskPropagate : public ParamOperator<MaskPropagateParam> {
public:
    using ParamOperator::ParamOperator;

    // Both of one dtype of plain numbers.
    virtual void exec(const RawTensor& src, const RawTensor& dst, const Workspace& workspace) = 0;
    virtual size_t workspace_in_bytes(const TensorLayout& src, const TensorLayout& dst) = 0;

    static TensorShape deduce_shape(const Param& param, const TensorShape& src);

protected:
    // The convolution of one channel that sees the same.
    ConvolutionSizeRecord check_exec(const TensorLayout& src, const TensorLayout& dst) const;
};

}  // namespace kern
