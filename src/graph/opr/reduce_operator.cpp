#include "graph/opr/reduce_operator.h"

#include <cstring>

#include "graph/node/comp_node_env.h"
#include "graph/opr/elementwise_operator.h"
#include "kernels/check.h"

namespace orb {
namespace {

using kern::DType;
using kern::ReduceDataType;
using kern::ReduceMode;
using kern::TensorShape;

DType output_dtype(DType input, const kern::Reduce::Param& param) {
    KERN_CHECK_TEXT(input.category() != kern::DTypeCategory::QUANTISED, input.name());
    switch (param.data_type) {
        case ReduceDataType::DEFAULT:
            return input;
        case ReduceDataType::FLOAT_O32:
            return DType::Float32();
        case ReduceDataType::FLOAT_O16:
            return DType::Float16();
        default:
            KERN_FAIL_TEXT(input.name());
    }
}

// The input whose square the var is, null when it is something else.
GraphVar* base_of_square(GraphVar* var) {
    const GraphOperator* owner = var->owner_operator();
    const auto* power = dynamic_cast<const ElementwiseOperator*>(owner);
    if (!power || power->mode() != kern::ElementwiseMode::POW)
        return nullptr;
    InferenceManager& inference = var->owner_graph().inference_manager();
    GraphVar* exponent = owner->input(1);
    if (inference.value_kind(exponent) != InferKind::CONSTANT ||
        exponent->dtype() != DType::Float32())
        return nullptr;
    const HostTensorND& value = inference.value_of_var(exponent);
    const bool is_two = value.shape().same_shape({1}) && value.ptr<float>()[0] == 2.0f;
    return is_two ? owner->input(0) : nullptr;
}

// A vector of at most four-byte integers on the host as a shape.
TensorShape shape_from_value(const HostTensorND& value) {
    KERN_CHECK(value.shape().ndim == 1 && value.shape(0) <= TensorShape::MAX_NDIM);
    KERN_CHECK(value.dtype().category() == kern::DTypeCategory::INTEGER);
    HostTensorND compact;
    compact.copy_from(value);
    TensorShape shape;
    shape.ndim = value.shape(0);
    const size_t width = value.dtype().element_bytes();
    for (size_t axis = 0; axis < shape.ndim; ++axis) {
        uint32_t length = 0;  // little-endian; lengths are not negative
        std::memcpy(&length, compact.raw_ptr() + axis * width, width);
        shape[axis] = length;
    }
    return shape;
}

// Lengths of 1 on the left up to `ndim` axes.
TensorShape padded(const TensorShape& shape, size_t ndim) {
    KERN_CHECK(shape.ndim <= ndim);
    TensorShape result;
    result.ndim = ndim;
    for (size_t axis = 0; axis < ndim; ++axis)
        result[axis] = axis + shape.ndim < ndim ? 1 : shape[axis + shape.ndim - ndim];
    return result;
}

}  // namespace

ReduceOperator::ReduceOperator(GraphVar* source, const Param& param, GraphVar* target_shape,
                               const OperatorConfig& config)
    : SingleNodeOperator(&source->owner_graph(), config,
                         "reduce" + std::to_string(static_cast<uint32_t>(param.mode))),
      m_param(param) {
    add_input({source});
    if (target_shape)
        add_input({target_shape});
    add_output()->dtype(output_dtype(source->dtype(), param));
    add_workspace_output();
    add_equality_key(static_cast<uint64_t>(param.mode));
    add_equality_key(static_cast<uint64_t>(static_cast<int64_t>(param.axis)));
    add_equality_key(static_cast<uint64_t>(param.data_type));
}

GraphVar* ReduceOperator::make(GraphVar* source, Param param, GraphVar* target_shape,
                               const OperatorConfig& config) {
    KERN_CHECK((param.axis < 0) == (target_shape != nullptr));
    if (param.data_type == ReduceDataType::FLOAT_IO16_CO32)
        param.data_type = ReduceDataType::FLOAT_O16;
    if (param.mode == ReduceMode::SUM) {
        if (GraphVar* base = base_of_square(source)) {
            param.mode = ReduceMode::SUM_SQR;
            source = base;
        }
    }
    return insert(
        std::unique_ptr<GraphOperator>(new ReduceOperator(source, param, target_shape, config)));
}

const OperatorType* ReduceOperator::type_record() const {
    static constexpr OperatorType TYPE{"ReduceOperator"};
    return &TYPE;
}

OperatorProperties ReduceOperator::make_properties() const {
    OperatorProperties properties = SingleNodeOperator::make_properties();
    require_contiguous_layout(properties, input(0));
    if (input().size() > 1) {
        for (auto& entry : properties.dependencies) {
            if (entry.first == input(1))
                entry.second = dependency::HOST_VALUE | dependency::HOST_VALUE_DYNAMIC;
        }
    }
    return properties;
}

TensorShape ReduceOperator::output_shape(const std::vector<InferInput>& inputs) const {
    if (m_param.axis < 0)
        return shape_from_value(*inputs[1].value);
    TensorShape shape = *inputs[0].shape;
    const auto axis = static_cast<size_t>(m_param.axis);
    KERN_CHECK(axis < shape.ndim);
    shape[axis] = 1;
    return shape;
}

const ReducePlan& ReduceOperator::plan_for(const TensorShape& source, const TensorShape& target) {
    if (!m_kernel)
        m_kernel = comp_node().env().kernel_handle().create_operator<kern::Reduce>();
    const TensorShape full_target = padded(target, source.ndim);
    if (!m_plan.is_for(source, full_target)) {
        m_plan = ReducePlan(kern::TensorLayout(source, input(0)->dtype()), full_target,
                            output(0)->dtype(), m_param, *m_kernel);
    }
    m_kernel->param() = m_param;
    return m_plan;
}

void ReduceOperator::register_output_inference() {
    std::vector<InferDep> deps = {{input(0), InferDepType::SHAPE}};
    if (m_param.axis < 0)
        deps.push_back({input(1), InferDepType::VALUE});
    ShapeInferDescriptor rule;
    rule.deps = deps;
    rule.infer = [this](TensorShape& shape, const std::vector<InferInput>& inputs) {
        shape = output_shape(inputs);
        return true;
    };
    owner_graph().inference_manager().add_shape_rule(output(0), std::move(rule));

    ShapeInferDescriptor workspace_rule;
    workspace_rule.deps = deps;
    workspace_rule.infer = [this](TensorShape& shape, const std::vector<InferInput>& inputs) {
        const TensorShape& source = *inputs[0].shape;
        shape = {source.has_zero_axis() ? 0
                                        : plan_for(source, output_shape(inputs)).workspace_bytes()};
        return true;
    };
    owner_graph().inference_manager().add_shape_rule(output(1), std::move(workspace_rule));
}

void ReduceOperator::run_on_node() {
    const DeviceTensorND& src = input_value(0);
    const DeviceTensorND& dst = output_value(0);
    const ReducePlan& plan = plan_for(src.shape(), dst.shape());
    if (plan.is_copy()) {
        DeviceTensorND view = dst;
        if (!src.shape().same_shape(dst.shape()))
            view.reset(dst.storage(), dst.layout().reshape(src.shape()));
        view.copy_from_fixlayout(src);
        return;
    }
    const DeviceTensorND& workspace = output_value(1);
    plan.run(src.as_raw(), dst.as_raw(), {workspace.raw_ptr(), workspace.shape(0)}, *m_kernel);
}

void ReduceOperator::release_node_resources() {
    SingleNodeOperator::release_node_resources();
    m_kernel.reset();
}

}  // namespace orb
