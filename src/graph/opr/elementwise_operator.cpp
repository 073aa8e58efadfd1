#include "graph/opr/elementwise_operator.h"

#include <algorithm>

#include "graph/node/comp_node_env.h"
#include "graph/opr/type_convert.h"
#include "kernels/check.h"

namespace orb {
namespace {

using kern::DType;
using kern::ElementwiseMode;
using kern::ModeTrait;

bool is_integer(const GraphVar* var) {
    return var->dtype().category() == kern::DTypeCategory::INTEGER;
}

DType common_dtype(DType a, DType b) {
    if (a == b)
        return a;
    const bool mixed_bytes =
        (a == DType::Int8() && b == DType::Uint8()) || (a == DType::Uint8() && b == DType::Int8());
    if (mixed_bytes)
        return DType::Int16();
    for (DType wider : {DType::Float32(), DType::Float16(), DType::Int32(), DType::Int16()}) {
        if (a == wider || b == wider)
            return wider;
    }
    KERN_FAIL_TEXT(std::string(a.name()) + " " + b.name());
}

}  // namespace

ElementwiseOperator::ElementwiseOperator(const std::vector<GraphVar*>& inputs, ElementwiseMode mode,
                                         const OperatorConfig& config)
    : SingleNodeOperator(&inputs[0]->owner_graph(), config, ModeTrait::of(mode).name),
      m_mode(mode) {
    add_sorted_inputs(inputs);
    add_output()->dtype(inputs[0]->dtype());
    add_equality_key(static_cast<uint64_t>(mode));
}

void ElementwiseOperator::add_sorted_inputs(const std::vector<GraphVar*>& inputs) {
    const auto pair = [&](size_t first) {
        add_input({inputs[first], inputs[first + 1]}, InputOrder::SORT_ADDED);
    };
    if (m_mode == ElementwiseMode::FUSE_MUL_ADD3) {
        pair(0);
        add_input({inputs[2]});
    } else if (m_mode == ElementwiseMode::FUSE_MUL_ADD4) {
        pair(0);
        pair(2);
    } else {
        add_input(inputs,
                  ModeTrait::of(m_mode).commutable ? InputOrder::SORT_ADDED : InputOrder::AS_GIVEN);
    }
}

GraphVar* ElementwiseOperator::make(const std::vector<GraphVar*>& inputs, ElementwiseMode mode,
                                    const OperatorConfig& config) {
    const ModeTrait& trait = ModeTrait::of(mode);
    KERN_CHECK(inputs.size() == trait.arity);
    DType target = inputs[0]->dtype();
    for (const GraphVar* var : inputs)
        target = common_dtype(target, var->dtype());
    const auto integer = kern::DTypeCategory::INTEGER;
    if (target.category() == integer && !trait.accepts(integer))
        target = DType::Float32();
    std::vector<GraphVar*> converted;
    for (GraphVar* var : inputs)
        converted.push_back(TypeConvert::make(var, target));
    return insert(std::unique_ptr<GraphOperator>(new ElementwiseOperator(converted, mode, config)));
}

GraphVar* ElementwiseOperator::subtract(GraphVar* a, GraphVar* b) {
    return make({a, b}, ElementwiseMode::SUB);
}

GraphVar* ElementwiseOperator::divide(GraphVar* a, GraphVar* b) {
    const bool integers = is_integer(a) && is_integer(b);
    return make({a, b}, integers ? ElementwiseMode::FLOOR_DIV : ElementwiseMode::TRUE_DIV);
}

const OperatorType* ElementwiseOperator::type_record() const {
    static constexpr OperatorType TYPE{"ElementwiseOperator"};
    return &TYPE;
}

void ElementwiseOperator::register_output_inference() {
    ShapeInferDescriptor rule;
    for (GraphVar* var : input())
        rule.deps.push_back({var, InferDepType::SHAPE});
    rule.infer = [](kern::TensorShape& shape, const std::vector<InferInput>& inputs) {
        std::vector<kern::TensorShape> shapes;
        for (const InferInput& dep : inputs)
            shapes.push_back(*dep.shape);
        shape = kern::Elementwise::deduce_output_shape(shapes);
        return true;
    };
    owner_graph().inference_manager().add_shape_rule(output(0), std::move(rule));
}

void ElementwiseOperator::plan_output_memory(bool dynamic) {
    SingleNodeOperator::plan_output_memory(dynamic);
    for (GraphVar* var : input()) {
        if (owner_graph().memory_manager().forward_input_writable(var, output(0)))
            return;
    }
}

void ElementwiseOperator::run_on_node() {
    if (m_is_computed)
        return;
    if (!m_kernel) {
        m_kernel = comp_node().env().kernel_handle().create_operator<kern::Elementwise>();
        m_kernel->param().mode = m_mode;
    }
    std::vector<kern::RawTensor> inputs;
    for (size_t i = 0; i < input().size(); ++i)
        inputs.push_back(input_value(i).as_raw());
    m_kernel->exec(inputs, output_value(0).as_raw());
}

void ElementwiseOperator::release_node_resources() {
    SingleNodeOperator::release_node_resources();
    m_kernel.reset();
}

}  // namespace orb
