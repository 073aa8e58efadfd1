#include "graph/opr/matrix_multiply.h"

#include <algorithm>
#include <utility>

#include "graph/node/comp_node_env.h"
#include "graph/opr/elementwise_operator.h"
#include "kernels/check.h"

namespace orb {
namespace {

using kern::DType;
using kern::TensorLayout;
using kern::TensorShape;

// Quantised results, whose scale would have to be chosen, stop the process.
DType output_dtype(DType input, kern::MatrixMulDataType data_type) {
    const auto number = kern::MatrixMul::deduce_dtype(data_type, input.enum_value());
    return DType::from_enum(static_cast<uint32_t>(number));
}

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
kern::RawTensor operand(const DeviceTensorND& value, bool& transpose) {
    const TensorLayout& layout = value.layout();
    if (is_contiguous(layout))
        return {value.raw_ptr(), TensorLayout(layout, layout.dtype)};
    transpose = !transpose;
    return {value.raw_ptr(), TensorLayout(swapped(layout), layout.dtype)};
}

}  // namespace

MatrixMultiply::MatrixMultiply(GraphVar* a, GraphVar* b, const Param& param,
                               const OperatorConfig& config)
    : SingleNodeOperator(&a->owner_graph(), config, "matrix_mul"), m_param(param) {
    add_input({a, b});
    add_output()->dtype(output_dtype(a->dtype(), param.data_type));
    add_workspace_output();
    add_equality_key(param.transpose_a);
    add_equality_key(param.transpose_b);
    add_equality_key(static_cast<uint64_t>(param.data_type));
}

GraphVar* MatrixMultiply::make(GraphVar* a, GraphVar* b, const Param& param,
                               const OperatorConfig& config) {
    KERN_CHECK_TEXT(a->dtype().enum_value() == b->dtype().enum_value(),
                    std::string(a->dtype().name()) + " " + b->dtype().name());
    return insert(std::unique_ptr<GraphOperator>(new MatrixMultiply(a, b, param, config)));
}

const OperatorType* MatrixMultiply::type_record() const {
    static constexpr OperatorType TYPE{"MatrixMultiply"};
    return &TYPE;
}

OperatorProperties MatrixMultiply::make_properties() const {
    OperatorProperties properties = SingleNodeOperator::make_properties();
    for (GraphVar* var : input())
        require_layout(properties, var, is_readable);
    return properties;
}

TensorShape MatrixMultiply::output_shape(const TensorShape& a, const TensorShape& b) const {
    return kern::MatrixMul::deduce_shape(m_param, a, b);
}

kern::MatrixMul& MatrixMultiply::kernel() {
    if (!m_kernel)
        m_kernel = comp_node().env().kernel_handle().create_operator<kern::MatrixMul>();
    return *m_kernel;
}

// Which of the four forms runs is only known from the layouts, so the largest is asked for.
size_t MatrixMultiply::get_workspace_size(const TensorShape& a, const TensorShape& b) {
    const TensorLayout c(output_shape(a, b), output(0)->dtype());
    size_t size = 0;
    for (bool flip_a : {false, true}) {
        for (bool flip_b : {false, true}) {
            kernel().param() = m_param;
            kernel().param().transpose_a ^= flip_a;
            kernel().param().transpose_b ^= flip_b;
            const TensorLayout a_layout(flip_a ? swapped(a) : a, input(0)->dtype());
            const TensorLayout b_layout(flip_b ? swapped(b) : b, input(1)->dtype());
            size = std::max(size, kernel().workspace_in_bytes(a_layout, b_layout, c));
        }
    }
    kernel().param() = m_param;
    return size;
}

void MatrixMultiply::register_output_inference() {
    const std::vector<InferDep> deps = {{input(0), InferDepType::SHAPE},
                                        {input(1), InferDepType::SHAPE}};
    ShapeInferDescriptor rule;
    rule.deps = deps;
    rule.infer = [this](TensorShape& shape, const std::vector<InferInput>& inputs) {
        shape = output_shape(*inputs[0].shape, *inputs[1].shape);
        return true;
    };
    owner_graph().inference_manager().add_shape_rule(output(0), std::move(rule));

    ShapeInferDescriptor workspace_rule;
    workspace_rule.deps = deps;
    workspace_rule.infer = [this](TensorShape& shape, const std::vector<InferInput>& inputs) {
        shape = {get_workspace_size(*inputs[0].shape, *inputs[1].shape)};
        return true;
    };
    owner_graph().inference_manager().add_shape_rule(output(1), std::move(workspace_rule));
}

void MatrixMultiply::epilogues(std::vector<ElementwiseOperator*> operators) {
    m_epilogues = std::move(operators);
}

// Those whose operand has its value already and whose result takes the product's place, in the same
// layout: the plan keeps that memory for nothing else until they have run.
std::vector<kern::MatrixMul::Epilogue> MatrixMultiply::epilogues_to_fold() const {
    const VarMemoryManager& memory = owner_graph().memory_manager();
    const DeviceTensorND& product = output_value(0);
    std::vector<kern::MatrixMul::Epilogue> to_fold;
    to_fold.reserve(m_epilogues.size());
    for (const ElementwiseOperator* epilogue : m_epilogues) {
        const GraphVar* result = epilogue->output(0);
        const GraphVar* operand = epilogue->input(1);
        if (!result->is_static_storage() || !memory.has_value_before(operand, this) ||
            result->device_value().raw_ptr() != product.raw_ptr())
            break;
        to_fold.push_back({epilogue->mode(), operand->device_value().as_raw()});
    }
    return to_fold;
}

void MatrixMultiply::run_on_node() {
    Param form = m_param;
    const kern::RawTensor a = operand(input_value(0), form.transpose_a);
    const kern::RawTensor b = operand(input_value(1), form.transpose_b);
    const DeviceTensorND& workspace = output_value(1);
    const kern::RawTensor c = output_value(0).as_raw();
    auto to_fold = epilogues_to_fold();
    kernel().param() = form;
    to_fold.resize(kernel().nr_foldable(a.layout, c.layout, to_fold));
    kernel().exec_folded(a, b, c, to_fold, {workspace.raw_ptr(), workspace.shape(0)});
    m_nr_folded = to_fold.size();
    for (size_t i = 0; i < m_epilogues.size(); ++i)
        m_epilogues[i]->computed_by_product(i < m_nr_folded);
    kernel().param() = m_param;
}

void MatrixMultiply::release_node_resources() {
    SingleNodeOperator::release_node_resources();
    m_kernel.reset();
}

}  // namespace orb
