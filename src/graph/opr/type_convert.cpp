#include "graph/opr/type_convert.h"

#include "graph/node/comp_node_env.h"

namespace orb {

TypeConvert::TypeConvert(GraphVar* var, kern::DType dtype, const OperatorConfig& config)
    : SingleNodeOperator(&var->owner_graph(), config, std::string("as") + dtype.name()) {
    add_input({var});
    add_output()->add_flag(var_flag::ALLOW_EMPTY_SHAPE).dtype(dtype);
    add_equality_key(reinterpret_cast<uintptr_t>(dtype.record()));
}

GraphVar* TypeConvert::make(GraphVar* var, kern::DType dtype, const OperatorConfig& config) {
    if (var->dtype() == dtype)
        return var;
    return insert(std::unique_ptr<GraphOperator>(new TypeConvert(var, dtype, config)));
}

const OperatorType* TypeConvert::type_record() const {
    static constexpr OperatorType TYPE{"TypeConvert"};
    return &TYPE;
}

void TypeConvert::register_output_inference() {
    ShapeInferDescriptor rule;
    rule.deps = {{input(0), InferDepType::SHAPE}};
    rule.infer = [](kern::TensorShape& shape, const std::vector<InferInput>& inputs) {
        shape = *inputs[0].shape;
        return true;
    };
    owner_graph().inference_manager().add_shape_rule(output(0), std::move(rule));
}

void TypeConvert::run_on_node() {
    if (!m_kernel)
        m_kernel = comp_node().env().kernel_handle().create_operator<kern::TypeCvt>();
    m_kernel->exec(input_value(0).as_raw(), output_value(0).as_raw());
}

void TypeConvert::release_node_resources() {
    SingleNodeOperator::release_node_resources();
    m_kernel.reset();
}

}  // namespace orb
