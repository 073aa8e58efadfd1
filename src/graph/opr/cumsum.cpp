#include "graph/opr/cumsum.h"

namespace orb {
namespace {

const OperatorCopy COPY(&Cumsum::TYPE, &Cumsum::copy);

}  // namespace

const OperatorType Cumsum::TYPE{"Cumsum"};

Cumsum::Cumsum(const std::vector<GraphVar*>& inputs, const Param& param,
               const OperatorConfig& config)
    : KernelOperator(inputs[0]->owner_graph(), inputs, param, config, "cumsum") {
    add_outputs({inputs[0]->dtype()});
    add_workspace();
}

GraphVar* Cumsum::make(GraphVar* source, const Param& param, const OperatorConfig& config) {
    return create({source}, param, config);
}

kern::TensorShape Cumsum::output_shape(size_t, const std::vector<InferInput>& inputs) {
    return *inputs[0].shape;
}

size_t Cumsum::query_workspace(const Layouts& inputs, const Layouts& outputs) {
    return query_kernel().workspace_in_bytes(inputs[0], outputs[0]);
}

void Cumsum::forward(const Tensors& inputs, const Tensors& outputs,
                     const kern::Workspace& workspace) {
    kernel().exec(inputs[0], outputs[0], workspace);
}

}  // namespace orb
