#include "graph/opr/batched_matrix_multiply.h"

namespace orb {
namespace {

const OperatorCopy COPY(&BatchedMatrixMultiply::TYPE, &BatchedMatrixMultiply::copy);

}  // namespace

const OperatorType BatchedMatrixMultiply::TYPE{"BatchedMatrixMultiply"};

BatchedMatrixMultiply::BatchedMatrixMultiply(const std::vector<GraphVar*>& inputs,
                                             const Param& param, const OperatorConfig& config)
    : KernelOperator(inputs[0]->owner_graph(), inputs, param, config, "batched_matrix_mul") {
    add_outputs({product_dtype(inputs[0], inputs[1], param.data_type, config)});
    add_workspace();
}

GraphVar* BatchedMatrixMultiply::make(GraphVar* a, GraphVar* b, const Param& param,
                                      const OperatorConfig& config) {
    return create({a, b}, param, config);
}

kern::TensorShape BatchedMatrixMultiply::output_shape(size_t,
                                                      const std::vector<InferInput>& inputs) {
    return kern::BatchedMatrixMul::deduce_shape(param(), *inputs[0].shape, *inputs[1].shape);
}

size_t BatchedMatrixMultiply::query_workspace(const Layouts& inputs, const Layouts& outputs) {
    return query_kernel().workspace_in_bytes(inputs[0], inputs[1], outputs[0]);
}

void BatchedMatrixMultiply::forward(const Tensors& inputs, const Tensors& outputs,
                                    const kern::Workspace& workspace) {
    kernel().exec(inputs[0], inputs[1], outputs[0], workspace);
}

}  // namespace orb
