#include "graph/opr/arg_max.h"

namespace orb {
namespace {

const OperatorCopy COPY(&ArgMax::TYPE, &ArgMax::copy);

}  // namespace

const OperatorType ArgMax::TYPE{"ArgMax"};

ArgMax::ArgMax(const std::vector<GraphVar*>& inputs, const Param& param,
               const OperatorConfig& config)
    : KernelOperator(inputs[0]->owner_graph(), inputs, param, config, "argmax") {
    add_outputs({kern::DType::Int32()});
    add_workspace();
}

GraphVar* ArgMax::make(GraphVar* source, const Param& param, const OperatorConfig& config) {
    return create({source}, param, config);
}

kern::TensorShape ArgMax::output_shape(size_t, const std::vector<InferInput>& inputs) {
    return kern::collapse_axis(*inputs[0].shape, param().axis);
}

size_t ArgMax::query_workspace(const Layouts& inputs, const Layouts& outputs) {
    return query_kernel().workspace_in_bytes(inputs[0], outputs[0]);
}

void ArgMax::forward(const Tensors& inputs, const Tensors& outputs,
                     const kern::Workspace& workspace) {
    kernel().exec(inputs[0], outputs[0], workspace);
}

}  // namespace orb
