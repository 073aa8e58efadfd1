#include "graph/opr/dimension_shuffle.h"

#include <algorithm>

#include "kernels/check.h"

namespace orb {

namespace {

const OperatorCopy COPY(&DimensionShuffle::TYPE, &DimensionShuffle::copy);

}  // namespace

const OperatorType DimensionShuffle::TYPE{"DimensionShuffle"};

DimensionShuffle::DimensionShuffle(const std::vector<GraphVar*>& inputs, const Param& param,
                                   const OperatorConfig& config)
    : ParamOperator(inputs[0]->owner_graph(), inputs, param, config, "dimshuffle") {
    add_output()->dtype(inputs[0]->dtype());
}

GraphVar* DimensionShuffle::make(GraphVar* var, const std::vector<int>& pattern, size_t source_ndim,
                                 const OperatorConfig& config) {
    KERN_CHECK(!pattern.empty());
    if (source_ndim == 0)
        source_ndim = static_cast<size_t>(*std::max_element(pattern.begin(), pattern.end()) + 1);
    return create({var}, {static_cast<uint32_t>(source_ndim), pattern}, config);
}

bool DimensionShuffle::accepts(const Param& param) {
    constexpr size_t MAX_NDIM = kern::TensorShape::MAX_NDIM;
    const auto is_axis = [&param](int32_t axis) {
        return axis == NEW_AXIS || (axis >= 0 && static_cast<uint32_t>(axis) < param.source_ndim);
    };
    return param.source_ndim <= MAX_NDIM && !param.pattern.empty() &&
           param.pattern.size() <= MAX_NDIM &&
           std::all_of(param.pattern.begin(), param.pattern.end(), is_axis);
}

kern::TensorLayout DimensionShuffle::shuffled(const kern::TensorLayout& layout) const {
    const std::vector<int>& pattern = param().pattern;
    KERN_CHECK(layout.ndim == param().source_ndim);
    for (size_t axis = 0; axis < layout.ndim; ++axis) {
        const bool is_used =
            std::find(pattern.begin(), pattern.end(), static_cast<int>(axis)) != pattern.end();
        KERN_CHECK(is_used || layout[axis] == 1);
    }
    kern::TensorLayout result(layout.dtype, layout.format);
    result.ndim = pattern.size();
    for (size_t i = 0; i < pattern.size(); ++i) {
        const bool is_new = pattern[i] == NEW_AXIS;
        const size_t axis = is_new ? 0 : static_cast<size_t>(pattern[i]);
        result.shape[i] = is_new ? 1 : layout.shape[axis];
        result.stride[i] = is_new ? 1 : layout.stride[axis];
    }
    return result;
}

void DimensionShuffle::register_output_inference() {
    ShapeInferDescriptor rule;
    rule.deps = {{input(0), InferDepType::SHAPE}};
    rule.infer = [this](kern::TensorShape& shape, const std::vector<InferInput>& inputs) {
        shape = shuffled(kern::TensorLayout(*inputs[0].shape, input(0)->dtype()));
        return true;
    };
    owner_graph().inference_manager().add_shape_rule(output(0), std::move(rule));
}

// Planned memory cannot view what only the run supplies.
void DimensionShuffle::on_inserted() {
    input(0)->lead_storage_of(output(0));
}

void DimensionShuffle::plan_output_memory(bool dynamic) {
    if (output(0)->is_static_storage() == dynamic)
        return;
    const MemPlan& plan = input(0)->mem_plan();
    if (plan.chunk) {
        const SubTensorRegion region(shuffled(plan.layout), 0);
        if (owner_graph().memory_manager().forward_input_readonly(input(0), output(0), region))
            return;
    }
    SingleNodeOperator::plan_output_memory(dynamic);
}

void DimensionShuffle::run_on_node() {
    if (output(0)->mem_plan().chunk == input(0)->mem_plan().chunk)
        return;
    const DeviceTensorND& value = input_value(0);
    DeviceTensorND view;
    view.reset(value.storage(), shuffled(value.layout()));
    DeviceTensorND result = output_value(0);
    result.copy_from_fixlayout(view);
}

}  // namespace orb
