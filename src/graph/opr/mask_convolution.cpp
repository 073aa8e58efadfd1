#include "graph/opr/mask_convolution.h"

#include "graph/opr/matrix_multiply.h"

namespace orb {
namespace {

const OperatorCopy COPIES[] = {
    {&MaskConvolution::TYPE, &MaskConvolution::copy},
    {&MaskPropagate::TYPE, &MaskPropagate::copy},
};

}  // namespace

const OperatorType MaskConvolution::TYPE{"MaskConvolution"};

MaskConvolution::MaskConvolution(const std::vector<GraphVar*>& inputs, const Param& param,
                                 const OperatorConfig& config)
    : KernelOperator(inputs[0]->owner_graph(), inputs, param, config, "mask_conv_fwd") {
    add_outputs({product_dtype(inputs[0], inputs[1], param.data_type, config)});
    add_workspace();
}

GraphVar* MaskConvolution::make(GraphVar* images, GraphVar* filter, GraphVar* mask,
                                const Param& param, const OperatorConfig& config) {
    return create({images, filter, mask}, param, config);
}

kern::TensorShape MaskConvolution::output_shape(size_t, const std::vector<InferInput>& inputs) {
    return kern::convolved_shape(param(), *inputs[0].shape, *inputs[1].shape);
}

size_t MaskConvolution::query_workspace(const Layouts& inputs, const Layouts& outputs) {
    return query_kernel().workspace_in_bytes(inputs[0], inputs[1], inputs[2], outputs[0]);
}

void MaskConvolution::forward(const Tensors& inputs, const Tensors& outputs,
                              const kern::Workspace& workspace) {
    kernel().exec(inputs[0], inputs[1], inputs[2], outputs[0], workspace);
}

const OperatorType MaskPropagate::TYPE{"MaskPropagate"};

bool MaskPropagate::accepts(const Param& param) {
    return param.stride_h >= 1 && param.stride_w >= 1 && param.kernel_h >= 1 &&
           param.kernel_w >= 1 && param.dilate_h >= 1 && param.dilate_w >= 1;
}

MaskPropagate::MaskPropagate(const std::vector<GraphVar*>& inputs, const Param& param,
                             const OperatorConfig& config)
    : KernelOperator(inputs[0]->owner_graph(), inputs, param, config, "mask_propagate") {
    add_outputs({inputs[0]->dtype()});
    add_workspace();
}

GraphVar* MaskPropagate::make(GraphVar* mask, const Param& param, const OperatorConfig& config) {
    return create({mask}, param, config);
}

kern::TensorShape MaskPropagate::output_shape(size_t, const std::vector<InferInput>& inputs) {
    return kern::MaskPropagate::deduce_shape(param(), *inputs[0].shape);
}

size_t MaskPropagate::query_workspace(const Layouts& inputs, const Layouts& outputs) {
    return query_kernel().workspace_in_bytes(inputs[0], outputs[0]);
}

void MaskPropagate::forward(const Tensors& inputs, const Tensors& outputs,
                            const kern::Workspace& workspace) {
    kernel().exec(inputs[0], outputs[0], workspace);
}

}  // namespace orb
