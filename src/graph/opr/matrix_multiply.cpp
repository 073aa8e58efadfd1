#include "graph/opr/matrix_multiply.h"

#include <algorithm>
#include <utility>

#include "kernels/check.h"
#include "kernels/types/quantise.h"

namespace orb {
namespace {

using kern::DType;
using kern::TensorLayout;
using kern::TensorShape;

TensorShape swapped(const TensorShape& shape) {
    return {shape[1], shape[0]};
}

// An operand as the kernel takes it: contiguous as it is, or the transpose of a contiguous matrix.
bool is_contiguous(const TensorLayout& layout) {
    return layout.is_dense() || layout.has_zero_axis();
}
bool is_transposed(const TensorLayout& layout) {
    return layout.permuted({1, 0}).is_dense();
}
bool is_readable(const TensorLayout& layout) {
    return is_contiguous(layout) || is_transposed(layout);
}

// The contiguous matrix that the value is or is the transpose of; flips the flag in the latter
// case. Strides are made anew: an axis of length 1 may carry any.
kern::RawTensor operand(const kern::RawTensor& value, bool& transpose) {
    const TensorLayout& layout = value.layout;
    if (is_contiguous(layout))
        return {value.raw_ptr, TensorLayout(layout, layout.dtype)};
    transpose = !transpose;
    return {value.raw_ptr, TensorLayout(swapped(layout), layout.dtype)};
}

const OperatorCopy COPY(&MatrixMultiply::TYPE, &MatrixMultiply::copy);

}  // namespace

const OperatorType MatrixMultiply::TYPE{"MatrixMultiply"};

DType product_dtype(const GraphVar* a, const GraphVar* b, kern::MatrixMulDataType data_type,
                    const OperatorConfig& config) {
    KERN_CHECK_TEXT(a->dtype().enum_value() == b->dtype().enum_value(),
                    std::string(a->dtype().name()) + " " + b->dtype().name());
    const auto result = kern::MatrixMul::deduce_dtype(data_type, a->dtype().enum_value());
    if (config.output_dtype.valid()) {
        KERN_CHECK_TEXT(config.output_dtype.enum_value() == result, config.output_dtype.name());
        return config.output_dtype;
    }
    if (result != kern::DTypeEnum::QUANTIZED_S32)
        return DType::from_enum(static_cast<uint32_t>(result));
    return DType::QuantizedS32(kern::Quantisation::of(a->dtype()).scale *
                               kern::Quantisation::of(b->dtype()).scale);
}

MatrixMultiply::MatrixMultiply(const std::vector<GraphVar*>& inputs, const Param& param,
                               const OperatorConfig& config)
    : KernelOperator(inputs[0]->owner_graph(), inputs, param, config, "matrix_mul") {
    add_outputs({product_dtype(inputs[0], inputs[1], param.data_type, config)});
    add_workspace();
}

GraphVar* MatrixMultiply::make(GraphVar* a, GraphVar* b, const Param& param,
                               const OperatorConfig& config) {
    return create({a, b}, param, config);
}

void MatrixMultiply::constrain_input_layouts(OperatorProperties& properties) const {
    require_layout(properties, 0, is_readable);
    require_layout(properties, 1, is_readable);
}

TensorShape MatrixMultiply::output_shape(size_t, const std::vector<InferInput>& inputs) {
    return kern::MatrixMul::deduce_shape(param(), *inputs[0].shape, *inputs[1].shape);
}

// Which of the four forms runs is only known from the layouts, so the largest is asked for.
size_t MatrixMultiply::workspace_size(const std::vector<InferInput>& inputs) {
    const TensorShape& a = *inputs[0].shape;
    const TensorShape& b = *inputs[1].shape;
    const TensorLayout c(output_shape(0, inputs), output(0)->dtype());
    kern::MatrixMul& query = query_kernel();
    size_t size = 0;
    for (bool flip_a : {false, true}) {
        for (bool flip_b : {false, true}) {
            query.param() = param();
            query.param().transpose_a ^= flip_a;
            query.param().transpose_b ^= flip_b;
            const TensorLayout a_layout(flip_a ? swapped(a) : a, input(0)->dtype());
            const TensorLayout b_layout(flip_b ? swapped(b) : b, input(1)->dtype());
            size = std::max(size, query.workspace_in_bytes(a_layout, b_layout, c));
        }
    }
    return size;
}

size_t MatrixMultiply::absorb(std::vector<EpilogueStep> steps) {
    m_steps = std::move(steps);
    return m_steps.size();
}

// Those whose operand has its value already and whose result takes the product's place, in the same
// layout: the plan keeps that memory for nothing else until they have run.
std::vector<kern::MatrixMul::Epilogue> MatrixMultiply::epilogues_to_fold() const {
    const VarMemoryManager& memory = owner_graph().memory_manager();
    const DeviceTensorND& product = output_value(0);
    std::vector<kern::MatrixMul::Epilogue> to_fold;
    to_fold.reserve(m_steps.size());
    for (const EpilogueStep& step : m_steps) {
        if (!step.operand || !step.result->is_static_storage() ||
            !memory.has_value_before(step.operand, this) ||
            step.result->device_value().raw_ptr() != product.raw_ptr())
            break;
        to_fold.push_back({step.mode, step.operand->device_value().as_raw()});
    }
    return to_fold;
}

void MatrixMultiply::forward(const Tensors& inputs, const Tensors& outputs,
                             const kern::Workspace& workspace) {
    Param form = param();
    const kern::RawTensor a = operand(inputs[0], form.transpose_a);
    const kern::RawTensor b = operand(inputs[1], form.transpose_b);
    auto to_fold = epilogues_to_fold();
    kernel().param() = form;
    to_fold.resize(kernel().nr_foldable(a.layout, outputs[0].layout, to_fold));
    kernel().exec_folded(a, b, outputs[0], to_fold, workspace);
    m_nr_folded = to_fold.size();
    for (size_t i = 0; i < m_steps.size(); ++i)
        m_steps[i].op->set_absorbed(i < m_nr_folded);
    kernel().param() = param();
}

}  // namespace orb
