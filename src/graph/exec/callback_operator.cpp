#include "graph/exec/callback_operator.h"

#include "graph/node/comp_node_env.h"

namespace orb {

const OperatorType CallbackOperator::TYPE{"CallbackOperator"};

CallbackOperator::CallbackOperator(GraphVar* var)
    : SingleNodeOperator(&var->owner_graph(), OperatorConfig{}, "callback") {
    add_input({var});
    add_output()
        ->add_flag(var_flag::VOLATILE_CONTENT | var_flag::ALLOW_EMPTY_SHAPE)
        .dtype(var->dtype());
}

CallbackOperator* CallbackOperator::make(GraphVar* var) {
    std::unique_ptr<GraphOperator> op(new CallbackOperator(var));
    return static_cast<CallbackOperator*>(var->owner_graph().insert_operator(std::move(op)));
}

void CallbackOperator::register_output_inference() {
    ShapeInferDescriptor rule;
    rule.source = InferSource::CONSTANT;
    rule.infer = [](kern::TensorShape& shape, const std::vector<InferInput>&) {
        shape = {0};
        return true;
    };
    owner_graph().inference_manager().add_shape_rule(output(0), std::move(rule));
}

OperatorProperties CallbackOperator::make_properties() const {
    OperatorProperties properties = SingleNodeOperator::make_properties();
    properties.add_dependency(input(0), dependency::COUNTED);
    return properties;
}

// By way of the node, like a kernel, so that a replay calls them too.
void CallbackOperator::run_on_node() {
    comp_node().env().dispatcher().submit([callbacks = m_callbacks, value = input_value(0)] {
        for (const OutputCallback& callback : *callbacks)
            callback(value);
    });
}

}  // namespace orb
