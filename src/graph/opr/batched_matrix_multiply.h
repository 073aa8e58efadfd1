// Products of matrices, one for each element of a leading axis.
#pragma once

#include "graph/opr/matrix_multiply.h"
#include "kernels/operators/batched_matrix_mul.h"

namespace orb {

class BatchedMatrixMultiply final
    : public KernelOperator<BatchedMatrixMultiply, kern::BatchedMatrixMul> {
public:
    static const OperatorType TYPE;
    static size_t nr_inputs(const Param&) { return 2; }

    // Three axes each, the first of one length; the others and the dtypes as in MatrixMultiply.
    static GraphVar* make(GraphVar* a, GraphVar* b, const Param& param,
                          const OperatorConfig& config = {});

protected:
    kern::TensorShape output_shape(size_t index, const std::vector<InferInput>& inputs) override;
    size_t query_workspace(const Layouts& inputs, const Layouts& outputs) override;
    void forward(const Tensors& inputs, const Tensors& outputs,
                 const kern::Workspace& workspace) override;

private:
    friend Base;
    BatchedMatrixMultiply(const std::vector<GraphVar*>& inputs, const Param& param,
                          const OperatorConfig& config);
};

}  // namespace orb
