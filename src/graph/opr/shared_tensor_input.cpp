#include "graph/opr/shared_tensor_input.h"

#include "graph/core/operator_copy.h"

namespace orb {

namespace {

GraphOperator* copy(const GraphOperator& source, ComputeGraph& graph, const std::vector<GraphVar*>&,
                    const OperatorConfig& config) {
    const auto& op = static_cast<const SharedTensorInput&>(source);
    return SharedTensorInput::make(graph, op.shared_tensor(), config, op.role())->owner_operator();
}

const OperatorCopy COPY(&SharedTensorInput::TYPE, copy);

}  // namespace

const OperatorType SharedTensorInput::TYPE{"SharedTensorInput"};

SharedTensorInput::SharedTensorInput(ComputeGraph& graph, std::shared_ptr<DeviceTensorND> tensor,
                                     const OperatorConfig& config, TensorRole role)
    : TensorSource(graph, std::move(tensor), config, "shared"), m_role(role) {}

GraphVar* SharedTensorInput::make(ComputeGraph& graph, std::shared_ptr<DeviceTensorND> tensor,
                                  const OperatorConfig& config, TensorRole role) {
    return insert(std::unique_ptr<GraphOperator>(
        new SharedTensorInput(graph, std::move(tensor), config, role)));
}

void SharedTensorInput::register_output_inference() {
    ShapeInferDescriptor rule;
    rule.source = source_kind();
    rule.infer = [this](kern::TensorShape& shape, const std::vector<InferInput>&) {
        shape = tensor().shape();
        return tensor().shape_valid();
    };
    owner_graph().inference_manager().add_shape_rule(output(0), std::move(rule));
}

}  // namespace orb
