#include "graph/opr/argsort.h"

namespace orb {
namespace {

const OperatorCopy COPY(&Argsort::TYPE, &Argsort::copy);

}  // namespace

const OperatorType Argsort::TYPE{"Argsort"};

Argsort::Argsort(const std::vector<GraphVar*>& inputs, const Param& param,
                 const OperatorConfig& config)
    : KernelOperator(inputs[0]->owner_graph(), inputs, param, config, "argsort") {
    add_outputs({inputs[0]->dtype(), kern::DType::Int32()});
    add_workspace();
}

GraphVar* Argsort::make(GraphVar* source, const Param& param, const OperatorConfig& config) {
    return create({source}, param, config);
}

kern::TensorShape Argsort::output_shape(size_t, const std::vector<InferInput>& inputs) {
    return *inputs[0].shape;
}

size_t Argsort::query_workspace(const Layouts& inputs, const Layouts& outputs) {
    return query_kernel().workspace_in_bytes(inputs[0], outputs[0], outputs[1]);
}

void Argsort::forward(const Tensors& inputs, const Tensors& outputs,
                      const kern::Workspace& workspace) {
    kernel().exec(inputs[0], outputs[0], outputs[1], workspace);
}

}  // namespace orb
