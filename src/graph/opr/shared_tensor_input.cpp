#include "graph/opr/shared_tensor_input.h"

namespace orb {

GraphVar* SharedTensorInput::make(ComputeGraph& graph, std::shared_ptr<DeviceTensorND> tensor,
                                  const OperatorConfig& config) {
    return insert(std::unique_ptr<GraphOperator>(
        new SharedTensorInput(graph, std::move(tensor), config, "shared")));
}

const OperatorType* SharedTensorInput::type_record() const {
    static constexpr OperatorType TYPE{"SharedTensorInput"};
    return &TYPE;
}

void SharedTensorInput::register_output_inference() {
    ShapeInferDescriptor rule;
    rule.source = InferSource::MUTABLE;
    rule.infer = [this](kern::TensorShape& shape, const std::vector<InferInput>&) {
        shape = tensor().shape();
        return tensor().shape_valid();
    };
    owner_graph().inference_manager().add_shape_rule(output(0), std::move(rule));
}

}  // namespace orb
