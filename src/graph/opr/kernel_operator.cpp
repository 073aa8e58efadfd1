#include "graph/opr/kernel_operator.h"

#include <algorithm>

#include "kernels/check.h"

namespace orb {
namespace {

// Dense tensors get the strides of their shape: an axis of length 1 may carry any, which kernels
// that look at strides need not know.
kern::RawTensor with_plain_strides(const DeviceTensorND& value) {
    kern::RawTensor tensor = value.as_raw();
    kern::TensorLayout& layout = tensor.layout;
    size_t* end = layout.shape + layout.ndim;
    const bool has_short_axis = std::find(layout.shape, end, size_t{1}) != end;
    if (has_short_axis && layout.format->is_default() && layout.is_dense())
        layout.fill_strides();
    return tensor;
}

}  // namespace

void ForwardingOperator::add_outputs(const std::vector<kern::DType>& dtypes) {
    for (size_t i = 0; i < dtypes.size(); ++i)
        (dtypes.size() > 1 ? add_output("o" + std::to_string(i)) : add_output())->dtype(dtypes[i]);
}

void ForwardingOperator::add_workspace() {
    add_workspace_output();
    m_has_workspace = true;
}

std::vector<InferDep> ForwardingOperator::inference_deps() const {
    std::vector<InferDep> deps;
    for (GraphVar* var : input())
        deps.push_back({var, InferDepType::SHAPE});
    return deps;
}

size_t ForwardingOperator::workspace_size(const std::vector<InferInput>& inputs) {
    Layouts sources, results;
    for (size_t i = 0; i < inputs.size(); ++i)
        sources.emplace_back(*inputs[i].shape, input(i)->dtype());
    for (size_t i = 0; i < nr_content_outputs(); ++i) {
        if (!output(i)->has_flag(var_flag::NO_SYSTEM_ALLOC))
            results.emplace_back(output_shape(i, inputs), output(i)->dtype());
    }
    return query_workspace(sources, results);
}

size_t ForwardingOperator::query_workspace(const Layouts&, const Layouts&) {
    return 0;
}

void ForwardingOperator::register_output_inference() {
    InferenceManager& inference = owner_graph().inference_manager();
    for (size_t i = 0; i < nr_content_outputs(); ++i) {
        if (output(i)->has_flag(var_flag::NO_SYSTEM_ALLOC))
            continue;
        ShapeInferDescriptor rule;
        rule.deps = inference_deps();
        rule.infer = [this, i](kern::TensorShape& shape, const std::vector<InferInput>& inputs) {
            shape = output_shape(i, inputs);
            return true;
        };
        inference.add_shape_rule(output(i), std::move(rule));
    }
    add_value_rule();
    if (!m_has_workspace)
        return;
    ShapeInferDescriptor rule;
    rule.deps = inference_deps();
    rule.infer = [this](kern::TensorShape& shape, const std::vector<InferInput>& inputs) {
        shape = {workspace_size(inputs)};
        return true;
    };
    inference.add_shape_rule(output(nr_content_outputs()), std::move(rule));
}

void ForwardingOperator::compute_value(const Tensors&, const kern::RawTensor&) const {
    KERN_FAIL();
}

// Only for small results of a shape that is known now, and of values that are known before a run: a
// rule that has no result would leave those that depend on it without one.
void ForwardingOperator::add_value_rule() {
    constexpr size_t MOST_ELEMENTS = 64;
    InferenceManager& inference = owner_graph().inference_manager();
    GraphVar* result = output(0);
    if (!can_compute_value() || inference.shape_kind(result) != InferKind::CONSTANT ||
        result->shape().is_empty() || result->shape().element_count() > MOST_ELEMENTS)
        return;
    ValueInferDescriptor rule;
    for (GraphVar* var : input()) {
        if (!is_static(inference.value_kind(var)))
            return;
        rule.deps.push_back({var, InferDepType::VALUE});
    }
    rule.infer = [this, result](HostTensorND& value, const std::vector<InferInput>& inputs) {
        Tensors sources;
        for (const InferInput& dep : inputs)
            sources.push_back(dep.value->as_raw());
        value.resize(result->shape());
        compute_value(sources, value.as_raw());
        return true;
    };
    inference.add_value_rule(result, std::move(rule));
}

void ForwardingOperator::constrain_input_layouts(OperatorProperties& properties) const {
    SingleNodeOperator::constrain_input_layouts(properties);
    for (size_t i = 0; i < input().size(); ++i)
        require_contiguous_layout(properties, i);
}

kern::Workspace ForwardingOperator::workspace() const {
    if (!m_has_workspace)
        return {};
    const DeviceTensorND& value = output_value(nr_content_outputs());
    return {value.raw_ptr(), value.shape(0)};
}

void ForwardingOperator::run_on_node() {
    m_inputs.clear();
    m_outputs.clear();
    for (size_t i = 0; i < input().size(); ++i)
        m_inputs.push_back(with_plain_strides(input_value(i)));
    for (size_t i = 0; i < nr_content_outputs(); ++i) {
        if (!output(i)->has_flag(var_flag::NO_SYSTEM_ALLOC))
            m_outputs.push_back(output_value(i).as_raw());
    }
    forward(m_inputs, m_outputs, workspace());
}

}  // namespace orb
