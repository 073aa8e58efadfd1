#include "graph/opr/top_k.h"

namespace orb {
namespace {

// Without a shape in the mode that has none.
kern::TensorLayout indices_of(const std::vector<kern::TensorLayout>& outputs) {
    return outputs.size() > 1 ? outputs[1] : kern::TensorLayout(kern::DType::Int32());
}

const OperatorCopy COPY(&TopK::TYPE, &TopK::copy);

}  // namespace

const OperatorType TopK::TYPE{"TopK"};

bool TopK::accepts(const Param& param) {
    return param.mode <= kern::TopK::Mode::ORDERED && param.k != 0;
}

size_t TopK::nr_outputs(const Param& param) {
    return param.mode == kern::TopK::Mode::KTH_VALUE ? 1 : 2;
}

TopK::TopK(const std::vector<GraphVar*>& inputs, const Param& param, const OperatorConfig& config)
    : KernelOperator(inputs[0]->owner_graph(), inputs, param, config, "top_k") {
    std::vector<kern::DType> dtypes{inputs[0]->dtype()};
    if (nr_outputs(param) == 2)
        dtypes.push_back(kern::DType::Int32());
    add_outputs(dtypes);
    add_workspace();
}

GraphVar* TopK::make(GraphVar* source, const Param& param, const OperatorConfig& config) {
    return create({source}, param, config);
}

void TopK::configure(kern::TopK& kernel) const {
    kernel.param().mode = param().mode;
}

kern::TensorShape TopK::output_shape(size_t index, const std::vector<InferInput>& inputs) {
    const kern::TensorLayout source(*inputs[0].shape, input(0)->dtype());
    const auto outputs = query_kernel().deduce_outputs(param().k, source);
    return index == 0 ? outputs.values : outputs.indices;
}

size_t TopK::query_workspace(const Layouts& inputs, const Layouts& outputs) {
    return query_kernel().workspace_in_bytes(param().k, inputs[0], outputs[0], indices_of(outputs));
}

void TopK::forward(const Tensors& inputs, const Tensors& outputs,
                   const kern::Workspace& workspace) {
    const kern::RawTensor none{nullptr, kern::TensorLayout(kern::DType::Int32())};
    kernel().exec(param().k, inputs[0], outputs[0], outputs.size() > 1 ? outputs[1] : none,
                  workspace);
}

}  // namespace orb
