#include "graph/opr/reduce_operator.h"

#include <cstring>

#include "graph/opr/elementwise_operator.h"
#include "kernels/check.h"
#include "kernels/handle.h"
#include "kernels/types/quantise.h"

namespace orb {
namespace {

using kern::DType;
using kern::ReduceDataType;
using kern::ReduceMode;
using kern::TensorShape;

DType output_dtype(DType input, const kern::Reduce::Param& param) {
    const bool is_quantised = input.category() == kern::DTypeCategory::QUANTISED;
    KERN_CHECK_TEXT(!is_quantised || param.mode >= ReduceMode::MIN, input.name());
    switch (param.data_type) {
        case ReduceDataType::DEFAULT:
            return input;
        case ReduceDataType::FLOAT_O32:
            KERN_CHECK_TEXT(!is_quantised, input.name());
            return DType::Float32();
        case ReduceDataType::FLOAT_O16:
            KERN_CHECK_TEXT(!is_quantised, input.name());
            return DType::Float16();
        case ReduceDataType::QUINT_I8_O32:
            KERN_CHECK_TEXT(input.enum_value() == kern::DTypeEnum::QUANTIZED8_ASYMM, input.name());
            return DType::QuantizedS32(kern::Quantisation::of(input).scale);
        default:  // no kernel takes any other
            KERN_FAIL_TEXT(input.name());
    }
}

// The input whose square the var is, null when it is something else.
GraphVar* base_of_square(GraphVar* var) {
    const GraphOperator* owner = var->owner_operator();
    const auto* power = dynamic_cast<const ElementwiseOperator*>(owner);
    if (!power || power->param().mode != kern::ElementwiseMode::POW)
        return nullptr;
    InferenceManager& inference = var->owner_graph().inference_manager();
    GraphVar* exponent = owner->input(1);
    if (inference.value_kind(exponent) != InferKind::CONSTANT ||
        exponent->dtype() != DType::Float32())
        return nullptr;
    const HostTensorND value = inference.value_of_var(exponent);
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

const OperatorCopy COPY(&ReduceOperator::TYPE, &ReduceOperator::copy);

}  // namespace

const OperatorType ReduceOperator::TYPE{"ReduceOperator"};

bool ReduceOperator::accepts(const Param& param) {
    switch (param.data_type) {
        case ReduceDataType::DEFAULT:
        case ReduceDataType::FLOAT_O32:
        case ReduceDataType::FLOAT_O16:
        case ReduceDataType::QUINT_I8_O32:
            return param.mode <= ReduceMode::MEAN;
        default:
            return false;  // no kernel
    }
}

ReduceOperator::ReduceOperator(const std::vector<GraphVar*>& inputs, const Param& param,
                               const OperatorConfig& config)
    : KernelOperator(inputs[0]->owner_graph(), inputs, param, config,
                     "reduce" + std::to_string(static_cast<uint32_t>(param.mode))) {
    add_outputs({output_dtype(inputs[0]->dtype(), param)});
    add_workspace();
}

GraphVar* ReduceOperator::make(GraphVar* source, Param param, GraphVar* target_shape,
                               const OperatorConfig& config) {
    if (param.data_type == ReduceDataType::FLOAT_IO16_CO32)
        param.data_type = ReduceDataType::FLOAT_O16;
    if (param.mode == ReduceMode::SUM) {
        if (GraphVar* base = base_of_square(source)) {
            param.mode = ReduceMode::SUM_SQR;
            source = base;
        }
    }
    std::vector<GraphVar*> inputs{source};
    if (target_shape)
        inputs.push_back(target_shape);
    return create(inputs, param, config);
}

OperatorProperties ReduceOperator::make_properties() const {
    OperatorProperties properties = KernelOperator::make_properties();
    if (input().size() > 1)
        properties.set_dependency(input(1),
                                  dependency::HOST_VALUE | dependency::HOST_VALUE_DYNAMIC);
    return properties;
}

void ReduceOperator::constrain_input_layouts(OperatorProperties& properties) const {
    require_contiguous_layout(properties, 0);
}

std::vector<InferDep> ReduceOperator::inference_deps() const {
    if (input().size() > 1)
        return {{input(0), InferDepType::SHAPE}, {input(1), InferDepType::VALUE}};
    return {{input(0), InferDepType::SHAPE}};
}

TensorShape ReduceOperator::output_shape(size_t, const std::vector<InferInput>& inputs) {
    if (param().axis < 0)
        return shape_from_value(*inputs[1].value);
    TensorShape shape = *inputs[0].shape;
    const auto axis = static_cast<size_t>(param().axis);
    KERN_CHECK(axis < shape.ndim);
    shape[axis] = 1;
    return shape;
}

void ReduceOperator::update(ReducePlan& plan, const TensorShape& source, const TensorShape& target,
                            kern::Reduce& kernel) const {
    plan.update(kern::TensorLayout(source, input(0)->dtype()), padded(target, source.ndim),
                output(0)->dtype(), param(), kernel);
}

size_t ReduceOperator::workspace_size(const std::vector<InferInput>& inputs) {
    const TensorShape& source = *inputs[0].shape;
    if (source.has_zero_axis())
        return 0;
    update(m_query_plan, source, output_shape(0, inputs), query_kernel());
    return m_query_plan.workspace_bytes();
}

bool ReduceOperator::keeps_elements(const TensorShape& source, const TensorShape& target) const {
    return param().mode != ReduceMode::SUM_SQR && input(0)->dtype() == output(0)->dtype() &&
           target.ndim <= source.ndim && source.same_shape(padded(target, source.ndim));
}

void ReduceOperator::plan_output_memory(bool dynamic) {
    KernelOperator::plan_output_memory(dynamic);
    const MemPlan& source = input(0)->mem_plan();
    const TensorShape& target = output(0)->shape();
    if (output(0)->is_static_storage() == dynamic || !source.chunk || !source.layout.is_dense() ||
        !keeps_elements(source.layout, target))
        return;
    const SubTensorRegion view(source.layout.reshape(target), 0);
    owner_graph().memory_manager().forward_input_readonly(input(0), output(0), view);
}

void ReduceOperator::run_on_node() {
    const DeviceTensorND& src = input_value(0);
    DeviceTensorND dst = output_value(0);
    if (!keeps_elements(src.shape(), dst.shape())) {
        forward({src.as_raw()}, {dst.as_raw()}, workspace());
    } else if (src.raw_ptr() != dst.raw_ptr()) {
        if (!src.shape().same_shape(dst.shape()))
            dst.reset(dst.storage(), dst.layout().reshape(src.shape()));
        dst.copy_from_fixlayout(src);
    }
}

void ReduceOperator::forward(const Tensors& inputs, const Tensors& outputs,
                             const kern::Workspace& workspace) {
    update(m_plan, inputs[0].layout, outputs[0].layout, kernel());
    m_plan.run(inputs[0], outputs[0], workspace, kernel());
}

void ReduceOperator::compute_value(const Tensors& inputs, const kern::RawTensor& output) const {
    const auto op = kern::inplace_handle()->create_operator<kern::Reduce>();
    ReducePlan plan;
    update(plan, inputs[0].layout, output.layout, *op);
    if (plan.is_copy()) {
        std::memcpy(output.raw_ptr, inputs[0].raw_ptr, output.layout.span().high_byte);
        return;
    }
    std::vector<uint8_t> bytes(plan.workspace_bytes());
    plan.run(inputs[0], output, {bytes.data(), bytes.size()}, *op);
}

}  // namespace orb
