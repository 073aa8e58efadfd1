// Small tensors and an operator with free rules, for tests of graphs.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include "graph/core/compiled_function.h"
#include "graph/core/compute_graph.h"
#include "graph/exec/single_node_operator.h"
#include "graph/opr/shared_tensor_input.h"

namespace orb_test {

inline orb::CompNode node() {
    return orb::CompNode::load("cpu:default");
}

inline orb::OperatorConfig on_node(orb::CompNode where = node()) {
    orb::OperatorConfig config;
    config.comp_nodes = {where};
    return config;
}

template <typename T>
kern::DType dtype_of();
template <>
inline kern::DType dtype_of<float>() {
    return kern::DType::Float32();
}
template <>
inline kern::DType dtype_of<int32_t>() {
    return kern::DType::Int32();
}

template <typename T>
void fill(orb::DeviceTensorND& tensor, const kern::TensorShape& shape,
          const std::vector<T>& values) {
    orb::HostTensorND host(orb::CompNode::default_cpu(), shape, dtype_of<T>());
    if (!values.empty())
        std::memcpy(host.raw_ptr(), values.data(), values.size() * sizeof(T));
    tensor.copy_from(host);
    tensor.comp_node().sync();
}

template <typename T>
std::shared_ptr<orb::DeviceTensorND> make_tensor(const kern::TensorShape& shape,
                                                 const std::vector<T>& values,
                                                 orb::CompNode where = node()) {
    auto tensor = std::make_shared<orb::DeviceTensorND>(where, dtype_of<T>());
    fill(*tensor, shape, values);
    return tensor;
}

template <typename T>
std::vector<T> values_of(const orb::DeviceTensorND& tensor) {
    orb::HostTensorND host;
    host.copy_from(tensor);
    tensor.comp_node().sync();
    std::vector<T> values(host.shape().element_count());
    if (!values.empty())
        std::memcpy(values.data(), host.raw_ptr(), values.size() * sizeof(T));
    return values;
}

// A callback that keeps the value.
inline orb::OutputCallback take(std::vector<float>& target) {
    return [&target](const orb::DeviceTensorND& value) { target = values_of<float>(value); };
}

// Compiles one var, runs it and gives its value.
template <typename T>
std::vector<T> run(orb::GraphVar* var) {
    std::vector<T> result;
    const auto function = var->owner_graph().compile(
        {{var, [&](const orb::DeviceTensorND& value) { result = values_of<T>(value); }}});
    function->execute().wait();
    return result;
}

// An operator whose rules and computation are given by the test; the output is Float32.
class TestOperator final : public orb::SingleNodeOperator {
public:
    struct Behaviour {
        std::function<void(TestOperator&)> infer;
        std::function<void(TestOperator&)> run = [](TestOperator&) {};
        orb::CompNode node = orb_test::node();
        std::function<void(orb::OperatorProperties&)> properties = [](orb::OperatorProperties&) {};
        orb::VarFlags flags = 0;
        bool has_output = true;
        uint64_t key = 0;
        std::shared_ptr<void> handed_over;
    };

    static orb::GraphVar* make(orb::ComputeGraph& graph, const std::vector<orb::GraphVar*>& inputs,
                               Behaviour behaviour) {
        return insert(std::unique_ptr<orb::GraphOperator>(
            new TestOperator(graph, inputs, std::move(behaviour))));
    }

    const orb::OperatorType* type_record() const override {
        static constexpr orb::OperatorType TYPE{"TestOperator"};
        return &TYPE;
    }
    using SingleNodeOperator::add_input;
    using SingleNodeOperator::add_workspace_output;
    using SingleNodeOperator::input_value;
    using SingleNodeOperator::output_value;

    void hand_over(std::vector<std::shared_ptr<void>>& kept) override {
        SingleNodeOperator::hand_over(kept);
        kept.push_back(std::move(m_behaviour.handed_over));
    }

protected:
    void register_output_inference() override {
        if (m_behaviour.infer)
            m_behaviour.infer(*this);
    }
    orb::OperatorProperties make_properties() const override {
        auto properties = SingleNodeOperator::make_properties();
        m_behaviour.properties(properties);
        return properties;
    }
    void run_on_node() override { m_behaviour.run(*this); }

private:
    TestOperator(orb::ComputeGraph& graph, const std::vector<orb::GraphVar*>& inputs,
                 Behaviour behaviour)
        : SingleNodeOperator(&graph, on_node(behaviour.node), "test"),
          m_behaviour(std::move(behaviour)) {
        add_input(inputs);
        if (m_behaviour.has_output)
            add_output()->add_flag(m_behaviour.flags).dtype(kern::DType::Float32());
        add_equality_key(m_behaviour.key);
    }

    Behaviour m_behaviour;
};

// A shape rule for output 0 from the shapes of all inputs, or a source without inputs.
inline std::function<void(TestOperator&)> shape_rule(
    orb::InferSource source,
    std::function<bool(kern::TensorShape&, const std::vector<orb::InferInput>&)> infer) {
    return [source, infer](TestOperator& op) {
        orb::ShapeInferDescriptor rule;
        rule.source = source;
        for (orb::GraphVar* var : op.input())
            rule.deps.push_back({var, orb::InferDepType::SHAPE});
        rule.infer = infer;
        op.owner_graph().inference_manager().add_shape_rule(op.output(0), rule);
    };
}

// The rule of a shape that never changes.
inline std::function<void(TestOperator&)> constant_shape(const kern::TensorShape& shape) {
    return shape_rule(orb::InferSource::CONSTANT, [shape](kern::TensorShape& result, const auto&) {
        result = shape;
        return true;
    });
}

// An operator whose output's shape is known only in the run: it reads the value of `source`.
inline TestOperator::Behaviour shape_from_value(
    orb::GraphVar* source, std::function<kern::TensorShape(const float*)> shape_of) {
    TestOperator::Behaviour behaviour;
    behaviour.infer = [source, shape_of](TestOperator& op) {
        orb::ShapeInferDescriptor rule;
        rule.deps = {{source, orb::InferDepType::VALUE}};
        rule.infer = [=](kern::TensorShape& shape, const std::vector<orb::InferInput>& deps) {
            shape = shape_of(deps[0].value->ptr<float>());
            return true;
        };
        op.owner_graph().inference_manager().add_shape_rule(op.output(0), rule);
    };
    behaviour.properties = [source](orb::OperatorProperties& properties) {
        using namespace orb::dependency;
        properties.add_dependency(source, HOST_VALUE | HOST_VALUE_DYNAMIC);
    };
    return behaviour;
}

}  // namespace orb_test
