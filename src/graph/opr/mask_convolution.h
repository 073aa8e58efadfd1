// Convolutions of images of which only a part is live, and what of their results is.
#pragma once

#include "graph/opr/convolution.h"
#include "kernels/operators/mask_conv.h"

namespace orb {

class MaskConvolution final : public KernelOperator<MaskConvolution, kern::MaskConvForward> {
public:
    static const OperatorType TYPE;
    static bool accepts(const Param& param) { return are_convolution_rules(param); }
    static size_t nr_inputs(const Param&) { return 3; }

    // The mask is that of the outputs, {height, width} of plain numbers.
    static GraphVar* make(GraphVar* images, GraphVar* filter, GraphVar* mask, const Param& param,
                          const OperatorConfig& config = {});

protected:
    kern::TensorShape output_shape(size_t index, const std::vector<InferInput>& inputs) override;
    size_t query_workspace(const Layouts& inputs, const Layouts& outputs) override;
    void forward(const Tensors& inputs, const Tensors& outputs,
                 const kern::Workspace& workspace) override;

private:
    friend Base;
    MaskConvolution(const std::vector<GraphVar*>& inputs, const Param& param,
                    const OperatorConfig& config);
};

template <>
inline constexpr auto FIELDS<kern::MaskPropagateParam> =
    std::tuple{&kern::MaskPropagateParam::pad_h,    &kern::MaskPropagateParam::pad_w,
               &kern::MaskPropagateParam::stride_h, &kern::MaskPropagateParam::stride_w,
               &kern::MaskPropagateParam::kernel_h, &kern::MaskPropagateParam::kernel_w,
               &kern::MaskPropagateParam::dilate_h, &kern::MaskPropagateParam::dilate_w};

class MaskPropagate final : public KernelOperator<MaskPropagate, kern::MaskPropagate> {
public:
    static const OperatorType TYPE;
    static bool accepts(const Param& param);

    // From the mask of the images to that of the outputs, of one dtype.
    static GraphVar* make(GraphVar* mask, const Param& param, const OperatorConfig& config = {});

protected:
    kern::TensorShape output_shape(size_t index, const std::vector<InferInput>& inputs) override;
    size_t query_workspace(const Layouts& inputs, const Layouts& outputs) override;
    void forward(const Tensors& inputs, const Tensors& outputs,
                 const kern::Workspace& workspace) override;

private:
    friend Base;
    MaskPropagate(const std::vector<GraphVar*>& inputs, const Param& param,
                  const OperatorConfig& config);
};

}  // namespace orb
