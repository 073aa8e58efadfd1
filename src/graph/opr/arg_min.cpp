#include "graph/opr/arg_min.h"

namespace orb {
namespace {

const OperatorCopy COPY(&ArgMin::TYPE, &ArgMin::copy);

}  // namespace

const OperatorType ArgMin::TYPE{"ArgMin"};

ArgMin::ArgMin(const std::vector<GraphVar*>& inputs, const Param& param,
               const OperatorConfig& config)
    : KernelOperator(inputs[0]->owner_graph(), inputs, param, config, "argmin") {
    add_outputs({kern::DType::Int32()});
    add_workspace();
}

GraphVar* ArgMin::make(GraphVar* source, const Param& param, const OperatorConfig& config) {
    return create({source}, param, config);
}

kern::TensorShape ArgMin::output_shape(size_t, const std::vector<InferInput>& inputs) {
    return kern::collapse_axis(*inputs[0].shape, param().axis);
}

size_t ArgMin::query_workspace(const Layouts& inputs, const Layouts& outputs) {
    return query_kernel().workspace_in_bytes(inputs[0], outputs[0]);
}

void ArgMin::forward(const Tensors& inputs, const Tensors& outputs,
                     const kern::Workspace& workspace) {
    kernel().exec(inputs[0], outputs[0], workspace);
}

}  // namespace orb
