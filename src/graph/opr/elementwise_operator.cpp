#include "graph/opr/elementwise_operator.h"

#include <algorithm>

#include "graph/opr/type_convert.h"
#include "kernels/check.h"
#include "kernels/handle.h"

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

// Factors and summands that may be exchanged come by id.
std::vector<GraphVar*> ordered(std::vector<GraphVar*> inputs, ElementwiseMode mode) {
    const auto sort = [&inputs](size_t first, size_t count) {
        const auto begin = inputs.begin() + static_cast<ptrdiff_t>(first);
        std::stable_sort(begin, begin + static_cast<ptrdiff_t>(count),
                         [](const GraphVar* a, const GraphVar* b) { return a->id() < b->id(); });
    };
    if (ModeTrait::of(mode).commutable)
        sort(0, inputs.size());
    if (mode == ElementwiseMode::FUSE_MUL_ADD3 || mode == ElementwiseMode::FUSE_MUL_ADD4)
        sort(0, 2);
    if (mode == ElementwiseMode::FUSE_MUL_ADD4)
        sort(2, 2);
    return inputs;
}

const OperatorCopy COPY(&ElementwiseOperator::TYPE, &ElementwiseOperator::copy);

}  // namespace

const OperatorType ElementwiseOperator::TYPE{"ElementwiseOperator"};

bool ElementwiseOperator::accepts(const Param& param) {
    return static_cast<uint32_t>(param.mode) < ModeTrait::count();
}

size_t ElementwiseOperator::nr_inputs(const Param& param) {
    return ModeTrait::of(param.mode).arity;
}

ElementwiseOperator::ElementwiseOperator(const std::vector<GraphVar*>& inputs, const Param& param,
                                         const OperatorConfig& config)
    : KernelOperator(inputs[0]->owner_graph(), ordered(inputs, param.mode), param, config,
                     ModeTrait::of(param.mode).name) {
    add_outputs({inputs[0]->dtype()});
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
    return create(converted, {mode}, config);
}

GraphVar* ElementwiseOperator::subtract(GraphVar* a, GraphVar* b) {
    return make({a, b}, ElementwiseMode::SUB);
}

GraphVar* ElementwiseOperator::divide(GraphVar* a, GraphVar* b) {
    const bool integers = is_integer(a) && is_integer(b);
    return make({a, b}, integers ? ElementwiseMode::FLOOR_DIV : ElementwiseMode::TRUE_DIV);
}

std::optional<EpilogueStep> ElementwiseOperator::as_epilogue(const GraphVar* var) {
    const bool is_unary = input().size() == 1;
    if (input(0) != var || input().size() > 2 || (!is_unary && input(1) == var))
        return std::nullopt;
    return EpilogueStep{param().mode, is_unary ? nullptr : input(1), output(0), this};
}

kern::TensorShape ElementwiseOperator::output_shape(size_t, const std::vector<InferInput>& inputs) {
    std::vector<kern::TensorShape> shapes;
    for (const InferInput& dep : inputs)
        shapes.push_back(*dep.shape);
    return kern::Elementwise::deduce_output_shape(shapes);
}

void ElementwiseOperator::plan_output_memory(bool dynamic) {
    SingleNodeOperator::plan_output_memory(dynamic);
    for (GraphVar* var : input()) {
        if (owner_graph().memory_manager().forward_input_writable(var, output(0)))
            return;
    }
}

void ElementwiseOperator::forward(const Tensors& inputs, const Tensors& outputs,
                                  const kern::Workspace&) {
    kernel().exec(inputs, outputs[0]);
}

void ElementwiseOperator::compute_value(const Tensors& inputs,
                                        const kern::RawTensor& output) const {
    const auto op = kern::inplace_handle()->create_operator<kern::Elementwise>();
    op->param() = param();
    op->exec(inputs, output);
}

}  // namespace orb
