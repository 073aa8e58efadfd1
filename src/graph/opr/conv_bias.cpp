#include "graph/opr/conv_bias.h"

#include "graph/opr/matrix_multiply.h"

namespace orb {
namespace {

const OperatorCopy COPY(&ConvBias::TYPE, &ConvBias::copy);

}  // namespace

const OperatorType ConvBias::TYPE{"ConvBias"};

bool ConvBias::accepts(const Param& param) {
    return are_convolution_rules(param) && param.nonlinearity <= kern::Nonlinearity::HARD_SWISH;
}

ConvBias::ConvBias(const std::vector<GraphVar*>& inputs, const Param& param,
                   const OperatorConfig& config)
    : KernelOperator(inputs[0]->owner_graph(), inputs, param, config,
                     param.form == NameForm::V2 ? "conv_bias_fwdv2" : "conv_bias") {
    add_equality_key(static_cast<uint64_t>(param.form));
    add_outputs({product_dtype(inputs[0], inputs[1], param.data_type, config)});
    add_workspace();
}

GraphVar* ConvBias::make(GraphVar* images, GraphVar* filter, GraphVar* bias, const Param& param,
                         const OperatorConfig& config) {
    return create({images, filter, bias}, param, config);
}

kern::TensorShape ConvBias::output_shape(size_t, const std::vector<InferInput>& inputs) {
    return kern::convolved_shape(param(), *inputs[0].shape, *inputs[1].shape);
}

size_t ConvBias::query_workspace(const Layouts& inputs, const Layouts& outputs) {
    return query_kernel().workspace_in_bytes(inputs[0], inputs[1], inputs[2], outputs[0]);
}

void ConvBias::forward(const Tensors& inputs, const Tensors& outputs,
                       const kern::Workspace& workspace) {
    kernel().exec(inputs[0], inputs[1], inputs[2], outputs[0], workspace);
}

}  // namespace orb
